// A thousand bring-ups and releases in one process, against the real binding and the virtual
// board's trapped registers. The library is linked in statically so that its fixed pauses run
// on a virtual clock (bring-up reads the convertor's tables with two seconds of them); whatever
// one cycle leaves behind (a descriptor, an open device, a mapping, a data event) adds up to a
// count that shows.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>

#include "hw/clock.h"
#include "test_env.h"
#include "torvixe.h"
#include "zarimsim.h"

namespace {

// Every reading advances 10 µs; sleeps pass at once, on the board's clock too.
class VirtualClock : public tvx::ClockSource {
 public:
  int64_t Counter() override { return now += 10; }
  int64_t Frequency() override { return 1000000; }
  void SleepMs(uint32_t ms) override {
    now += int64_t(ms) * 1000;
    zsim_set(0, "clock.advance_us", std::to_string(ms * 1000).c_str());
  }
  int64_t now = 0;
};

// Open descriptors of the process, or -1 on Windows: there the library's handles are kernel
// objects without descriptors (under Wine the Wine process's own descriptors come and go with
// its caches), and the virtual board's count of what it holds stands alone.
int Descriptors() {
  std::error_code ec;
  int count = 0;
  for (std::filesystem::directory_iterator it("/proc/self/fd", ec), end; !ec && it != end;
       it.increment(ec))
    ++count;
  return ec || tvx::test::OnWindows() ? -1 : count;
}

TEST(Soak, AThousandBringUpsAndReleasesLeaveNothingBehind) {
  VirtualClock clock;
  tvx::ClockSource* previous = tvx::InstallClock(&clock);
  zsim_reset();
  ASSERT_EQ(zsim_set(0, "clock", "manual"), 0);
  DeviceId board{0};
  // The first bring-up loads what stays for the life of the process; count from after it.
  ASSERT_EQ(CreateDeviceInstance(&board), 0) << GetErrorMessage();
  EXPECT_EQ(std::string(zsim_get(0, "live")),
            "open=1 bar_mapped=1 memory_mapped=1 events=" + std::string(zsim_get(0, "dma.channels")));
  ReleaseDeviceInstance(&board);
  const int descriptors = Descriptors();
  const auto start = std::chrono::steady_clock::now();
  for (int cycle = 0; cycle < 1000; ++cycle) {
    ASSERT_EQ(CreateDeviceInstance(&board), 0) << "cycle " << cycle << ": " << GetErrorMessage();
    ReleaseDeviceInstance(&board);
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  std::printf("1000 cycles in %.2f s\n", took.count());
  EXPECT_EQ(Descriptors(), descriptors);
  EXPECT_STREQ(zsim_get(0, "live"), "open=0 bar_mapped=0 memory_mapped=0 events=0");
  zsim_reset();
  tvx::InstallClock(previous);
}

}  // namespace
