// What the CLI makes of raw results: the meaning of a raw-access code, one line of the
// register trace, the convertor presence code. Pure functions, so the tests pin them down.
#pragma once

#include <cstdint>
#include <string>

#include "zarimsim.h"

namespace tvx::cli {

// The meaning of a nonzero result of _devinp/_devoutp ("unknown code" for the rest).
const char* PortResultMeaning(int32_t code);

// "R 0x00008000 -> 0x00000000" for a read, "W 0x00008058 <- 0x00000005" for a write.
std::string TraceLine(const zsim_access& access);

// The convertor code the board derives from peripheral word 0: 3 when its bit 0 (the
// presence bit) is set, else 2.
uint8_t ConvertorCodeFromPresence(uint32_t peripheral_word0);

// Byte address of a register block whose base is a 32-bit word offset.
constexpr uint64_t BlockByteAddress(uint32_t word_offset) { return uint64_t{word_offset} * 4; }

}  // namespace tvx::cli
