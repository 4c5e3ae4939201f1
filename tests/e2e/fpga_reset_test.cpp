// An FPGA reset time-out through the real binding and trapped register access, in wall time.
// (Raw access and its bounds are the CLI's peek and poke runs' and the binding's unit tests';
// a bring-up failure and what it leaves open, the unit tests'.)
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "torvixe.h"
#include "zarimsim.h"

namespace {

class VirtualBoardTest : public ::testing::Test {
 protected:
  void SetUp() override { zsim_reset(); }
  void TearDown() override {
    ReleaseDeviceInstance(&board0);
    zsim_reset();
  }
  DeviceId board0{0};
};

// The register sequence of a load is the unit tests'; here the pauses are the system's.
TEST_F(VirtualBoardTest, FpgaResetNeverAcknowledgedAnswersThreeAfterAboutOnePointOneSeconds) {
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  std::ofstream("e2e_five.bin", std::ios::binary).write("\1\2\3\4\5", 5);
  ASSERT_EQ(zsim_set(0, "fpga.dem.ack", "never"), 0);
  ASSERT_EQ(zsim_set(0, "trace.max", "1"), 0);   // a second of polls need not be kept
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(FPGALoad(&board0, "dem", "e2e_five.bin"), 3);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_GE(seconds, 1.09);
  EXPECT_LT(seconds, 2.5);
  EXPECT_STREQ(GetErrorMessage(),
               "FPGALoad [0]: \"dem\" - ПЛИС не сбросилась. Превышен таймаут ожидания  1000 мс\n");
  EXPECT_STREQ(zsim_get(0, "fpga.dem.state"), "configuring") << "left in configuration reset";
  zsim_access last{};
  ASSERT_GT(zsim_trace(0, &last, 1), 1000u);   // copies the one entry kept: the newest
  EXPECT_TRUE(!last.write && last.addr == 0x10) << "nothing was written after the polls";
}

}  // namespace
