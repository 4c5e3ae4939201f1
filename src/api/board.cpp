#include "api/board.h"

#include "api/controls.h"
#include "board/eeprom.h"
#include "board/fpga.h"
#include "board/ram.h"
#include "board/sensor.h"
#include "board/simulator.h"
#include "hw/driver_parameters.h"
#include "hw/regs.h"
#include "hw/text.h"
#include "stream/channel_controls.h"
#include "stream/data_channel.h"
#include "stream/master.h"

namespace tvx {

double SampleClock = 186666666.666667;

namespace {

cZARIM* NewBinding() { return new cZARIM(); }
IoFactory io_factory = NewBinding;

// Returned when the IO library is missing or incomplete; CreateDeviceInstance turns every
// nonzero status into 1, so the value only has to differ from the open/map codes 1 to 3.
constexpr int32_t kNoLibraryStatus = -1;

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

template <class M, class... Args>
M* cBoard::Build(Slot slot, Args&&... args) {
  M* module = new M(Io, static_cast<Args&&>(args)...);
  Modules[size_t(slot)] = module;
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
  Build<cEepromPCB>(Slot::EepromPcb, interface);
  Build<cEepromLConv>(Slot::EepromLConv, interface);
  Build<cfpgaE>(Slot::Fpga);
  Build<cRAM>(Slot::Ram, FpgaBases().DemBase);

  LConvertorType = interface->GetConvertorCode();
  SampleClock = kDefaultSampleClock;

  Build<cPLL>(Slot::Pll);
  Build<cIQCHCtrl>(Slot::IqChCtrl);
  Build<cDMDCHCtrl>(Slot::DmdChCtrl);
  Build<cDMA3CHCtrl>(Slot::Dma3ChCtrl);
  Build<cSensor>(Slot::Sensor);
  Build<cMasterE>(Slot::Master);
  Build<cSimulator>(Slot::Simulator, SampleClock);
  Build<cCircuitResetE>(Slot::CircuitReset);

  // One channel object per configured channel; the array is counted as it fills, so the
  // destructor releases exactly what was built even if an allocation throws half-way.
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

// Results are not checked: release goes on whatever the IO library answers.
void cBoard::ReleaseIo() {
  if (Io->memory_mapped()) Io->MemoryUnmap();
  if (Io->bar_mapped()) Io->BARUnmap();
  Io->Close();
}

cBoard::~cBoard() {
  for (Slot slot : kTearDownOrder) {
    if (slot == Slot::MasterCfg) {
      delete MasterCfg;
      MasterCfg = nullptr;
      continue;
    }
    delete Modules[size_t(slot)];
    Modules[size_t(slot)] = nullptr;
  }
  for (uint32_t c = 0; c < DataChannelCount; ++c) delete DataChannels[c];
  delete[] DataChannels;
  DataChannels = nullptr;
  DataChannelCount = 0;
  if (Io) {
    // An incomplete binding never opened anything and has no functions to call.
    if (Io->library_complete()) ReleaseIo();
    delete Io;
  }
}

}  // namespace tvx
