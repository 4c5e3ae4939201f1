// The board's data counters: free-running counts that move while data flows, for a monitoring
// program to see that the stream is alive.
//
//   DEM word 10, read   bits 15-8 the IQ channel's counter, bits 7-0 the demodulated-data
//                       channel's; bits 31-16 read 0 (DEM word 10's writes are filter taps)
//   DEM word 8, read    bits 15-8 the ADC's counter byte (the word's other bits are the
//                       attenuator's and the demodulator's)
//   INT word 24         the interrupts the bus master has raised; a write presets it
//
// The IQ samples travel on DMA channel 0 and the demodulated data on channel 1, so their
// counters are those channels' completed buffers since reset, modulo 256. The ADC's counter
// moves once per 17 buffers completed on any channel (one round of the board's 17 channels),
// from `adc.counter`. The interrupt counter counts the data events the engine signalled: one
// per completion it announced, so a burst counts once and a dropped event not at all.
//
// The engine runs in a thread of its own that never takes the board's lock, and its counts are
// atomics; the counters are derived from them when read, never stored by that thread.
#include "devices.h"
#include "regs.h"
#include "stream/dma_master.h"

namespace zsim {
namespace {

constexpr uint32_t kIqChannel = 0, kDmdChannel = 1;
constexpr uint64_t kBuffersPerAdcStep = 17;
constexpr uint32_t kAdcCounterBits = 0xFF00;

class Counters : public DeviceModel {
 public:
  Counters(unsigned board_index, const DmaMaster& master)
      : DeviceModel("counters", board_index), master_(master) {
    OnRead(Dem(10), [this](uint32_t, bool) { return Iq() << 8 | Dmd(); });
    OnRead(Dem(8), [this](uint32_t, bool) { return Adc() << 8; }, kAdcCounterBits);
    OnRead(Int(24), [this](uint32_t, bool) { return Interrupts(); });
    OnWrite(Int(24), [this](uint32_t value) {
      preset_ = value;
      mark_ = master_.signalled_since_reset();
    });
  }

  bool Get(const std::string& key, std::string* value) const override {
    if (key == "counters.iq") *value = FormatDecimal(Iq());
    else if (key == "counters.dmd") *value = FormatDecimal(Dmd());
    else if (key == "counters.adc") *value = FormatDecimal(Adc());
    else if (key == "counters.int") *value = FormatDecimal(Interrupts());
    else return DeviceModel::Get(key, value);
    return true;
  }

 private:
  void ResetState() override { preset_ = 0, mark_ = 0; }

  uint32_t Iq() const { return uint32_t(master_.completed_since_reset(kIqChannel) & 0xFF); }
  uint32_t Dmd() const { return uint32_t(master_.completed_since_reset(kDmdChannel) & 0xFF); }

  uint32_t Adc() const {
    uint64_t all = 0;
    for (uint32_t c = 0; c < kDmaMaxChannels; ++c) all += master_.completed_since_reset(c);
    std::string offset;
    uint32_t base = 0;
    if (BoardKey("adc.counter", &offset)) ParseU32(offset, &base);
    return uint32_t((base + all / kBuffersPerAdcStep) & 0xFF);
  }

  uint32_t Interrupts() const {
    return uint32_t(preset_ + (master_.signalled_since_reset() - mark_));
  }

  const DmaMaster& master_;
  uint32_t preset_ = 0;   // the last value written to INT word 24
  uint64_t mark_ = 0;     // the interrupts raised before that write
};

}  // namespace

std::unique_ptr<DeviceModel> MakeCounters(unsigned board_index, const DmaMaster& master) {
  return std::make_unique<Counters>(board_index, master);
}

}  // namespace zsim
