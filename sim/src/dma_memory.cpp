// What the kernel driver would set up for the DMA engine: the buffer descriptors, the buffers
// behind them, the per-channel progress records the library polls, and one named data event
// per channel. The geometry comes from the driver's service key, read the way the library
// reads it, so that both sides agree on how many buffers each channel has.
#include <cstdio>
#include <cstring>

#include "board.h"

namespace zsim {

namespace {

using tvx::zarimio::BufferDescriptor;
using tvx::zarimio::ChannelProgress;

constexpr size_t kProgressAlignment = 64;

// Fake bus addresses, distinct across boards and buffers and 128-byte aligned, that name their
// buffer: 0x1BBnnnn0 with board BB and buffer index n in bits 7 to 19. The buffer index is
// below 255 * 32 = 8160 < 8192, so it fits its 13 bits.
uint32_t BusAddress(unsigned board, uint32_t buffer) {
  return 0x10000000u | uint32_t(board & 0xFF) << 20 | (buffer & 0x1FFF) << 7;
}

size_t RoundUp(size_t value, size_t unit) { return (value + unit - 1) / unit * unit; }

}  // namespace

uint32_t MapDmaMemory(Board& board) {
  DmaMemory& dma = board.dma;
  const uint32_t channels = board.params.channel_count;
  const uint32_t per_channel = board.params.buffers_per_channel;
  const uint32_t buffer_size = board.model.dma_buffer_size();
  const size_t count = size_t(channels) * per_channel;

  const size_t progress_offset = RoundUp(count * sizeof(BufferDescriptor), kProgressAlignment);
  const size_t control_size = progress_offset + channels * sizeof(ChannelProgress) + 1;
  const size_t buffers_size = count * buffer_size + 1;
  void* control = tvx::os::AllocatePages(control_size);
  void* buffers = control ? tvx::os::AllocatePages(buffers_size) : nullptr;
  if (buffers == nullptr) {
    if (control) tvx::os::FreePages(control, control_size);
    return kErrorNotEnoughMemory;
  }

  dma.mapped = true;
  dma.channels = channels;
  dma.buffers_per_channel = per_channel;
  dma.buffer_size = buffer_size;
  dma.control = control;
  dma.control_size = control_size;
  dma.buffers = buffers;
  dma.buffers_size = buffers_size;
  dma.descriptors = static_cast<BufferDescriptor*>(control);
  dma.progress = reinterpret_cast<ChannelProgress*>(static_cast<uint8_t*>(control) + progress_offset);

  // The pages come zeroed, so every reserved field and every completed count starts at 0.
  for (size_t i = 0; i < count; ++i) {
    BufferDescriptor& d = dma.descriptors[i];
    d.size = buffer_size;
    d.user_address = reinterpret_cast<uintptr_t>(static_cast<uint8_t*>(buffers) + i * buffer_size);
    d.bus_address = BusAddress(board.index, uint32_t(i));
  }
  return 0;
}

void UnmapDmaMemory(Board& board) {
  DmaMemory& dma = board.dma;
  if (!dma.mapped) return;
  tvx::os::FreePages(dma.buffers, dma.buffers_size);
  tvx::os::FreePages(dma.control, dma.control_size);
  dma = DmaMemory{};
}

uint32_t CreateDataEvents(Board& board) {
  const uint32_t slot = board.model.slot();
  for (uint32_t c = 0; c < board.params.channel_count; ++c) {
    char name[64];
    // Formatted exactly as the library formats the name it opens, signed conversions included.
    std::snprintf(name, sizeof name, "Global\\zarim%devnt%d", int(slot), int(c));
    tvx::os::Event event = tvx::os::CreateNamedEvent(name);
    if (event == nullptr) {
      const uint32_t error = tvx::os::LastError();
      CloseDataEvents(board);
      return error != 0 ? error : kErrorNotEnoughMemory;
    }
    board.events.push_back(event);
  }
  return 0;
}

void CloseDataEvents(Board& board) {
  for (tvx::os::Event event : board.events) tvx::os::CloseEvent(event);
  board.events.clear();
}

}  // namespace zsim
