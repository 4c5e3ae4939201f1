// The decoder behind the one-fault register access: the moves compilers emit for a 32-bit
// volatile access are recognised with the right register, direction and length; everything
// else is left to the single-step path.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "platform/move_decode.h"

namespace tvx::os {
namespace {

struct DecodeCase {
  const char* what;
  std::vector<uint8_t> code;
  bool decoded, write = false, immediate = false;
  uint8_t reg = 0, length = 0;
  uint32_t imm = 0;
};

TEST(MoveDecode, RecognisesThirtyTwoBitMovesOnly) {
  const DecodeCase cases[] = {
      {"mov eax,[rdx]", {0x8B, 0x02}, true, false, false, 0, 2},
      {"mov ecx,[rax+rdx]", {0x8B, 0x0C, 0x10}, true, false, false, 1, 3},
      {"mov r9d,[rax+8]", {0x44, 0x8B, 0x48, 0x08}, true, false, false, 9, 4},
      {"mov eax,[r12+0x100]", {0x41, 0x8B, 0x84, 0x24, 0x00, 0x01, 0x00, 0x00}, true, false, false, 0, 8},
      {"mov [rdi],esi", {0x89, 0x37}, true, true, false, 6, 2},
      {"mov [rax+rcx*4+0x10],r15d", {0x44, 0x89, 0x7C, 0x88, 0x10}, true, true, false, 15, 5},
      {"mov [rip+disp],ebx", {0x89, 0x1D, 1, 2, 3, 4}, true, true, false, 3, 6},
      {"mov dword [rax],0x12345678", {0xC7, 0x00, 0x78, 0x56, 0x34, 0x12}, true, true, true, 0, 6, 0x12345678},
      {"mov dword [rbp-8],5", {0xC7, 0x45, 0xF8, 5, 0, 0, 0}, true, true, true, 0, 7, 5},
      {"mov dword [disp32],1 via SIB", {0xC7, 0x04, 0x25, 0, 0x80, 0, 0, 1, 0, 0, 0}, true, true, true, 0, 11, 1},
      {"mov rax,[rdx] (64-bit)", {0x48, 0x8B, 0x02}, false},
      {"mov ax,[rdx] (16-bit prefix)", {0x66, 0x8B, 0x02}, false},
      {"mov eax,ecx (registers)", {0x8B, 0xC1}, false},
      {"add [rax],ecx", {0x01, 0x08}, false},
      {"movzx eax,byte [rdx]", {0x0F, 0xB6, 0x02}, false},
      {"C7 with a reg field", {0xC7, 0x08, 0, 0, 0, 0}, false},
  };
  for (const DecodeCase& c : cases) {
    MoveAccess move;
    move.length = 99;
    std::vector<uint8_t> code = c.code;
    code.resize(16, 0x90);
    ASSERT_EQ(DecodeMove32(code.data(), &move), c.decoded) << c.what;
    if (!c.decoded) {
      EXPECT_EQ(move.length, 99) << c.what << ": nothing written on refusal";
      continue;
    }
    EXPECT_EQ(std::tuple(move.write, move.immediate, move.reg, move.length, move.imm),
              std::tuple(c.write, c.immediate, c.reg, c.length, c.imm)) << c.what;
  }
}

}  // namespace
}  // namespace tvx::os
