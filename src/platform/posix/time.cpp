// Counter, sleep and thread affinity on POSIX.
#include <cerrno>
#include <ctime>

#include "platform/os.h"

namespace tvx::os {

int64_t PerformanceCounter() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

int64_t PerformanceFrequency() { return 1000000000; }

void SleepMs(uint32_t ms) {
  timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  // A signal handler must not shorten the board's settling waits.
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

// The Windows build pins its timing thread to one processor because the counter there may
// differ between processors; CLOCK_MONOTONIC is consistent across them, so nothing to do.
uint64_t SetThreadAffinity(uint64_t /*mask*/) { return 0; }

}  // namespace tvx::os
