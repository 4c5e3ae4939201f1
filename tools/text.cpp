// Windows-1251 decoding and number parsing for the CLI.
#include "text.h"

#include <cstdio>

namespace tvx::cli {
namespace {

// Code points of bytes 0x80..0xBF; 0xC0..0xFF are the contiguous Cyrillic А..я (U+0410..U+044F).
constexpr char16_t kHighHalf[64] = {
    0x0402, 0x0403, 0x201A, 0x0453, 0x201E, 0x2026, 0x2020, 0x2021,  // 80
    0x20AC, 0x2030, 0x0409, 0x2039, 0x040A, 0x040C, 0x040B, 0x040F,  // 88
    0x0452, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90
    0xFFFD, 0x2122, 0x0459, 0x203A, 0x045A, 0x045C, 0x045B, 0x045F,  // 98
    0x00A0, 0x040E, 0x045E, 0x0408, 0x00A4, 0x0490, 0x00A6, 0x00A7,  // A0
    0x0401, 0x00A9, 0x0404, 0x00AB, 0x00AC, 0x00AD, 0x00AE, 0x0407,  // A8
    0x00B0, 0x00B1, 0x0406, 0x0456, 0x0491, 0x00B5, 0x00B6, 0x00B7,  // B0
    0x0451, 0x2116, 0x0454, 0x00BB, 0x0458, 0x0405, 0x0455, 0x0457,  // B8
};

void AppendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {  // the code page reaches no further than the basic plane
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

int DigitValue(char c, int base) {
  int v = -1;
  if (c >= '0' && c <= '9') v = c - '0';
  else if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
  else if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
  return v < base ? v : -1;
}

}  // namespace

std::string Cp1251ToUtf8(std::string_view cp1251) {
  std::string out;
  out.reserve(cp1251.size() * 2);
  for (char ch : cp1251) {
    const auto byte = static_cast<unsigned char>(ch);
    if (byte < 0x80) out += ch;
    else if (byte < 0xC0) AppendUtf8(out, kHighHalf[byte - 0x80]);
    else AppendUtf8(out, 0x0410 + (byte - 0xC0));
  }
  return out;
}

std::string LibraryText(const char* cp1251) {
  if (cp1251 == nullptr) return {};
  std::string_view text(cp1251);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  return Cp1251ToUtf8(text);
}

bool ParseUnsigned(std::string_view text, uint64_t max, uint64_t* out) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty()) return false;
  uint64_t value = 0;
  for (char c : text) {
    const int digit = DigitValue(c, base);
    if (digit < 0 || static_cast<uint64_t>(digit) > max) return false;
    if (value > (max - static_cast<uint64_t>(digit)) / static_cast<uint64_t>(base)) return false;
    value = value * base + digit;
  }
  *out = value;
  return true;
}

std::string Hex32(uint32_t value) {
  char text[11];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(value));
  return text;
}

}  // namespace tvx::cli
