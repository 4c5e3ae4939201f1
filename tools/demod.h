// The receiver's steps: signal, tune, rate and iso set it up; status shows it; gain, eq and
// dmpx set its gain stages, equalizer and demultiplexer. They chain: one line may run several,
// in the order given, on one bring-up ("signal QPSK tune 1.2e9 rate 10e6 status"), since each
// run of the tool starts from a freshly built board and a board's state lives only that long.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "options.h"
#include "session.h"

namespace tvx::cli {

// Bits of GetBitStatus's word.
constexpr uint32_t kCarrierLockBit = 1u << 0;
constexpr uint32_t kTimingLockBit = 1u << 1;
constexpr uint32_t kIqChannelBit = 1u << 4;
constexpr uint32_t kDmdChannelBit = 1u << 6;

// The marker the library's signal-type table holds for a value that does not apply.
constexpr uint32_t kNotApplicable = 0xABCDEF;

// True for the words that start a step of a chain.
bool IsDemodStep(const std::string& word);

// A step of a chain. gain, eq and dmpx take an action word, and each action is a step of its
// own ("gain first" and "gain second" may both run on one line).
struct DemodStep {
  enum Kind {
    kSignal, kTune, kRate, kIso, kStatus, kGainFirst, kGainSecond, kEqControl, kEqTable,
    kEqTaps, kEqSet, kDmpxLoad, kDmpxControl, kDmpxStatus
  } kind = kSignal;
  uint8_t modulation = 0;   // signal
  double value = 0;         // tune: Hz; rate: symbols per second
  float first = 0;          // iso: the two factors
  float second = 0;
  std::vector<uint32_t> words;   // gain first/second, eq control, dmpx control, as given
  std::string file;              // eq table, dmpx load
  std::vector<std::pair<uint16_t, uint16_t>> pairs;   // eq set: first and second values
};

// Splits a chain line (the command word and its arguments) into its steps and checks it: each
// step once, its arguments, the options of the steps on the line only. Empty result: success;
// otherwise the text of the usage error. With --help only the options are checked. `steps`
// may be null when only the check is wanted.
std::string ParseDemodChain(const Invocation& inv, std::vector<DemodStep>* steps);

// Equalizer coefficients as `eq set` takes them: "F1:S1,F2:S2,...", each value 0 to 0xFFFF in
// decimal or 0x-hexadecimal, at least one pair. False for anything else.
bool ParseCoefficientPairs(std::string_view text,
                           std::vector<std::pair<uint16_t, uint16_t>>* pairs);

// A signal type: an index (passed on, the library refuses those it has no row for) or a label
// such as 8psk, any case.
bool ParseSignalType(std::string_view text, uint8_t* index);
// The label of a signal-type index, "?" beyond the table.
const char* SignalLabel(unsigned index);

// False for the names in the signal-type table that stand for no file ("-DEC-", "N/A", "").
bool IsTableFileName(std::string_view name);

// The file FilterLoad opens for a shape at a first decimation ("n20d_16.dat"); "" for a shape
// beyond the library's table.
std::string FilterFileName(unsigned shape, uint32_t decimation);

// The read-back of GetSignalParameters, one item a line.
std::vector<std::string> SignalReport(const SignalParameters& parameters);

// "locked", "NOT locked", or that the signal type has no lock threshold to show one by; when
// not locked and `why_not` is given, it follows in brackets.
std::string LockText(bool has_threshold, bool locked, const char* why_not = nullptr);

// A refused call: the library's text, or the call's name when it left none, after the step's
// name on stderr. Always false, so that a step can return it.
bool StepFailed(const std::string& step, const std::string& call);

// A virtual-board key's value, "?" when the key gives none or there is no virtual board.
std::string SimValue(const Session& session, const char* key);

// Reads the status word with `read` (false: the read failed) until every bit of `wanted` is
// set, at most `reads` times, `interval` apart; the word is cleared before each read. Returns
// the reads made (0 after a failed read), the last word in *word.
int PollStatus(const std::function<bool(uint32_t*)>& read, uint32_t wanted, int reads,
               std::chrono::milliseconds interval, uint32_t* word);

// signal, tune, rate, iso, status, gain, eq, dmpx, and any chain of them.
int RunDemodChain(Session& session);

// Runs steps as a chain does, on one bring-up, with the step options of session.inv(): what
// `run` does with the receiver its profile names.
int RunDemodSteps(Session& session, const std::vector<DemodStep>& steps);

}  // namespace tvx::cli
