// The chain's line: how it splits into steps (the receiver's, status, and the gain, eq and dmpx
// actions) and what it refuses before a board is touched; equalizer coefficient pairs; signal
// types by index and label; the names that stand for no file; the read-back as shown; and the
// bounded wait for the locks.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <utility>
#include <string>
#include <vector>

#include "demod.h"
#include "options.h"

namespace tvx::cli {
namespace {

using Args = std::vector<std::string>;

std::string Chain(const Args& args, std::vector<DemodStep>* steps) {
  Invocation inv;
  const std::string parse_error = ParseCommandLine(args, &inv);
  EXPECT_EQ(parse_error, "") << ::testing::PrintToString(args);
  return ParseDemodChain(inv, steps);
}

// Steps run in the order given; step options anywhere on the line; indices the library has no
// row for are still passed on (its refusal is its own text).
TEST(DemodChain, SplitsIntoStepsInTheOrderGiven) {
  const struct {
    Args args;
    std::vector<DemodStep::Kind> kinds;
    double value;   // the tune or rate step's number, the last one seen
  } cases[] = {
      {{"signal", "8psk", "tune", "1.2e9", "rate", "10e6"},
       {DemodStep::kSignal, DemodStep::kTune, DemodStep::kRate}, 10e6},
      {{"--filters", "d", "rate", "2.5e6", "--filter", "21", "tune", "7e7", "--multi"},
       {DemodStep::kRate, DemodStep::kTune}, 7e7},
      {{"iso", "0.5", "2", "signal", "0x15", "--tables", "t"},
       {DemodStep::kIso, DemodStep::kSignal}, 0},
      {{"signal", "255", "--code-rate", "200", "--coding", "0"}, {DemodStep::kSignal}, 0},
      {{"tune", "--", "-1e6"}, {DemodStep::kTune}, -1e6},
  };
  for (const auto& c : cases) {
    std::vector<DemodStep> steps;
    ASSERT_EQ(Chain(c.args, &steps), "") << ::testing::PrintToString(c.args);
    std::vector<DemodStep::Kind> kinds;
    double value = 0;
    for (const auto& s : steps) {
      kinds.push_back(s.kind);
      if (s.kind == DemodStep::kTune || s.kind == DemodStep::kRate) value = s.value;
    }
    EXPECT_EQ(kinds, c.kinds) << ::testing::PrintToString(c.args);
    EXPECT_EQ(value, c.value) << ::testing::PrintToString(c.args);
  }
  std::vector<DemodStep> steps;
  ASSERT_EQ(Chain({"iso", "0.5", "--", "-2", "signal", "0x15"}, &steps), "");
  EXPECT_TRUE(steps[0].first == 0.5f && steps[0].second == -2.0f);
  EXPECT_EQ(steps[1].modulation, 21);
  ASSERT_EQ(Chain({"signal", "255"}, &steps), "");
  EXPECT_EQ(steps[0].modulation, 255);
}

// The word after gain, eq or dmpx is its action even when it is a step word ("dmpx status");
// each action is a step of its own; words and pairs are passed on as given.
TEST(DemodChain, ActionStepsAndTheirArguments) {
  std::vector<DemodStep> steps;
  ASSERT_EQ(Chain({"gain", "first", "0x12C", "gain", "second", "1", "4294967295", "dmpx", "status",
                   "status", "--watch", "0.5", "--count", "3", "eq", "set", "1:2,0xFFFF:0",
                   "dmpx", "control", "1", "2", "3", "eq", "table", "e.dat", "dmpx", "load",
                   "t.bin", "eq", "taps", "eq", "control", "7"},
                  &steps),
            "");
  const struct {
    DemodStep::Kind kind;
    std::vector<uint32_t> words;
    std::string file;
    size_t pairs;
  } expected[] = {
      {DemodStep::kGainFirst, {300}, "", 0},       {DemodStep::kGainSecond, {1, 0xFFFFFFFF}, "", 0},
      {DemodStep::kDmpxStatus, {}, "", 0},         {DemodStep::kStatus, {}, "", 0},
      {DemodStep::kEqSet, {}, "", 2},              {DemodStep::kDmpxControl, {1, 2, 3}, "", 0},
      {DemodStep::kEqTable, {}, "e.dat", 0},       {DemodStep::kDmpxLoad, {}, "t.bin", 0},
      {DemodStep::kEqTaps, {}, "", 0},             {DemodStep::kEqControl, {7}, "", 0},
  };
  ASSERT_EQ(steps.size(), std::size(expected));
  for (size_t i = 0; i < steps.size(); ++i) {
    EXPECT_EQ(steps[i].kind, expected[i].kind) << "step " << i;
    EXPECT_EQ(steps[i].words, expected[i].words) << "step " << i;
    EXPECT_EQ(steps[i].file, expected[i].file) << "step " << i;
    EXPECT_EQ(steps[i].pairs.size(), expected[i].pairs) << "step " << i;
  }
  // Help for a word needs no action.
  for (const char* word : {"gain", "eq", "dmpx", "status"})
    EXPECT_EQ(Chain({word, "--help"}, nullptr), "") << word;
}

TEST(DemodChain, CoefficientPairs) {
  std::vector<std::pair<uint16_t, uint16_t>> pairs;
  ASSERT_TRUE(ParseCoefficientPairs("2048:0", &pairs));
  EXPECT_EQ(pairs, (std::vector<std::pair<uint16_t, uint16_t>>{{2048, 0}}));
  ASSERT_TRUE(ParseCoefficientPairs("0x10:16,1:1,1:1", &pairs));
  EXPECT_EQ(pairs, (std::vector<std::pair<uint16_t, uint16_t>>{{16, 16}, {1, 1}, {1, 1}}))
      << "repeats kept: each pair is a tap";
  for (const char* bad : {"", "1", "1:", ":1", "1:2,", ",1:2", "1:2,,3:4", "1:2:3", "1:65536",
                          "-1:2", "1;2", "1:2 ", "1 :2"})
    EXPECT_FALSE(ParseCoefficientPairs(bad, &pairs)) << '"' << bad << '"';
  EXPECT_EQ(pairs.size(), 3u) << "a refused list leaves the pairs alone";
}

TEST(DemodChain, RefusesLinesItCannotRun) {
  const std::pair<Args, const char*> cases[] = {
      {{"tune", "1e9", "rate", "1e6", "tune", "2e9"}, "tune: given twice"},
      {{"signal"}, "signal: missing argument; usage: torvixe signal TYPE"},
      {{"tune", "1e9", "2e9"}, "tune: unexpected argument '2e9'"},
      {{"signal", "QPSK4"}, "signal: unknown signal type 'QPSK4'"},
      {{"tune", "1.2GHz"}, "tune: invalid frequency '1.2GHz'"},
      {{"iso", "1", "1e39"}, "iso: invalid factor '1e39'"},   // no float holds it
      {{"signal", "1", "--filters", "d"}, "--filters belongs to the rate step"},
      {{"rate", "1e6", "--multi"}, "--multi belongs to the tune step"},
      {{"rate", "1e6", "--len", "2"}, "--len does not apply to the steps (signal, tune, rate,"},
      {{"status", "--count", "3"}, "status: --count needs --watch S"},
      {{"gain"}, "gain: missing action (first or second); usage: torvixe gain first CODE"},
      {{"dmpx", "tune", "1e9"}, "dmpx: unknown action 'tune' (load, control or status)"},
      {{"gain", "first", "0x100000000"}, "gain first: invalid word '0x100000000'"},
      {{"eq", "set", "1:2,3"}, "eq set: invalid coefficients '1:2,3'"},
      // A step word always starts a step: a file named like one needs a path ("./status").
      {{"eq", "table", "status"}, "eq table: missing argument"},
      {{"peek", "0"}, "'peek' is not a step (signal, tune, rate, iso, status, gain, eq, dmpx)"},
      {{"rate", "1e6", "--filter", "2"}, "--filter needs --filters DIR"},
  };
  for (const auto& [args, error_part] : cases) {
    std::vector<DemodStep> steps(1);
    const std::string error = Chain(args, &steps);
    EXPECT_NE(error.find(error_part), std::string::npos)
        << ::testing::PrintToString(args) << " gave \"" << error << '"';
    EXPECT_EQ(steps.size(), 1u) << "a refused line leaves the steps alone";
  }
  // Help needs no arguments, but an option of another step is still wrong.
  EXPECT_EQ(Chain({"rate", "--help"}, nullptr), "");
  EXPECT_NE(Chain({"tune", "--help", "--filters", "d"}, nullptr), "");
}

TEST(SignalType, IndicesAndLabelsInAnyCase) {
  for (unsigned i = 0; i < 22; ++i) {
    uint8_t index = 99;
    std::string lower = SignalLabel(i);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_TRUE(ParseSignalType(lower, &index) && index == i) << lower;
    EXPECT_TRUE(ParseSignalType(std::to_string(i), &index) && index == i) << i;
  }
  uint8_t index = 0;
  EXPECT_TRUE(ParseSignalType("8Qam_Pd", &index) && index == 19);
  EXPECT_TRUE(ParseSignalType("DVBS2X", &index) && index == 21) << "not taken for DVBS2";
  for (const char* bad : {"", "QPSK ", " QPSK", "QPSK_", "DVBS", "-1", "256", "8PSK\n"})
    EXPECT_FALSE(ParseSignalType(bad, &index)) << '"' << bad << '"';
  EXPECT_STREQ(SignalLabel(22), "?");
}

TEST(SignalType, NamesThatStandForNoFile) {
  for (const char* none : {"", "-DEC-", "-NA-", "-QAM128-", "N/A", "--"})
    EXPECT_FALSE(IsTableFileName(none)) << none;
  for (const char* file : {"mpm_4.dat", "-", "-x.dat", "x.dat-", "m16apsk7.dat"})
    EXPECT_TRUE(IsTableFileName(file)) << file;
  EXPECT_EQ(FilterFileName(8, 32), "nf40d_32.dat");
  EXPECT_EQ(FilterFileName(22, 4), "");
}

// The marker reads n/a wherever it stands; a name that fills its field to the last byte ends
// there; the carrier threshold is signed.
TEST(SignalType, ReadBackAsShown) {
  SignalParameters p{};
  p.Modulation = 12;
  p.CodeRate = 9;
  std::memset(p.TableFileM, 'm', sizeof p.TableFileM);
  std::memcpy(p.TableFileX, "N/A", 4);
  std::memcpy(p.TableFileE, "-IQ-", 5);
  p.LevelCode = kNotApplicable;
  p.CarrierLockThreshold = static_cast<int32_t>(kNotApplicable);
  p.TimingLockThreshold = kNotApplicable;
  p.BitsPerSymbol = 0;
  p.ModeCode = 0xEF;
  const std::vector<std::string> lines = SignalReport(p);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], "modulation 12 (IQ), code rate 9");
  EXPECT_EQ(lines[1], "table files: M " + std::string(32, 'm') + ", X N/A, E -IQ-, O ");
  EXPECT_EQ(lines[2], "level code n/a; lock thresholds: carrier n/a, timing n/a");
  EXPECT_EQ(lines[3], "bits per symbol 0, mode code 239");
  p.LevelCode = 81;
  p.CarrierLockThreshold = -52;
  p.TimingLockThreshold = 3;
  EXPECT_EQ(SignalReport(p)[2], "level code 81; lock thresholds: carrier -52, timing 3");
}

// The status word as a board answers it: the lock bits come on after some reads, other bits
// may be set, and the caller's word is whatever the last read left.
TEST(LockWait, StopsAtTheLocksOrAfterTheBound) {
  const struct {
    int locks_after;         // the read that first shows the locks; 0: never
    uint32_t shows;          // the lock bits the board sets from then on
    uint32_t wanted;
    int reads_made;
  } cases[] = {
      {3, kCarrierLockBit | kTimingLockBit, kCarrierLockBit | kTimingLockBit, 3},
      {1, kCarrierLockBit, kCarrierLockBit, 1},
      {2, kCarrierLockBit, kCarrierLockBit | kTimingLockBit, 5},   // half a lock is none
      {0, 0, kTimingLockBit, 5},
      {4, kTimingLockBit, 0, 1},                                   // nothing to wait for
  };
  for (const auto& c : cases) {
    int calls = 0;
    bool clean = true;
    auto read = [&](uint32_t* word) {
      clean = clean && *word == 0;
      ++calls;
      *word |= 0x50u | (c.locks_after != 0 && calls >= c.locks_after ? c.shows : 0);
      return true;
    };
    uint32_t word = 0xFFFFFFFF;
    EXPECT_EQ(PollStatus(read, c.wanted, 5, std::chrono::milliseconds(0), &word), c.reads_made)
        << "locks after " << c.locks_after << ", wanted " << c.wanted;
    EXPECT_EQ(calls, c.reads_made);
    EXPECT_TRUE(clean) << "the word is cleared before every read";
    EXPECT_EQ(word & 0x50u, 0x50u);
  }
  uint32_t word = 0;
  EXPECT_EQ(PollStatus([](uint32_t*) { return false; }, kCarrierLockBit, 5,
                       std::chrono::milliseconds(0), &word),
            0);
}

}  // namespace
}  // namespace tvx::cli
