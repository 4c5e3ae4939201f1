// FPGA loading, the on-board RAM and the signal simulator.
#include <exception>

#include "api/controls.h"
#include "api/frame.h"
#include "board/fpga.h"
#include "board/ram.h"
#include "board/simulator.h"

using namespace tvx;

namespace {
const ExportText kFpgaLoad{"FPGALoad"};
const ExportText kRamLoad{"RAMLoad"};
const ExportText kSimulatorLoad{"SimulatorLoad"};
const ExportText kSimulatorControl{"SimulatorControl"};
const ExportText kSimulatorSetCarrier{"SimulatorSetCarrier"};
const ExportText kSimulatorSetTiming{"SimulatorSetTiming"};
}  // namespace

extern "C" {

TORVIXE_API int32_t FPGALoad(DeviceId* id, const char* fpgaName, const char* fileName) {
  ExportCall call(id, kFpgaLoad);
  cfpgaE* fpga = call.Module<cfpgaE>(Slot::Fpga);
  // Both names are checked before either is looked at.
  if (!fpga || !call.Module<cInterfaceE>(Slot::Interface) || !fpgaName || !fileName)
    return call.Null();
  // Whatever is thrown on the way (an allocation while the file is opened, a failing clock)
  // ends the call with its text and result 0, as callers of this export have always seen it.
  try {
    const FpgaDevice* device = FindFpgaDevice(fpgaName);
    if (!device) return call.Report(2, "ПЛИС %s не опознана\n", fpgaName);
    fpga->Select(*device);
    if (fpga->Load(fileName) != 0)
      return call.Report(3, "\"%s\" - %s\n", fpgaName, fpga->GetErrorText());
    return 0;
  } catch (const std::exception& e) {
    SetLastErrorText("FPGALoad [%d] exception, %s: %s\n", call.index(), fpgaName, e.what());
  } catch (...) {
    SetLastErrorText("FPGALoad [%d] unknown exception, %s\n", call.index(), fpgaName);
  }
  return 0;
}

// `mode` selects nothing on this board variant.
TORVIXE_API int32_t RAMLoad(DeviceId* id, const char* fileName, uint8_t /*mode*/) {
  ExportCall call(id, kRamLoad);
  cRAM* ram = call.Module<cRAM>(Slot::Ram);
  if (!ram || !fileName) return call.Null(-1, "NULL-объект");
  if (ram->LoadFile(fileName) != 0) return call.Fail(-3, ram->GetErrorText());
  return 0;
}

// The module's code is the result; its message stays in the module's own text.
TORVIXE_API int32_t SimulatorLoad(DeviceId* id, const char* fileName) {
  ExportCall call(id, kSimulatorLoad);
  cSimulator* simulator = call.Module<cSimulator>(Slot::Simulator);
  if (!simulator || !fileName) return call.Null();
  return simulator->LoadSimPattern(fileName);
}

TORVIXE_API int32_t SimulatorControl(DeviceId* id, const uint32_t* control) {
  ExportCall call(id, kSimulatorControl);
  cSimulator* simulator = call.Module<cSimulator>(Slot::Simulator);
  if (!simulator || !control) return call.Null();
  simulator->SetSimEnable(*control);
  return 0;
}

// Both always answer 0 and leave LastErrorText alone: every finite value is made to fit its
// register (see cSimulator), and a value that names no frequency or rate at all writes
// nothing, its reason kept in the module's own text.
TORVIXE_API int32_t SimulatorSetCarrier(DeviceId* id, const double* hz) {
  ExportCall call(id, kSimulatorSetCarrier);
  cSimulator* simulator = call.Module<cSimulator>(Slot::Simulator);
  if (!simulator || !hz) return call.Null();
  simulator->SetSimCarrier(*hz);
  return 0;
}

TORVIXE_API int32_t SimulatorSetTiming(DeviceId* id, const double* sps) {
  ExportCall call(id, kSimulatorSetTiming);
  cSimulator* simulator = call.Module<cSimulator>(Slot::Simulator);
  if (!simulator || !sps) return call.Null();
  simulator->SetSimRate(*sps);
  return 0;
}

}  // extern "C"
