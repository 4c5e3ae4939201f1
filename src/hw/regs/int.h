// INT block: FPGA configuration control, the bus-master (DMA) engine, a counter.
#pragma once

#include <cstdint>

namespace tvx::int_regs {

constexpr uint32_t kCounter = 24;   // free-running counter reported by Counters

}  // namespace tvx::int_regs
