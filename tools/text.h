// Text helpers of the CLI: the library's Windows-1251 texts shown as UTF-8, and the strict
// number parsing every command-line value goes through.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tvx::cli {

// Windows-1251 bytes to UTF-8. ASCII passes unchanged; the one byte that has no character in
// the code page (0x98) becomes U+FFFD so that a damaged text stays visible.
std::string Cp1251ToUtf8(std::string_view cp1251);

// A text from the library, ready to print: converted, and the line end many library formats
// carry stripped (the CLI adds its own). A null pointer gives the empty string.
std::string LibraryText(const char* cp1251);

// An unsigned number written in decimal or, with a 0x/0X prefix, in hexadecimal, no larger
// than `max`. Signs, spaces, empty digits and trailing garbage are refused.
bool ParseUnsigned(std::string_view text, uint64_t max, uint64_t* out);

// "0x" and eight upper-case hex digits: every register address and value looks the same.
std::string Hex32(uint32_t value);

}  // namespace tvx::cli
