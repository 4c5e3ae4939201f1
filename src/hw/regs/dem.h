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

// ADC serial interface: a control word and a one-bit data word; the converter's answers come
// back on one bit of a channel status word.
constexpr uint32_t kAdcControl = 38;
constexpr uint32_t kAdcEnd = 0;             // end of transfer
constexpr uint32_t kAdcSwitchToRead = 1;    // the converter drives the data line from now
constexpr uint32_t kAdcStart = 3;           // start of a transfer
constexpr uint32_t kAdcReset = 4;           // reset request
constexpr uint32_t kAdcData = 39;           // each write sends bit 0; reading, each write clocks
constexpr uint32_t kChannel2Status = 96;    // channel 2's status word (channel 1: kChannelStatus)
constexpr uint32_t kAdcDataLine = 1u << 14; // in both channel status words
constexpr uint32_t kLoopStatus = 8;         // status word; bits 15-8 the ADC's counter byte
constexpr uint32_t kAdcCounterShift = 8;
constexpr uint32_t kAdcCounterMask = 0xFF;

// Demodulator chain. Several words mean one thing written and another read.
constexpr uint32_t kCarrierNco = 2;        // write: carrier NCO word
constexpr uint32_t kRateNcoRead = 2;       // read: the timing loop's rate NCO, bits 0-25
constexpr uint32_t kRateNcoMask = 0x3FFFFFF;
constexpr uint32_t kTimingLoop = 4;        // write: loop code | rate field << 16 | timing bits
constexpr uint32_t kRateFieldShift = 16;
constexpr uint32_t kOversampling = 6;      // write: oversampling code
constexpr uint32_t kRateNco = 8;           // write: nominal rate NCO word
constexpr uint32_t kLockLevels = 8;        // read: carrier level bits 31-24, timing 23-16
constexpr uint32_t kCarrierLockShift = 24;
constexpr uint32_t kTimingLockShift = 16;
constexpr uint32_t kFilterTap = 10;        // write: value | tap << 16 | shift << 24
constexpr uint32_t kFilterTapShift = 16;
constexpr uint32_t kFilterShiftShift = 24;
constexpr uint32_t kCarrierNcoRead = 11;   // read: carrier NCO frequency, unsigned
constexpr uint32_t kDecimation = 14;       // write: M - 1 in bits 0-11, log2 M in bits 16-19
constexpr uint32_t kSecondDecimationMask = 0xFFF;
constexpr uint32_t kLog2MShift = 16;
constexpr uint32_t kLog2MMask = 0xF0000;
constexpr uint32_t kIsoLoading = 14;       // read: iso converter loading, bits 0-15 signed
constexpr uint32_t kFrequencyError = 15;   // read: carrier frequency error, signed
constexpr uint32_t kPackTable = 16;        // write: packing-table stream
constexpr uint32_t kTimingMode = 28;       // write: timing-recovery mode word
constexpr uint32_t kBandSelect = 34;       // write: 1 from the band split up (types 1, 2)
constexpr uint32_t kDirectInput = 40;      // write: 1 direct input, 0 L-band (types 4-6)

// Iso converter's output-clock generator.
constexpr uint32_t kIsoFrequency = 64;     // frequency word
constexpr uint32_t kIsoControl = 65;       // control, below
constexpr uint32_t kIsoSerialData = 66;    // one write per serial bit, bit 0 sent
constexpr uint32_t kIsoTransaction = 1u << 0;
constexpr uint32_t kIsoFirstStrobe = 1u << 1;
constexpr uint32_t kIsoSecondStrobe = 1u << 2;
constexpr uint32_t kIsoReady = 1u << 7;
constexpr uint32_t kIsoExponentShift = 8;   // bits 8-11

// Gain stages and attenuator. The first stage's code is in bits 27-16 of each channel's status
// word (DEM word 6, channel 2's at 96), the second stage's in bits 15-0 of its own words.
constexpr uint32_t kFirstGainControl = 0;
constexpr uint32_t kFirstGainAlwaysOn = 1u << 13;   // set by every convertor but types 1 and 2
constexpr uint32_t kFirstGainShift = 16;
constexpr uint32_t kFirstGainMask = 0xFFF;
constexpr uint32_t kSecondGainStatus1 = 7;
constexpr uint32_t kSecondGainStatus2 = 112;
constexpr uint32_t kSecondGainMask = 0xFFFF;
constexpr uint32_t kSecondGainControl1 = 20;
constexpr uint32_t kSecondGainControl2 = 18;
constexpr uint32_t kAttenuator = 8;          // read: the attenuator code in the low bits
constexpr uint32_t kAttenuatorMaskNarrow = 0x1F;   // convertor types 1 and 2
constexpr uint32_t kAttenuatorMaskWide = 0x7F;     // every other type

// Equalizer: 13 taps, each one word with two 12-bit values, laid out differently for reads and
// writes.
constexpr uint32_t kEqErrorTable = 12;       // write: error-table stream
constexpr uint32_t kEqControl = 13;
constexpr uint32_t kEqTapsRead = 16;         // read: first value bits 20-31, second bits 4-15
constexpr uint32_t kEqTapsWrite = 96;        // write: first value bits 14-25, second bits 0-11
constexpr uint32_t kEqValueMask = 0xFFF;
constexpr uint32_t kEqReadFirstShift = 20;
constexpr uint32_t kEqReadSecondShift = 4;
constexpr uint32_t kEqWriteFirstShift = 14;

// Lock levels of DEM word 8: a signed 8-bit level per loop, reached when level - threshold is
// not negative. The difference is taken in 32-bit two's complement, as the hardware's own
// comparison takes it, so no threshold can overflow it.
inline bool LockLevelReached(uint32_t levels, uint32_t shift, uint32_t threshold) {
  const int32_t level = int8_t(uint8_t(levels >> shift));
  return int32_t(uint32_t(level) - threshold) >= 0;
}

constexpr uint32_t kPllControl = 22;      // PLL control word
constexpr uint32_t kCircuitReset = 2045;  // circuit reset word

}  // namespace tvx::dem
