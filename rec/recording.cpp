// The recording file: header, numbered and timed event lines, written out in chunks.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "platform/os.h"
#include "recorder.h"

namespace zrec {

namespace {

// Written out once this much is buffered; a line is far shorter than the slack.
constexpr size_t kBufferSize = 1 << 20;
constexpr size_t kWriteOutAt = kBufferSize - 4096;

int64_t NowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

void CopyHeaderText(const char* in, char* out, size_t size) {
  if (size == 0) return;
  size_t n = 0;
  for (; in != nullptr && *in != '\0' && n + 1 < size; ++in, ++n)
    out[n] = static_cast<unsigned char>(*in) < 0x20 ? ' ' : *in;
  out[n] = '\0';
}

bool Recording::Open(const char* path, const char* target, const char* app, uint32_t* error) {
  std::lock_guard<std::mutex> lock(mutex_);
  tvx::os::SetLastError(0);
  buffer_ = static_cast<char*>(std::malloc(kBufferSize));
  file_ = buffer_ != nullptr ? std::fopen(path, "wb") : nullptr;
  if (file_ == nullptr) {
    *error = tvx::os::LastError();
    if (*error == 0) *error = 2;
    return false;
  }
  start_ns_ = NowNs();
  static char text[4096];
  CopyHeaderText(target, text, sizeof text);
  used_ = size_t(std::snprintf(buffer_, kBufferSize, "zarimrec 1\ntarget %s\n", text));
  if (app != nullptr && *app != '\0') {
    CopyHeaderText(app, text, sizeof text);
    used_ += size_t(std::snprintf(buffer_ + used_, kBufferSize - used_, "app %s\n", text));
  }
  WriteOutLocked();
  std::fflush(file_);
  return true;
}

void Recording::EventLocked(int board, const char* text) {
  if (file_ == nullptr) return;
  const int64_t us = (NowNs() - start_ns_) / 1000;
  char index[12] = "-";
  if (board != kNoBoard) std::snprintf(index, sizeof index, "%d", board);
  const int n = std::snprintf(buffer_ + used_, kBufferSize - used_, "%llu %lld %s %s\n",
                              static_cast<unsigned long long>(next_++),
                              static_cast<long long>(us < 0 ? 0 : us), index, text);
  if (n > 0) used_ += std::min(size_t(n), kBufferSize - 1 - used_);
  if (used_ >= kWriteOutAt) WriteOutLocked();
}

void Recording::WriteOutLocked() {
  if (file_ != nullptr && used_ > 0) std::fwrite(buffer_, 1, used_, file_);
  used_ = 0;
}

void Recording::Flush() {
  const uint32_t saved = tvx::os::LastError();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    WriteOutLocked();
    if (file_ != nullptr) std::fflush(file_);
  }
  tvx::os::SetLastError(saved);
}

// At unload or exit: whatever is buffered goes out. A thread that held the lock may be gone
// by now (Windows ends the other threads before unloading at exit), so the lock is only tried
// for a while.
Recording::~Recording() {
  StopAllWatchers();
  bool locked = false;
  for (int i = 0; i < 100 && !(locked = mutex_.try_lock()); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  WriteOutLocked();
  if (file_ != nullptr) std::fclose(file_);
  file_ = nullptr;
  if (locked) mutex_.unlock();
}

Recording& TheRecording() {
  static Recording recording;
  return recording;
}

}  // namespace zrec
