// A replaying board: a recording made by zarimrec (docs/recording.md) stands in for the board's
// model. The application's register accesses and IO-library calls must come in the recorded
// order; reads are answered with the recorded values, and the first access that differs stops
// the replay and is kept for `replay.state`. The recorded data events (a channel's completed
// count moving) are the board's own doing, so a thread of the replay plays them at their
// recorded delays on the board's clock.
//
// Locking: the application side (Access, Port, Call, Load, StartData, StopData) runs under the
// board's lock. The data thread never takes that lock except by try_lock (to read the board's
// clock), so code holding it can stop the thread and wait for it; the state both sides share
// sits behind the replay's own mutex (lock order: board, then replay).
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dma_ring.h"
#include "platform/os.h"

namespace zsim {

struct Board;

class Replay {
 public:
  Replay() = default;
  ~Replay() { StopData(); }
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  // Takes the events of board `index` from the recording at `path` (none: ends the replay).
  // Empty on success, else why the file was refused (then no replay is armed).
  std::string Load(const std::string& path, unsigned index);
  void Clear();
  bool armed() const { return armed_; }

  // A register access through the BAR; `now_us` is the board's clock. A read returns the
  // recorded value; a write returns 0 (its value is in `value`).
  uint32_t Access(bool write, uint32_t address, uint32_t value, uint64_t now_us);

  // An IO-library call. 0: let the virtual board carry it out; else the last-error code the
  // call must fail with, as recorded.
  uint32_t Call(const char* name, uint64_t now_us);

  // ZARIM_Read / ZARIM_Write: 0 and, for a read, *value; else the recorded error.
  uint32_t Port(bool write, uint32_t address, uint32_t* value, uint64_t now_us);

  std::string State() const;
  std::string DataState() const;   // "P of Q played"

  // The recorded data events are played into the board's DMA memory and data events, from
  // the moment the memory is mapped until it goes (unmap, close). Both under the board's lock.
  void StartData(Board& board);
  void StopData();

 private:
  enum class Kind { kRead, kWrite, kCall, kData };
  struct Event {
    uint64_t number = 0;   // in the file
    uint64_t time_us = 0;
    Kind kind = Kind::kRead;
    uint32_t address = 0, value = 0;   // R/W, port calls; D: channel, count
    uint32_t result = 0, error = 0;    // call
    bool has_address = false;          // a port call's addr=
    std::string name;                  // call
    std::string shown;                 // as written in the file, from the kind on
  };
  struct DataEvent {
    Event event;
    size_t anchor = 0;       // the application events before it; 0: none
    uint64_t delay_us = 0;   // after the last of them
  };

  std::string Parse(const std::string& path, unsigned index);
  // The next application event, or null when the replay has stopped or ended. Under mutex_.
  const Event* Next(const std::string& actual);
  void Matched(uint64_t now_us);
  void Differ(const Event* expected, const std::string& actual);
  void RunData(Board* board);

  bool armed_ = false;
  std::vector<Event> events_;        // the application's, in order
  std::vector<DataEvent> data_;      // the board's own
  std::vector<uint64_t> matched_at_;  // board time each application event matched

  mutable std::mutex mutex_;         // what the data thread shares
  std::condition_variable changed_;
  size_t next_ = 0;                  // application events matched
  bool stopped_ = false;             // a difference ended the replay
  std::string difference_;
  std::string refusal_;              // why the last Load refused its file
  size_t played_ = 0;
  bool data_stop_ = false;

  std::thread data_thread_;
  // What the data thread works on, fixed when it starts.
  DmaRingView ring_;
  std::vector<tvx::os::Event> data_events_;
  uint32_t channels_ = 0, payload_ = 0;
};

}  // namespace zsim
