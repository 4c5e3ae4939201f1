// What the CLI prints of raw results where the end-to-end runs do not reach: identity texts at
// their extremes (they must read exactly as the library's), a short dump line, the progress
// line, trace lines of any nonzero direction, and the convertor presence code.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "i2c_port.h"
#include "loaders.h"
#include "report.h"

namespace tvx::cli {
namespace {

TEST(Report, TextsOfRawResults) {
  const uint8_t min[4] = {0x80, 0, 0, 0}, minus_two[4] = {0xFF, 0xFF, 0xFF, 0xFE};
  EXPECT_EQ(SerialText(min), "-2147483648");
  EXPECT_EQ(SerialText(minus_two), "-0000000002");
  EXPECT_EQ(VersionText(4) + " " + VersionText(255), "04 255");
  const uint8_t bytes[16] = {0x03, 0xFF, 0x07, 0xD0, 'A', 'z', ' ', '~',
                             0x7F, 0x00, 0x20, 0x80, 0x31, 0x32, 0x33, 0x0A};
  EXPECT_EQ(DumpLine(0x0100, bytes, 16),
            "0x0100  03 FF 07 D0 41 7A 20 7E  7F 00 20 80 31 32 33 0A  |....Az ~.. .123.|");
  EXPECT_EQ(DumpLine(0x1FF0, bytes, 3),   // a short last line keeps the columns
            "0x1FF0  03 FF 07                                          |...|");
  EXPECT_EQ(DumpLine(0, bytes, 40).size(), DumpLine(0, bytes, 16).size()) << "one line at most";
  EXPECT_EQ(ProgressText("DEM", 131072, 262144, 2.0),
            "DEM: 131072 of 262144 words sent (50%), 65536 words/s");
  EXPECT_EQ(ProgressText("RS", 10, 0, 0.0), "RS: 10 words sent, 0 words/s");
  EXPECT_EQ(TraceLine({0x60, 0x80000000, 7}), "W 0x00000060 <- 0x80000000");
  for (uint32_t word : {0u, 2u, 0xFFFFFFFEu}) EXPECT_EQ(ConvertorCodeFromPresence(word), 2) << word;
  for (uint32_t word : {1u, 0x80000001u}) EXPECT_EQ(ConvertorCodeFromPresence(word), 3) << word;
}

}  // namespace
}  // namespace tvx::cli
