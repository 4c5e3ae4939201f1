// The DMA engine: what the board's bus master does once INT word 3 starts it. Each tick it
// completes the next buffer (or a burst of them) of every enabled channel, in ring order: it
// fills the buffer with the channel's payload (zarimsim_payload.h), publishes the channel's
// completed count in its progress record and signals the channel's data event, as the driver
// would on the board's interrupt.
//
// Threads. One engine thread per running board, started by the start and joined by the stop:
// boards run at their own rates and stop on their own, nothing runs while no board streams,
// and a stop is a plain join. The thread never takes the board's lock, so code holding that
// lock (a register trap, an unmap, a close) can stop it and wait for it. It holds no lock of
// any kind while it fills or signals; its own small lock guards only its settings and stop
// flag (lock order: board, then engine). Because a stop joins the thread, nothing is touched
// after the stop returns: unmap, close, reset and the board's destructor stop the engine
// before they give the memory or the events back.
//
// Everything the thread touches is handed to it at start: the buffers, the progress records
// and the events, which stay valid until those stops, and the bus master's status counters.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "board.h"
#include "stream/dma_master.h"
#include "zarimsim_payload.h"

// Under ThreadSanitizer the engine's buffer writes go unwatched: it refills a buffer that a
// reader copied a ring earlier, as the hardware does, with nothing but the ring's depth between
// them (a reader a whole ring behind is told so by the count), and every byte of it would be
// reported. What a reader relies on stays watched: the buffer is written before the count that
// announces it, which the engine stores with release, so a reader that loaded the count
// without acquire is reported on the count itself.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZSIM_TSAN 1
#endif
#endif
#if defined(__SANITIZE_THREAD__) || defined(ZSIM_TSAN)
extern "C" void AnnotateIgnoreWritesBegin(const char* file, int line);
extern "C" void AnnotateIgnoreWritesEnd(const char* file, int line);
#define ZSIM_UNWATCHED_BEGIN() AnnotateIgnoreWritesBegin(__FILE__, __LINE__)
#define ZSIM_UNWATCHED_END() AnnotateIgnoreWritesEnd(__FILE__, __LINE__)
#else
#define ZSIM_UNWATCHED_BEGIN()
#define ZSIM_UNWATCHED_END()
#endif

namespace zsim {

namespace {

using Clock = std::chrono::steady_clock;


// What one run works on, fixed at its start.
struct Job {
  DmaRingView ring;
  std::vector<uint32_t> channels;       // the programmed ones
  std::vector<tvx::os::Event> events;   // by channel
  DmaMaster* master = nullptr;          // its status counters
};

// Tick n (from 0) of a rate is due at first + n periods.
struct Schedule {
  Clock::time_point first;
  Clock::duration period{};
  uint64_t ticks = 0;
};

class Engine {
 public:
  ~Engine() { Stop(); }

  // False when no thread could be started.
  bool Start(Job job, const DmaSettings& settings) {
    Stop();
    job_ = std::move(job);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      settings_ = settings;
      ++generation_;
      stop_ = false;
    }
    try {
      thread_ = std::thread(&Engine::Run, this);
    } catch (const std::system_error&) {
      return false;
    }
    return true;
  }

  // Returns once the thread has ended; true when one was running.
  bool Stop() {
    if (!thread_.joinable()) return false;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
    return true;
  }

  void Update(const DmaSettings& settings) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      settings_ = settings;
      ++generation_;
    }
    wake_.notify_all();
  }

 private:
  // Sleeps until the next tick is due; false when told to stop. A settings change wakes it to
  // take the new settings; a new rate (or burst) starts the schedule over from now.
  bool AwaitTick(DmaSettings* s, Schedule* schedule) {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      if (stop_) return false;
      if (generation_ != seen_) {
        const bool restart = settings_.rate != s->rate || settings_.burst != s->burst;
        *s = settings_;
        seen_ = generation_;
        if (restart && s->rate != 0) {
          schedule->period = std::chrono::duration_cast<Clock::duration>(
              std::chrono::duration<double>(double(s->burst) / s->rate));
          schedule->first = Clock::now() + schedule->period;   // a buffer takes a period
          schedule->ticks = 0;
        }
      }
      if (!AnyWork(*s)) {
        wake_.wait(lock);
        continue;
      }
      if (s->rate == 0) return true;
      const Clock::time_point due = schedule->first + schedule->period * int64_t(schedule->ticks);
      const auto now = Clock::now();
      // A board's engine runs at its rate and never faster: an engine thread the machine kept
      // from running for more than a period (a starved machine, a debugger stop) starts its
      // schedule over instead of completing the backlog back to back, which a reader would
      // see as a burst that hardware never makes.
      if (now - due > schedule->period) {
        schedule->first = now;
        schedule->ticks = 0;
        return true;
      }
      if (now >= due) return true;
      wake_.wait_until(lock, due);
    }
  }

  // Some enabled channel has buffers left to complete.
  bool AnyWork(const DmaSettings& s) const {
    for (size_t x = 0; x < job_.channels.size(); ++x)
      if (s.enabled[job_.channels[x]] && (!s.stall || done_[x] < s.stall_after)) return true;
    return false;
  }

  void Run() {
    const Job& job = job_;
    done_.assign(job.channels.size(), 0);
    std::vector<uint64_t> updates(job.channels.size(), 0);
    DmaSettings s;
    s.rate = ~0u;   // differs from every setting: the first look starts the schedule
    seen_ = ~uint64_t{0};
    Schedule schedule;
    while (AwaitTick(&s, &schedule)) {
      ++schedule.ticks;
      for (size_t x = 0; x < job.channels.size(); ++x) {
        if (stop_.load(std::memory_order_relaxed)) return;
        const uint32_t c = job.channels[x];
        if (!s.enabled[c]) continue;
        uint64_t n = s.burst;
        if (s.stall) n = std::min(n, s.stall_after > done_[x] ? s.stall_after - done_[x] : 0);
        if (n == 0) continue;
        CompleteBuffers(job.ring, s.payload, c, done_[x], done_[x] + n);
        done_[x] += n;
        DmaMaster::ChannelStatus& status = job.master->status(c);
        status.completed.store(done_[x], std::memory_order_relaxed);
        ++updates[x];
        if (s.drop_event != 0 && updates[x] % s.drop_event == 0) continue;
        tvx::os::SignalEvent(job.events[c]);
        status.signalled.fetch_add(1, std::memory_order_relaxed);
      }
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  // Set under the lock, so that a wait cannot miss it; read without it between two buffers.
  std::atomic<bool> stop_{false};
  DmaSettings settings_;
  uint64_t generation_ = 0;
  // the thread's own
  uint64_t seen_ = 0;
  std::vector<uint64_t> done_;   // buffers completed since start, by position in job_.channels
  Job job_;
  std::thread thread_;
};

Engine g_engines[kMaxBoards];

// Everything a run needs, or why the table does not serve the mapped memory.
std::string Prepare(Board& board, Job* job) {
  const DmaMemory& dma = board.dma;
  if (!dma.mapped) return "memory not mapped";
  if (board.events.size() < dma.channels) return "data events missing";
  DmaRing ring;
  ring.channels = dma.channels;
  ring.buffers_per_channel = dma.buffers_per_channel;
  ring.buffer_size = dma.buffer_size;
  const size_t count = size_t(dma.channels) * dma.buffers_per_channel;
  for (size_t i = 0; i < count; ++i) ring.bus.push_back(dma.descriptors[i].bus_address);
  DmaMaster& master = board.model.dma_master();
  std::string reason = master.Check(ring, &job->channels);
  if (!reason.empty()) return reason;
  job->ring = RingView(board);
  job->events = board.events;
  job->master = &master;
  return "";
}

void OnControl(Board& board) {
  DmaMaster& master = board.model.dma_master();
  Engine& engine = g_engines[board.index];
  engine.Stop();
  if (!master.run_requested()) {
    master.set_state("stopped");
    return;
  }
  Job job;
  const std::string reason = Prepare(board, &job);
  if (!reason.empty()) {
    master.set_state("refused: " + reason);
    return;
  }
  // The counts are "completed since the engine was started".
  for (uint32_t c = 0; c < board.dma.channels; ++c) PublishCompleted(board.dma.progress, c, 0);
  master.ClearStatus();
  if (!engine.Start(std::move(job), master.settings())) {
    master.set_state("refused: no thread for the engine");
    return;
  }
  master.set_state("running");
}

}  // namespace

DmaRingView RingView(const Board& board) {
  DmaRingView view;
  // Our own allocation, not the descriptors' process addresses: the caller can write those.
  view.buffers = static_cast<uint8_t*>(board.dma.buffers);
  view.progress = board.dma.progress;
  view.buffers_per_channel = board.dma.buffers_per_channel;
  view.buffer_size = board.dma.buffer_size;
  view.slot = board.model.slot();
  return view;
}

// The reader (another thread, maybe another process) must see a buffer before the count that
// announces it.
void PublishCompleted(void* progress, uint32_t channel, uint32_t count) {
  __atomic_store_n(tvx::zarimio::CompletedCount(reinterpret_cast<uintptr_t>(progress), channel),
                   count, __ATOMIC_RELEASE);
}

void CompleteBuffers(const DmaRingView& ring, unsigned payload, uint32_t channel, uint64_t done,
                     uint64_t count) {
  const uint32_t n = ring.buffers_per_channel;
  // Of a burst longer than the ring only the last ring's worth survives in memory.
  ZSIM_UNWATCHED_BEGIN();
  for (uint64_t q = count - done > n ? count - n : done; q < count; ++q)
    zsim_payload_fill(ring.buffers + (size_t(channel) * n + q % n) * ring.buffer_size,
                      ring.buffer_size, payload, channel, ring.slot, q);
  ZSIM_UNWATCHED_END();
  PublishCompleted(ring.progress, channel, uint32_t(count));
}

void AttachDmaEngine(Board& board) {
  board.model.dma_master().SetListener([&board](DmaMaster::Change change) {
    switch (change) {
      case DmaMaster::Change::kControl:
        OnControl(board);
        break;
      case DmaMaster::Change::kSettings:
        g_engines[board.index].Update(board.model.dma_master().settings());
        break;
      case DmaMaster::Change::kReset:
        g_engines[board.index].Stop();
        break;
    }
  });
}

void StopDmaEngine(Board& board) {
  board.replay.StopData();   // a replay's data events write into the same memory
  if (g_engines[board.index].Stop()) board.model.dma_master().set_state("stopped");
}

}  // namespace zsim
