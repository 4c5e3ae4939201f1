// The loading commands of the built CLI on the virtual board: fpga, ram and sim, with what they
// print and their failures. This file compiles with the CP1251 execution character set:
// expected UTF-8 is written u8"".
#include <gtest/gtest.h>

#include "cli_run.h"

namespace cli_e2e {
namespace {

TEST(LoadersOnVirtualBoard, FpgaLoadAllLoadsTheThreeSamples) {
  const CliResult run = RunCli("fpga load --all samples");
  ASSERT_EQ(run.status, 0) << run.err;
  for (const char* device : {"DEM: loaded from ", "DEC: loaded from ", "RS: loaded from "})
    EXPECT_TRUE(Has(run.out, device)) << run.out;
  size_t loaded = 0;
  for (size_t at = 0; (at = run.out.find("virtual board: loaded,", at)) != std::string::npos; ++at)
    ++loaded;
  EXPECT_EQ(loaded, 3u) << run.out;
  EXPECT_EQ(run.err, "") << "no progress line when stderr is not a terminal";
}

TEST(LoadersOnVirtualBoard, FpgaFailuresShowTheLibrarysText) {
  const CliResult never = RunCli("--sim fpga.dem.ack=never fpga load dem samples/dem.bin");
  EXPECT_EQ(never.status, 1);
  EXPECT_TRUE(Has(never.err, u8"fpga load dem: FPGALoad [0]: \"dem\" - ПЛИС не сбросилась. "
                             u8"Превышен таймаут ожидания  1000 мс"))
      << never.err;

  // One device fails, the others still load, and the status says a load failed.
  const CliResult one_wrong = RunCli("--sim fpga.dec.expect_crc=0 fpga load --all samples");
  EXPECT_EQ(one_wrong.status, 1);
  // DEM is loaded by then: its done bit shows beside DEC's acknowledge.
  EXPECT_TRUE(Has(one_wrong.err, u8"ПЛИС не загрузилась: INT_0x04 = 0x00000006")) << one_wrong.err;
  EXPECT_TRUE(Has(one_wrong.out, "RS: loaded from ")) << one_wrong.out;
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
