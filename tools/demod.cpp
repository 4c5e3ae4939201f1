// signal, tune, rate and iso: the receiver set up from a shell. Each step makes its library
// calls and shows what the library read back; a line that tuned or set a rate ends with the
// locks and the measured carrier and rate, which is what tells a user the receiver works.
#include "demod.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <thread>

#include "commands.h"
#include "loaders.h"
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

struct StepWord {
  const char* word;
  DemodStep::Kind kind;
};
constexpr StepWord kStepWords[] = {{"signal", DemodStep::kSignal},
                                   {"tune", DemodStep::kTune},
                                   {"rate", DemodStep::kRate},
                                   {"iso", DemodStep::kIso}};

const StepWord* FindStep(const std::string& word) {
  for (const auto& s : kStepWords)
    if (word == s.word) return &s;
  return nullptr;
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

std::string SimValue(const Session& s, const char* key) {
  const char* value = s.sim().available() ? s.sim().Get(s.board(), key) : nullptr;
  return value != nullptr ? value : "?";
}

// A refused call: the library's text, or the call's name when it left none. Always false.
bool Failed(const char* step, const std::string& call) {
  const std::string text = LastLibraryText();
  PrintError(std::string(step) + ": " + (text.empty() ? call + " failed" : text));
  return false;
}

bool RunSignal(Session& s, const DemodStep& step) {
  const Invocation& inv = s.inv();
  uint8_t modulation = step.modulation, code_rate = inv.code_rate, coding = inv.coding;
  if (SetSignalType(s.id(), &modulation, &code_rate, &coding) != 0)
    return Failed("signal", "SetSignalType");
  std::printf("signal type %s (%u), code rate %u, coding %u set; the library reports:\n",
              SignalLabel(modulation), modulation, code_rate, coding);
  SignalParameters parameters{};
  if (GetSignalParameters(s.id(), &parameters) != 0) return Failed("signal", "GetSignalParameters");
  for (const std::string& line : SignalReport(parameters)) std::printf("  %s\n", line.c_str());
  if (inv.tables_dir.empty()) return true;

  const std::string name = FieldText(parameters.TableFileM);
  if (!IsTableFileName(name)) {
    std::printf("packing table: skipped, %s names no file\n",
                name.empty() ? "the signal type" : ("\"" + name + "\"").c_str());
    return true;
  }
  const std::string path = (std::filesystem::path(inv.tables_dir) / name).string();
  if (LoadPackMode(s.id(), path.c_str()) != 0) return Failed("signal --tables", "LoadPackMode");
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
    return Failed("tune", multi ? "SetCarrierMulti" : "SetCarrier");
  std::printf("carrier tuned to %.2f Hz%s\n", hz,
              multi ? " (SetCarrierMulti: the NCO word left as it was)" : "");
  return true;
}

bool RunRate(Session& s, const DemodStep& step) {
  const Invocation& inv = s.inv();
  double sps = step.value;
  if (SetTiming(s.id(), &sps) != 0) return Failed("rate", "SetTiming");
  TimingControl control{};
  if (GetTimingControl(s.id(), &control) != 0) return Failed("rate", "GetTimingControl");
  const uint32_t decimation = control.FirstDecimation;
  std::printf("symbol rate set to %.2f sym/s: first decimation D %u, second decimation M %u, "
              "loop code %u, aux code %u\n",
              sps, decimation, control.ControlWord & 0xFFFu, control.LoopCode, control.AuxCode);
  if (!inv.filters_dir.empty()) {
    uint8_t shape = inv.filter;
    // The last argument is only tested for null.
    if (FilterLoad(s.id(), inv.filters_dir.c_str(), &shape, &shape) != 0)
      return Failed("rate --filters", "FilterLoad");
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
  if (ISOCVRTSetTiming(s.id(), &first, &second) != 0) return Failed("iso", "ISOCVRTSetTiming");
  uint32_t loading = 0;
  if (ISOCVRTGetLoading(s.id(), &loading) != 0) return Failed("iso", "ISOCVRTGetLoading");
  std::printf("iso converter timing set with factors %g and %g; loading %d\n",
              static_cast<double>(first), static_cast<double>(second),
              static_cast<int>(static_cast<int32_t>(loading)));
  if (s.sim().available())
    std::printf("  virtual board: iso output clock %s Hz\n", SimValue(s, "iso.frequency").c_str());
  return true;
}

// "locked", "NOT locked", or why the bit cannot tell.
std::string LockText(bool has_threshold, bool locked, bool set_here, const char* not_set) {
  if (!has_threshold) return "no lock indication for this signal type";
  if (locked) return "locked";
  return set_here ? "NOT locked" : std::string("NOT locked (") + not_set + ")";
}

// Waits for the locks the line asked for, then measures. On a line that set the whole
// receiver up (carrier and rate) a lock that applies but did not come fails the run: a script
// must be able to tell. A line that set only one of them reports the locks and succeeds: the
// carrier loop locks only behind the timing loop, and the other half may be whatever an
// earlier run left in the board (a fresh virtual board has no rate at all).
int Summary(Session& s, bool tuned, bool rate_set) {
  SignalParameters parameters{};
  bool carrier_threshold = true, timing_threshold = true;
  if (GetSignalParameters(s.id(), &parameters) == 0) {
    carrier_threshold = uint32_t(parameters.CarrierLockThreshold) != kNotApplicable;
    timing_threshold = parameters.TimingLockThreshold != kNotApplicable;
  }
  const uint32_t wanted = (tuned && carrier_threshold ? kCarrierLockBit : 0) |
                          (rate_set && timing_threshold ? kTimingLockBit : 0);
  uint32_t word = 0;
  const int reads = PollStatus([&s](uint32_t* w) { return GetBitStatus(s.id(), w) == 0; },
                               wanted, kLockReads, kLockInterval, &word);
  double carrier = 0, rate = 0;
  if (reads == 0) {
    Failed("lock status", "GetBitStatus");
    return kExitFailed;
  }
  if (MeasureCarrier(s.id(), 0, &carrier) != 0 || MeasureTiming(s.id(), 0, &rate) != 0) {
    Failed("measuring", "MeasureCarrier/MeasureTiming");
    return kExitFailed;
  }

  const std::string carrier_lock = LockText(carrier_threshold, (word & kCarrierLockBit) != 0,
                                            tuned, "not tuned in this run");
  const std::string timing_lock = LockText(timing_threshold, (word & kTimingLockBit) != 0,
                                           rate_set, "no rate set in this run");
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
  const uint32_t missing = wanted & ~word;
  if (missing == 0 || !(tuned && rate_set)) return kExitOk;
  const char* which = missing == (kCarrierLockBit | kTimingLockBit) ? "carrier and timing"
                      : (missing & kCarrierLockBit) != 0            ? "carrier"
                                                                    : "timing";
  PrintError(std::string(which) + " not locked after " + std::to_string(reads) +
             " status reads, " + std::to_string(kLockInterval.count()) + " ms apart");
  return kExitFailed;
}

}  // namespace

bool IsDemodStep(const std::string& word) { return FindStep(word) != nullptr; }

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
    const StepWord* step;
    const CommandSyntax* syntax;
    std::vector<std::string> args;
  };
  std::vector<Raw> raw;
  uint32_t accepted = 0;
  std::vector<std::string> words{inv.command};
  words.insert(words.end(), inv.args.begin(), inv.args.end());
  for (const std::string& word : words) {
    if (const StepWord* step = FindStep(word)) {
      for (const Raw& r : raw)
        if (r.step == step) return word + ": given twice; a line runs each step once";
      const Command* command = FindCommand(word);
      raw.push_back({step, &command->syntax, {}});
      accepted |= command->syntax.options;
    } else if (raw.empty()) {
      return "'" + word + "' is not a step (signal, tune, rate, iso)";
    } else {
      raw.back().args.push_back(word);
    }
  }
  for (uint32_t bit = 1; bit != 0; bit <<= 1) {
    if ((inv.options_given & bit & ~accepted) == 0) continue;
    for (const auto& s : kStepWords)
      if (FindCommand(s.word)->syntax.options & bit)
        return "option " + OptionName(bit) + " belongs to the " + s.word +
               " step, which this line does not run";
    return "option " + OptionName(bit) + " does not apply to signal, tune, rate or iso";
  }
  if ((inv.options_given & kOptFilter) != 0 && inv.filters_dir.empty())
    return "rate: --filter needs --filters DIR";
  if (inv.help) return {};

  std::vector<DemodStep> parsed;
  for (const Raw& r : raw) {
    Invocation own;
    own.args = r.args;
    if (std::string error = CheckInvocation(own, *r.syntax); !error.empty()) return error;
    DemodStep step;
    step.kind = r.step->kind;
    const std::string& arg = r.args[0];
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
    }
    parsed.push_back(step);
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
  std::string failure;
  if (!s.BringUp(&failure)) {
    PrintError("board " + std::to_string(s.board()) + ": bring-up failed: " + failure);
    return kExitFailed;
  }
  bool tuned = false, rate_set = false;
  // A step that fails ends the line: the later steps build on it.
  for (const DemodStep& step : steps) {
    bool done = false;
    switch (step.kind) {
      case DemodStep::kSignal: done = RunSignal(s, step); break;
      case DemodStep::kTune: done = tuned = RunTune(s, step); break;
      case DemodStep::kRate: done = rate_set = RunRate(s, step); break;
      case DemodStep::kIso: done = RunIso(s, step); break;
    }
    if (!done) return kExitFailed;
  }
  return tuned || rate_set ? Summary(s, tuned, rate_set) : kExitOk;
}

}  // namespace tvx::cli
