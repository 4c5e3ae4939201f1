// Profiles for `run`: CLI11's INI reader splits each line into a key and its values (quotes,
// comments, lists); the keys, their sections and what their values may be are this table's.
// Lines are handed to the reader one at a time so that every message can name its line.
#include "profile.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include <CLI/CLI.hpp>

#include "capture.h"
#include "controls.h"
#include "loaders.h"
#include "text.h"

namespace tvx::cli {

namespace {

namespace fs = std::filesystem;

enum class Value { kPath, kSignalType, kIndex, kNumber, kBool, kWords, kPairs, kChannels,
                   kSeconds, kBytes, kDmaRate };

enum class Key {
  kSamples, kImages, kDem, kDec, kRs, kType, kCodeRate, kCoding, kTables, kCarrier, kMulti,
  kSymbolRate, kFilters, kFilter, kGainFirst, kGainSecond, kEqControl, kEqTable,
  kEqCoefficients, kDmpxTable, kDmpxControl, kIq, kDmd, kDma3, kChannels, kSeconds, kBytes,
  kOutput, kVerify, kDmaRate, kCount
};

struct KeyDef {
  Key id;
  const char* section;   // "" for the keys before any section
  const char* name;
  Value value;
  int words;             // kWords: how many
};

// In the order the run uses them, which is the order of Key.
constexpr KeyDef kKeys[] = {
    {Key::kSamples, "", "samples", Value::kPath, 0},
    {Key::kImages, "fpga", "images", Value::kPath, 0},
    {Key::kDem, "fpga", "dem", Value::kPath, 0},
    {Key::kDec, "fpga", "dec", Value::kPath, 0},
    {Key::kRs, "fpga", "rs", Value::kPath, 0},
    {Key::kType, "signal", "type", Value::kSignalType, 0},
    {Key::kCodeRate, "signal", "code-rate", Value::kIndex, 0},
    {Key::kCoding, "signal", "coding", Value::kIndex, 0},
    {Key::kTables, "signal", "tables", Value::kPath, 0},
    {Key::kCarrier, "tune", "carrier", Value::kNumber, 0},
    {Key::kMulti, "tune", "multi", Value::kBool, 0},
    {Key::kSymbolRate, "rate", "symbol-rate", Value::kNumber, 0},
    {Key::kFilters, "rate", "filters", Value::kPath, 0},
    {Key::kFilter, "rate", "filter", Value::kIndex, 0},
    {Key::kGainFirst, "gain", "first", Value::kWords, 1},
    {Key::kGainSecond, "gain", "second", Value::kWords, 2},
    {Key::kEqControl, "eq", "control", Value::kWords, 1},
    {Key::kEqTable, "eq", "table", Value::kPath, 0},
    {Key::kEqCoefficients, "eq", "coefficients", Value::kPairs, 0},
    {Key::kDmpxTable, "dmpx", "table", Value::kPath, 0},
    {Key::kDmpxControl, "dmpx", "control", Value::kWords, 3},
    {Key::kIq, "control", "iq", Value::kWords, 1},
    {Key::kDmd, "control", "dmd", Value::kWords, 1},
    {Key::kDma3, "control", "dma3", Value::kWords, 1},
    {Key::kChannels, "capture", "channels", Value::kChannels, 0},
    {Key::kSeconds, "capture", "seconds", Value::kSeconds, 0},
    {Key::kBytes, "capture", "bytes", Value::kBytes, 0},
    {Key::kOutput, "capture", "output", Value::kPath, 0},
    {Key::kVerify, "capture", "verify", Value::kBool, 0},
    {Key::kDmaRate, "capture", "rate", Value::kDmaRate, 0},
};

// Def() finds a key by its index.
constexpr bool InKeyOrder() {
  for (size_t i = 0; i < std::size(kKeys); ++i)
    if (size_t(kKeys[i].id) != i) return false;
  return std::size(kKeys) == size_t(Key::kCount);
}
static_assert(InKeyOrder(), "kKeys lists every key in the order of Key");

constexpr const char* kSimSection = "virtual-board";
constexpr const char* kSections[] = {"fpga", "signal", "tune", "rate", "gain", "eq",
                                     "dmpx", "control", "capture", kSimSection};

// What a value must look like, for messages.
const char* Expected(const KeyDef& k) {
  switch (k.value) {
    case Value::kPath: return "a path";
    case Value::kSignalType: return "a signal type: an index, or a label such as QPSK";
    case Value::kIndex: return "an index, 0 to 255";
    case Value::kNumber: return "a decimal number, e.g. 1.2e9";
    case Value::kBool: return "true or false";
    case Value::kWords:
      return k.words == 1 ? "a word, decimal or 0x-hexadecimal"
                          : "words, decimal or 0x-hexadecimal, separated by spaces";
    case Value::kPairs: return "FIRST:SECOND pairs separated by commas, each 0 to 0xFFFF";
    case Value::kChannels: return "channel numbers and ranges, e.g. 0-16 or 0,3,5";
    case Value::kSeconds: return "seconds, above 0";
    case Value::kBytes: return "a byte count above 0";
    case Value::kDmaRate: return "buffers per second per channel, 1 to 1000000, or max";
  }
  return "";
}

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string Joined(const std::vector<std::string>& parts, const char* separator) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : separator) + part;
  return text;
}

// One line's key (dotted, as written) and values as CLI11 splits them. False when it makes no
// key of the line.
bool ReadLine(const std::string& line, std::string* key, std::vector<std::string>* values) {
  std::istringstream in(line);
  std::vector<CLI::ConfigItem> items;
  try {
    items = CLI::ConfigINI().from_config(in);
  } catch (const std::exception&) {
    return false;
  }
  if (items.size() != 1 || items[0].name.empty()) return false;
  std::vector<std::string> parts = items[0].parents;
  parts.push_back(items[0].name);
  *key = Joined(parts, ".");
  values->clear();
  for (const std::string& v : items[0].inputs) values->push_back(Trimmed(v));
  return true;
}

const KeyDef* FindKey(const std::string& section, const std::string& name) {
  for (const auto& k : kKeys)
    if (section == k.section && name == k.name) return &k;
  return nullptr;
}

std::string KeysOf(const std::string& section) {
  std::string list;
  for (const auto& k : kKeys)
    if (section == k.section) list += (list.empty() ? "" : ", ") + std::string(k.name);
  return list;
}

bool ParseBool(const std::string& text, bool* out) {
  std::string folded;
  for (char c : text) folded += (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
  for (const char* yes : {"true", "yes", "on", "1"})
    if (folded == yes) return *out = true;
  for (const char* no : {"false", "no", "off", "0"})
    if (folded == no) return !(*out = false);
  return false;
}

struct Given {
  int line = 0;                      // 0: not given
  std::vector<std::string> values;
};

// Converts one given value into the profile, or says what is wrong with it.
bool Convert(const KeyDef& k, const Given& g, Profile* p, std::string* path) {
  const std::string& v = g.values[0];
  Invocation& o = p->options;
  uint64_t number = 0;
  double real = 0;
  bool flag = false;
  DemodStep step;
  switch (k.value) {
    case Value::kPath:
      *path = v;
      return true;
    case Value::kSignalType:
      step.kind = DemodStep::kSignal;
      if (!ParseSignalType(v, &step.modulation)) return false;
      p->receiver.push_back(step);
      return true;
    case Value::kIndex:
      if (!ParseUnsigned(v, 255, &number)) return false;
      (k.id == Key::kCodeRate ? o.code_rate : k.id == Key::kCoding ? o.coding : o.filter) =
          uint8_t(number);
      return true;
    case Value::kNumber:
      if (!ParseNumber(v, &real)) return false;
      step.kind = k.id == Key::kCarrier ? DemodStep::kTune : DemodStep::kRate;
      step.value = real;
      p->receiver.push_back(step);
      return true;
    case Value::kBool:
      if (!ParseBool(v, &flag)) return false;
      (k.id == Key::kMulti ? o.multi : o.verify) = flag;
      return true;
    case Value::kWords:
      for (const std::string& text : g.values) {
        if (!ParseUnsigned(text, 0xFFFFFFFFu, &number)) return false;
        step.words.push_back(uint32_t(number));
      }
      if (k.id == Key::kIq || k.id == Key::kDmd || k.id == Key::kDma3) {
        p->controls.emplace_back(k.name, step.words[0]);
        return true;
      }
      step.kind = k.id == Key::kGainFirst    ? DemodStep::kGainFirst
                  : k.id == Key::kGainSecond ? DemodStep::kGainSecond
                  : k.id == Key::kEqControl  ? DemodStep::kEqControl
                                             : DemodStep::kDmpxControl;
      p->receiver.push_back(step);
      return true;
    case Value::kPairs:
      step.kind = DemodStep::kEqSet;
      if (!ParseCoefficientPairs(Joined(g.values, ","), &step.pairs)) return false;
      p->receiver.push_back(step);
      return true;
    case Value::kChannels: return ParseChannelList(Joined(g.values, ","), &o.channels);
    case Value::kSeconds: return ParseNumber(v, &o.seconds) && o.seconds > 0 && o.seconds <= 1e6;
    case Value::kBytes: return ParseUnsigned(v, UINT64_MAX, &o.bytes) && o.bytes != 0;
    case Value::kDmaRate:
      if (v != "max" && (!ParseUnsigned(v, 1000000, &number) || number == 0)) return false;
      o.rate = v;
      return true;
  }
  return false;
}

// A key the profile cannot have without another, or not with another.
struct Rule {
  Key key;
  Key other;
  bool needs;   // true: `key` needs `other`; false: they exclude each other
};
constexpr Rule kRules[] = {
    {Key::kCodeRate, Key::kType, true},      {Key::kCoding, Key::kType, true},
    {Key::kTables, Key::kType, true},        {Key::kMulti, Key::kCarrier, true},
    {Key::kFilters, Key::kSymbolRate, true}, {Key::kFilter, Key::kFilters, true},
    {Key::kImages, Key::kDem, false},        {Key::kImages, Key::kDec, false},
    {Key::kImages, Key::kRs, false},         {Key::kSeconds, Key::kBytes, false},
};

const KeyDef& Def(Key id) { return kKeys[size_t(id)]; }

std::string Shown(Key id) {
  const KeyDef& k = Def(id);
  return *k.section != '\0' ? std::string("[") + k.section + "] " + k.name : k.name;
}

}  // namespace

std::string ParseProfile(const std::string& text, const std::string& dir,
                         const std::string& default_samples, Profile* out) {
  Given given[size_t(Key::kCount)];
  Profile p;
  std::string section;
  bool capture_section = false;
  std::istringstream lines(text);
  int n = 0;
  for (std::string raw; std::getline(lines, raw);) {
    const std::string line = Trimmed(raw);
    const std::string at = std::to_string(++n) + ": ";
    if (line.empty() || line[0] == ';' || line[0] == '#') continue;
    if (line.front() == '[' && line.back() == ']') {
      section = Trimmed(line.substr(1, line.size() - 2));
      if (std::find(std::begin(kSections), std::end(kSections), section) == std::end(kSections))
        return at + "unknown section [" + section + "] (" + Joined({std::begin(kSections),
                                                                     std::end(kSections)}, ", ") + ")";
      capture_section = capture_section || section == "capture";
      continue;
    }
    std::string key;
    std::vector<std::string> values;
    if (!ReadLine(line, &key, &values)) return at + "not a KEY = VALUE line: " + line;
    if (section == kSimSection) {
      if (values.size() != 1) return at + "virtual-board key '" + key + "' takes one value";
      p.sim.push_back({key, values[0], n});
      continue;
    }
    const KeyDef* def = FindKey(section, key);
    if (def == nullptr)
      return at + "unknown key '" + key + "'" +
             (section.empty() ? " before the first section (samples)"
                              : " in [" + section + "] (" + KeysOf(section) + ")");
    Given& g = given[size_t(def->id)];
    if (g.line != 0)
      return at + Shown(def->id) + ": given twice (first on line " + std::to_string(g.line) + ")";
    const bool lists = def->value == Value::kPairs || def->value == Value::kChannels;
    const size_t wanted = def->value == Value::kWords ? size_t(def->words) : 1;
    if (values.empty() || values[0].empty())
      return at + Shown(def->id) + ": no value (" + Expected(*def) + ")";
    if (!lists && values.size() != wanted)
      return at + Shown(def->id) + ": " + std::to_string(values.size()) + " values where " +
             std::to_string(wanted) + (wanted == 1 ? " is" : " are") + " expected (" +
             Expected(*def) + (def->value == Value::kPath ? "; quote one with spaces)" : ")");
    g = {n, values};
  }
  for (const Rule& r : kRules) {
    const Given& a = given[size_t(r.key)];
    const bool other = given[size_t(r.other)].line != 0;
    if (a.line != 0 && other != r.needs)
      return std::to_string(a.line) + ": " + Shown(r.key) + (r.needs ? " needs " : " excludes ") +
             Shown(r.other);
  }

  std::string paths[size_t(Key::kCount)];
  for (const auto& k : kKeys) {
    const Given& g = given[size_t(k.id)];
    if (g.line != 0 && !Convert(k, g, &p, &paths[size_t(k.id)]))
      return std::to_string(g.line) + ": " + Shown(k.id) + ": invalid value '" +
             Joined(g.values, " ") + "' (" + Expected(k) + ")";
  }
  // Relative paths are the profile's, wherever the tool runs from.
  const auto resolve = [&dir](const std::string& path, const std::string& samples) {
    const std::string prefix = "$samples";
    if (path.compare(0, prefix.size(), prefix) == 0 &&
        (path.size() == prefix.size() || path[prefix.size()] == '/' || path[prefix.size()] == '\\')) {
      const std::string rest = path.substr(std::min(path.size(), prefix.size() + 1));
      return rest.empty() ? samples : (fs::path(samples) / rest).string();
    }
    if (fs::path(path).is_absolute() || dir.empty()) return path;
    return (fs::path(dir) / path).string();
  };
  const std::string& samples_key = paths[size_t(Key::kSamples)];
  p.samples = samples_key.empty() ? default_samples : resolve(samples_key, default_samples);
  for (std::string& path : paths)
    if (!path.empty()) path = resolve(path, p.samples);

  if (!paths[size_t(Key::kImages)].empty()) {
    for (const char* device : {"DEM", "DEC", "RS"})
      p.fpga.emplace_back(device, (fs::path(paths[size_t(Key::kImages)]) /
                                   (DeviceKey(device) + ".bin")).string());
  }
  for (const auto& [id, device] : {std::pair{Key::kDem, "DEM"}, {Key::kDec, "DEC"}, {Key::kRs, "RS"}})
    if (!paths[size_t(id)].empty()) p.fpga.emplace_back(device, paths[size_t(id)]);
  Invocation& o = p.options;
  o.tables_dir = paths[size_t(Key::kTables)];
  o.filters_dir = paths[size_t(Key::kFilters)];
  o.output = paths[size_t(Key::kOutput)];
  // The two tables are steps of their own, run between the control words of their block.
  for (const auto& [id, kind] : {std::pair{Key::kEqTable, DemodStep::kEqTable},
                                 {Key::kDmpxTable, DemodStep::kDmpxLoad}}) {
    if (paths[size_t(id)].empty()) continue;
    DemodStep step;
    step.kind = kind;
    step.file = paths[size_t(id)];
    p.receiver.push_back(step);
  }
  std::stable_sort(p.receiver.begin(), p.receiver.end(),
                   [](const DemodStep& a, const DemodStep& b) { return a.kind < b.kind; });
  p.capture = capture_section;
  *out = std::move(p);
  return {};
}

std::string DefaultSamplesDir(const std::string& program) {
  // The program's own file where the system names it; else as it was started. A build tree
  // has the samples beside the program; an installation in <prefix>/share/torvixe/samples.
  std::error_code error;
  fs::path self = fs::read_symlink("/proc/self/exe", error);
  if (error || self.empty()) self = fs::absolute(fs::path(program), error);
  const fs::path beside = self.parent_path() / "samples";
  const fs::path installed = self.parent_path().parent_path() / "share" / "torvixe" / "samples";
  return (!fs::is_directory(beside, error) && fs::is_directory(installed, error) ? installed : beside)
      .string();
}

namespace {

// While it lives the steps read the profile's options; the command line's come back after.
class ProfileOptions {
 public:
  ProfileOptions(Session& s, const Invocation& options) : session_(s), line_(s.inv()) {
    own_ = options;
    own_.program = line_.program;
    own_.command = line_.command;
    own_.board = line_.board;
    own_.trace = line_.trace;
    own_.json = line_.json;
    s.UseInvocation(own_);
  }
  ~ProfileOptions() { session_.UseInvocation(line_); }
  ProfileOptions(const ProfileOptions&) = delete;
  ProfileOptions& operator=(const ProfileOptions&) = delete;

 private:
  Session& session_;
  const Invocation& line_;
  Invocation own_;
};

// The profile's virtual-board keys, then the command line's --sim keys again, so that a key
// given on both wins from the command line. kExitOk, or kExitUsage after saying what failed.
int SetSimKeys(Session& s, const std::string& path, const Profile& profile) {
  if (profile.sim.empty()) return kExitOk;
  if (!s.sim().available()) {
    PrintError(path + ": [virtual-board]: " + s.sim().WhyUnavailable());
    return kExitUsage;
  }
  for (const auto& k : profile.sim) {
    if (s.sim().Set(s.board(), k.key, k.value) != 0) {
      const bool known = s.sim().Get(s.board(), k.key.c_str()) != nullptr;
      PrintError(path + ":" + std::to_string(k.line) + ": " + k.key + " = " + k.value + ": " +
                 (known ? "value refused by the virtual board" : "unknown virtual-board key"));
      return kExitUsage;
    }
  }
  for (const auto& k : s.inv().sim) s.sim().Set(s.board(), k.key, k.value);
  return kExitOk;
}

// "carrier locked, timing locked" as the board stands now.
std::string LocksNow(Session& s) {
  uint32_t word = 0;
  Json& locks = s.json()["locks_at_end"] = Json::object();
  AddNulls(locks, {"carrier", "timing"});
  if (GetBitStatus(s.id(), &word) != 0) return "locks unknown (" + LastLibraryText() + ")";
  SignalParameters parameters{};
  bool carrier = true, timing = true;   // whether the signal type shows the lock
  if (GetSignalParameters(s.id(), &parameters) == 0) {
    carrier = uint32_t(parameters.CarrierLockThreshold) != kNotApplicable;
    timing = parameters.TimingLockThreshold != kNotApplicable;
  }
  if (carrier) locks["carrier"] = (word & kCarrierLockBit) != 0;
  if (timing) locks["timing"] = (word & kTimingLockBit) != 0;
  return "carrier " + LockText(carrier, (word & kCarrierLockBit) != 0) + ", timing " +
         LockText(timing, (word & kTimingLockBit) != 0);
}

}  // namespace

int RunProfile(Session& s) {
  const std::string path = s.inv().args[0];
  Json& document = s.json();
  document["profile"] = path;
  // Filled as the run gets there: a run that stops early leaves the rest null.
  AddNulls(document, {"status", "capture", "locks_at_end"});
  std::error_code regular;
  std::ifstream file(path, std::ios::binary);
  if (!fs::is_regular_file(path, regular) || !file) {
    PrintError("run: cannot read the profile " + path);
    return kExitUsage;
  }
  std::ostringstream text;
  text << file.rdbuf();
  Profile profile;
  const std::string error = ParseProfile(text.str(), fs::path(path).parent_path().string(),
                                         DefaultSamplesDir(s.inv().program), &profile);
  if (!error.empty()) {
    PrintError(path + ":" + error);
    return kExitUsage;
  }
  if (const int status = SetSimKeys(s, path, profile); status != kExitOk) return status;

  const ProfileOptions options(s, profile.options);
  std::printf("run %s on board %u\n", path.c_str(), s.board());
  std::string failure;
  if (!s.BringUp(&failure)) {
    PrintError("board " + std::to_string(s.board()) + ": bring-up failed: " + failure);
    return kExitFailed;
  }
  // Each part shows what the board read back; the first that fails ends the run.
  for (const auto& [device, image] : profile.fpga)
    if (!LoadFpga(s, device, image)) return kExitFailed;
  if (!profile.receiver.empty()) {
    std::vector<DemodStep> steps = profile.receiver;
    steps.emplace_back().kind = DemodStep::kStatus;
    std::printf("\n");
    if (const int status = RunDemodSteps(s, steps); status != kExitOk) return status;
  }
  if (!profile.controls.empty()) std::printf("\n");
  for (const auto& [which, word] : profile.controls) {
    if (ChannelControl(which)(s.id(), &word) != 0)
      return StepFailed("control " + which, "the channel control"), kExitFailed;
    std::printf("channel control %s: word %s set\n", which.c_str(), Hex32(word).c_str());
  }
  CaptureTotals totals;
  if (profile.capture) {
    std::printf("\n");
    std::fflush(stdout);
    if (const int status = Capture(s, &totals); status != kExitOk) return status;
  }
  std::string end = "run " + path + " done: " +
                    (profile.receiver.empty() ? "no receiver set up" : LocksNow(s));
  if (profile.capture)
    end += "; " + std::to_string(totals.channels) + " channel" +
           (totals.channels == 1 ? "" : "s") + " captured, " + std::to_string(totals.bytes) +
           " bytes, " + std::to_string(totals.lost) + " lost, " +
           (profile.options.verify ? std::to_string(totals.errors) + " errors" : "not verified");
  std::printf("\n%s\n", end.c_str());
  return kExitOk;
}

}  // namespace tvx::cli
