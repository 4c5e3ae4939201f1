// A board brought up and released a thousand times in one process. Whatever one cycle leaves
// behind (a descriptor, an open device, a mapping, a data event) adds up to a count that shows.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>

#include "test_env.h"
#include "torvixe.h"
#include "zarimsim.h"

namespace {

// A bring-up that grows fixed waits would make a thousand cycles take hours: past a minute the
// soak stops at the cycle it has reached, since any leak of one object a cycle shows by then.
constexpr int kCycles = 1000, kMinimumCycles = 20;
constexpr std::chrono::seconds kTimeLimit(60);

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

std::string Live() {
  const char* v = zsim_get(0, "live");
  return v ? v : "(unknown key)";
}

TEST(Soak, AThousandBringUpsAndReleasesLeaveNothingBehind) {
  zsim_reset();
  DeviceId board{0};
  // The first bring-up loads what stays for the life of the process; count from after it.
  ASSERT_EQ(CreateDeviceInstance(&board), 0) << GetErrorMessage();
  EXPECT_EQ(Live(), "open=1 bar_mapped=1 memory_mapped=1 events=" +
                        std::string(zsim_get(0, "dma.channels")));
  ReleaseDeviceInstance(&board);
  const int descriptors = Descriptors();
  const std::string live = Live();
  EXPECT_EQ(live, "open=0 bar_mapped=0 memory_mapped=0 events=0");

  const auto start = std::chrono::steady_clock::now();
  int cycles = 0;
  for (; cycles < kCycles &&
         (cycles < kMinimumCycles || std::chrono::steady_clock::now() - start < kTimeLimit);
       ++cycles) {
    ASSERT_EQ(CreateDeviceInstance(&board), 0) << "cycle " << cycles << ": " << GetErrorMessage();
    ReleaseDeviceInstance(&board);
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  std::printf("%d cycles in %.2f s, %.2f ms each; descriptors %d, %s\n", cycles, took.count(),
              took.count() * 1000 / cycles, descriptors, live.c_str());
  EXPECT_EQ(Descriptors(), descriptors);
  EXPECT_EQ(Live(), live);
  zsim_reset();
}

}  // namespace
