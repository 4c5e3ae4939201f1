// The demodulator chain: signal type and its tables, symbol timing, carrier tuning, the channel
// filter, the equalizer, the demultiplexer and the bit-status word.
#include <cstring>

#include "api/frame.h"
#include "demod/carrier.h"
#include "demod/corrector.h"
#include "demod/demultiplexer.h"
#include "demod/filter.h"
#include "demod/modulation.h"
#include "demod/timing.h"
#include "stream/channel_controls.h"

using namespace tvx;

namespace {
const ExportText kSetSignalType{"SetSignalType"};
const ExportText kGetSignalParameters{"GetSignalParameters"};
// A module failure has no line end.
const ExportText kLoadPackMode{"LoadPackMode", true, false};
const ExportText kSetTiming{"SetTiming"};
const ExportText kGetTimingControl{"GetTimingControl"};
const ExportText kMeasureTiming{"MeasureTiming"};
const ExportText kSetTimingMode{"SetTimingMode"};
const ExportText kSetCarrier{"SetCarrier", true, false};
const ExportText kSetCarrierMulti{"SetCarrierMulti", true, false};
// Its null message has no line end either.
const ExportText kMeasureCarrier{"MeasureCarrier", false};
const ExportText kFilterLoad{"FilterLoad"};
const ExportText kGetBitStatus{"GetBitStatus"};
const ExportText kEQControl{"EQControl"};
const ExportText kEQErrorTblLoad{"EQErrorTblLoad"};
const ExportText kEQGetCoeff{"EQGetCoeff"};
const ExportText kEQManualCoeffLoad{"EQManualCoeffLoad"};
const ExportText kDMPXLoad{"DMPXLoad"};
const ExportText kDMPXControl{"DMPXControl"};
const ExportText kDMPXStatus{"DMPXStatus"};

// The name and its terminator; the bytes after it are the caller's.
void PutName(char (&field)[32], const char* name) {
  std::memcpy(field, name, std::strlen(name) + 1);
}

int32_t Tune(DeviceId* id, const ExportText& text, const double* hz, bool loadNco) {
  ExportCall call(id, text);
  cCarrier* carrier = call.Module<cCarrier>(Slot::Carrier);
  if (!carrier || !hz) return call.Null();
  if (int32_t r = carrier->SetFrequency(hz, loadNco)) return call.Fail(r, carrier->GetErrorText());
  return 0;
}
}  // namespace

extern "C" {

TORVIXE_API int32_t SetSignalType(DeviceId* id, const uint8_t* modulation, const uint8_t* code_rate,
                                  const uint8_t* coding) {
  ExportCall call(id, kSetSignalType);
  cModulation* m = call.Module<cModulation>(Slot::Modulation);
  if (!m || AnyNull(modulation, code_rate, coding)) return call.Null();
  if (int32_t r = m->SetType(modulation, code_rate, coding)) return call.Fail(r, m->GetErrorText());
  return 0;
}

TORVIXE_API int32_t GetSignalParameters(DeviceId* id, SignalParameters* p) {
  ExportCall call(id, kGetSignalParameters);
  cModulation* m = call.Module<cModulation>(Slot::Modulation);
  if (!m || !p) return call.Null();
  p->Modulation = uint8_t(m->modulation());
  p->CodeRate = uint8_t(m->code_rate());
  PutName(p->TableFileM, m->GetTableFileM());
  PutName(p->TableFileX, m->GetTableFileX());
  PutName(p->TableFileE, m->GetTableFileE());
  PutName(p->TableFileO, m->GetTableFileO());
  p->LevelCode = m->GetLevelCode();
  p->CarrierLockThreshold = m->GetCarrierLockThreshold();
  p->TimingLockThreshold = m->GetTimingLockThreshold();
  p->BitsPerSymbol = uint8_t(m->GetBitsPerSymbol());
  p->ModeCode = uint8_t(m->GetModeCode());
  return 0;
}

TORVIXE_API int32_t LoadPackMode(DeviceId* id, const char* file_name) {
  ExportCall call(id, kLoadPackMode);
  cModulation* m = call.Module<cModulation>(Slot::Modulation);
  if (!m || !file_name) return call.Null();
  if (int32_t r = m->LoadPackTable(file_name)) return call.Fail(r, m->GetErrorText());
  return 0;
}

TORVIXE_API int32_t SetTiming(DeviceId* id, const double* sps) {
  ExportCall call(id, kSetTiming);
  cTiming* timing = call.Module<cTiming>(Slot::Timing);
  cModulation* m = call.Module<cModulation>(Slot::Modulation);
  if (!timing || !m || !sps) return call.Null();
  if (timing->SetSymbolRate(sps, m) != 0) return call.Fail(2, timing->GetErrorText());
  return 0;
}

TORVIXE_API int32_t GetTimingControl(DeviceId* id, TimingControl* control) {
  ExportCall call(id, kGetTimingControl);
  cTiming* timing = call.Module<cTiming>(Slot::Timing);
  if (!timing || !control) return call.Null();
  timing->GetControl(control);
  return 0;
}

TORVIXE_API int32_t MeasureTiming(DeviceId* id, uint64_t, double* sps) {
  ExportCall call(id, kMeasureTiming);
  cTiming* timing = call.Module<cTiming>(Slot::Timing);
  if (!timing || !sps) return call.Null();
  *sps = timing->MeasureSymbolRate();
  return 0;
}

TORVIXE_API int32_t SetTimingMode(DeviceId* id, const uint32_t* mode) {
  ExportCall call(id, kSetTimingMode);
  cTimingMode* timing_mode = call.Module<cTimingMode>(Slot::TimingMode);
  if (!timing_mode || !mode) return call.Null();
  timing_mode->SetMode(mode);
  return 0;
}

TORVIXE_API int32_t SetCarrier(DeviceId* id, const double* hz) {
  return Tune(id, kSetCarrier, hz, true);
}

TORVIXE_API int32_t SetCarrierMulti(DeviceId* id, const double* hz) {
  return Tune(id, kSetCarrierMulti, hz, false);
}

TORVIXE_API int32_t MeasureCarrier(DeviceId* id, uint64_t, double* hz) {
  ExportCall call(id, kMeasureCarrier);
  cCarrier* carrier = call.Module<cCarrier>(Slot::Carrier);
  cTiming* timing = call.Module<cTiming>(Slot::Timing);
  if (!carrier || !timing || !hz) return call.Null();
  *hz = carrier->MeasureFrequency(timing->GetSymbolRate());
  return 0;
}

// The third pointer is only required, never read.
TORVIXE_API int32_t FilterLoad(DeviceId* id, const char* directory, const uint8_t* shape,
                               const void* reserved) {
  ExportCall call(id, kFilterLoad);
  cFilter* filter = call.Module<cFilter>(Slot::Filter);
  cTiming* timing = call.Module<cTiming>(Slot::Timing);
  if (!filter || !timing || !directory || !shape || !reserved) return call.Null();
  if (filter->SetDirectory(directory) != 0 ||
      filter->LoadCoefficientFile(*shape, timing->GetDecimation()) != 0)
    return call.Fail(-2, filter->GetErrorText());
  return 0;
}

// Only bits 0, 1, 4 and 6 of the caller's word change; each threshold is fetched right before
// its lock test.
TORVIXE_API int32_t GetBitStatus(DeviceId* id, uint32_t* status) {
  ExportCall call(id, kGetBitStatus);
  cCarrier* carrier = call.Module<cCarrier>(Slot::Carrier);
  cTiming* timing = call.Module<cTiming>(Slot::Timing);
  cModulation* m = call.Module<cModulation>(Slot::Modulation);
  cIQCHCtrl* iq = call.Module<cIQCHCtrl>(Slot::IqChCtrl);
  cDMDCHCtrl* dmd = call.Module<cDMDCHCtrl>(Slot::DmdChCtrl);
  if (!carrier || !timing || !m || !iq || !dmd || !status) return call.Null();
  uint32_t word = *status & ~(1u << 0 | 1u << 1 | 1u << 4 | 1u << 6);
  const uint32_t carrier_threshold = uint32_t(m->GetCarrierLockThreshold());
  if (carrier->IsLocked(&carrier_threshold)) word |= 1u << 0;
  const uint32_t timing_threshold = m->GetTimingLockThreshold();
  if (timing->IsLocked(&timing_threshold)) word |= 1u << 1;
  if (iq->GetStatusBit() != 0) word |= 1u << 4;
  if (dmd->GetStatusBit() != 0) word |= 1u << 6;
  *status = word;
  return 0;
}

TORVIXE_API int32_t EQControl(DeviceId* id, const uint32_t* word) {
  ExportCall call(id, kEQControl);
  cCorrector* eq = call.Module<cCorrector>(Slot::Corrector);
  if (!eq || !word) return call.Null();
  if (eq->SetControl(word) != 0) return call.Fail(1, eq->GetErrorText());
  return 0;
}

TORVIXE_API int32_t EQErrorTblLoad(DeviceId* id, const char* file_name) {
  ExportCall call(id, kEQErrorTblLoad);
  cCorrector* eq = call.Module<cCorrector>(Slot::Corrector);
  if (!eq || !file_name) return call.Null();
  if (int32_t r = eq->LoadErrorTable(file_name)) return call.Fail(r, eq->GetErrorText());
  return 0;
}

// The caller's arrays are written for as many taps as the count reports (at most 13). Arrays
// that are not there, where there are taps to go through them, take the null path like a
// missing block: nothing is written, not even the count.
TORVIXE_API int32_t EQGetCoeff(DeviceId* id, EqCoefficients* block) {
  ExportCall call(id, kEQGetCoeff);
  cCorrector* eq = call.Module<cCorrector>(Slot::Corrector);
  if (!eq || !block) return call.Null();
  if (eq->tap_count() != 0 && AnyNull(block->FirstValues, block->SecondValues)) return call.Null();
  block->Count = eq->tap_count();
  eq->ReadCoefficients(block->FirstValues, block->SecondValues);
  return 0;
}

// The count is held to the 13 taps (see cCorrector::set_tap_count); the caller's arrays are read
// for that many, and missing ones (with taps to read) take the null path, the count unchanged.
TORVIXE_API int32_t EQManualCoeffLoad(DeviceId* id, const EqCoefficients* block) {
  ExportCall call(id, kEQManualCoeffLoad);
  cCorrector* eq = call.Module<cCorrector>(Slot::Corrector);
  if (!eq || !block) return call.Null();
  if (block->Count != 0 && AnyNull(block->FirstValues, block->SecondValues)) return call.Null();
  eq->set_tap_count(block->Count);
  eq->LoadCoefficients(block->FirstValues, block->SecondValues);
  return 0;
}

// A failed load answers its code alone: the reason stays in the module's text.
TORVIXE_API int32_t DMPXLoad(DeviceId* id, const char* file_name) {
  ExportCall call(id, kDMPXLoad);
  cDemultiplexer* dmpx = call.Module<cDemultiplexer>(Slot::Demultiplexer);
  if (!dmpx || !file_name) return call.Null();
  return dmpx->LoadData(file_name);
}

TORVIXE_API int32_t DMPXControl(DeviceId* id, const DmpxControl* control) {
  ExportCall call(id, kDMPXControl);
  cDemultiplexer* dmpx = call.Module<cDemultiplexer>(Slot::Demultiplexer);
  if (!dmpx || !control) return call.Null();
  dmpx->ApplyControl(control);
  return 0;
}

TORVIXE_API int32_t DMPXStatus(DeviceId* id, uint32_t* status) {
  ExportCall call(id, kDMPXStatus);
  cDemultiplexer* dmpx = call.Module<cDemultiplexer>(Slot::Demultiplexer);
  if (!dmpx || !status) return call.Null();
  *status = dmpx->ReadStatus();
  return 0;
}

}  // extern "C"
