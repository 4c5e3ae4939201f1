// INT block: FPGA configuration control, the bus-master (DMA) engine, a counter.
#pragma once

#include <cstdint>

namespace tvx::int_regs {

// INT_0x04: a write puts the device(s) of the written mask into configuration reset (0 lets
// them all go); a read shows each device's reset acknowledge and done bits.
constexpr uint32_t kFpgaControl = 4;
constexpr uint32_t kDemResetMask = 0x00000001;
constexpr uint32_t kDemDoneMask = 0x00000002;
constexpr uint32_t kDecResetMask = 0x00000004;
constexpr uint32_t kDecDoneMask = 0x00000008;
constexpr uint32_t kRsResetMask = 0xFFFFFFFF;   // all bits; any set bit acknowledges
constexpr uint32_t kRsDoneMask = 0x00000004;    // the same bit as DEC's acknowledge

constexpr uint32_t kCounter = 24;   // free-running counter reported by Counters

}  // namespace tvx::int_regs
