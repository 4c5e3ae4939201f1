// What the CLI makes of raw results: trace lines, raw-access codes, the convertor presence code.
#include <gtest/gtest.h>

#include <string>

#include "report.h"

namespace tvx::cli {
namespace {

TEST(TraceLine, ReadsAndWritesInTheirFixedShape) {
  EXPECT_EQ(TraceLine({0x8000, 0, 0}), "R 0x00008000 -> 0x00000000");
  EXPECT_EQ(TraceLine({0x8058, 5, 1}), "W 0x00008058 <- 0x00000005");
  EXPECT_EQ(TraceLine({0xFFFFFFFC, 0xDEADBEEF, 1}), "W 0xFFFFFFFC <- 0xDEADBEEF");
  EXPECT_EQ(TraceLine({0x60, 0x80000000, 7}), "W 0x00000060 <- 0x80000000");  // any nonzero: write
}

TEST(PortResultMeaning, NamesEveryKnownCode) {
  const struct {
    int32_t code;
    const char* part;
  } cases[] = {
      {1, "no device"},
      {2, "device not open"},
      {3, "kernel-mode access failed"},
      {4, "bad access mode"},
      {5, "outside the register BAR"},
      {5, "aligned"},
      {0, "unknown code"},
      {6, "unknown code"},
      {-1, "unknown code"},
  };
  for (const auto& c : cases)
    EXPECT_NE(std::string(PortResultMeaning(c.code)).find(c.part), std::string::npos) << c.code;
}

TEST(ConvertorCodeFromPresence, OnlyBitZeroCounts) {
  const struct {
    uint32_t word;
    uint8_t code;
  } cases[] = {{0, 2}, {1, 3}, {0xFFFFFFFE, 2}, {0x80000001, 3}, {2, 2}};
  for (const auto& c : cases) EXPECT_EQ(ConvertorCodeFromPresence(c.word), c.code) << c.word;
}

TEST(BlockByteAddress, WordOffsetsTimesFourWithoutWrapping) {
  EXPECT_EQ(BlockByteAddress(0x2000), 0x8000u);
  EXPECT_EQ(BlockByteAddress(0x1000), 0x4000u);
  EXPECT_EQ(BlockByteAddress(0x2880), 0xA200u);
  EXPECT_EQ(BlockByteAddress(0xFFFFFFFF), 0x3FFFFFFFCull);
}

}  // namespace
}  // namespace tvx::cli
