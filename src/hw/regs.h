// Register-block bases and register addressing. The bases are process-wide word offsets into
// the register BAR, set by the last bring-up; a register is named by its block and word index
// and its byte address is formed from the block base at every access:
//     address = base * 4 + 4 * word
// The registers themselves are named once each, one header per block, in hw/regs/.
#pragma once

#include <cstdint>

#include "torvixe.h"

namespace tvx {

// The process-wide record handed out by GetFPGABaseAddress.
FpgaBaseAddresses& FpgaBases();

// The values this board uses; bring-up stores them.
constexpr uint32_t kIntBase = 0x0000;
constexpr uint32_t kDemBase = 0x2000;
constexpr uint32_t kPeripheralBase = 0x1000;
constexpr uint32_t kDecBase = 0x2800;
constexpr uint32_t kRsBase = 0x2880;
void SetFpgaBases();

inline uint32_t BlockAddress(uint32_t base, uint32_t word) { return base * 4 + 4 * word; }
inline uint32_t Int(uint32_t word) { return BlockAddress(FpgaBases().IntBase, word); }
inline uint32_t Dem(uint32_t word) { return BlockAddress(FpgaBases().DemBase, word); }
inline uint32_t Periph(uint32_t word) { return BlockAddress(FpgaBases().PeripheralBase, word); }
inline uint32_t Dec(uint32_t word) { return BlockAddress(FpgaBases().DecBase, word); }
inline uint32_t Rs(uint32_t word) { return BlockAddress(FpgaBases().RsBase, word); }

}  // namespace tvx
