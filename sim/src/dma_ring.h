// Completing buffers into a board's mapped DMA memory: what the DMA engine does for each
// buffer it finishes, and what a replay's data events do (dma_engine.cpp).
#pragma once

#include <cstdint>

namespace zsim {

// The mapped DMA memory as buffers are completed into it, fixed while it is mapped.
struct DmaRingView {
  uint8_t* buffers = nullptr;   // channel c's buffer q at (c * buffers_per_channel + q) * size
  void* progress = nullptr;     // the 24-byte records, by channel
  uint32_t buffers_per_channel = 0;
  uint32_t buffer_size = 0;
  uint32_t slot = 0;            // in the payload's header
};

// Channel `channel` has completed buffers `done` to `count` - 1: fills those still in the
// ring (the last ring's worth) with the payload, then publishes `count` as its completed count.
void CompleteBuffers(const DmaRingView& ring, unsigned payload, uint32_t channel, uint64_t done,
                     uint64_t count);
// Stores a channel's completed count after the buffers it announces (release).
void PublishCompleted(void* progress, uint32_t channel, uint32_t count);

}  // namespace zsim
