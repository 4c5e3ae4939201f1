// The tool's EEPROM output: the dump line, the identity texts it prints when it reads an
// EEPROM itself (they must read exactly as the library's), and the --len option.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "i2c_port.h"
#include "options.h"

namespace tvx::cli {
namespace {

TEST(EepromOutput, DumpLinesShowHexAndPrintableBytes) {
  const uint8_t bytes[16] = {0x03, 0xFF, 0x07, 0xD0, 'A', 'z', ' ', '~',
                             0x7F, 0x00, 0x20, 0x80, 0x31, 0x32, 0x33, 0x0A};
  EXPECT_EQ(DumpLine(0x0100, bytes, 16),
            "0x0100  03 FF 07 D0 41 7A 20 7E  7F 00 20 80 31 32 33 0A  |....Az ~.. .123.|");
  // A short last line keeps the columns.
  EXPECT_EQ(DumpLine(0x1FF0, bytes, 3),
            "0x1FF0  03 FF 07                                          |...|");
  EXPECT_EQ(DumpLine(0, bytes, 40).size(), DumpLine(0, bytes, 16).size()) << "one line at most";
}

TEST(EepromOutput, IdentityTextsReadAsTheLibrarysDo) {
  const struct {
    std::vector<uint8_t> bytes;
    const char* text;
  } serials[] = {{{0x00, 0x00, 0x04, 0xD2}, "0000001234"},
                 {{0x80, 0x00, 0x00, 0x00}, "-2147483648"},
                 {{0xFF, 0xFF, 0xFF, 0xFE}, "-0000000002"},
                 {{0x7F, 0xFF, 0xFF, 0xFF}, "2147483647"}};
  for (const auto& c : serials) EXPECT_EQ(SerialText(c.bytes.data()), c.text);
  EXPECT_EQ(VersionText(4), "04");
  EXPECT_EQ(VersionText(255), "255");
}

TEST(EepromOutput, LengthIsAnEepromDumpOption) {
  Invocation inv;
  ASSERT_EQ(ParseCommandLine({"eeprom", "dump", "pcb", "--len", "0x110"}, &inv), "");
  EXPECT_EQ(inv.length, 0x110u);
  EXPECT_EQ(inv.options_given & kOptLen, kOptLen);
  for (const char* bad : {"0", "65537", "-1", "1k"}) {
    Invocation refused;
    EXPECT_NE(ParseCommandLine({"eeprom", "dump", "pcb", "--len", bad}, &refused), "") << bad;
  }
}

}  // namespace
}  // namespace tvx::cli
