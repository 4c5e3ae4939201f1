// The CLI's command line: global options anywhere, command options only where accepted, and
// every malformed value refused with a usable message.
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

TEST(ParseCommandLine, GlobalOptionsGoBeforeOrAfterTheCommand) {
  const struct {
    Args args;
    unsigned board;
    Args positional;
  } cases[] = {
      {{"peek", "0x8000"}, 0, {"0x8000"}},
      {{"peek", "0x8000", "-b", "3"}, 3, {"0x8000"}},
      {{"peek", "--board", "0x7F", "0x8000"}, 127, {"0x8000"}},
      {{"--board=255", "peek", "0x8000"}, 255, {"0x8000"}},   // the library refuses it, not us
      {{"-b7", "peek", "0x8000"}, 7, {"0x8000"}},
      {{"-b", "1", "-b", "2", "peek", "1"}, 2, {"1"}},         // the last one wins
      {{"poke", "--", "-b", "5"}, 0, {"-b", "5"}},             // after "--" nothing is an option
      {{"poke", "-", "5"}, 0, {"-", "5"}},
  };
  for (const auto& c : cases) {
    const Invocation inv = Parse(c.args);
    EXPECT_EQ(inv.board, c.board) << ::testing::PrintToString(c.args);
    EXPECT_EQ(inv.args, c.positional) << ::testing::PrintToString(c.args);
  }
}

TEST(ParseCommandLine, OptionsWithValuesAndFlags) {
  const Invocation inv = Parse({"--sim", "fault.open=2", "info", "--sim=reg.0x8000=0x5=x",
                                "--sim-config", "a.ini", "--sim-config=b.ini", "--trace"});
  ASSERT_EQ(inv.sim.size(), 2u);
  EXPECT_EQ(inv.sim[0].key + "|" + inv.sim[0].value, "fault.open|2");
  EXPECT_EQ(inv.sim[1].key + "|" + inv.sim[1].value, "reg.0x8000|0x5=x");   // the first '=' separates
  EXPECT_EQ(inv.sim_configs, (Args{"a.ini", "b.ini"}));
  EXPECT_TRUE(inv.trace);
  EXPECT_EQ(inv.command, "info");
  EXPECT_EQ(Parse({"--sim", "slot=", "list"}).sim.at(0).value, "");
  EXPECT_TRUE(Parse({"peek", "-h"}).help);
  EXPECT_TRUE(Parse({"--version"}).version);

  const Invocation count = Parse({"peek", "0", "--count", "0x10"});
  EXPECT_EQ(count.count, 16u);
  EXPECT_EQ(count.options_given, kOptCount);
  EXPECT_EQ(Parse({"peek", "0"}).count, 1u);
  EXPECT_EQ(Parse({"peek", "0"}).options_given, 0u);
  const Invocation len = Parse({"eeprom", "dump", "pcb", "--len", "0x110"});
  EXPECT_EQ(len.length, 0x110u);
  EXPECT_EQ(len.options_given, kOptLen);
  const Invocation all = Parse({"fpga", "load", "--all", "dir/x"});
  EXPECT_EQ(all.all_dir, "dir/x");
  EXPECT_EQ(all.args, (Args{"load"}));
}

TEST(ParseCommandLine, RefusesMalformedLines) {
  const struct {
    Args args;
    const char* error_part;
  } cases[] = {
      {{"-b", "256", "info"}, "invalid board index '256'"},
      {{"--board", "two", "info"}, "invalid board index 'two'"},
      {{"--board=", "info"}, "invalid board index ''"},
      {{"info", "-b"}, "option '-b' needs a value N"},
      {{"info", "--sim"}, "option '--sim' needs a value"},
      {{"--sim", "fault.open", "info"}, "--sim expects KEY=VALUE"},
      {{"--sim", "=2", "info"}, "--sim expects KEY=VALUE"},
      {{"--count", "0", "peek", "0"}, "invalid count '0'"},
      {{"--count", "65537", "peek", "0"}, "invalid count '65537'"},
      {{"eeprom", "dump", "pcb", "--len", "65537"}, "65537"},
      {{"eeprom", "dump", "pcb", "--len", "1k"}, "1k"},
      {{"fpga", "load", "--all"}, "--all"},
      {{"fpga", "load", "--all="}, "--all"},
      {{"--trace=yes", "info"}, "option '--trace' takes no value"},
      {{"-hv", "info"}, "option '-h' takes no value"},
      {{"--bored", "info"}, "unknown option '--bored'"},
      {{"poke", "0", "-5"}, "unknown option '-5'"},
  };
  for (const auto& c : cases) {
    Invocation inv;
    inv.board = 99;
    const std::string error = ParseCommandLine(c.args, &inv);
    EXPECT_NE(error.find(c.error_part), std::string::npos)
        << ::testing::PrintToString(c.args) << " gave \"" << error << '"';
    EXPECT_EQ(inv.board, 99u) << "a refused line must not half-fill the invocation";
  }
}

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
      {peek, {"peek", "--help"}, nullptr},                      // help needs no arguments
      {list, {"list", "--count", "2"}, "list: option --count does not apply"},
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

// The table every new command is added to: each entry must be reachable and complete.
TEST(CommandTable, EveryEntryIsFoundByNameAndHasItsHelp) {
  for (const Command* c = kCommands; c->run != nullptr; ++c) {
    EXPECT_EQ(FindCommand(c->syntax.name), c) << c->syntax.name << " is shadowed by another entry";
    EXPECT_LE(c->syntax.min_args, c->syntax.max_args) << c->syntax.name;
    EXPECT_NE(std::string(c->summary), "") << c->syntax.name;
    EXPECT_NE(std::string(c->details), "") << c->syntax.name;
  }
  EXPECT_EQ(FindCommand("nonsense"), nullptr);
}

// The simulator's numbers: whole, finite decimals.
TEST(ParseNumber, WholeFiniteDecimalsOnly) {
  for (const auto& [text, value] : {std::pair{"1e6", 1e6}, {"2500000.5", 2500000.5}, {"-3", -3.0}, {"0", 0.0}}) {
    double out = -99;
    EXPECT_TRUE(ParseNumber(text, &out)) << text;
    EXPECT_EQ(out, value) << text;
  }
  for (const char* text : {"", " 1", "1 ", "1e6x", "inf", "nan", "1e999", "fast"}) {
    double out = -99;
    EXPECT_FALSE(ParseNumber(text, &out)) << text;
  }
}

}  // namespace
}  // namespace tvx::cli
