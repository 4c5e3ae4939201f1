// The one way a text reaches a fixed-size buffer: a formatted print that truncates and always
// terminates. Every message buffer of the library (module texts, the hardware-access object's
// text, the board text, the process-wide error text) is filled through it.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace tvx {

#if defined(__GNUC__)
#define TVX_PRINTF(fmt_index, args_index) __attribute__((format(printf, fmt_index, args_index)))
#else
#define TVX_PRINTF(fmt_index, args_index)
#endif

void FormatV(char* buffer, size_t size, const char* format, va_list args);
void FormatInto(char* buffer, size_t size, const char* format, ...) TVX_PRINTF(3, 4);

template <size_t N>
inline void Format(char (&buffer)[N], const char* format, ...) TVX_PRINTF(2, 3);

template <size_t N>
inline void Format(char (&buffer)[N], const char* format, ...) {
  va_list args;
  va_start(args, format);
  FormatV(buffer, N, format, args);
  va_end(args);
}

// Bounded copy, always terminated; true when the whole text fitted.
bool CopyText(char* buffer, size_t size, const char* text);

}  // namespace tvx
