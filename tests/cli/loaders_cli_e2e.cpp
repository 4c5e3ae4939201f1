// The loading commands of the built CLI on the virtual board: fpga, ram and sim, with what they
// print, their failures and their usage errors.
// This file compiles with the CP1251 execution character set: expected UTF-8 is written u8"".
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

struct CliRun {
  int status;
  std::string out;
  std::string err;
};

std::string Slurp(const char* path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  std::string lf;
  for (char c : text.str())
    if (c != '\r') lf += c;
  return lf;
}

// As the other CLI tests run it: from the test's directory, output captured in files.
CliRun Cli(const std::string& args) {
  const std::string file = TVX_CLI_FILE;
  const bool windows_program = file.size() > 4 && file.compare(file.size() - 4, 4, ".exe") == 0;
  const std::string command = (windows_program ? "" : "./") + file + " " + args +
                              " >loaders_cli_out.txt 2>loaders_cli_err.txt";
  int status = std::system(command.c_str());
  if (status > 255 && (status & 0xFF) == 0) status >>= 8;
  return {status, Slurp("loaders_cli_out.txt"), Slurp("loaders_cli_err.txt")};
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(LoadersOnVirtualBoard, FpgaLoadAllLoadsTheThreeSamples) {
  const CliRun run = Cli("fpga load --all samples");
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
  const CliRun never = Cli("--sim fpga.dem.ack=never fpga load dem samples/dem.bin");
  EXPECT_EQ(never.status, 1);
  EXPECT_TRUE(Has(never.err, u8"fpga load dem: FPGALoad [0]: \"dem\" - ПЛИС не сбросилась. "
                             u8"Превышен таймаут ожидания  1000 мс"))
      << never.err;

  // One device fails, the others still load, and the status says a load failed.
  const CliRun one_wrong = Cli("--sim fpga.dec.expect_crc=0 fpga load --all samples");
  EXPECT_EQ(one_wrong.status, 1);
  // DEM is loaded by then: its done bit shows beside DEC's acknowledge.
  EXPECT_TRUE(Has(one_wrong.err, u8"ПЛИС не загрузилась: INT_0x04 = 0x00000006")) << one_wrong.err;
  EXPECT_TRUE(Has(one_wrong.out, "RS: loaded from ")) << one_wrong.out;

  const CliRun unknown = Cli("fpga load ADC samples/dem.bin");
  EXPECT_EQ(unknown.status, 1);
  EXPECT_TRUE(Has(unknown.err, u8"ПЛИС ADC не опознана")) << unknown.err;
}

TEST(LoadersOnVirtualBoard, RamAndSimulator) {
  {
    std::ofstream("loaders_cli_ram.bin", std::ios::binary) << "\x34\x12\x78\x56\x01";
  }
  const CliRun ram = Cli("ram load loaders_cli_ram.bin");
  ASSERT_EQ(ram.status, 0) << ram.err;
  EXPECT_TRUE(Has(ram.out, "5 bytes, 2 words written")) << ram.out;

  const CliRun sim = Cli("sim load loaders_cli_ram.bin rate 1e6 carrier 0");
  ASSERT_EQ(sim.status, 0) << sim.err;
  EXPECT_TRUE(Has(sim.out, "simulator on, control word 0x100500BA")) << sim.out;
  EXPECT_TRUE(Has(sim.out, "carrier word 0x10000000, 2 pattern words received")) << sim.out;

  const CliRun missing = Cli("sim load loaders_cli_missing.bin");
  EXPECT_EQ(missing.status, 1);
  EXPECT_TRUE(Has(missing.err, "code 1 (the pattern file could not be opened or read)")) << missing.err;

  const CliRun bad_rate = Cli("sim rate 0");
  EXPECT_EQ(bad_rate.status, 1);
  EXPECT_TRUE(Has(bad_rate.err, "SimulatorSetTiming [0]: ")) << bad_rate.err;
}

TEST(LoadersOnVirtualBoard, UsageErrorsTouchNoBoard) {
  const struct {
    const char* args;
    const char* err_part;
  } cases[] = {
      {"fpga", "fpga: missing argument"},
      {"fpga frob", "fpga: unknown action 'frob'"},
      {"fpga load DEM", "load needs DEVICE and FILE"},
      {"fpga load DEM x --all samples", "--all takes no DEVICE or FILE"},
      {"ram load", "ram: missing argument"},
      {"ram load a b", "unexpected argument 'b'"},
      {"peek 0x8000 --all samples", "option --all does not apply"},
      {"sim rate", "rate needs a value"},
      {"sim rate fast", "invalid rate 'fast'"},
      {"sim carrier 1e6x", "invalid frequency '1e6x'"},
      {"sim fly", "unknown action 'fly'"},
  };
  for (const auto& c : cases) {
    const CliRun run = Cli(c.args);
    EXPECT_EQ(run.status, 2) << c.args;
    EXPECT_TRUE(Has(run.err, c.err_part)) << c.args << " said: " << run.err;
    EXPECT_EQ(run.out, "") << c.args;
  }
}

}  // namespace
