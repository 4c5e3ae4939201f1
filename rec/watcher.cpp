// The progress watchers: a thread per board that reads the driver's per-channel progress
// records and records every change of a channel's completed count, which is what the driver's
// data events announce. The records belong to the mapped DMA memory, so a watcher is stopped
// before that memory is unmapped or the board closed.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "hw/zarimio_abi.h"
#include "recorder.h"

namespace zrec {

namespace {

constexpr auto kPollInterval = std::chrono::microseconds(250);
constexpr int kMaxBoards = 256;   // board indices are 8-bit

class Watcher {
 public:
  Watcher(int board, uintptr_t records, uint32_t channels)
      : board_(board), records_(records), channels_(channels), thread_([this] { Run(); }) {}
  ~Watcher() {
    stop_.store(true);
    thread_.join();
  }

 private:
  uint32_t Completed(uint32_t channel) const {
    return *static_cast<const volatile uint32_t*>(tvx::zarimio::CompletedCount(records_, channel));
  }

  // The counts found at the start are the baseline: only what changes after is recorded.
  void Run() {
    std::vector<uint32_t> last(channels_);
    for (uint32_t c = 0; c < channels_; ++c) last[c] = Completed(c);
    while (!stop_.load(std::memory_order_relaxed)) {
      std::this_thread::sleep_for(kPollInterval);
      for (uint32_t c = 0; c < channels_; ++c) {
        const uint32_t count = Completed(c);
        if (count == last[c]) continue;
        last[c] = count;
        char text[32];
        std::snprintf(text, sizeof text, "D %u %u", unsigned(c), unsigned(count));
        TheRecording().Event(board_, text);
      }
    }
  }

  const int board_;
  const uintptr_t records_;
  const uint32_t channels_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// Plain pointers: the table must still be there when the recording is closed at exit.
Watcher* g_watchers[kMaxBoards];
std::mutex g_watchers_mutex;

Watcher* Take(int board) {
  std::lock_guard<std::mutex> lock(g_watchers_mutex);
  Watcher* w = g_watchers[board];
  g_watchers[board] = nullptr;
  return w;
}

}  // namespace

void StartWatcher(int board, uintptr_t records, uint32_t channels) {
  if (board < 0 || board >= kMaxBoards || records == 0 || channels == 0) return;
  // An application that exits with the memory still mapped: the target's own clean-up at exit
  // may free it, and what was set up after the board was opened is cleaned up before that.
  static const bool at_exit = std::atexit(StopAllWatchers) == 0;
  (void)at_exit;
  std::lock_guard<std::mutex> lock(g_watchers_mutex);
  if (g_watchers[board] != nullptr) return;
  try {
    g_watchers[board] = new Watcher(board, records, channels);
  } catch (...) {
    // No thread: the recording goes on without this board's progress.
  }
}

void StopWatcher(int board) {
  if (board < 0 || board >= kMaxBoards) return;
  delete Take(board);   // joins, outside the table's lock
}

void StopAllWatchers() {
  for (int board = 0; board < kMaxBoards; ++board) StopWatcher(board);
}

}  // namespace zrec
