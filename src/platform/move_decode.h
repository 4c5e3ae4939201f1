// Decodes the x86-64 instructions a register access compiles to — a 32-bit `mov` between a
// general register (or an immediate) and memory — so that a trap handler can carry the access
// out in one fault instead of stepping the instruction. Anything else (other operand sizes,
// prefixes, other instructions) is left to the single-step path.
#pragma once

#include <cstdint>

namespace tvx::os {

struct MoveAccess {
  bool write = false;       // store to memory
  bool immediate = false;   // a store of `imm` rather than of a register
  uint8_t reg = 0;          // general register in encoding order (0 = rax … 15 = r15)
  uint32_t imm = 0;
  uint8_t length = 0;       // bytes of the whole instruction
};

// `code` must point at readable instruction bytes (at most 15 are read).
inline bool DecodeMove32(const uint8_t* code, MoveAccess* out) {
  const uint8_t* p = code;
  uint8_t rex = 0;
  if ((*p & 0xF0) == 0x40) rex = *p++;
  if (rex & 0x08) return false;   // REX.W: a 64-bit access
  const uint8_t opcode = *p++;
  if (opcode != 0x8B && opcode != 0x89 && opcode != 0xC7) return false;
  const uint8_t modrm = *p++;
  const uint8_t mod = modrm >> 6, reg = (modrm >> 3) & 7, rm = modrm & 7;
  if (mod == 3) return false;   // register to register
  if (opcode == 0xC7 && reg != 0) return false;
  if (rm == 4) {
    const uint8_t sib = *p++;
    if (mod == 0 && (sib & 7) == 5) p += 4;   // no base, 32-bit displacement
  } else if (mod == 0 && rm == 5) {
    p += 4;                                   // RIP-relative
  }
  if (mod == 1) p += 1;
  if (mod == 2) p += 4;
  MoveAccess a;
  a.write = opcode != 0x8B;
  a.immediate = opcode == 0xC7;
  a.reg = uint8_t(reg | ((rex & 0x04) ? 8 : 0));
  if (a.immediate) {
    a.imm = uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
    p += 4;
  }
  a.length = uint8_t(p - code);
  *out = a;
  return true;
}

}  // namespace tvx::os
