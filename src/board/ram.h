// The demodulator FPGA's on-board RAM of 16-bit words, filled from a raw little-endian file
// through an address register and a data register of the DEM block.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cRAM : public cCommonModule {
 public:
  // `block_base` is the register block's base as a 32-bit word offset (the DEM block).
  cRAM(cZARIM* io, uint32_t block_base) : cCommonModule(io), BlockBase(block_base) {}
  // Word i of `bytes` (bytes 2i and 2i+1, low byte first) to RAM address i, for every whole
  // word of the `length` bytes; an odd last byte is not written. No read-back.
  virtual void WriteWords(const unsigned char* bytes, uint64_t length);
  // 0 loaded; 2 file not opened (or not read); 3 buffer not allocated.
  virtual int32_t LoadFile(const char* fileName);

  uint32_t block_base() const { return BlockBase; }

 private:
  uint32_t BlockBase;
};

}  // namespace tvx
