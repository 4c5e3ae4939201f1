// RS block: the RS FPGA and the demultiplexer.
#pragma once

#include <cstdint>

namespace tvx::rs {

constexpr uint32_t kFpgaConfigData = 0;   // write: configuration data while RS is in reset

}  // namespace tvx::rs
