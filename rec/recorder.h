// The recording IO library's parts, shared by its sources: the recording itself, the shadow of
// each mapped register BAR and the progress watchers. The format is in docs/recording.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

namespace zrec {

constexpr int kNoBoard = -1;   // written as '-'

// ---- The recording ---------------------------------------------------------------------------
// One file, one lock: events are numbered, timed and buffered under it, so their order in the
// file is the order they happened in. The buffer goes out in chunks, at ZARIM_Close and at
// unload.
class Recording {
 public:
  // Creates the file and writes the header. False with the system's error code.
  bool Open(const char* path, const char* target, const char* app, uint32_t* error);
  std::mutex& mutex() { return mutex_; }
  // With mutex() held: one event line "N T BOARD text".
  void EventLocked(int board, const char* text);
  void Event(int board, const char* text) {
    std::lock_guard<std::mutex> lock(mutex_);
    EventLocked(board, text);
  }
  void Flush();
  ~Recording();

 private:
  void WriteOutLocked();
  std::mutex mutex_;
  std::FILE* file_ = nullptr;
  char* buffer_ = nullptr;   // allocated once: a fault handler appends without allocating
  size_t used_ = 0;
  uint64_t next_ = 1;
  int64_t start_ns_ = 0;
};
Recording& TheRecording();

// Writes the header's value: a newline (or any control character) would end the line early.
void CopyHeaderText(const char* in, char* out, size_t size);

// ---- BAR shadows -----------------------------------------------------------------------------
// Makes the shadow of a real BAR at `real` for `board`; null when no memory for it (or no trap
// handler): the application then gets the real mapping, unrecorded.
void* MakeShadow(int board, uintptr_t real, uint32_t size);
// The real address behind a shadow, or 0 when `shadow` is no shadow's.
uintptr_t ShadowReal(uintptr_t shadow);
void FreeShadow(uintptr_t shadow);
void FreeBoardShadows(int board);

// ---- Progress watchers -----------------------------------------------------------------------
// Starts watching `channels` progress records at `records` for `board`, unless a watcher of
// that board is running. StopWatcher returns once the watcher no longer reads them.
void StartWatcher(int board, uintptr_t records, uint32_t channels);
void StopWatcher(int board);
void StopAllWatchers();

}  // namespace zrec
