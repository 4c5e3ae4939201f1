// Page-granular memory. (The counter and sleeps are measured by the FPGA reset time-out
// end to end.)
#include <gtest/gtest.h>

#include <cstdint>

#include "platform/os.h"

namespace tvx::os {
namespace {

// Pages come zeroed and aligned; closing and reopening a range keeps its contents and leaves
// the neighbours open: the virtual board toggles register pages this way around every access.
TEST(Pages, ZeroedAlignedAndProtectRoundTripKeepsContents) {
  const size_t page = PageSize();
  ASSERT_TRUE(page >= 4096 && (page & (page - 1)) == 0) << page;
  auto* p = static_cast<uint8_t*>(AllocatePages(3 * page));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % page, 0u);
  for (size_t i = 0; i < 3 * page; ++i) ASSERT_EQ(p[i], 0) << i;
  p[page] = 0xA5;
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(ProtectPages(p + page, page, false));
    p[0] = p[3 * page - 1] = static_cast<uint8_t>(round);
    ASSERT_TRUE(ProtectPages(p + page, page, true));
    EXPECT_EQ(p[page]++, 0xA5 + round);
  }
  EXPECT_FALSE(ProtectPages(nullptr, page, true));
  EXPECT_EQ(AllocatePages(0), nullptr);
  FreePages(p, 3 * page);
  FreePages(nullptr, page);
}

}  // namespace
}  // namespace tvx::os
