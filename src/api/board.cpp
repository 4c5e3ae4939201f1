#include "api/board.h"

#include <cstring>
#include <exception>

#include "api/controls.h"
#include "board/eeprom.h"
#include "board/fpga.h"
#include "board/ram.h"
#include "board/sensor.h"
#include "board/simulator.h"
#include "demod/carrier.h"
#include "demod/corrector.h"
#include "demod/demultiplexer.h"
#include "demod/filter.h"
#include "demod/modulation.h"
#include "demod/timing.h"
#include "hw/driver_parameters.h"
#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"
#include "rf/adc.h"
#include "rf/attenuator.h"
#include "rf/convertor.h"
#include "rf/gain.h"
#include "rf/synthesizer.h"
#include "stream/channel_controls.h"
#include "stream/data_channel.h"
#include "stream/iso_converter.h"
#include "stream/master.h"

namespace tvx {

double SampleClock = 186666666.666667;

namespace {

cZARIM* NewBinding() { return new cZARIM(); }
IoFactory io_factory = NewBinding;

// Returned when the IO library is missing or incomplete; CreateDeviceInstance turns every
// nonzero status into 1, so the value only has to differ from the open/map codes 1 to 3.
constexpr int32_t kNoLibraryStatus = -1;
// A convertor code the interface module never gives on this board.
constexpr int32_t kUnknownConvertorStatus = -1;
constexpr double kType5SampleClock = 2.8e8;
constexpr uint8_t kCoefficientWidth = 14;
constexpr double kIsoGeneratorLimit = 9.4e7;
constexpr uint32_t kEqualizerTaps = 13;

BuildObserver build_observer = nullptr;

constexpr Slot kTearDownOrder[] = {
    Slot::Fpga,       Slot::Ram,          Slot::Adc,          Slot::Convertor,
    Slot::GainFirst,  Slot::GainSecond,   Slot::Pll,          Slot::Carrier,
    Slot::Timing,     Slot::Filter,       Slot::IqChCtrl,     Slot::DmdChCtrl,
    Slot::Dma3ChCtrl, Slot::Modulation,   Slot::TimingMode,   Slot::Attenuator,
    Slot::EepromPcb,  Slot::EepromLConv,  Slot::Sensor,       Slot::Master,
    Slot::MasterCfg,  Slot::Synthesizer,  Slot::Corrector,    Slot::Simulator,
    Slot::Demultiplexer, Slot::IsoConverter, Slot::CircuitReset, Slot::Interface};
static_assert(sizeof kTearDownOrder / sizeof kTearDownOrder[0] == size_t(Slot::Count));

}  // namespace

IoFactory InstallIoFactory(IoFactory factory) {
  IoFactory previous = io_factory;
  io_factory = factory ? factory : NewBinding;
  return previous;
}

BuildObserver InstallBuildObserver(BuildObserver observer) {
  BuildObserver previous = build_observer;
  build_observer = observer;
  return previous;
}

template <class M, class... Args>
M* cBoard::Build(Slot slot, Args&&... args) {
  M* module = new M(Io, static_cast<Args&&>(args)...);
  Modules[size_t(slot)] = module;
  if (build_observer) build_observer(*this, slot);
  return module;
}

void cBoard::BringUp() {
  MasterCfg = new cMasterCfg(kDriverService);

  Io = io_factory();
  if (!Io->library_complete()) {
    CopyText(Text, sizeof Text, "Error creating pModule");
    Status = kNoLibraryStatus;
    return;
  }
  if (!BringUpIo()) return;

  SetFpgaBases();
  cInterfaceE* interface = Build<cInterfaceE>(Slot::Interface);
  cEepromPCB* pcb = Build<cEepromPCB>(Slot::EepromPcb, interface);
  cEepromLConv* lconv = Build<cEepromLConv>(Slot::EepromLConv, interface);
  Build<cfpgaE>(Slot::Fpga);
  Build<cRAM>(Slot::Ram, FpgaBases().DemBase);
  Build<cADC>(Slot::Adc, Dem(dem::kChannelStatus));

  LConvertorType = interface->GetConvertorCode();
  SampleClock = kDefaultSampleClock;

  // Without a convertor nothing of the RF path can be set up: the device is released, and
  // what was built stays in its slot for the tear-down.
  cConvertor* convertor = IdentifyConvertor(lconv);
  if (Status != 0) {
    ReleaseIo();
    return;
  }
  LConvertorType = convertor->GetType();
  Status = int32_t(convertor->Init(pcb, lconv));
  if (Status != 0) {
    Format(Text, "Error initializing L-convertor: %s\n", convertor->GetErrorText());
    ReleaseIo();
    return;
  }

  // A sampling clock that does not load leaves the device open and mapped until release.
  if (!LoadSamplingClock()) return;
  BuildModules();
  BuildDataChannels();
}

// Code 2 is the plain two-preselector convertor; code 3 one whose EEPROM carries a version
// that tells the type. The interface module gives no other code on this board; should one
// come, it is reported like an identification that failed.
cConvertor* cBoard::IdentifyConvertor(cEepromLConv* lconv) {
  if (LConvertorType == 2) {
    const double low = 9e8, high = 2.1e9;
    const uint8_t preselectors = 2;
    const uint32_t points = 26;
    return Build<cConvertor_Type2>(Slot::Convertor, &low, &high, &preselectors, &points);
  }
  if (LConvertorType != 3) {
    Status = kUnknownConvertorStatus;
    Format(Text, "Failed to identify L-convertor: convertor code %d\n", int(LConvertorType));
    return nullptr;
  }
  char version[8] = {};
  if (uint32_t r = lconv->ReadVersion(version)) {
    Status = int32_t(r);
    Format(Text, "Failed to identify L-convertor: %s\n", lconv->GetErrorText());
    return nullptr;
  }
  const double low = 9.5e8, high = 2.15e9;
  const uint8_t preselectors = 1;
  const uint32_t points = 25;
  if (std::strcmp(version, "03") == 0)
    return Build<cConvertor_Type4>(Slot::Convertor, &low, &high, &preselectors, &points);
  if (std::strcmp(version, "04") == 0) {
    SampleClock = kType5SampleClock;
    return Build<cConvertor_Type5>(Slot::Convertor, &low, &high, &preselectors, &points);
  }
  return Build<cConvertor_Type3>(Slot::Convertor, &low, &high, &preselectors, &points);
}

// The fractional-N set-up's result is not looked at: a synthesizer that took none of it fails
// the sampling-clock load that follows.
bool cBoard::LoadSamplingClock() {
  cSynthesizerE* synthesizer = Build<cSynthesizerE>(Slot::Synthesizer, LConvertorType);
  if (LConvertorType == 4)
    synthesizer->Configure(0);
  else if (LConvertorType == 5 || LConvertorType == 6)
    synthesizer->Configure(1);
  Status = int32_t(synthesizer->SetSamplingFrequency(&SampleClock));
  if (Status == 0) return true;
  Format(Text, "Ошибка загрузки S-синтезатора: %s", synthesizer->GetErrorText());
  return false;
}

// Every block in its place, each stored in its slot at once.
void cBoard::BuildModules() {
  Build<cGainFirst>(Slot::GainFirst, &LConvertorType, Dem(dem::kChannelStatus));
  Build<cGainSecondE>(Slot::GainSecond);
  Build<cPLL>(Slot::Pll);
  Build<cCarrierE>(Slot::Carrier, SampleClock, Get<cConvertor>(Slot::Convertor));
  Build<cTimingE>(Slot::Timing, &SampleClock, LConvertorType);
  Build<cFilter>(Slot::Filter, kCoefficientWidth);
  Build<cIQCHCtrl>(Slot::IqChCtrl);
  Build<cDMDCHCtrl>(Slot::DmdChCtrl);
  Build<cDMA3CHCtrl>(Slot::Dma3ChCtrl);
  Build<cModulation>(Slot::Modulation);
  Build<cTimingMode>(Slot::TimingMode);
  Build<cAttenuator>(Slot::Attenuator, LConvertorType);
  Build<cSensor>(Slot::Sensor);
  Build<cMasterE>(Slot::Master);
  Build<cCorrectorE>(Slot::Corrector, &kEqualizerTaps);
  Build<cSimulator>(Slot::Simulator, SampleClock);
  Build<cDemultiplexer>(Slot::Demultiplexer);
  Build<cIsoConverter>(Slot::IsoConverter, &SampleClock, kIsoGeneratorLimit);
  Build<cCircuitResetE>(Slot::CircuitReset);
}

// One channel object per configured channel; the array is counted as it fills, so the
// tear-down releases exactly what was built even if an allocation throws half-way.
void cBoard::BuildDataChannels() {
  const uint32_t channels = MasterCfg->GetCHCount();
  DataChannels = new cDataChannel*[channels]();
  for (uint32_t c = 0; c < channels; ++c) {
    DataChannels[c] = new cDataChannel(uint8_t(Index), uint8_t(c), Io, MasterCfg);
    DataChannelCount = c + 1;
  }
}

bool cBoard::BringUpIo() {
  if (Io->Open(uint8_t(Index)) != 0) {
    Format(Text, "Отказ открытия устройства [%d]: %s", int(Index), Io->GetErrorText());
    Status = 1;
    return false;
  }
  if (Io->MemoryMap() != 0) {
    Format(Text, "Отказ маппирования памяти устройства [%d]: %s", int(Index), Io->GetErrorText());
    Status = 2;
    return false;
  }
  if (Io->BARMap() != 0) {
    Format(Text, "Отказ маппирования BAR устройства [%d]: %s", int(Index), Io->GetErrorText());
    Status = 3;
    return false;
  }
  return true;
}

// Results are not checked: release goes on whatever the IO library answers. A device closed
// once (a bring-up that released it) is not closed again: its handle may by then name
// something else.
void cBoard::ReleaseIo() {
  if (Io->memory_mapped()) Io->MemoryUnmap();
  if (Io->bar_mapped()) Io->BARUnmap();
  if (Io->opened()) Io->Close();
}

void cBoard::TearDown() {
  std::exception_ptr first;
  auto step = [&first](auto&& action) {
    try {
      action();
    } catch (...) {
      if (!first) first = std::current_exception();
    }
  };
  for (Slot slot : kTearDownOrder) {
    if (slot == Slot::MasterCfg) {
      step([this] {
        cMasterCfg* config = MasterCfg;
        MasterCfg = nullptr;
        delete config;
      });
      continue;
    }
    step([this, slot] {
      cCommonModule* module = Modules[size_t(slot)];
      Modules[size_t(slot)] = nullptr;
      delete module;
    });
  }
  for (uint32_t c = 0; c < DataChannelCount; ++c)
    step([this, c] {
      cDataChannel* channel = DataChannels[c];
      DataChannels[c] = nullptr;
      delete channel;
    });
  delete[] DataChannels;
  DataChannels = nullptr;
  DataChannelCount = 0;
  if (Io) {
    // An incomplete binding never opened anything and has no functions to call. Each call
    // runs even when the one before it threw.
    if (Io->library_complete()) {
      step([this] { if (Io->memory_mapped()) Io->MemoryUnmap(); });
      step([this] { if (Io->bar_mapped()) Io->BARUnmap(); });
      step([this] { if (Io->opened()) Io->Close(); });
    }
    cZARIM* io = Io;
    Io = nullptr;
    delete io;
  }
  if (first) std::rethrow_exception(first);
}

cBoard::~cBoard() {
  try {
    TearDown();
  } catch (...) {
    // Already on the way out of a failed bring-up, or released by a caller who was told.
  }
}

}  // namespace tvx
