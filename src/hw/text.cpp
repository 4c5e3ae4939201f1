#include "hw/text.h"

#include <cstdio>
#include <cstring>

namespace tvx {

void FormatV(char* buffer, size_t size, const char* format, va_list args) {
  if (size == 0) return;
  // Formatting a text into itself (a module text that quotes its own previous text) would
  // read what it is overwriting; format into a scratch copy of the same size instead.
  char scratch[1024];
  if (size <= sizeof scratch) {
    std::vsnprintf(scratch, size, format, args);
    std::memcpy(buffer, scratch, std::strlen(scratch) + 1);
    return;
  }
  std::vsnprintf(buffer, size, format, args);
}

void FormatInto(char* buffer, size_t size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  FormatV(buffer, size, format, args);
  va_end(args);
}

bool CopyText(char* buffer, size_t size, const char* text) {
  if (size == 0) return false;
  size_t n = std::strlen(text);
  bool fits = n < size;
  if (!fits) n = size - 1;
  std::memmove(buffer, text, n);
  buffer[n] = '\0';
  return fits;
}

}  // namespace tvx
