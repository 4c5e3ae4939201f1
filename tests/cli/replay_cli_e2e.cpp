// Record and replay through the built CLI: a whole receiver day recorded through zarimrec on
// the virtual board, replayed by the same library event for event; a library that writes one
// word differently (bin/mutant, see tests/replay/mutant_gain.cpp) is stopped at that word.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include "cli_run.h"

namespace cli_e2e {
namespace {

// The sample profile with the samples named absolutely, so that the CLI in bin/mutant finds
// them too, and a capture of one second.
void WriteProfile(const char* path) {
  std::string here = __FILE__;
  std::ifstream in(here.substr(0, here.find_last_of("/\\")) + "/../../profiles/receive.ini");
  std::ofstream out(path);
  out << "samples = " << (std::filesystem::current_path() / "samples").string() << "\n";
  for (std::string line; std::getline(in, line);)
    out << (line.compare(0, 8, "seconds ") == 0 ? "seconds = 1" : line) << "\n";
}

// The line of event `n` of a recording, from its kind on.
std::string EventLine(const std::string& recording, const std::string& n) {
  const std::string at = LineStarting(Slurp(recording.c_str()), n + " ");
  const std::smatch m = [&] {
    std::smatch found;
    std::regex_match(at, found, std::regex(R"(\d+ \d+ \d+ (.*))"));
    return found;
  }();
  return m.empty() ? "" : m[1].str();
}

TEST(RecordAndReplay, TheSameLibraryMatchesAndAChangedWordIsCaughtWhereItIsWritten) {
  WriteProfile("replay_profile.ini");
  const CliResult recorded = RunCli("--record replay_recording.txt run replay_profile.ini");
  ASSERT_EQ(recorded.status, 0) << recorded.out << recorded.err;
  const std::string text = Slurp("replay_recording.txt");
  ASSERT_EQ(text.compare(0, 11, "zarimrec 1\n"), 0) << text.substr(0, 200);
  EXPECT_TRUE(Has(text, "\napp {") && Has(text, "\"args\":[\"run\",\"replay_profile.ini\"]"))
      << text.substr(0, 400);

  const CliResult same = RunCli("replay replay_recording.txt");
  EXPECT_EQ(same.status, 0) << same.out << same.err;
  EXPECT_TRUE(Has(same.out, "replay: match: ")) << same.out;
  EXPECT_TRUE(Has(same.out, "done: carrier locked, timing locked; 17 channels captured, "))
      << same.out;

  const CliResult mutant = RunCli("replay replay_recording.txt", "mutant");
  EXPECT_EQ(mutant.status, 1) << mutant.out << mutant.err;
  std::smatch m;
  const std::string state = LineStarting(mutant.out, "replay: ");
  ASSERT_TRUE(std::regex_search(state, m, std::regex(
      R"(differs at event (\d+): expected (W 0x[0-9A-F]{8}) 0x([0-9A-F]{8}), got (W 0x[0-9A-F]{8}) 0x([0-9A-F]{8}))")))
      << mutant.out;
  EXPECT_EQ(m[2], m[4]) << "the same register";
  EXPECT_EQ(std::stoul(m[3], nullptr, 16) ^ 1u, std::stoul(m[5], nullptr, 16)) << "one bit off";
  EXPECT_EQ(EventLine("replay_recording.txt", m[1]), m[2].str() + " 0x" + m[3].str())
      << "the event named is the recorded write";
}

}  // namespace
}  // namespace cli_e2e
