// The bus master's registers in the INT block: the descriptor table the driver programs and the
// control word that starts and stops the engine, plus the engine's settings and fault keys.
//
//   INT word 5  select: channel << 5 | buffer within the channel
//   INT word 0  bus address of the selected buffer, OR 1 (bit 0 marks it valid)
//   INT word 1  written (0) once per channel: clears the selected channel's geometry
//   INT word 2  geometry of the selected channel: bits 25-31 buffers - 1, bits 0-24 size/128 - 1
//   INT word 3  control: bit 29 runs the engine (bits 30-31 carry the driver's mode), 0 stops it
//
// Reads of the five words return what was written. The block only keeps the table; the engine
// that moves data lives in the virtual board's core (sim/src/dma_engine.cpp), which hears of
// every control write, key change and reset through the listener and checks the table against
// the DMA memory it mapped (Check). In process, without a core, a start stays refused.
#pragma once

#include <atomic>
#include <bitset>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "device.h"

namespace zsim {

constexpr unsigned kDmaMaxChannels = 256;   // the select's channel field; CHCount is below it

// Settings the running engine follows; changes reach it at once.
struct DmaSettings {
  uint32_t rate = 0;                 // buffers per second per channel; 0 = as fast as it can
  std::bitset<kDmaMaxChannels> enabled;
  uint32_t payload = 0;              // ZSIM_PAYLOAD_PRBS / _COUNTER / _ZERO
  bool stall = false;                // complete only stall_after buffers per channel
  uint32_t stall_after = 0;
  uint32_t burst = 1;                // buffers completed per channel and tick, one signal
  uint32_t drop_event = 0;           // skip every Nth signal of a channel; 0 = none
};

// The DMA memory as the driver mapped it, for Check.
struct DmaRing {
  uint32_t channels = 0;
  uint32_t buffers_per_channel = 0;
  uint32_t buffer_size = 0;
  std::vector<uint32_t> bus;         // bus address of descriptor i (channel * buffers + buffer)
};

class DmaMaster : public DeviceModel {
 public:
  enum class Change { kControl, kSettings, kReset };
  // Called under the board's serialisation after the change took effect.
  using Listener = std::function<void(Change)>;

  explicit DmaMaster(unsigned board_index);

  void SetListener(Listener listener) { listener_ = std::move(listener); }
  uint32_t control() const { return control_; }
  bool run_requested() const;
  DmaSettings settings() const;

  // Empty when the programmed table serves `ring`: every channel that has a geometry has
  // exactly the ring's geometry and, for each of its buffers, that descriptor's bus address
  // marked valid. Its channels go to *runnable. Otherwise the first disagreement, in words.
  std::string Check(const DmaRing& ring, std::vector<uint32_t>* runnable) const;

  // What dma.state reports; the core sets it.
  void set_state(std::string state) { state_ = std::move(state); }

  // Per-channel progress since the last start, written by the engine thread while the board
  // is inspected from others: hence atomics.
  struct ChannelStatus {
    std::atomic<uint64_t> completed{0};
    std::atomic<uint64_t> signalled{0};
  };
  ChannelStatus& status(uint32_t channel) { return status_[channel]; }
  // Before a start: the counts begin again at 0, and what they had reached is carried into
  // the totals since reset. Called only while the engine is stopped.
  void ClearStatus();
  // Since the last reset, across every start: what the board's counters follow
  // (stream/counters.cpp). Safe beside a running engine.
  uint64_t completed_since_reset(uint32_t channel) const;
  uint64_t signalled_since_reset() const;   // all channels

  KeyResult Set(const std::string& key, const std::string& value) override;
  bool Get(const std::string& key, std::string* value) const override;
  void KeyNames(std::vector<std::string>* out) const override;

 private:
  void ResetState() override;
  void Notify(Change change) const;
  std::string TableText() const;

  Listener listener_;
  // settings
  uint32_t rate_ = 0;
  bool rate_max_ = false;
  std::bitset<kDmaMaxChannels> enabled_;
  uint32_t payload_ = 0;
  bool stall_ = false;
  uint32_t stall_after_ = 0;
  uint32_t burst_ = 0;
  uint32_t drop_event_ = 0;
  // the table, as programmed
  uint32_t select_ = 0;
  uint32_t control_ = 0;
  std::map<uint32_t, uint32_t> addresses_;   // by select value: channel << 5 | buffer
  std::map<uint32_t, uint32_t> geometry_;    // by channel
  std::string state_;
  ChannelStatus status_[kDmaMaxChannels];
  uint64_t earlier_completed_[kDmaMaxChannels] = {};   // by earlier starts since reset
  uint64_t earlier_signalled_ = 0;
};

}  // namespace zsim
