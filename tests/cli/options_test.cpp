// The CLI's command line: global options anywhere, command options only where accepted, and
// malformed lines refused with a usable message.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands.h"
#include "loaders.h"
#include "options.h"

namespace tvx::cli {
namespace {

using Args = std::vector<std::string>;

Invocation Parse(const Args& args) {
  Invocation inv;
  EXPECT_EQ(ParseCommandLine(args, &inv), "") << "for " << ::testing::PrintToString(args);
  return inv;
}

// The last board option wins; after "--" nothing is an option; "-" alone and a negative number
// are arguments.
// An index beyond the table is the library's to refuse, not the parser's.
TEST(ParseCommandLine, GlobalOptionsGoBeforeOrAfterTheCommand) {
  const struct { Args args; unsigned board; Args positional; } cases[] = {
      {{"peek", "0x8000", "-b", "3"}, 3, {"0x8000"}},   {{"peek", "--board", "0x7F", "1"}, 127, {"1"}},
      {{"--board=255", "peek", "1"}, 255, {"1"}},       {{"-b7", "peek", "1"}, 7, {"1"}},
      {{"-b", "1", "-b", "2", "peek", "1"}, 2, {"1"}},  {{"poke", "--", "-b", "5"}, 0, {"-b", "5"}},
      {{"poke", "-", "5"}, 0, {"-", "5"}},              {{"iso", "1", "-2"}, 0, {"1", "-2"}},
      {{"run", "/t/receive.ini"}, 0, {"/t/receive.ini"}},   // a path on every system
  };
  for (const auto& c : cases) {
    const Invocation inv = Parse(c.args);
    EXPECT_EQ(inv.board, c.board) << ::testing::PrintToString(c.args);
    EXPECT_EQ(inv.args, c.positional) << ::testing::PrintToString(c.args);
  }
}

// The first '=' of --sim separates key and value; a command option marks itself given; the
// receiver's step options take their values.
TEST(ParseCommandLine, OptionsWithValuesAndFlags) {
  const Invocation inv = Parse({"--sim=reg.0x8000=0x5=x", "peek", "0", "--count", "0x10", "-h"});
  ASSERT_EQ(inv.sim.size(), 1u);
  EXPECT_EQ(inv.sim[0].key + "|" + inv.sim[0].value, "reg.0x8000|0x5=x");
  EXPECT_TRUE(inv.count == 16 && inv.options_given == kOptCount && inv.help);
  EXPECT_EQ(Parse({"peek", "0"}).options_given, 0u);
  EXPECT_EQ(Parse({"rate", "1", "--filters", "d"}).filter, 3) << "the default shape";
  const Invocation signal = Parse({"signal", "1", "--code-rate=0x9", "--coding", "17"});
  EXPECT_TRUE(signal.code_rate == 9 && signal.coding == 17);
  const Invocation status = Parse({"status", "--watch", "0.25", "--count", "4"});
  EXPECT_TRUE(status.watch == 0.25 && status.count == 4);
}

// Channels in the order given, repeats dropped.
TEST(ParseChannelList, NumbersAndRanges) {
  std::vector<uint32_t> channels;
  ASSERT_TRUE(ParseChannelList("3,1-2,3,0x10", &channels));
  EXPECT_EQ(channels, (std::vector<uint32_t>{3, 1, 2, 16}));
  ASSERT_TRUE(ParseChannelList("0-16", &channels));
  EXPECT_EQ(channels.size(), 17u);
  for (const char* bad : {"", "1-", "-1", "a", "1,"}) EXPECT_FALSE(ParseChannelList(bad, &channels)) << bad;
}

// A refused line must not half-fill the invocation. (Number syntax is ParseUnsigned's.)
TEST(ParseCommandLine, RefusesMalformedLines) {
  const std::pair<Args, const char*> cases[] = {
      {{"-b", "256", "info"}, "invalid board index '256'"},
      {{"--board", "two", "info"}, "invalid board index 'two'"},
      {{"info", "-b"}, "option '--board' needs a value N"},
      {{"--sim", "fault.open", "info"}, "--sim expects KEY=VALUE"},
      {{"--sim", "=2", "info"}, "--sim expects KEY=VALUE"},
      {{"--count", "0", "peek", "0"}, "invalid count '0'"},
      {{"eeprom", "dump", "pcb", "--len", "65537"}, "65537"},
      {{"fpga", "load", "--all="}, "--all"},
      {{"--trace=yes", "info"}, "option '--trace' takes no value"},
      {{"--bored", "info"}, "unknown option '--bored'"},
      {{"capture", "-c", "2-1"}, "invalid channel list '2-1'"},
      {{"capture", "-c", "0,,1"}, "invalid channel list"},
      {{"capture", "-c", "256"}, "invalid channel list"},
      {{"capture", "--seconds", "0"}, "invalid duration '0'"},
      {{"capture", "--rate", "fast"}, "invalid rate 'fast'"},
      {{"signal", "1", "--code-rate", "256"}, "invalid code-rate index '256'"},
      {{"rate", "1", "--filters", "d", "--filter", "x"}, "invalid filter index 'x'"},
      {{"status", "--watch", "0"}, "invalid duration '0'"},
  };
  for (const auto& [args, error_part] : cases) {
    Invocation inv;
    inv.board = 99;
    const std::string error = ParseCommandLine(args, &inv);
    EXPECT_NE(error.find(error_part), std::string::npos)
        << ::testing::PrintToString(args) << " gave \"" << error << '"';
    EXPECT_EQ(inv.board, 99u) << ::testing::PrintToString(args);
  }
}

// Help needs no arguments, but a command option that does not apply is refused even then.
TEST(CheckInvocation, ArgumentCountsAndCommandOptions) {
  const CommandSyntax peek{"peek", "ADDR [--count K]", 1, 1, kOptCount};
  const CommandSyntax list{"list", "", 0, 0, 0};
  const struct {
    const CommandSyntax& syntax;
    Args args;
    const char* error_part;   // null: accepted
  } cases[] = {
      {peek, {"peek", "0", "--count", "2"}, nullptr},
      {peek, {"peek"}, "peek: missing argument; usage: torvixe peek ADDR [--count K]"},
      {peek, {"peek", "1", "2"}, "peek: unexpected argument '2'"},
      {peek, {"peek", "--help"}, nullptr},
      {list, {"list", "--count", "2", "--help"}, "list: option --count does not apply"},
      {FindCommand("fpga")->syntax, {"fpga", "load", "--all", "d"}, nullptr},
      {FindCommand("ram")->syntax, {"ram", "load", "--all", "d"}, "--all does not apply"},
  };
  for (const auto& c : cases) {
    const std::string error = CheckInvocation(Parse(c.args), c.syntax);
    EXPECT_TRUE(c.error_part ? error.find(c.error_part) != std::string::npos : error.empty())
        << ::testing::PrintToString(c.args) << " gave \"" << error << '"';
  }
}

}  // namespace
}  // namespace tvx::cli
