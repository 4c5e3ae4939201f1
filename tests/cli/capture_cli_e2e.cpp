// The data job through the built CLI: every buffer of two channels arrives and verifies, an
// overrunning ring is reported and fails the run, and a channel control word reaches its
// register.
#include <gtest/gtest.h>

#include "cli_run.h"

namespace cli_e2e {
namespace {

TEST(CaptureOnVirtualBoard, EveryBufferArrivesInOrderAndVerifies) {
  const CliResult run = RunCli("capture -c 0,16 --bytes 393216 --verify --rate 50");
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  for (const char* channel : {"channel 0: ", "channel 16: "}) {
    const std::string line = LineStarting(run.out, channel);
    EXPECT_TRUE(Has(line, "393216 bytes") && Has(line, "6 buffers, 0 lost, 0 errors; results 0 x"))
        << run.out;
  }
  EXPECT_TRUE(Has(LineStarting(run.out, "2 channels: "), " MB/s, 0 lost, 0 errors; the engine completed "))
      << run.out;
}

TEST(CaptureOnVirtualBoard, AnOverrunIsReportedAndFailsTheRun) {
  const CliResult run = RunCli("--sim fault.dma_burst=4 capture --seconds 0.5");
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  EXPECT_TRUE(Has(LineStarting(run.out, "channel 0: "), " -1 x")) << run.out;
}

TEST(CaptureOnVirtualBoard, ControlWordsReachTheirRegisters) {
  const CliResult run = RunCli("--trace control dmd 0xFFFFFFFF");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(LineStarting(run.out, "W "), "W 0x00008080 <- 0xFFFFFFFF");
  EXPECT_EQ(RunCli("control dma4 1").status, 2);
}

}  // namespace
}  // namespace cli_e2e
