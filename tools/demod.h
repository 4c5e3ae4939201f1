// The demodulator commands: signal, tune, rate and iso. They chain: one line may run several,
// in the order given, on one bring-up ("signal QPSK tune 1.2e9 rate 10e6"), since each run of
// the tool starts from a freshly built board and a receiver is only set up by all of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "options.h"
#include "session.h"

namespace tvx::cli {

// Bits of GetBitStatus's word.
constexpr uint32_t kCarrierLockBit = 1u << 0;
constexpr uint32_t kTimingLockBit = 1u << 1;

// The marker the library's signal-type table holds for a value that does not apply.
constexpr uint32_t kNotApplicable = 0xABCDEF;

// True for the words that start a step of a chain.
bool IsDemodStep(const std::string& word);

struct DemodStep {
  enum Kind { kSignal, kTune, kRate, kIso } kind = kSignal;
  uint8_t modulation = 0;   // signal
  double value = 0;         // tune: Hz; rate: symbols per second
  float first = 0;          // iso: the two factors
  float second = 0;
};

// Splits a chain line (the command word and its arguments) into its steps and checks it: each
// step once, its arguments, the options of the steps on the line only. Empty result: success;
// otherwise the text of the usage error. With --help only the options are checked. `steps`
// may be null when only the check is wanted.
std::string ParseDemodChain(const Invocation& inv, std::vector<DemodStep>* steps);

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

// Reads the status word with `read` (false: the read failed) until every bit of `wanted` is
// set, at most `reads` times, `interval` apart; the word is cleared before each read. Returns
// the reads made (0 after a failed read), the last word in *word.
int PollStatus(const std::function<bool(uint32_t*)>& read, uint32_t wanted, int reads,
               std::chrono::milliseconds interval, uint32_t* word);

// signal / tune / rate / iso, and any chain of them.
int RunDemodChain(Session& session);

}  // namespace tvx::cli
