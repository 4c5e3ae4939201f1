// The bounded formatting every message goes through. (That a long message is cut to 255
// characters and terminated is checked at the export boundary by the bad-input walk.)
#include <gtest/gtest.h>

#include "hw/text.h"

namespace tvx {
namespace {

// A message may quote its own buffer; a copy tells whether it fitted and is terminated anyway.
TEST(Text, FormatQuotesItsOwnBufferAndCopyTellsWhetherItFitted) {
  char inner[64] = "inner";
  Format(inner, "%s; %s", "outer", inner);
  EXPECT_STREQ(inner, "outer; inner");
  char small[4];
  EXPECT_TRUE(CopyText(small, sizeof small, "abc"));
  EXPECT_STREQ(small, "abc");
  EXPECT_FALSE(CopyText(small, sizeof small, "abcd"));
  EXPECT_STREQ(small, "abc");
}

}  // namespace
}  // namespace tvx
