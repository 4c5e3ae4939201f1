// The built CLI on the virtual board: exit status, what lands on stdout and on stderr, and that
// the virtual-board options reach the board the command then uses. Each run brings a board up,
// so the cases are few and pointed. Compiled with the CP1251 execution character set:
// expected UTF-8 is written u8"".
#include <gtest/gtest.h>

#include <vector>

#include "cli_run.h"

namespace cli_e2e {
namespace {

// Exit status 2, nothing on stdout, for commands and for a receiver's line alike. (Malformed
// lines the parsers refuse are their unit tests'.)
TEST(CliOnVirtualBoard, UsageErrorsExitTwoBeforeTouchingABoard) {
  const std::pair<const char*, const char*> cases[] = {
      {"peek 0x80000000x", "invalid address '0x80000000x'"}, {"frob", "unknown command 'frob'"},
      {"--sim no.such.key=1 info", "--sim no.such.key=1: unknown key"},
      {"--sim slot=x info", "--sim slot=x: value refused"},
      {"-b 9 --sim slot=1 info", "board 9 does not exist"},
      {"--sim-config no_such_file.ini list", "--sim-config no_such_file.ini: refused"},
      {"eeprom dump flash", "unknown EEPROM 'flash'"}, {"fpga frob", "fpga: unknown action 'frob'"},
      {"fpga load DEM", "load needs DEVICE and FILE"},
      {"fpga load DEM x --all samples", "--all takes no DEVICE or FILE"},
      {"sim rate fast", "invalid rate 'fast'"}, {"sim fly", "unknown action 'fly'"},
  };
  for (const auto& [args, err_part] : cases) {
    const CliResult run = RunCli(args);
    EXPECT_EQ(run.status, 2) << args;
    EXPECT_TRUE(Has(run.err, err_part)) << args << " said: " << run.err;
    EXPECT_EQ(run.out, "") << args;
  }
}

TEST(CliOnVirtualBoard, PeekAndPokeShowWhatTheTraceRecords) {
  const CliResult peek = RunCli("--sim reg.0x8004=0x12345678 --trace peek 0x8000 --count 2");
  ASSERT_EQ(peek.status, 0) << peek.err;
  const std::string first = LineStarting(peek.out, "0x00008000: ");
  ASSERT_NE(first, "") << peek.out;
  for (const std::string& line : std::vector<std::string>{"0x00008004: 0x12345678\n", "# trace of board 0: 2 register accesses",
                                  "\nR 0x00008004 -> 0x12345678\n", "R 0x00008000 -> " + first.substr(12) + "\n"})
    EXPECT_TRUE(Has(peek.out, line)) << line << " not in " << peek.out;
  EXPECT_EQ(peek.err, "");

  const CliResult poke = RunCli("poke 0x8058 5 --trace");
  ASSERT_EQ(poke.status, 0) << poke.err;
  EXPECT_EQ(LineStarting(poke.out, "W "), "W 0x00008058 <- 0x00000005");
  EXPECT_EQ(LineStarting(poke.out, "R "), "") << "the command itself reads nothing";

  const CliResult misaligned = RunCli("peek 0x8002");
  EXPECT_EQ(misaligned.status, 1);
  EXPECT_TRUE(Has(misaligned.err, "read 0x00008002: error 5 (")) << misaligned.err;
}

TEST(CliOnVirtualBoard, InfoShowsTheBoard) {
  const CliResult run = RunCli("--sim sensor.remote=50 --sim sensor.remote_fraction=0x40 info");
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string dem = LineStarting(run.out, "  DEM "), rs = LineStarting(run.out, "  RS ");
  EXPECT_TRUE(Has(dem, "0x2000") && Has(dem, "0x00008000")) << run.out;
  EXPECT_TRUE(Has(rs, "0x2880") && Has(rs, "0x0000A200")) << run.out;
  EXPECT_TRUE(Has(LineStarting(run.out, "L-convertor serial number: "), "0000200001")) << run.out;
  for (const char* part : {"status: 0 (board usable)\nslot: 3\n", "interface version: 2\n",
                           "module serial number: 0012345678\nmodule version: 03\n",
                           u8"PCB temperature: 41.00 °C\n", u8"FPGA temperature: 50.25 °C\n",
                           "in force: 17\n", "DMA descriptors mapped: 68 (17 channels x 4 buffers"})
    EXPECT_TRUE(Has(run.out, part)) << part << " not in " << run.out;
}

// The library's CP1251 texts arrive as UTF-8. (A field that fails while the rest follows is the
// status screen's run.)
TEST(CliOnVirtualBoard, InfoReportsABringUpFailureWithTheLibrarysText) {
  const CliResult open = RunCli("--sim fault.open=2 info");
  EXPECT_EQ(open.status, 1);
  EXPECT_EQ(open.out, "");
  EXPECT_TRUE(Has(open.err, u8"board 0: bring-up failed: Отказ открытия устройства [0]")) << open.err;
}

TEST(CliOnVirtualBoard, ConfigFileReachesTheSelectedBoard) {
  std::ofstream("cli_e2e.ini", std::ios::binary) << "boards = 2\n[board.1]\nslot = 7\n";
  const CliResult run = RunCli("-b 1 --sim-config cli_e2e.ini info");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(Has(run.out, "board 1\n") && Has(run.out, "slot: 7\n")) << run.out;
  EXPECT_TRUE(Has(RunCli("--sim-config cli_e2e.ini list").out, "virtual board: 2 boards"));
}

TEST(CliOnVirtualBoard, EepromDumpReadsOverTheBus) {
  const CliResult pcb = RunCli("--sim eeprom.pcb.byte.0x0103=0x41 eeprom dump pcb --len 0x104");
  ASSERT_EQ(pcb.status, 0) << pcb.err;
  EXPECT_TRUE(Has(pcb.out, "module EEPROM at 0xA6 (two-byte addresses), 260 bytes")) << pcb.out;
  EXPECT_EQ(LineStarting(pcb.out, "0x0000 "),
            "0x0000  03 FF 07 D0 07 9E 00 32  00 28 FF FF FF FF FF FF  |.......2.(......|");
  EXPECT_TRUE(Has(LineStarting(pcb.out, "0x0100 "), " 00 BC 61 41 ")) << pcb.out;

  const CliResult plain = RunCli("--sim lconv.present=0 eeprom dump lconv --len 8");
  ASSERT_EQ(plain.status, 0) << plain.err;
  EXPECT_TRUE(Has(plain.out, "(one-byte addresses), 8 bytes")) << plain.out;
  EXPECT_TRUE(Has(plain.out, "0x0000  14 19 FF FF 19 1E FF FF")) << plain.out;

  // A silent convertor EEPROM fails the bring-up, which releases the device: the tool says
  // why and that the access it still tried found no device.
  const CliResult silent = RunCli("--sim eeprom.lconv.fault=no_address_ack eeprom dump lconv");
  EXPECT_EQ(silent.status, 1);
  EXPECT_TRUE(Has(silent.err, "bring-up failed: Failed to identify L-convertor: I2CStart")) << silent.err;
  EXPECT_TRUE(Has(silent.err, "error 2 (device not open")) << silent.err;
}

}  // namespace
}  // namespace cli_e2e
