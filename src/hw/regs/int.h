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

// The bus-master (DMA) engine. A buffer is programmed by selecting it, then writing its bus
// address; a channel's geometry follows its last buffer.
constexpr uint32_t kDmaBusAddress = 0;          // bus address of the selected buffer, OR 1
constexpr uint32_t kDmaBusAddressValid = 1;
constexpr uint32_t kDmaChannelClear = 1;        // 0 written once per channel, before its geometry
constexpr uint32_t kDmaGeometry = 2;            // per channel, below
constexpr uint32_t kDmaBuffersShift = 25;       //   bits 25-31: buffers per channel - 1
constexpr uint32_t kDmaBlocksShift = 7;         //   bits 0-24: buffer size / 128 - 1
constexpr uint32_t kDmaControl = 3;             // start parameter | kDmaRun to run, 0 to stop
constexpr uint32_t kDmaRun = 0x20000000;
constexpr uint32_t kDmaSelect = 5;              // channel << 5 | buffer within the channel
constexpr uint32_t kDmaSelectChannelShift = 5;

constexpr uint32_t kCounter = 24;   // free-running counter reported by Counters

}  // namespace tvx::int_regs
