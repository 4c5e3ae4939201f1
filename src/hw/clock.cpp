#include "hw/clock.h"

#include "platform/os.h"

namespace tvx {
namespace {

class SystemClock final : public ClockSource {
 public:
  int64_t Counter() override { return os::PerformanceCounter(); }
  int64_t Frequency() override { return os::PerformanceFrequency(); }
  void SleepMs(uint32_t ms) override { os::SleepMs(ms); }
};

SystemClock system_clock;
ClockSource* active = &system_clock;

}  // namespace

ClockSource& Clock() { return *active; }

ClockSource* InstallClock(ClockSource* source) {
  ClockSource* previous = active;
  active = source ? source : &system_clock;
  return previous;
}

// The counter is read without pinning the thread to one processor: the performance counter is
// consistent across processors on every system this library supports, and two affinity
// changes per poll would cost more than the poll itself.
HiResTimer::HiResTimer() : frequency_(double(Clock().Frequency())) {}

void HiResTimer::StartTimer() { start_ = Clock().Counter(); }

double HiResTimer::ElapsedSeconds() {
  last_ = Clock().Counter();
  return double(last_ - start_) / frequency_;
}

}  // namespace tvx
