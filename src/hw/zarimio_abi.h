// The calling interface of the vendor IO library `zarimio`: the eleven functions the binding
// resolves by name and the records they exchange. The binding (cZARIM) calls through these
// types and the virtual board implements them, so both sides are held to one declaration.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvx::zarimio {

using Handle = uint64_t;                        // all bits set = no device
constexpr Handle kInvalidHandle = ~Handle{0};

#pragma pack(push, 1)
// Register request of ZARIM_Read / ZARIM_Write.
struct PortRequest {
  uint32_t address;   // byte address within the register BAR
  uint32_t value;
};

// Filled by ZARIM_BARMap and handed back to ZARIM_BARUnmap. Only the first 8 bytes mean the
// same in every IO library; the vendor's record has its own layout behind them. Our virtual
// board puts the BAR size into bytes 8-11 and kBarRecordMarker into bytes 12-15, and only a
// record that carries the marker is trusted for its size.
struct BarInfo {
  uint64_t user_address;   // where the register BAR is mapped in this process
  uint32_t size;           // our record: BAR size in bytes
  uint32_t marker;         // our record: kBarRecordMarker
  uint8_t reserved[4];
};
constexpr uint32_t kBarRecordMarker = 0x42585654;   // "TVXB" in memory order

// Filled by ZARIM_MemoryMap: the buffer map handed out by MasterGetBuffers.
struct MemoryMapInfo {
  uint32_t descriptor_count;
  uint64_t descriptors;    // process address of the first 52-byte descriptor
  uint8_t reserved[8];
};

// One DMA buffer descriptor.
struct BufferDescriptor {
  uint32_t size;            // bytes, a multiple of 128
  uint64_t user_address;    // process address of the buffer
  uint8_t reserved1[8];
  uint32_t bus_address;
  uint8_t reserved2[28];
};

// Filled by ZARIM_GetInterruptInfo.
struct InterruptInfo {
  uint32_t reserved0;
  uint64_t channels;        // process address of the per-channel records
  uint8_t reserved[8];
};

// Per-channel progress kept by the driver.
struct ChannelProgress {
  uint32_t reserved0;
  uint32_t completed;       // buffers completed since the engine was started
  uint8_t reserved[16];
};
#pragma pack(pop)

static_assert(sizeof(PortRequest) == 8);
static_assert(sizeof(BarInfo) == 20);
static_assert(offsetof(BarInfo, marker) == 12);
static_assert(sizeof(MemoryMapInfo) == 20);
static_assert(sizeof(BufferDescriptor) == 52);
static_assert(offsetof(BufferDescriptor, user_address) == 4);
static_assert(offsetof(BufferDescriptor, bus_address) == 20);
static_assert(sizeof(InterruptInfo) == 20);
static_assert(sizeof(ChannelProgress) == 24);
static_assert(offsetof(ChannelProgress, completed) == 4);

// Channel `channel`'s completed count in the progress records at `records`.
inline uint32_t* CompletedCount(uintptr_t records, uint32_t channel) {
  return reinterpret_cast<uint32_t*>(records + size_t(channel) * sizeof(ChannelProgress) +
                                     offsetof(ChannelProgress, completed));
}

extern "C" {
using OpenFn = Handle (*)(uint8_t index);
using CloseFn = int32_t (*)(Handle device);
using ReadFn = int32_t (*)(Handle device, PortRequest* request);
using WriteFn = int32_t (*)(Handle device, PortRequest* request);
using MemoryMapFn = int32_t (*)(Handle device, void* memory_map_info);
using MemoryUnmapFn = int32_t (*)(Handle device, void* reserved);
using BarMapFn = int32_t (*)(Handle device, void* bar_info);
using BarUnmapFn = int32_t (*)(Handle device, void* bar_info);
using GetInterruptInfoFn = int32_t (*)(Handle device, void* interrupt_info);
using DeviceSupportedCountFn = uint32_t (*)();
using GetSlotNumberFn = uint32_t (*)(Handle device);
}

// The names in the order the binding resolves them.
constexpr const char* kFunctionNames[11] = {
    "ZARIM_Open",          "ZARIM_Close",       "ZARIM_Read",     "ZARIM_Write",
    "ZARIM_MemoryMap",     "ZARIM_MemoryUnmap", "ZARIM_BARMap",   "ZARIM_BARUnmap",
    "ZARIM_GetInterruptInfo", "DeviceSupportedCount", "ZARIM_GetSlotNumber"};

constexpr const char* kLibraryName = "zarimio";

}  // namespace tvx::zarimio
