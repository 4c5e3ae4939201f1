// The tables the demodulator takes as a stream of words (the packing table, the equalizer's
// error table): a binary file of little-endian 32-bit words, read whole and written one after
// another, in file order, to one register.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hw/zarim.h"

namespace tvx {

// The texts of one table: the file that does not open, the file that cannot be read (both
// with the file name).
struct WordTableTexts {
  const char* open_failed;
  const char* read_failed;
};

// 0; 1 (cannot open or read the file) or 2 (no buffer for it), with the text in `text`.
// Trailing bytes that make no word are dropped; a file that cannot be read to its end streams
// nothing.
int32_t StreamWordFile(cZARIM* io, uint32_t address, const char* fileName,
                       const WordTableTexts& texts, char* text, size_t text_size);

}  // namespace tvx
