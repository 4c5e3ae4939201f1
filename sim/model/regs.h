// Where the board decodes its register blocks in the register BAR. The virtual board keeps its
// own copy of the address map (rather than borrowing the library's) so that a wrong address in
// the library shows up as a wrong register in the trace instead of agreeing with itself.
#pragma once

#include <cstdint>

namespace zsim {

// Byte address of word 0 of each block.
constexpr uint32_t kIntBlock = 0x0000;          // FPGA configuration, bus master, counter
constexpr uint32_t kPeripheralBlock = 0x4000;   // I2C, synthesizer port, DAC, presence bit
constexpr uint32_t kDemBlock = 0x8000;          // demodulator FPGA
constexpr uint32_t kDecBlock = 0xA000;          // DEC FPGA configuration port
constexpr uint32_t kRsBlock = 0xA200;           // RS FPGA configuration port, demultiplexer

constexpr uint32_t Int(uint32_t word) { return kIntBlock + 4 * word; }
constexpr uint32_t Periph(uint32_t word) { return kPeripheralBlock + 4 * word; }
constexpr uint32_t Dem(uint32_t word) { return kDemBlock + 4 * word; }
constexpr uint32_t Dec(uint32_t word) { return kDecBlock + 4 * word; }
constexpr uint32_t Rs(uint32_t word) { return kRsBlock + 4 * word; }

}  // namespace zsim
