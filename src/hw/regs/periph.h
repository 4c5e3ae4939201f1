// Peripheral block: I2C controller, synthesizer serial interfaces, preselector DAC, presence bits.
#pragma once

#include <cstdint>

namespace tvx::periph {

constexpr uint32_t kPresence = 0;              // read: board presence bits
constexpr uint32_t kLConvPresentBit = 1u << 0;  // L-band convertor fitted
constexpr uint32_t kRfControl = 0;              // written: RF control word
constexpr uint32_t kRegisterMode = 4;           // the L synthesizer takes addressed registers

// Synthesizers: a 24-bit word written to a synthesizer's word is shifted into the chip; read
// back, the word reports the FPGA's and the chip's state.
constexpr uint32_t kSSynthesizer = 1;              // sampling-clock synthesizer
constexpr uint32_t kLSynthesizer = 2;              // the convertor's local-oscillator synthesizer
constexpr uint32_t kSynthReady = 1u << 31;         // the last word written has been sent
constexpr uint32_t kSynthLocked = 1u << 24;        // the synthesizer's loop is locked
constexpr uint32_t kSynthRegisterShift = 24;       // fractional-N kind: register number, 31-24

// Preselector DAC: two words per load, the first preselector's code with kDacFirstWord.
constexpr uint32_t kPreselectorDac = 3;
constexpr uint32_t kDacFirstWord = 1u << 15;
constexpr uint32_t kDacReady = 1u << 31;           // read: the DAC has taken the last word

// I2C controller. Words 8 and 9 mean one thing written and another read.
constexpr uint32_t kI2cPrescaler = 8;   // written: bus clock prescaler
constexpr uint32_t kI2cReceive = 8;     // read: the last byte received, bits 0-7
constexpr uint32_t kI2cControl = 9;     // written: kI2cDisable / kI2cEnable
constexpr uint32_t kI2cStatus = 9;      // read: kI2cBusy, kI2cNoAck
constexpr uint32_t kI2cCommand = 11;    // written: one of the commands below plus its byte
constexpr uint32_t kI2cDisable = 0x00;
constexpr uint32_t kI2cEnable = 0x80;
constexpr uint32_t kI2cBusy = 1u << 0;    // a transfer is in progress
constexpr uint32_t kI2cNoAck = 1u << 7;   // the addressed device did not acknowledge
constexpr uint32_t kI2cCmdStart = 0x000;      // start condition, then the address byte
constexpr uint32_t kI2cCmdWrite = 0x100;      // send the data byte
constexpr uint32_t kI2cCmdReadAck = 0x200;    // receive a byte, acknowledge it
constexpr uint32_t kI2cCmdReadLast = 0x2FF;   // receive a byte, do not acknowledge it
constexpr uint32_t kI2cCmdStop = 0x300;       // stop condition

}  // namespace tvx::periph
