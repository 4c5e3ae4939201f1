// `run` through the built CLI on the virtual board: the sample profile brings a whole receiver
// up and captures every channel with nothing lost, its --json document parses strictly; a step
// that fails ends the run with the library's text. Compiled with the CP1251 execution character
// set: expected UTF-8 is written u8"".
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include <nlohmann/json.hpp>

#include "cli_run.h"

namespace cli_e2e {
namespace {

// The profile the project ships, found from this file's place in the source tree.
std::string SampleProfile() {
  std::string here = __FILE__;
  return here.substr(0, here.find_last_of("/\\")) + "/../../profiles/receive.ini";
}

// One run gives both: with --json the steps' text goes to stderr, the document to stdout.
TEST(RunOnVirtualBoard, TheSampleProfileLocksAndLosesNothing) {
  const CliResult run = RunCli("run " + SampleProfile() + " --json");
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_TRUE(Has(run.err, "carrier: locked, measured ") && Has(run.err, "timing: locked, ") &&
              Has(run.err, "done: carrier locked, timing locked; 17 channels captured, "))
      << run.err;

  const nlohmann::json doc = nlohmann::json::parse(run.out, nullptr, false);
  ASSERT_FALSE(doc.is_discarded()) << run.out;
  EXPECT_EQ(doc.value("command", ""), "run");
  EXPECT_EQ(doc["exit_status"], 0);
  EXPECT_EQ(doc["errors"], nlohmann::json::array());
  const nlohmann::json& status = doc["status"];
  EXPECT_TRUE(status["carrier"]["locked"] == true && status["timing"]["locked"] == true) << status;
  EXPECT_NEAR(status["carrier"]["measured_hz"].get<double>(), 1200025000.0, 100.0);
  EXPECT_EQ(doc["locks_at_end"], (nlohmann::json{{"carrier", true}, {"timing", true}}));
  const nlohmann::json& channels = doc["capture"]["channels"];
  ASSERT_EQ(channels.size(), 17u) << run.out;
  for (const nlohmann::json& c : channels) {
    EXPECT_GT(c["buffers"], 0) << c;
    EXPECT_TRUE(c["lost"] == 0 && c["errors"] == 0) << c;
  }
}

// The FPGAs load, then the equalizer's table is missing: its text ends the run before the
// capture. A profile mistake is a usage error that touches no board.
TEST(RunOnVirtualBoard, AFailingStepEndsTheRunWithTheLibrarysText) {
  std::ofstream("run_missing.ini") << "[fpga]\nimages = samples\n[eq]\ntable = no_such.dat\n"
                                      "[capture]\nseconds = 1\n";
  const CliResult run = RunCli("run run_missing.ini");
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  EXPECT_TRUE(Has(run.out, "RS: loaded from samples")) << run.out;
  EXPECT_TRUE(Has(run.err, u8"torvixe: eq table: EQErrorTblLoad [0]: Ошибка открытия файла "
                           u8"таблицы ошибок корректора no_such.dat"))
      << run.err;
  EXPECT_FALSE(Has(run.out, "channel 0:") || Has(run.out, " done: ")) << run.out;

  std::ofstream("run_unknown.ini") << "[capture]\nseconds = 1\nverfy = yes\n";
  const CliResult unknown = RunCli("run run_unknown.ini");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_TRUE(Has(unknown.err, "run_unknown.ini:3: unknown key 'verfy' in [capture]")) << unknown.err;
  EXPECT_EQ(unknown.out, "");
}

}  // namespace
}  // namespace cli_e2e
