// The built CLI on the virtual board, run through the shell exactly as a user runs it: exit
// status, what lands on stdout and on stderr, and that the virtual-board options reach the
// board the command then uses. Each run brings a board up, so the cases are few and pointed.
// This file compiles with the CP1251 execution character set: expected UTF-8 is written u8"".
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

struct CliResult {
  int status;
  std::string out;
  std::string err;
};

std::string ReadFile(const char* path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  std::string s = text.str();
  // Windows programs write their line ends as CR LF.
  std::string lf;
  for (char c : s)
    if (c != '\r') lf += c;
  return lf;
}

// Runs the CLI from the test's directory, where the CLI, the library and zarimio all sit.
CliResult RunCli(const std::string& args) {
  const std::string file = TVX_CLI_FILE;
  // cmd.exe finds a program in the current directory and reads '/' as a switch; POSIX shells
  // need the "./".
  const bool windows_program = file.size() > 4 && file.compare(file.size() - 4, 4, ".exe") == 0;
  const std::string command = (windows_program ? "" : "./") + file + " " + args +
                              " >cli_e2e_out.txt 2>cli_e2e_err.txt";
  int status = std::system(command.c_str());
  // POSIX returns a wait status (exit code in the second byte, a signal in the low bits);
  // Windows returns the exit code itself. The CLI only exits with 0 to 2.
  if (status > 255 && (status & 0xFF) == 0) status >>= 8;
  return {status, ReadFile("cli_e2e_out.txt"), ReadFile("cli_e2e_err.txt")};
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// The line of `text` that starts with `prefix`, or "".
std::string LineStarting(const std::string& text, const std::string& prefix) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    if (line.compare(0, prefix.size(), prefix) == 0) return line;
  return "";
}

TEST(CliOnVirtualBoard, UsageErrorsExitTwoBeforeTouchingABoard) {
  const struct {
    const char* args;
    const char* err_part;
  } cases[] = {
      {"peek", "peek: missing argument"},
      {"peek 0x80000000x", "invalid address '0x80000000x'"},
      {"-b 256 info", "invalid board index '256'"},
      {"frob", "unknown command 'frob'"},
      {"list --count 2", "option --count does not apply"},
      {"--sim no.such.key=1 info", "--sim no.such.key=1: unknown key"},
      {"--sim slot=x info", "--sim slot=x: value refused"},
      {"-b 9 --sim slot=1 info", "board 9 does not exist"},
      {"--sim-config no_such_file.ini list", "--sim-config no_such_file.ini: refused"},
  };
  for (const auto& c : cases) {
    const CliResult run = RunCli(c.args);
    EXPECT_EQ(run.status, 2) << c.args;
    EXPECT_TRUE(Has(run.err, c.err_part)) << c.args << " said: " << run.err;
    EXPECT_EQ(run.out, "") << c.args;
  }
}

TEST(CliOnVirtualBoard, PeekShowsTheValueTheTraceRecords) {
  const CliResult run = RunCli("--sim reg.0x8004=0x12345678 --trace peek 0x8000 --count 2");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(Has(run.out, "0x00008004: 0x12345678\n")) << run.out;
  EXPECT_TRUE(Has(run.out, "# trace of board 0: 2 register accesses")) << run.out;
  EXPECT_TRUE(Has(run.out, "\nR 0x00008004 -> 0x12345678\n")) << run.out;
  const std::string first = LineStarting(run.out, "0x00008000: ");
  ASSERT_NE(first, "") << run.out;
  EXPECT_TRUE(Has(run.out, "R 0x00008000 -> " + first.substr(12) + "\n")) << run.out;
  EXPECT_EQ(run.err, "");
}

TEST(CliOnVirtualBoard, PokeIsQuietAndTracedAsAWrite) {
  const CliResult run = RunCli("poke 0x8058 5 --trace");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(LineStarting(run.out, "W "), "W 0x00008058 <- 0x00000005");
  EXPECT_EQ(LineStarting(run.out, "R "), "") << "the command itself reads nothing";
}

TEST(CliOnVirtualBoard, RawAccessReportsTheLibrarysCode) {
  const CliResult misaligned = RunCli("peek 0x8002");
  EXPECT_EQ(misaligned.status, 1);
  EXPECT_TRUE(Has(misaligned.err, "read 0x00008002: error 5 (")) << misaligned.err;

  // Bring-up fails at the BAR; the read is still tried and refused.
  const CliResult unmapped = RunCli("--sim fault.bar_map=1 peek 0x8000");
  EXPECT_EQ(unmapped.status, 1);
  EXPECT_TRUE(Has(unmapped.err, "bring-up failed")) << unmapped.err;
  EXPECT_TRUE(Has(unmapped.err, "read 0x00008000: error 2 (device not open")) << unmapped.err;
}

TEST(CliOnVirtualBoard, InfoShowsTheBoard) {
  const CliResult run = RunCli("info");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(Has(run.out, "status: 0 (board usable)\n")) << run.out;
  EXPECT_TRUE(Has(run.out, "slot: 3\n")) << run.out;
  const std::string dem = LineStarting(run.out, "  DEM ");
  EXPECT_TRUE(Has(dem, "0x2000") && Has(dem, "0x00008000")) << run.out;
  const std::string rs = LineStarting(run.out, "  RS ");
  EXPECT_TRUE(Has(rs, "0x2880") && Has(rs, "0x0000A200")) << run.out;
  EXPECT_TRUE(Has(run.out, "interface version: 2\n")) << run.out;
  EXPECT_NE(LineStarting(run.out, "convertor "), "") << run.out;
}

TEST(CliOnVirtualBoard, InfoReportsAFailedOpenWithTheLibrarysText) {
  const CliResult run = RunCli("--sim fault.open=2 info");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_TRUE(Has(run.err, u8"board 0: bring-up failed: Отказ открытия устройства [0]"))
      << run.err;
}

TEST(CliOnVirtualBoard, ConfigFileReachesTheSelectedBoard) {
  {
    std::ofstream ini("cli_e2e.ini", std::ios::binary);
    ini << "boards = 2\n[board.1]\nslot = 7\n";
  }
  const CliResult run = RunCli("-b 1 --sim-config cli_e2e.ini info");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(Has(run.out, "board 1\n")) << run.out;
  EXPECT_TRUE(Has(run.out, "slot: 7\n")) << run.out;

  const CliResult list = RunCli("--sim-config cli_e2e.ini list");
  EXPECT_EQ(list.status, 0);
  EXPECT_TRUE(Has(list.out, "virtual board: 2 boards")) << list.out;
}

TEST(CliOnVirtualBoard, InfoShowsIdentityAndTemperatures) {
  const CliResult run = RunCli("--sim sensor.remote=50 --sim sensor.remote_fraction=0x40 info");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(Has(run.out, "module serial number: 0012345678\n")) << run.out;
  EXPECT_TRUE(Has(run.out, "module version: 03\n")) << run.out;
  EXPECT_TRUE(Has(LineStarting(run.out, "L-convertor serial number: "), "0000200001")) << run.out;
  EXPECT_TRUE(Has(LineStarting(run.out, "L-convertor version: "), "02")) << run.out;
  EXPECT_TRUE(Has(run.out, u8"PCB temperature: 41.00 °C\n")) << run.out;
  EXPECT_TRUE(Has(run.out, u8"FPGA temperature: 50.25 °C\n")) << run.out;
}

// A field that fails says so on stderr; the rest of the report follows.
TEST(CliOnVirtualBoard, InfoGoesOnPastASilentSensor) {
  const CliResult run = RunCli("--sim sensor.fault=no_address_ack info");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(Has(run.err, u8"info: PCB temperature: GetPCBTemperature [0]: I2CStart: нет "
                           u8"готовности шины I2C после записи"))
      << run.err;
  EXPECT_TRUE(Has(run.out, "module serial number: 0012345678\n")) << run.out;
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

  const CliResult silent = RunCli("--sim eeprom.lconv.fault=no_address_ack eeprom dump lconv");
  EXPECT_EQ(silent.status, 1);
  EXPECT_TRUE(Has(silent.err, "eeprom dump lconv: device 0xA0 did not acknowledge")) << silent.err;

  const CliResult wrong = RunCli("eeprom dump flash");
  EXPECT_EQ(wrong.status, 2);
  EXPECT_TRUE(Has(wrong.err, "unknown EEPROM 'flash'")) << wrong.err;
}

}  // namespace
