// The clock behind every hardware wait: the performance counter for bounded polls and the
// millisecond sleep for fixed pauses. Unit tests install a virtual clock so that waits cost no
// wall time and can be checked exactly; everything else runs on the system clock.
#pragma once

#include <cstdint>

namespace tvx {

class ClockSource {
 public:
  virtual ~ClockSource() = default;
  virtual int64_t Counter() = 0;
  virtual int64_t Frequency() = 0;
  virtual void SleepMs(uint32_t ms) = 0;
};

// The source in force; the system clock unless a test installed another.
ClockSource& Clock();
// Installs `source` (null restores the system clock); returns the previous one.
ClockSource* InstallClock(ClockSource* source);

// High-resolution stopwatch for hardware time-outs.
class HiResTimer {
 public:
  HiResTimer();
  void StartTimer();
  double ElapsedSeconds();

 private:
  int64_t start_ = 0;
  int64_t last_ = 0;
  double frequency_ = 0;
};

}  // namespace tvx
