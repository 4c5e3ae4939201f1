// The board record: it owns the hardware-access object, the configuration object and one
// module object per hardware block, brings the board up in a fixed order and tears it down in
// a fixed order. Exports reach their modules through its slots; an empty slot is a missing
// module.
#pragma once

#include <array>
#include <cstdint>

#include "api/master_cfg.h"
#include "hw/common_module.h"
#include "hw/zarim.h"

namespace tvx {

// Module slots, in the board record's order. The configuration object has a slot of its own
// type (it is no module) but keeps its place in the tear-down order.
enum class Slot : uint8_t {
  Fpga, Ram, Adc, GainFirst, GainSecond, Pll, Carrier, Timing, Filter, IqChCtrl, DmdChCtrl,
  Dma3ChCtrl, Modulation, TimingMode, Attenuator, EepromPcb, EepromLConv, Sensor, Master,
  MasterCfg, Corrector, Simulator, Demultiplexer, IsoConverter, Synthesizer, Convertor,
  CircuitReset, Interface, Count
};

// The demodulator sampling clock in Hz, process-wide: the last bring-up sets it for all boards.
extern double SampleClock;
constexpr double kDefaultSampleClock = 560e6 / 3;

// Builds the hardware-access object of a new board. Unit tests install a factory that hands
// out an in-process stand-in; null restores the real binding.
using IoFactory = cZARIM* (*)();
IoFactory InstallIoFactory(IoFactory factory);

class cBoard;
class cConvertor;
class cDataChannel;
class cEepromLConv;

// Told of every module bring-up stores, right after it fills the slot. Unit tests watch the
// order of construction through it (and may throw from it to leave a bring-up half-way); null,
// the default, watches nothing. Returns the previous observer.
using BuildObserver = void (*)(const cBoard& board, Slot slot);
BuildObserver InstallBuildObserver(BuildObserver observer);

class cBoard {
 public:
  explicit cBoard(uint8_t index) : Index(index) {}
  // Brings the board up; Status and Text tell how far it came. What it built stays in the
  // slots either way, also when it is left by an exception, so that the tear-down releases it.
  void BringUp();
  // The tear-down, in the fixed order. Every step runs even when an earlier one throws (a
  // module, or the binding's unmap and close); the first exception is passed on once
  // everything is released. A second call finds nothing left to do.
  void TearDown();
  // Tears down what TearDown has not, swallowing what it throws.
  ~cBoard();
  cBoard(const cBoard&) = delete;
  cBoard& operator=(const cBoard&) = delete;

  template <class M>
  M* Get(Slot slot) const {
    return static_cast<M*>(Modules[size_t(slot)]);
  }
  // The channel object, or null for a channel number at or beyond the channels built.
  cDataChannel* DataChannel(uint32_t channel) const {
    return channel < DataChannelCount ? DataChannels[channel] : nullptr;
  }

  uint32_t Index = 0;
  int32_t Status = 0;
  uint8_t LConvertorType = 0;
  char Text[256] = {};
  cZARIM* Io = nullptr;
  cMasterCfg* MasterCfg = nullptr;
  uint8_t BoardVariant = 2;

 private:
  bool BringUpIo();
  void ReleaseIo();
  cConvertor* IdentifyConvertor(cEepromLConv* lconv);
  bool LoadSamplingClock();
  void BuildModules();
  void BuildDataChannels();
  template <class M, class... Args>
  M* Build(Slot slot, Args&&... args);

  std::array<cCommonModule*, size_t(Slot::Count)> Modules{};
  cDataChannel** DataChannels = nullptr;
  uint32_t DataChannelCount = 0;
};

}  // namespace tvx
