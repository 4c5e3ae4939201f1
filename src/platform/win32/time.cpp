// Counter, sleep and thread affinity on Windows.
#include <windows.h>

#include "platform/os.h"

namespace tvx::os {

int64_t PerformanceCounter() {
  LARGE_INTEGER now;
  ::QueryPerformanceCounter(&now);
  return now.QuadPart;
}

int64_t PerformanceFrequency() {
  LARGE_INTEGER frequency;
  ::QueryPerformanceFrequency(&frequency);
  return frequency.QuadPart;
}

void SleepMs(uint32_t ms) { ::Sleep(ms); }

uint64_t SetThreadAffinity(uint64_t mask) {
  return static_cast<uint64_t>(::SetThreadAffinityMask(::GetCurrentThread(), static_cast<DWORD_PTR>(mask)));
}

}  // namespace tvx::os
