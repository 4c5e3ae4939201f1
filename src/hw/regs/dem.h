// DEM block: the demodulator FPGA's registers.
#pragma once

#include <cstdint>

namespace tvx::dem {

constexpr uint32_t kFpgaConfigData = 0;   // write: configuration data while DEM is in reset
constexpr uint32_t kRamAddress = 0;       // write: word address of the on-board RAM
constexpr uint32_t kRamData = 2;          // write: the 16-bit RAM word, zero-extended

// Signal simulator.
constexpr uint32_t kSimCarrier = 24;      // carrier word
constexpr uint32_t kSimControl = 25;      // control word, below
constexpr uint32_t kSimPattern = 26;      // one write per pattern word
constexpr uint32_t kSimDividerMask = 0x0000FFFF;   // symbol rate = clock / (divider + 1)
constexpr uint32_t kSimLengthShift = 16;           // pattern file length in bytes, mod 4096
constexpr uint32_t kSimLengthMask = 0x0FFF0000;
constexpr uint32_t kSimWordsShift = 17;            // ... whose bits 17-27 count 16-bit words
constexpr uint32_t kSimOn = 1u << 28;

// Channel controls: one control word each, written unchanged; two status bits and two 8-bit
// counters read back.
constexpr uint32_t kChannelStatus = 6;
constexpr uint32_t kIqChannelStatusBit = 28;
constexpr uint32_t kDmdChannelStatusBit = 29;
constexpr uint32_t kChannelCounters = 10;
constexpr uint32_t kIqCounterShift = 8;    // bits 8-15
constexpr uint32_t kDmdCounterShift = 0;   // bits 0-7
constexpr uint32_t kIqChannelControl = 30;
constexpr uint32_t kDma3ChannelControl = 31;
constexpr uint32_t kDmdChannelControl = 32;

constexpr uint32_t kPllControl = 22;      // PLL control word
constexpr uint32_t kCircuitReset = 2045;  // circuit reset word

}  // namespace tvx::dem
