// The RF front end: the convertor's type and table reload, the sampling-clock synthesizer and
// the ADC loads.
#include "api/frame.h"
#include "board/eeprom.h"
#include "rf/adc.h"
#include "rf/convertor.h"
#include "rf/synthesizer.h"

using namespace tvx;

namespace {
const ExportText kGetLConvertorType{"GetLConvertorType"};
const ExportText kInitLConvertorVList{"InitLConvertorVList"};
// A module failure has no line end.
const ExportText kSSynthLoad{"sSynthLoad", true, false};
const ExportText kADCLoad{"ADCLoad"};
const ExportText kADCLoadMulti{"ADCLoadMulti"};

int32_t LoadAdc(DeviceId* id, const ExportText& text, int32_t (cADC::*load)()) {
  ExportCall call(id, text);
  cADC* adc = call.Module<cADC>(Slot::Adc);
  if (!adc) return call.Null();
  if ((adc->*load)() != 0) return call.Fail(2, adc->GetErrorText());
  return 0;
}
}  // namespace

extern "C" {

TORVIXE_API int32_t GetLConvertorType(DeviceId* id, uint8_t* type) {
  ExportCall call(id, kGetLConvertorType);
  cConvertor* convertor = call.Module<cConvertor>(Slot::Convertor);
  if (!convertor || !type) return call.Null();
  *type = convertor->GetType();
  return 0;
}

// Reloads every table from both EEPROMs; on failure the entries read before it keep their
// new values.
TORVIXE_API int32_t InitLConvertorVList(DeviceId* id) {
  ExportCall call(id, kInitLConvertorVList);
  cConvertor* convertor = call.Module<cConvertor>(Slot::Convertor);
  cEepromPCB* pcb = call.Module<cEepromPCB>(Slot::EepromPcb);
  cEepromLConv* lconv = call.Module<cEepromLConv>(Slot::EepromLConv);
  if (!convertor || !pcb || !lconv) return call.Null();
  if (convertor->Init(pcb, lconv) != 0) return call.Fail(1, convertor->GetErrorText());
  return 0;
}

// Reprograms the synthesizer only: SampleClock and the copies modules took of it stay.
TORVIXE_API int32_t sSynthLoad(DeviceId* id, const double* hz) {
  ExportCall call(id, kSSynthLoad);
  cSynthesizer* synthesizer = call.Module<cSynthesizer>(Slot::Synthesizer);
  if (!synthesizer || !hz) return call.Null();
  if (synthesizer->SetSamplingFrequency(hz) != 0) return call.Fail(1, synthesizer->GetErrorText());
  return 0;
}

TORVIXE_API int32_t ADCLoad(DeviceId* id) { return LoadAdc(id, kADCLoad, &cADC::LoadChannel1); }

TORVIXE_API int32_t ADCLoadMulti(DeviceId* id) {
  return LoadAdc(id, kADCLoadMulti, &cADC::LoadChannel2);
}

}  // extern "C"
