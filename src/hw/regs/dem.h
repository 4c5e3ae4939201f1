// DEM block: the demodulator FPGA's registers.
#pragma once

#include <cstdint>

namespace tvx::dem {

constexpr uint32_t kPllControl = 22;      // PLL control word
constexpr uint32_t kCircuitReset = 2045;  // circuit reset word

}  // namespace tvx::dem
