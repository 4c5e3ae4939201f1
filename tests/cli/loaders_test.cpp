// The loading commands' pure parts: --all on the command line, number parsing for the
// simulator, the device keys of the virtual board and the progress line.
#include <gtest/gtest.h>

#include "commands.h"
#include "loaders.h"
#include "options.h"

namespace tvx::cli {
namespace {

TEST(LoadersCommandLine, AllTakesADirectoryAndOnlyFpgaAcceptsIt) {
  Invocation inv;
  ASSERT_EQ(ParseCommandLine({"fpga", "load", "--all", "dir/x"}, &inv), "");
  EXPECT_EQ(inv.all_dir, "dir/x");
  EXPECT_EQ(inv.args, (std::vector<std::string>{"load"}));
  EXPECT_EQ(CheckInvocation(inv, FindCommand("fpga")->syntax), "");
  EXPECT_NE(CheckInvocation(inv, FindCommand("ram")->syntax), "");
  EXPECT_NE(ParseCommandLine({"fpga", "load", "--all"}, &inv), "");
  EXPECT_NE(ParseCommandLine({"fpga", "load", "--all="}, &inv), "");
}

TEST(LoadersCommandLine, NumbersAreWholeFiniteDecimals) {
  const struct {
    const char* text;
    bool ok;
    double value;
  } cases[] = {{"1e6", true, 1e6}, {"2500000.5", true, 2500000.5}, {"-3", true, -3}, {"0", true, 0},
               {"", false, 0}, {" 1", false, 0}, {"1 ", false, 0}, {"1e6x", false, 0},
               {"inf", false, 0}, {"nan", false, 0}, {"1e999", false, 0}, {"fast", false, 0}};
  for (const auto& c : cases) {
    double value = -99;
    EXPECT_EQ(ParseNumber(c.text, &value), c.ok) << c.text;
    if (c.ok) {
      EXPECT_EQ(value, c.value) << c.text;
    }
  }
}

TEST(LoadersCommandLine, ProgressLine) {
  EXPECT_EQ(ProgressText("DEM", 131072, 262144, 2.0),
            "DEM: 131072 of 262144 words sent (50%), 65536 words/s");
  EXPECT_EQ(ProgressText("RS", 10, 0, 0.0), "RS: 10 words sent, 0 words/s");
}

}  // namespace
}  // namespace tvx::cli
