// The loading commands of the built CLI on the virtual board: fpga, ram and sim, with what they
// print and their failures. Compiled with the CP1251 execution character set: expected UTF-8
// is written u8"".
#include <gtest/gtest.h>

#include "cli_run.h"

namespace cli_e2e {
namespace {

// One device refused (DEC's CRC), the others still load and say so, and the status says a load
// failed. The library's text arrives as UTF-8 after the command's own words; DEM is loaded by
// then, so its done bit shows beside DEC's acknowledge. No progress line when stderr is not a
// terminal. (A reset never acknowledged is the end-to-end and unit tests'.)
TEST(LoadersOnVirtualBoard, FpgaLoadAllGoesOnPastAFailure) {
  const CliResult run = RunCli("--sim fpga.dec.expect_crc=0 fpga load --all samples");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(Has(run.err, u8"fpga load DEC: FPGALoad [0]: \"DEC\" - ПЛИС не загрузилась: "
                           u8"INT_0x04 = 0x00000006\n")) << run.err;
  EXPECT_FALSE(Has(run.err, "words sent")) << run.err;
  for (const char* device : {"DEM: loaded from ", "RS: loaded from "})
    EXPECT_TRUE(Has(run.out, device)) << run.out;
  EXPECT_EQ(Count(run.out, "virtual board: loaded,"), 2u) << run.out;
}

TEST(LoadersOnVirtualBoard, RamAndSimulator) {
  std::ofstream("loaders_cli_ram.bin", std::ios::binary) << "\x34\x12\x78\x56\x01";
  const CliResult ram = RunCli("ram load loaders_cli_ram.bin");
  ASSERT_EQ(ram.status, 0) << ram.err;
  EXPECT_TRUE(Has(ram.out, "5 bytes, 2 words written")) << ram.out;

  const CliResult sim = RunCli("sim load loaders_cli_ram.bin rate 1e6 carrier 0");
  ASSERT_EQ(sim.status, 0) << sim.err;
  EXPECT_TRUE(Has(sim.out, "simulator on, control word 0x100500BA")) << sim.out;
  EXPECT_TRUE(Has(sim.out, "carrier word 0x10000000, 2 pattern words received")) << sim.out;

  const CliResult missing = RunCli("sim load loaders_cli_missing.bin");
  EXPECT_EQ(missing.status, 1);
  EXPECT_TRUE(Has(missing.err, "code 1 (the pattern file could not be opened or read)")) << missing.err;
}

}  // namespace
}  // namespace cli_e2e
