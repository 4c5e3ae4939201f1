// The data path: the DMA bus master, the per-channel reads, the three channel controls, the
// counters and the iso converter's output clock.
#include <exception>

#include "api/frame.h"
#include "demod/modulation.h"
#include "demod/timing.h"
#include "hw/regs.h"
#include "hw/regs/int.h"
#include "rf/adc.h"
#include "stream/channel_controls.h"
#include "stream/data_channel.h"
#include "stream/iso_converter.h"
#include "stream/master.h"

using namespace tvx;

namespace {
const ExportText kMasterGetBuffers{"MasterGetBuffers"};
const ExportText kMasterLoad{"MasterLoad"};
const ExportText kMasterStart{"MasterStart"};
const ExportText kMasterStop{"MasterStop"};
const ExportText kMasterGetInterruptInfo{"MasterGetInterruptInfo"};
const ExportText kIQControl{"IQControl"};
const ExportText kDMDControl{"DMDControl"};
const ExportText kDMA3CHControl{"DMA3CHControl"};
const ExportText kCounters{"Counters"};
const ExportText kISOCVRTSetTiming{"ISOCVRTSetTiming"};
const ExportText kISOCVRTGetLoading{"ISOCVRTGetLoading"};
constexpr const char kNullObjectText[] = "NULL-объект";

template <class M>
int32_t WriteControl(const DeviceId* id, const ExportText& text, Slot slot, const uint32_t* word) {
  ExportCall call(id, text);
  M* control = call.Module<M>(slot);
  if (!control || !word) return call.Null();
  if (control->SetControl(word) != 0) return call.Fail(1, control->GetErrorText());
  return 0;
}
}  // namespace

extern "C" {

// Always 0 once the checks pass: with the memory not mapped the caller's map stays as it was.
// Nothing thrown while copying gets out.
TORVIXE_API int32_t MasterGetBuffers(DeviceId* id, BufferMap* map) {
  ExportCall call(id, kMasterGetBuffers);
  cMaster* master = call.Module<cMaster>(Slot::Master);
  if (!master || !map) return call.Null();
  try {
    master->GetBufferMap(map);
  } catch (...) {
  }
  return 0;
}

TORVIXE_API int32_t MasterLoad(DeviceId* id, const BufferMap* map) {
  ExportCall call(id, kMasterLoad);
  cMaster* master = call.Module<cMaster>(Slot::Master);
  cMasterCfg* config = call.board() ? call.board()->MasterCfg : nullptr;
  if (!master || !config || !map) return call.Null();
  if (master->LoadBuffers(map, config->GetBuffersPerCH()) != 0)
    return call.Fail(1, master->GetErrorText());
  return 0;
}

// Only the two start parameters the engine knows ever reach it.
TORVIXE_API int32_t MasterStart(DeviceId* id, const uint32_t* parameter) {
  ExportCall call(id, kMasterStart);
  cMaster* master = call.Module<cMaster>(Slot::Master);
  if (!master || !parameter) return call.Null();
  if (*parameter != cMaster::kStartA && *parameter != cMaster::kStartB)
    return call.Report(1, "параметр 0x%.8X не поддерживается\n", unsigned(*parameter));
  if (master->StartDma(*parameter) != 0) return call.Fail(2, master->GetErrorText());
  return 0;
}

TORVIXE_API int32_t MasterStop(DeviceId* id) {
  ExportCall call(id, kMasterStop);
  cMaster* master = call.Module<cMaster>(Slot::Master);
  if (!master) return call.Null();
  if (master->StopDma() != 0) return call.Fail(1, master->GetErrorText());
  return 0;
}

// The IO library's own account of a failure stays in the hardware-access object's text; the
// message carries the master module's.
TORVIXE_API int32_t MasterGetInterruptInfo(DeviceId* id, InterruptRecord* record) {
  ExportCall call(id, kMasterGetInterruptInfo);
  cMaster* master = call.Module<cMaster>(Slot::Master);
  if (!master || !record) return call.Null();
  if (master->ReadInterruptInfo(record) != 0) return call.Fail(-2, master->GetErrorText());
  return 0;
}

// No frame text of its own: the channel's result is returned as it is.
TORVIXE_API int32_t ReadChannelData(DeviceId* id, uint32_t channel, uint8_t* buffer, uint32_t size,
                                    uint32_t* bytesRead, uint32_t timeout) {
  try {
    cBoard* board = id && id->Index < kBoardCount ? BoardTable[id->Index] : nullptr;
    cDataChannel* data = board ? board->DataChannel(channel) : nullptr;
    if (!data || !buffer || !bytesRead) {
      if (id)
        SetLastErrorText("%s [%d] ChannelID %d: %s", "ReadChannelData", int(id->Index),
                         int(channel), kNullText);
      else
        SetLastErrorText("%s ChannelID %u: %s", "ReadChannelData", unsigned(channel), kNullText);
      return 1;
    }
    return data->ReadData(buffer, size, bytesRead, timeout);
  } catch (const std::exception& e) {
    SetLastErrorText("%s routine exception: %s", "ReadChannelData", e.what());
    return -100;
  }
}

TORVIXE_API int32_t IQControl(DeviceId* id, const uint32_t* control) {
  return WriteControl<cIQCHCtrl>(id, kIQControl, Slot::IqChCtrl, control);
}

TORVIXE_API int32_t DMDControl(DeviceId* id, const uint32_t* control) {
  return WriteControl<cDMDCHCtrl>(id, kDMDControl, Slot::DmdChCtrl, control);
}

TORVIXE_API int32_t DMA3CHControl(DeviceId* id, const uint32_t* control) {
  return WriteControl<cDMA3CHCtrl>(id, kDMA3CHControl, Slot::Dma3ChCtrl, control);
}

// Each field as soon as its read returns; INT word 24 goes straight into the record, so a read
// the binding refuses leaves the caller's value there.
TORVIXE_API int32_t Counters(DeviceId* id, CountersRecord* out) {
  ExportCall call(id, kCounters);
  cIQCHCtrl* iq = call.Module<cIQCHCtrl>(Slot::IqChCtrl);
  cDMDCHCtrl* dmd = call.Module<cDMDCHCtrl>(Slot::DmdChCtrl);
  cADC* adc = call.Module<cADC>(Slot::Adc);
  if (!iq || !dmd || !adc || !out) return call.Null();
  out->IqCount = iq->GetCounter();
  out->DmdCount = dmd->GetCounter();
  out->AdcCount = adc->ReadCounter();
  uint32_t value = out->IntCount;
  if (call.board()->Io->ReadPort(Int(int_regs::kCounter), &value) == 0) out->IntCount = value;
  return 0;
}

TORVIXE_API int32_t ISOCVRTSetTiming(DeviceId* id, const float* first, const float* second) {
  ExportCall call(id, kISOCVRTSetTiming);
  cIsoConverter* iso = call.Module<cIsoConverter>(Slot::IsoConverter);
  if (!iso || !first || !second) return call.Null();
  cModulation* m = call.Module<cModulation>(Slot::Modulation);
  cTiming* timing = call.Module<cTiming>(Slot::Timing);
  if (!m || !timing) return call.Null(-2, kNullObjectText);
  if (int32_t r = iso->SetOutputClock(m->GetBitsPerSymbol(), timing->GetSymbolRate(), *first, *second))
    return call.Fail(r, iso->GetErrorText());
  return 0;
}

TORVIXE_API int32_t ISOCVRTGetLoading(DeviceId* id, uint32_t* loading) {
  ExportCall call(id, kISOCVRTGetLoading);
  cIsoConverter* iso = call.Module<cIsoConverter>(Slot::IsoConverter);
  if (!iso || !loading) return call.Null();
  *loading = uint32_t(iso->GetLoading());
  return 0;
}

}  // extern "C"
