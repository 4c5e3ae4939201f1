// The bounded formatting every message goes through.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "hw/text.h"

namespace tvx {
namespace {

TEST(Text, LongMessagesAreCutAndTerminated) {
  char buffer[256];
  std::memset(buffer, 'x', sizeof buffer);
  std::string long_text(400, 'a');
  Format(buffer, "%s [%d]: %s\n", "Export", 3, long_text.c_str());
  EXPECT_EQ(std::strlen(buffer), 255u);
  EXPECT_EQ(std::string(buffer, 11), "Export [3]:");
}

TEST(Text, AMessageMayQuoteItsOwnBuffer) {
  char buffer[64] = "inner";
  Format(buffer, "%s; %s", "outer", buffer);
  EXPECT_STREQ(buffer, "outer; inner");
}

TEST(Text, CopyTellsWhetherItFitted) {
  char buffer[4];
  EXPECT_TRUE(CopyText(buffer, sizeof buffer, "abc"));
  EXPECT_STREQ(buffer, "abc");
  EXPECT_FALSE(CopyText(buffer, sizeof buffer, "abcd"));
  EXPECT_STREQ(buffer, "abc");
}

}  // namespace
}  // namespace tvx
