// The CLI's Windows-1251 decoder and number parser. This file compiles with the library's
// CP1251 execution character set: plain literals hold CP1251 bytes, u8 literals UTF-8, so the
// compiler's own conversion is the reference for the whole code page.
#include <gtest/gtest.h>

#include <string>

#include "text.h"

namespace tvx::cli {
namespace {

// Bytes 0x80..0xBF in order, without 0x98 (no character there), written as characters.
#define TVX_HIGH_HALF                                                                    \
  "\u0402\u0403\u201A\u0453\u201E\u2026\u2020\u2021\u20AC\u2030\u0409\u2039\u040A\u040C" \
  "\u040B\u040F\u0452\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u2122\u0459\u203A\u045A" \
  "\u045C\u045B\u045F\u00A0\u040E\u045E\u0408\u00A4\u0490\u00A6\u00A7\u0401\u00A9\u0404" \
  "\u00AB\u00AC\u00AD\u00AE\u0407\u00B0\u00B1\u0406\u0456\u0491\u00B5\u00B6\u00B7\u0451" \
  "\u2116\u0454\u00BB\u0458\u0405\u0455\u0457"
#define TVX_CYRILLIC "АБВГДЕЖЗИЙКЛМНОПРСТУФХЦЧШЩЪЫЬЭЮЯабвгдежзийклмнопрстуфхцчшщъыьэюя"

TEST(Cp1251ToUtf8, WholeCodePageMatchesTheCompilersConversion) {
  const std::string high = "" TVX_HIGH_HALF;
  ASSERT_EQ(high.size(), 63u);
  std::string expected_bytes;
  for (int b = 0x80; b < 0xC0; ++b)
    if (b != 0x98) expected_bytes += static_cast<char>(b);
  ASSERT_EQ(high, expected_bytes) << "the list above is not the code page in byte order";
  EXPECT_EQ(Cp1251ToUtf8(high), std::string(u8"" TVX_HIGH_HALF));

  const std::string cyrillic = TVX_CYRILLIC;
  ASSERT_EQ(cyrillic.size(), 64u);
  EXPECT_EQ(static_cast<unsigned char>(cyrillic.front()), 0xC0);
  EXPECT_EQ(Cp1251ToUtf8(cyrillic), std::string(u8"" TVX_CYRILLIC));
}

// What the whole-page test does not cover: ASCII, NUL, and the one byte without a character.
TEST(Cp1251ToUtf8, AsciiNulAndTheHole) {
  EXPECT_EQ(Cp1251ToUtf8(""), "");
  EXPECT_EQ(Cp1251ToUtf8(std::string("plain\t\x7F\0b", 9)), std::string("plain\t\x7F\0b", 9));
  EXPECT_EQ(Cp1251ToUtf8("\x98\xB9"), "\xEF\xBF\xBD\xE2\x84\x96") << "replacement, then numero";
}

TEST(LibraryText, ConvertsAndDropsTheTrailingLineEnd) {
  EXPECT_EQ(LibraryText(nullptr), "");
  EXPECT_EQ(LibraryText("ADCLoad [0]: \xEE\xF8\xE8\xE1\xEA\xE0\n"),
            std::string(u8"ADCLoad [0]: ошибка"));
  EXPECT_EQ(LibraryText("two\nlines\r\n\n"), "two\nlines");
  EXPECT_EQ(LibraryText("\n"), "");
}

// A refused text leaves the output alone; leading zeros never overflow.
TEST(ParseUnsigned, AcceptsDecimalAndHexWithinRange) {
  const struct { const char* text; uint64_t max; bool ok; uint64_t value; } cases[] = {
      {"256", 255, false, 0}, {"0XfF", 255, true, 255}, {"0x100", 255, false, 0},
      {"0x0000000000000000000001", 1, true, 1}, {"18446744073709551616", UINT64_MAX, false, 0},
  };
  for (const auto& c : cases) {
    uint64_t value = 12345;
    EXPECT_EQ(ParseUnsigned(c.text, c.max, &value), c.ok) << '"' << c.text << '"';
    EXPECT_EQ(value, c.ok ? c.value : 12345u) << '"' << c.text << '"';
  }
  for (const char* text : {"", "0x", "-1", " 1", "1 ", "0x1g"}) {
    uint64_t value = 12345;
    EXPECT_FALSE(ParseUnsigned(text, 5000, &value)) << '"' << text << '"';
  }
}

}  // namespace
}  // namespace tvx::cli
