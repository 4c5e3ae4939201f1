// The command line of the CLI: global options anywhere on the line, one command word, its
// arguments and the options only some commands accept. Parsing knows nothing of the library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tvx::cli {

// Options that belong to particular commands; a command lists the ones it accepts.
enum CommandOption : uint32_t {
  kOptCount = 1u << 0,
  kOptAll = 1u << 1,
  kOptLen = 1u << 2,
  kOptChannels = 1u << 3,
  kOptBytes = 1u << 4,
  kOptSeconds = 1u << 5,
  kOptOutput = 1u << 6,
  kOptVerify = 1u << 7,
  kOptRate = 1u << 8,
  kOptCodeRate = 1u << 9,
  kOptCoding = 1u << 10,
  kOptTables = 1u << 11,
  kOptMulti = 1u << 12,
  kOptFilters = 1u << 13,
  kOptFilter = 1u << 14,
  kOptWatch = 1u << 15,
  kOptJson = 1u << 16,
};

// What the parser checks a command against.
struct CommandSyntax {
  const char* name;
  const char* usage;      // the arguments and own options, e.g. "ADDR [--count K]"
  int min_args;
  int max_args;
  uint32_t options;       // CommandOption bits
};

struct SimSetting {
  std::string key;
  std::string value;
};

struct Invocation {
  std::string program;                 // the program as started (argv[0])
  std::string command;                 // empty when none was given
  std::vector<std::string> args;
  unsigned board = 0;                  // 0..255; the library itself refuses 128 and up
  std::vector<SimSetting> sim;         // --sim, in order
  std::vector<std::string> sim_configs;
  bool trace = false;
  bool help = false;
  bool version = false;
  uint32_t count = 1;                  // peek: words; status --watch: screens (when given)
  uint32_t length = 0;                 // eeprom dump --len; 0: the command's default
  std::string all_dir;                 // fpga load --all DIR
  std::vector<uint32_t> channels;      // capture -c, in the order given, no repeats
  uint64_t bytes = 0;                  // capture --bytes; 0: not given
  double seconds = 0;                  // capture --seconds; 0: not given
  std::string output;                  // capture -o PREFIX
  bool verify = false;                 // capture --verify
  std::string rate;                    // capture --rate (virtual board): a number or "max"
  uint8_t code_rate = 0;               // signal --code-rate
  uint8_t coding = 0;                  // signal --coding
  std::string tables_dir;              // signal --tables DIR
  bool multi = false;                  // tune --multi
  std::string filters_dir;             // rate --filters DIR
  uint8_t filter = 3;                  // rate --filter: the n20d shape unless told otherwise
  double watch = 0;                    // status --watch: seconds between screens; 0: one screen
  bool json = false;                   // --json: one JSON document on stdout, the text on stderr
  std::string record;                  // --record FILE: the run goes through the recorder
  uint32_t options_given = 0;          // CommandOption bits seen on the line
};

// Parses the arguments after the program name. Empty result: success; otherwise the text of
// the usage error.
std::string ParseCommandLine(const std::vector<std::string>& args, Invocation* out);

// Checks the arguments and command options against the command. Help needs no arguments.
std::string CheckInvocation(const Invocation& inv, const CommandSyntax& syntax);

// A channel list: numbers and ranges below 256 separated by commas ("0-16", "0,3,5"), in the
// order given, repeats dropped. False for anything else.
bool ParseChannelList(const std::string& text, std::vector<uint32_t>* out);

// "--name" of a command option bit, for messages.
std::string OptionName(uint32_t command_bit);

// Help lines for the given command options followed by every global option.
std::string OptionsHelp(uint32_t command_options);

}  // namespace tvx::cli
