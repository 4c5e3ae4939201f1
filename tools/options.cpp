// Command-line parsing of the CLI. One table describes every option: its names, whether it
// takes a value, whether every command accepts it, and its help line; CLI11 splits the line by it.
#include "options.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>

#include <CLI/CLI.hpp>

#include "text.h"

namespace tvx::cli {
namespace {

enum class Id {
  kBoard, kSim, kSimConfig, kTrace, kHelp, kVersion, kCount, kAll, kLen,
  kChannels, kBytes, kSeconds, kOutput, kVerify, kRate, kCodeRate, kCoding, kTables, kMulti,
  kFilters, kFilter, kWatch, kJson, kRecord
};

struct OptionDef {
  Id id;
  const char* name;       // long name without the dashes
  char letter;            // short name, 0 for none
  const char* value;      // value placeholder, null for a flag
  uint32_t command_bit;   // 0 for a global option
  const char* help;
};

constexpr OptionDef kOptions[] = {
    {Id::kCount, "count", 0, "K", kOptCount,
     "peek: words to read (default 1); status --watch: screens to show (1 to 65536)"},
    {Id::kAll, "all", 0, "DIR", kOptAll, "load DEM, DEC and RS from DIR/dem.bin, dec.bin, rs.bin"},
    {Id::kLen, "len", 0, "N", kOptLen,
     "bytes to read (1 to 65536; default 512, 256 with one-byte addresses)"},
    {Id::kChannels, "channels", 'c', "LIST", kOptChannels,
     "channels to read: numbers and ranges, e.g. 0-16 or 0,3,5 (default 0)"},
    {Id::kBytes, "bytes", 0, "N", kOptBytes, "stop each channel after N bytes"},
    {Id::kSeconds, "seconds", 0, "S", kOptSeconds, "stop after S seconds (default 2)"},
    {Id::kOutput, "output", 'o', "PREFIX", kOptOutput, "write channel N's data to PREFIX.chN.bin"},
    {Id::kVerify, "verify", 0, nullptr, kOptVerify, "check every buffer's payload (virtual board)"},
    {Id::kRate, "rate", 0, "R", kOptRate,
     "virtual board: buffers per second per channel, or max"},
    {Id::kCodeRate, "code-rate", 0, "N", kOptCodeRate,
     "signal: code-rate index, default 0 (the library takes 0 to 9)"},
    {Id::kCoding, "coding", 0, "N", kOptCoding,
     "signal: constellation-coding index, default 0 (the library takes 0 to 17)"},
    {Id::kTables, "tables", 0, "DIR", kOptTables,
     "signal: load the packing table the signal type names (its M file) from DIR"},
    {Id::kMulti, "multi", 0, nullptr, kOptMulti,
     "tune: SetCarrierMulti, all of the tuning but the demodulator's NCO word"},
    {Id::kFilters, "filters", 0, "DIR", kOptFilters,
     "rate: load the channel filter DIR/<shape>_<D>.dat for the new rate"},
    {Id::kFilter, "filter", 0, "N", kOptFilter,
     "rate: filter shape, any index 0 to 21; default 3 (n20d)"},
    {Id::kWatch, "watch", 0, "S", kOptWatch,
     "status: show the screen again every S seconds until Ctrl-C"},
    {Id::kJson, "json", 0, nullptr, kOptJson,
     "print one JSON document on stdout instead of the text (which goes to stderr)"},
    {Id::kBoard, "board", 'b', "N", 0,
     "board index, 0 to 255 (default 0); the library answers for 128 and up"},
    {Id::kSim, "sim", 0, "KEY=VALUE", 0,
     "virtual board: set a key of the selected board first (repeatable)"},
    {Id::kSimConfig, "sim-config", 0, "FILE", 0,
     "virtual board: load keys from an INI file first (repeatable)"},
    {Id::kTrace, "trace", 0, nullptr, 0,
     "virtual board: print the command's register accesses afterwards"},
    {Id::kRecord, "record", 0, "FILE", 0,
     "write every IO-library call and register access of the run to FILE (replay FILE)"},
    {Id::kHelp, "help", 'h', nullptr, 0, "show help (after a command: that command's help)"},
    {Id::kVersion, "version", 0, nullptr, 0, "show the version"},
};

constexpr uint64_t kMaxBoard = 255;
constexpr uint64_t kMaxCount = 65536;
constexpr uint64_t kMaxLength = 65536;   // the two-byte address space

const OptionDef* FindLong(const std::string& name) {
  for (const auto& o : kOptions)
    if (name == o.name) return &o;
  return nullptr;
}

std::string Apply(const OptionDef& o, const std::string& value, Invocation* inv) {
  uint64_t number = 0;
  switch (o.id) {
    case Id::kBoard:
      if (!ParseUnsigned(value, kMaxBoard, &number))
        return "invalid board index '" + value + "' (0 to 255)";
      inv->board = static_cast<unsigned>(number);
      break;
    case Id::kCount:
      if (!ParseUnsigned(value, kMaxCount, &number) || number == 0)
        return "invalid count '" + value + "' (1 to 65536)";
      inv->count = static_cast<uint32_t>(number);
      break;
    case Id::kSim: {
      const auto eq = value.find('=');
      if (eq == std::string::npos || eq == 0) return "--sim expects KEY=VALUE, got '" + value + "'";
      inv->sim.push_back({value.substr(0, eq), value.substr(eq + 1)});
      break;
    }
    case Id::kSimConfig: inv->sim_configs.push_back(value); break;
    case Id::kRecord:
      if (value.empty()) return "--record expects a file name";
      inv->record = value;
      break;
    case Id::kAll:
      if (value.empty()) return "--all expects a directory";
      inv->all_dir = value;
      break;
    case Id::kLen:
      if (!ParseUnsigned(value, kMaxLength, &number) || number == 0)
        return "invalid length '" + value + "' (1 to 65536)";
      inv->length = static_cast<uint32_t>(number);
      break;
    case Id::kChannels:
      if (!ParseChannelList(value, &inv->channels))
        return "invalid channel list '" + value + "' (numbers and ranges below 256, e.g. 0-16)";
      break;
    case Id::kBytes:
      if (!ParseUnsigned(value, UINT64_MAX, &number) || number == 0)
        return "invalid byte count '" + value + "'";
      inv->bytes = number;
      break;
    case Id::kSeconds:
    case Id::kWatch: {
      char* end = nullptr;
      const double seconds = std::strtod(value.c_str(), &end);
      if (value.empty() || *end != '\0' || !(seconds > 0 && seconds <= 1e6))
        return "invalid duration '" + value + "' (seconds, above 0)";
      (o.id == Id::kSeconds ? inv->seconds : inv->watch) = seconds;
      break;
    }
    case Id::kOutput:
      if (value.empty()) return "--output expects a file name prefix";
      inv->output = value;
      break;
    case Id::kVerify: inv->verify = true; break;
    case Id::kRate:
      if (value != "max" && (!ParseUnsigned(value, 1000000, &number) || number == 0))
        return "invalid rate '" + value + "' (1 to 1000000 buffers per second, or max)";
      inv->rate = value;
      break;
    case Id::kCodeRate:
    case Id::kCoding:
    case Id::kFilter:
      // Passed on whole: the library refuses the indices it has no row for, with its text.
      if (!ParseUnsigned(value, 255, &number))
        return "invalid " + std::string(o.name) + " index '" + value + "' (0 to 255)";
      (o.id == Id::kCodeRate ? inv->code_rate : o.id == Id::kCoding ? inv->coding : inv->filter) =
          static_cast<uint8_t>(number);
      break;
    case Id::kTables:
    case Id::kFilters:
      if (value.empty()) return "--" + std::string(o.name) + " expects a directory";
      (o.id == Id::kTables ? inv->tables_dir : inv->filters_dir) = value;
      break;
    case Id::kMulti: inv->multi = true; break;
    case Id::kJson: inv->json = true; break;
    case Id::kTrace: inv->trace = true; break;
    case Id::kHelp: inv->help = true; break;
    case Id::kVersion: inv->version = true; break;
  }
  inv->options_given |= o.command_bit;
  return {};
}

}  // namespace

bool ParseChannelList(const std::string& text, std::vector<uint32_t>* out) {
  std::vector<uint32_t> channels;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t comma = text.find(',', start);
    const std::string item = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    const size_t dash = item.find('-');
    uint64_t first = 0, last = 0;
    if (!ParseUnsigned(item.substr(0, dash), 255, &first)) return false;
    last = first;
    if (dash != std::string::npos && (!ParseUnsigned(item.substr(dash + 1), 255, &last) || last < first))
      return false;
    for (uint64_t c = first; c <= last; ++c)
      if (std::find(channels.begin(), channels.end(), c) == channels.end())
        channels.push_back(uint32_t(c));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  *out = std::move(channels);
  return true;
}

std::string ParseCommandLine(const std::vector<std::string>& args, Invocation* out) {
  // CLI11 splits the line; the values are checked here, in the order given, so that the first
  // bad one is the one reported and a repeated option's last value wins.
  CLI::App app;
  app.set_help_flag();
  app.allow_extras();   // an unknown option is reported below, in the CLI's own words
  // "/x" is a path (a profile, a directory) on both systems, never an option.
  app.allow_windows_style_options(false);
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  std::map<const CLI::Option*, std::pair<const OptionDef*, size_t>> defs;   // and values applied
  for (const auto& o : kOptions) {
    const std::string names = (o.letter ? std::string("-") + o.letter + "," : "") + "--" + o.name;
    defs[o.value != nullptr ? app.add_option(names)->type_name(o.value)
                            : app.add_flag(names)->disable_flag_override()] = {&o, 0};
  }
  std::vector<std::string> words;
  app.add_option("words", words);
  std::vector<std::string> reversed(args.rbegin(), args.rend());   // CLI11 takes them backwards
  try {
    app.parse(reversed);
  } catch (const CLI::ParseError& e) {
    // "--board: 1 required N missing", "trace was given a disallowed flag override"
    const std::string what = e.what();
    std::string name = what.substr(0, what.find_first_of(": "));
    if (name.compare(0, 2, "--") == 0) name.erase(0, 2);
    const OptionDef* def = FindLong(name);
    if (def == nullptr) return what;
    return "option '--" + name + "' " +
           (def->value != nullptr ? std::string("needs a value ") + def->value : "takes no value");
  }
  for (const std::string& arg : app.remaining()) {
    if (arg == "--") continue;   // CLI11 keeps the end of the options among the extras
    const bool long_name = arg.compare(0, 2, "--") == 0;
    return "unknown option '" + arg.substr(0, long_name ? arg.find('=') : 2) + "'";
  }
  Invocation inv;
  for (const CLI::Option* option : app.parse_order()) {
    const auto it = defs.find(option);
    if (it == defs.end()) continue;   // a command word
    auto& [def, applied] = it->second;
    const auto& values = option->results();
    std::string error = Apply(*def, applied < values.size() ? values[applied++] : "", &inv);
    if (!error.empty()) return error;
  }
  if (!words.empty()) {
    inv.command = words.front();
    inv.args.assign(words.begin() + 1, words.end());
  }
  *out = std::move(inv);
  return {};
}

std::string CheckInvocation(const Invocation& inv, const CommandSyntax& syntax) {
  const std::string usage = std::string("; usage: torvixe ") + syntax.name +
                            (*syntax.usage != '\0' ? " " : "") + syntax.usage;
  for (const auto& o : kOptions) {
    if ((inv.options_given & o.command_bit & ~syntax.options) != 0)
      return std::string(syntax.name) + ": option --" + o.name + " does not apply" + usage;
  }
  if (inv.help) return {};
  if (static_cast<int>(inv.args.size()) < syntax.min_args)
    return std::string(syntax.name) + ": missing argument" + usage;
  if (static_cast<int>(inv.args.size()) > syntax.max_args)
    return std::string(syntax.name) + ": unexpected argument '" + inv.args[syntax.max_args] +
           "'" + usage;
  return {};
}

std::string OptionName(uint32_t command_bit) {
  for (const auto& o : kOptions)
    if (o.command_bit == command_bit) return std::string("--") + o.name;
  return "?";
}

std::string OptionsHelp(uint32_t command_options) {
  std::string text;
  for (const auto& o : kOptions) {
    if (o.command_bit != 0 && (o.command_bit & command_options) == 0) continue;
    std::string names = o.letter != 0 ? std::string("-") + o.letter + ", " : std::string("    ");
    names += std::string("--") + o.name;
    if (o.value != nullptr) names += std::string(" ") + o.value;
    if (names.size() < 22) names.resize(22, ' ');
    text += "  " + names + "  " + o.help + "\n";
  }
  return text;
}

}  // namespace tvx::cli
