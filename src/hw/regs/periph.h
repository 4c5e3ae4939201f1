// Peripheral block: I2C controller, synthesizer serial interface, preselector DAC, presence bits.
#pragma once

#include <cstdint>

namespace tvx::periph {

constexpr uint32_t kPresence = 0;              // board presence bits
constexpr uint32_t kLConvPresentBit = 1u << 0;  // L-band convertor fitted

}  // namespace tvx::periph
