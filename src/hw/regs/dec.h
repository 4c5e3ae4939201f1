// DEC block: the DEC FPGA.
#pragma once

#include <cstdint>

namespace tvx::dec {

constexpr uint32_t kFpgaConfigData = 0;   // write: configuration data while DEC is in reset

}  // namespace tvx::dec
