// The receiver from a shell: signal, tune, rate and iso here, the chain that runs them with
// status, gain, eq and dmpx. Each step makes its library calls and shows what the library read
// back; a line that tuned or set a rate ends with the locks and the measured carrier and rate
// (or with a status screen that shows them), which is what tells a user the receiver works.
#include "demod.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <thread>

#include "commands.h"
#include "controls.h"
#include "loaders.h"
#include "status.h"
#include "text.h"

namespace tvx::cli {
namespace {

constexpr const char* kSignalLabels[] = {
    "BPSK",  "QPSK",     "OQPSK", "8PSK",   "8QAM",    "16QAM",   "32QAM", "64QAM",
    "BPSK_P2", "QPSK_P4", "DEC",  "PRS",    "IQ",      "BPSK_135", "16APSK", "32APSK",
    "128QAM", "256QAM",  "8QAM_DS", "8QAM_PD", "DVBS2", "DVBS2X"};

constexpr const char* kFilterShapes[] = {
    "ibsd", "n10d", "n15d", "n20d", "n25d", "n30d", "n35d", "n40d", "nf40d", "wded", "ibsw",
    "n05w", "n08w", "n10w", "n15w", "n20w", "n25w", "n30w", "n35w", "n40w", "nf40w", "wdew"};

// The loops lock within a few status reads once the carrier and the rate are set (the virtual
// board's take three); half a second bounds the wait for a receiver that will not lock.
constexpr int kLockReads = 50;
constexpr std::chrono::milliseconds kLockInterval{10};

// The words that start a step. gain, eq and dmpx take an action word: the word after them is
// always their action, even one that is a step word of its own ("dmpx status").
struct StepWord {
  const char* word;
  bool has_actions;
  DemodStep::Kind kind;   // for a word without actions
};
constexpr StepWord kStepWords[] = {
    {"signal", false, DemodStep::kSignal}, {"tune", false, DemodStep::kTune},
    {"rate", false, DemodStep::kRate},     {"iso", false, DemodStep::kIso},
    {"status", false, DemodStep::kStatus}, {"gain", true, {}},
    {"eq", true, {}},                      {"dmpx", true, {}}};

struct ActionStep {
  const char* word;
  const char* action;
  const char* name;       // as messages and usage show it
  const char* usage;
  int args;
  DemodStep::Kind kind;
};
constexpr ActionStep kActionSteps[] = {
    {"gain", "first", "gain first", "CODE", 1, DemodStep::kGainFirst},
    {"gain", "second", "gain second", "W1 W2", 2, DemodStep::kGainSecond},
    {"eq", "control", "eq control", "WORD", 1, DemodStep::kEqControl},
    {"eq", "table", "eq table", "FILE", 1, DemodStep::kEqTable},
    {"eq", "taps", "eq taps", "", 0, DemodStep::kEqTaps},
    {"eq", "set", "eq set", "F1:S1,F2:S2,...", 1, DemodStep::kEqSet},
    {"dmpx", "load", "dmpx load", "FILE", 1, DemodStep::kDmpxLoad},
    {"dmpx", "control", "dmpx control", "C1 C2 C3", 3, DemodStep::kDmpxControl},
    {"dmpx", "status", "dmpx status", "", 0, DemodStep::kDmpxStatus}};

const StepWord* FindStep(const std::string& word) {
  for (const auto& s : kStepWords)
    if (word == s.word) return &s;
  return nullptr;
}

const ActionStep* FindAction(const std::string& word, const std::string& action) {
  for (const auto& a : kActionSteps)
    if (word == a.word && action == a.action) return &a;
  return nullptr;
}

// "first or second", for a step word's message.
std::string ActionList(const std::string& word) {
  std::vector<const char*> actions;
  for (const auto& a : kActionSteps)
    if (word == a.word) actions.push_back(a.action);
  std::string list;
  for (size_t i = 0; i < actions.size(); ++i)
    list += (i == 0 ? "" : i + 1 == actions.size() ? " or " : ", ") + std::string(actions[i]);
  return list;
}

std::string StepList() {
  std::string list;
  for (const auto& s : kStepWords) list += (list.empty() ? "" : ", ") + std::string(s.word);
  return list;
}

bool SameLabel(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::toupper(static_cast<unsigned char>(a[i])) !=
        std::toupper(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

// A fixed-size name field of the library's record; it need not be terminated.
template <size_t N>
std::string FieldText(const char (&field)[N]) {
  return Cp1251ToUtf8(std::string_view(field, strnlen(field, N)));
}

std::string Marked(uint32_t value, const std::string& shown) {
  return value == kNotApplicable ? "n/a" : shown;
}

bool RunSignal(Session& s, const DemodStep& step) {
  const Invocation& inv = s.inv();
  uint8_t modulation = step.modulation, code_rate = inv.code_rate, coding = inv.coding;
  if (SetSignalType(s.id(), &modulation, &code_rate, &coding) != 0)
    return StepFailed("signal", "SetSignalType");
  std::printf("signal type %s (%u), code rate %u, coding %u set; the library reports:\n",
              SignalLabel(modulation), modulation, code_rate, coding);
  SignalParameters parameters{};
  if (GetSignalParameters(s.id(), &parameters) != 0)
    return StepFailed("signal", "GetSignalParameters");
  for (const std::string& line : SignalReport(parameters)) std::printf("  %s\n", line.c_str());
  if (inv.tables_dir.empty()) return true;

  const std::string name = FieldText(parameters.TableFileM);
  if (!IsTableFileName(name)) {
    std::printf("packing table: skipped, %s names no file\n",
                name.empty() ? "the signal type" : ("\"" + name + "\"").c_str());
    return true;
  }
  const std::string path = (std::filesystem::path(inv.tables_dir) / name).string();
  if (LoadPackMode(s.id(), path.c_str()) != 0) return StepFailed("signal --tables", "LoadPackMode");
  std::error_code error;
  const auto bytes = std::filesystem::file_size(path, error);
  std::printf("packing table loaded from %s (%llu bytes)\n", path.c_str(),
              error ? 0ull : static_cast<unsigned long long>(bytes));
  if (s.sim().available())
    std::printf("  virtual board: %s packing words received\n", SimValue(s, "pack.words").c_str());
  return true;
}

bool RunTune(Session& s, const DemodStep& step) {
  double hz = step.value;
  const bool multi = s.inv().multi;
  if ((multi ? SetCarrierMulti(s.id(), &hz) : SetCarrier(s.id(), &hz)) != 0)
    return StepFailed("tune", multi ? "SetCarrierMulti" : "SetCarrier");
  std::printf("carrier tuned to %.2f Hz%s\n", hz,
              multi ? " (SetCarrierMulti: the NCO word left as it was)" : "");
  return true;
}

bool RunRate(Session& s, const DemodStep& step) {
  const Invocation& inv = s.inv();
  double sps = step.value;
  if (SetTiming(s.id(), &sps) != 0) return StepFailed("rate", "SetTiming");
  TimingControl control{};
  if (GetTimingControl(s.id(), &control) != 0) return StepFailed("rate", "GetTimingControl");
  const uint32_t decimation = control.FirstDecimation;
  std::printf("symbol rate set to %.2f sym/s: first decimation D %u, second decimation M %u, "
              "loop code %u, aux code %u\n",
              sps, decimation, control.ControlWord & 0xFFFu, control.LoopCode, control.AuxCode);
  if (!inv.filters_dir.empty()) {
    uint8_t shape = inv.filter;
    // The last argument is only tested for null.
    if (FilterLoad(s.id(), inv.filters_dir.c_str(), &shape, &shape) != 0)
      return StepFailed("rate --filters", "FilterLoad");
    const std::string file = FilterFileName(shape, decimation);
    std::printf("channel filter %s (shape %u) loaded from %s\n",
                file.empty() ? "?" : file.c_str(), shape, inv.filters_dir.c_str());
  }
  if (s.sim().available())
    std::printf("  virtual board: decimation %s, M %s, %s filter taps\n",
                SimValue(s, "demod.decimation").c_str(), SimValue(s, "demod.m").c_str(),
                SimValue(s, "filter.taps").c_str());
  return true;
}

bool RunIso(Session& s, const DemodStep& step) {
  float first = step.first, second = step.second;
  if (ISOCVRTSetTiming(s.id(), &first, &second) != 0)
    return StepFailed("iso", "ISOCVRTSetTiming");
  uint32_t loading = 0;
  if (ISOCVRTGetLoading(s.id(), &loading) != 0) return StepFailed("iso", "ISOCVRTGetLoading");
  std::printf("iso converter timing set with factors %g and %g; loading %d\n",
              static_cast<double>(first), static_cast<double>(second),
              static_cast<int>(static_cast<int32_t>(loading)));
  if (s.sim().available())
    std::printf("  virtual board: iso output clock %s Hz\n", SimValue(s, "iso.frequency").c_str());
  return true;
}

// The locks a line asked for, waited for: the carrier lock when it tuned, the timing lock when
// it set a rate, each where the signal type has a threshold to show it by.
struct LockWait {
  bool carrier_threshold = true;
  bool timing_threshold = true;
  uint32_t wanted = 0;
  uint32_t word = 0;   // the last status word read
  int reads = 0;       // 0: GetBitStatus failed (its text is shown)
};

LockWait WaitForLocks(Session& s, bool tuned, bool rate_set) {
  LockWait wait;
  SignalParameters parameters{};
  if (GetSignalParameters(s.id(), &parameters) == 0) {
    wait.carrier_threshold = uint32_t(parameters.CarrierLockThreshold) != kNotApplicable;
    wait.timing_threshold = parameters.TimingLockThreshold != kNotApplicable;
  }
  wait.wanted = (tuned && wait.carrier_threshold ? kCarrierLockBit : 0) |
                (rate_set && wait.timing_threshold ? kTimingLockBit : 0);
  wait.reads = PollStatus([&s](uint32_t* w) { return GetBitStatus(s.id(), w) == 0; },
                          wait.wanted, kLockReads, kLockInterval, &wait.word);
  if (wait.reads == 0) StepFailed("lock status", "GetBitStatus");
  return wait;
}

// On a line that set the whole receiver up (carrier and rate) a lock that applies but did not
// come fails the run: a script must be able to tell. A line that set only one of them reports
// the locks and succeeds: the carrier loop locks only behind the timing loop, and the other
// half may be whatever an earlier run left in the board (a fresh virtual board has no rate).
bool ReportMissingLocks(const LockWait& wait, bool tuned, bool rate_set) {
  const uint32_t missing = wait.wanted & ~wait.word;
  if (missing == 0 || !(tuned && rate_set)) return false;
  const char* which = missing == (kCarrierLockBit | kTimingLockBit) ? "carrier and timing"
                      : (missing & kCarrierLockBit) != 0            ? "carrier"
                                                                    : "timing";
  PrintError(std::string(which) + " not locked after " + std::to_string(wait.reads) +
             " status reads, " + std::to_string(kLockInterval.count()) + " ms apart");
  return true;
}

// Waits for the locks the line asked for, then measures and shows them.
int Summary(Session& s, bool tuned, bool rate_set) {
  const LockWait wait = WaitForLocks(s, tuned, rate_set);
  if (wait.reads == 0) return kExitFailed;
  double carrier = 0, rate = 0;
  if (MeasureCarrier(s.id(), 0, &carrier) != 0 || MeasureTiming(s.id(), 0, &rate) != 0) {
    StepFailed("measuring", "MeasureCarrier/MeasureTiming");
    return kExitFailed;
  }

  const std::string carrier_lock =
      LockText(wait.carrier_threshold, (wait.word & kCarrierLockBit) != 0,
               tuned ? nullptr : "not tuned in this run");
  const std::string timing_lock =
      LockText(wait.timing_threshold, (wait.word & kTimingLockBit) != 0,
               rate_set ? nullptr : "no rate set in this run");
  std::printf("carrier: %s, measured %.2f Hz\n", carrier_lock.c_str(), carrier);
  std::printf("timing: %s, measured %.2f sym/s\n", timing_lock.c_str(), rate);
  if (s.sim().available()) {
    // The frequency the demodulator sees is the carrier folded by the convertor and the
    // sampling; the offset from its NCO is what the carrier loop has to pull in.
    const std::string seen = SimValue(s, "demod.signal.frequency");
    if (seen == "none")
      std::printf("  virtual board: no signal reaches the demodulator\n");
    else
      std::printf("  virtual board: the demodulator sees the signal at %s Hz (after the convertor "
                  "and the sampling), %s sym/s, %s Hz off its NCO\n",
                  seen.c_str(), SimValue(s, "demod.signal.rate").c_str(),
                  SimValue(s, "demod.offset").c_str());
  }
  return ReportMissingLocks(wait, tuned, rate_set) ? kExitFailed : kExitOk;
}

}  // namespace

bool IsDemodStep(const std::string& word) { return FindStep(word) != nullptr; }

std::string LockText(bool has_threshold, bool locked, const char* why_not) {
  if (!has_threshold) return "no lock indication for this signal type";
  if (locked) return "locked";
  return why_not == nullptr ? "NOT locked" : std::string("NOT locked (") + why_not + ")";
}

bool StepFailed(const std::string& step, const std::string& call) {
  const std::string text = LastLibraryText();
  PrintError(step + ": " + (text.empty() ? call + " failed" : text));
  return false;
}

std::string SimValue(const Session& s, const char* key) {
  const char* value = s.sim().available() ? s.sim().Get(s.board(), key) : nullptr;
  return value != nullptr ? value : "?";
}

bool ParseCoefficientPairs(std::string_view text,
                           std::vector<std::pair<uint16_t, uint16_t>>* pairs) {
  std::vector<std::pair<uint16_t, uint16_t>> parsed;
  for (size_t start = 0;;) {
    const size_t comma = std::min(text.find(',', start), text.size());
    const std::string_view item = text.substr(start, comma - start);
    const size_t colon = item.find(':');
    uint64_t first = 0, second = 0;
    if (colon == std::string_view::npos || !ParseUnsigned(item.substr(0, colon), 0xFFFF, &first) ||
        !ParseUnsigned(item.substr(colon + 1), 0xFFFF, &second))
      return false;
    parsed.emplace_back(uint16_t(first), uint16_t(second));
    if (comma == text.size()) break;
    start = comma + 1;
  }
  *pairs = std::move(parsed);
  return true;
}

bool ParseSignalType(std::string_view text, uint8_t* index) {
  uint64_t number = 0;
  if (ParseUnsigned(text, 255, &number)) {
    *index = static_cast<uint8_t>(number);
    return true;
  }
  for (size_t i = 0; i < std::size(kSignalLabels); ++i) {
    if (SameLabel(text, kSignalLabels[i])) {
      *index = static_cast<uint8_t>(i);
      return true;
    }
  }
  return false;
}

const char* SignalLabel(unsigned index) {
  return index < std::size(kSignalLabels) ? kSignalLabels[index] : "?";
}

bool IsTableFileName(std::string_view name) {
  if (name.empty() || name == "N/A") return false;
  return !(name.size() >= 2 && name.front() == '-' && name.back() == '-');
}

std::string FilterFileName(unsigned shape, uint32_t decimation) {
  if (shape >= std::size(kFilterShapes)) return "";
  return std::string(kFilterShapes[shape]) + "_" + std::to_string(decimation) + ".dat";
}

std::vector<std::string> SignalReport(const SignalParameters& p) {
  const unsigned modulation = p.Modulation, code_rate = p.CodeRate;
  const int32_t carrier = p.CarrierLockThreshold;
  const uint32_t timing = p.TimingLockThreshold, level = p.LevelCode;
  return {
      "modulation " + std::to_string(modulation) + " (" + SignalLabel(modulation) +
          "), code rate " + std::to_string(code_rate),
      "table files: M " + FieldText(p.TableFileM) + ", X " + FieldText(p.TableFileX) + ", E " +
          FieldText(p.TableFileE) + ", O " + FieldText(p.TableFileO),
      "level code " + Marked(level, std::to_string(level)) + "; lock thresholds: carrier " +
          Marked(uint32_t(carrier), std::to_string(carrier)) + ", timing " +
          Marked(timing, std::to_string(timing)),
      "bits per symbol " + std::to_string(unsigned(p.BitsPerSymbol)) + ", mode code " +
          std::to_string(unsigned(p.ModeCode)),
  };
}

int PollStatus(const std::function<bool(uint32_t*)>& read, uint32_t wanted, int reads,
               std::chrono::milliseconds interval, uint32_t* word) {
  for (int n = 1; n <= reads; ++n) {
    *word = 0;   // the call leaves the bits it does not own as they were
    if (!read(word)) return 0;
    if ((*word & wanted) == wanted || n == reads) return n;
    std::this_thread::sleep_for(interval);
  }
  return 0;
}

std::string ParseDemodChain(const Invocation& inv, std::vector<DemodStep>* steps) {
  struct Raw {
    DemodStep::Kind kind;
    CommandSyntax syntax;
    std::vector<std::string> args;
  };
  std::vector<Raw> raw;
  uint32_t accepted = 0;
  std::vector<std::string> words{inv.command};
  words.insert(words.end(), inv.args.begin(), inv.args.end());
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    const StepWord* step = FindStep(word);
    if (step == nullptr) {
      if (raw.empty()) return "'" + word + "' is not a step (" + StepList() + ")";
      raw.back().args.push_back(word);
      continue;
    }
    const Command* command = FindCommand(word);
    accepted |= command->syntax.options;
    Raw r{step->kind, command->syntax, {}};
    if (step->has_actions) {
      const std::string action = i + 1 < words.size() ? words[++i] : "";
      const ActionStep* a = FindAction(word, action);
      if (a == nullptr) {
        if (inv.help) continue;   // help for the word, whatever follows it
        return word + (action.empty() ? ": missing action" : ": unknown action '" + action + "'") +
               " (" + ActionList(word) + "); usage: torvixe " + word + " " + command->syntax.usage;
      }
      r.kind = a->kind;
      r.syntax = {a->name, a->usage, a->args, a->args, 0};
    }
    for (const Raw& other : raw)
      if (other.kind == r.kind)
        return std::string(r.syntax.name) + ": given twice; a line runs each step once";
    raw.push_back(std::move(r));
  }
  for (uint32_t bit = 1; bit != 0; bit <<= 1) {
    if ((inv.options_given & bit & ~accepted) == 0) continue;
    for (const auto& s : kStepWords)
      if (FindCommand(s.word)->syntax.options & bit)
        return "option " + OptionName(bit) + " belongs to the " + s.word +
               " step, which this line does not run";
    return "option " + OptionName(bit) + " does not apply to the steps (" + StepList() + ")";
  }
  if ((inv.options_given & kOptFilter) != 0 && inv.filters_dir.empty())
    return "rate: --filter needs --filters DIR";
  if ((inv.options_given & kOptCount) != 0 && inv.watch == 0)
    return "status: --count needs --watch S";
  if (inv.json && inv.watch > 0) return "status: --json shows one screen, not a --watch";
  if (inv.help) return {};

  std::vector<DemodStep> parsed;
  for (const Raw& r : raw) {
    Invocation own;
    own.args = r.args;
    if (std::string error = CheckInvocation(own, r.syntax); !error.empty()) return error;
    DemodStep step;
    step.kind = r.kind;
    const std::string arg = r.args.empty() ? "" : r.args[0];
    switch (step.kind) {
      case DemodStep::kSignal:
        if (!ParseSignalType(arg, &step.modulation))
          return "signal: unknown signal type '" + arg + "' (an index, or a label such as QPSK; "
                 "see 'torvixe signal --help')";
        break;
      case DemodStep::kTune:
        if (!ParseNumber(arg, &step.value))
          return "tune: invalid frequency '" + arg + "' (Hz, a decimal number, e.g. 1.2e9)";
        break;
      case DemodStep::kRate:
        if (!ParseNumber(arg, &step.value))
          return "rate: invalid symbol rate '" + arg + "' (symbols per second, e.g. 10e6)";
        break;
      case DemodStep::kIso: {
        // The library takes floats: a factor no float holds is refused here, not rounded to inf.
        float* factors[] = {&step.first, &step.second};
        for (size_t i = 0; i < 2; ++i) {
          double value = 0;
          if (!ParseNumber(r.args[i], &value) || !std::isfinite(static_cast<float>(value)))
            return "iso: invalid factor '" + r.args[i] + "' (a decimal number)";
          *factors[i] = static_cast<float>(value);
        }
        break;
      }
      case DemodStep::kGainFirst:
      case DemodStep::kGainSecond:
      case DemodStep::kEqControl:
      case DemodStep::kDmpxControl:
        // Words go to the library unchanged: what a code means is the hardware's business.
        for (const std::string& text : r.args) {
          uint64_t word = 0;
          if (!ParseUnsigned(text, 0xFFFFFFFFu, &word))
            return std::string(r.syntax.name) + ": invalid word '" + text +
                   "' (decimal or 0x-hexadecimal, 0 to 0xFFFFFFFF)";
          step.words.push_back(uint32_t(word));
        }
        break;
      case DemodStep::kEqTable:
      case DemodStep::kDmpxLoad:
        if (arg.empty()) return std::string(r.syntax.name) + ": the file name is empty";
        step.file = arg;
        break;
      case DemodStep::kEqSet:
        if (!ParseCoefficientPairs(arg, &step.pairs))
          return "eq set: invalid coefficients '" + arg + "' (FIRST:SECOND pairs separated by "
                 "commas, each value 0 to 0xFFFF, e.g. 2048:0,16:16)";
        break;
      case DemodStep::kStatus:
      case DemodStep::kEqTaps:
      case DemodStep::kDmpxStatus: break;
    }
    parsed.push_back(std::move(step));
  }
  if (steps != nullptr) *steps = std::move(parsed);
  return {};
}

int RunDemodChain(Session& s) {
  std::vector<DemodStep> steps;
  if (std::string error = ParseDemodChain(s.inv(), &steps); !error.empty()) {
    PrintError(error);   // main checked the line already; kept for callers that did not
    return kExitUsage;
  }
  return RunDemodSteps(s, steps);
}

int RunDemodSteps(Session& s, const std::vector<DemodStep>& steps) {
  std::string failure;
  if (!s.BringUp(&failure)) {
    PrintError("board " + std::to_string(s.board()) + ": bring-up failed: " + failure);
    return kExitFailed;
  }
  bool tuned = false, rate_set = false;
  // Whether the locks of the last tuning or rate are still to be waited for and shown: by a
  // status screen after them, else by the summary at the end of the line.
  bool locks_pending = false, locks_missing = false;
  // A step that fails ends the line: the later steps build on it.
  for (const DemodStep& step : steps) {
    bool done = true;
    switch (step.kind) {
      case DemodStep::kSignal: done = RunSignal(s, step); break;
      case DemodStep::kTune: done = locks_pending = tuned = RunTune(s, step); break;
      case DemodStep::kRate: done = locks_pending = rate_set = RunRate(s, step); break;
      case DemodStep::kIso: done = RunIso(s, step); break;
      case DemodStep::kStatus: {
        LockWait wait;
        if (locks_pending) {
          // The loops take a few reads to lock: the screen shows them once they had the time.
          wait = WaitForLocks(s, tuned, rate_set);
          if (wait.reads == 0) return kExitFailed;
          locks_pending = false;
        }
        const StatusOutcome outcome = RunStatusScreens(s);
        // After the screens, where a refreshed screen does not wipe it out.
        if (ReportMissingLocks(wait, tuned, rate_set)) locks_missing = true;
        if (outcome.failed) return kExitFailed;
        if (outcome.interrupted) return locks_missing ? kExitFailed : kExitOk;
        break;
      }
      default: done = RunControlStep(s, step); break;
    }
    if (!done) return kExitFailed;
  }
  if (locks_pending) return Summary(s, tuned, rate_set);
  return locks_missing ? kExitFailed : kExitOk;
}

}  // namespace tvx::cli
