// The RF front end: the convertor's type and table reload, the sampling-clock synthesizer, the
// ADC loads and the gain stages.
#include "api/frame.h"
#include "board/eeprom.h"
#include "rf/adc.h"
#include "rf/attenuator.h"
#include "rf/convertor.h"
#include "rf/gain.h"
#include "rf/synthesizer.h"

using namespace tvx;

namespace {
const ExportText kGetLConvertorType{"GetLConvertorType"};
const ExportText kInitLConvertorVList{"InitLConvertorVList"};
// A module failure has no line end.
const ExportText kSSynthLoad{"sSynthLoad", true, false};
const ExportText kADCLoad{"ADCLoad"};
const ExportText kADCLoadMulti{"ADCLoadMulti"};
// The gain exports' messages carry shorter names.
const ExportText kFirstGainControl{"FirstGainCtrl"};
const ExportText kSecondGainControl{"SecondGainCtrl"};
const ExportText kGetGCValues{"GetGCValues"};
const ExportText kGetGCValuesMulti{"GetGCValuesMulti"};

int32_t LoadAdc(DeviceId* id, const ExportText& text, int32_t (cADC::*load)()) {
  ExportCall call(id, text);
  cADC* adc = call.Module<cADC>(Slot::Adc);
  if (!adc) return call.Null();
  if ((adc->*load)() != 0) return call.Fail(2, adc->GetErrorText());
  return 0;
}

// One channel's read-out, in the order the hardware is read. The reserved word is the
// caller's: it carries nothing here. The calibration of a board whose EEPROM cannot be read
// is 0.0 dB (see cEepromPCB::ReadCalibration).
int32_t ReadGains(DeviceId* id, const ExportText& text, GCValues* out, bool second) {
  ExportCall call(id, text);
  cGainFirst* first = call.Module<cGainFirst>(Slot::GainFirst);
  cGainSecond* stage2 = call.Module<cGainSecond>(Slot::GainSecond);
  cAttenuator* attenuator = call.Module<cAttenuator>(Slot::Attenuator);
  if (!first || !stage2 || !attenuator || !out) return call.Null();
  const uint32_t firstCode = second ? first->ReadCodeChannel2() : first->ReadCodeChannel1();
  out->firstGainCode = firstCode;
  const uint32_t attenuatorCode = attenuator->ReadCode();
  out->attenuatorCode = attenuatorCode;
  out->firstGainLevel = first->CodeToLevel(&firstCode);
  out->attenuation = attenuator->CodeToDb(&attenuatorCode);
  const uint32_t secondCode = second ? stage2->ReadCodeChannel2() : stage2->ReadCodeChannel1();
  out->secondGainCode = secondCode;
  out->secondGainLevel = stage2->CodeToDb(&secondCode);
  double calibration = 0.0;
  if (cEepromPCB* pcb = call.Module<cEepromPCB>(Slot::EepromPcb)) pcb->ReadCalibration(&calibration);
  out->totalGain = attenuator->TotalGain(firstCode, calibration);
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

// Both stages always succeed once the checks pass.
TORVIXE_API int32_t FirstGainControl(DeviceId* id, const uint32_t* code) {
  ExportCall call(id, kFirstGainControl);
  cGainFirst* first = call.Module<cGainFirst>(Slot::GainFirst);
  if (!first || !code) return call.Null();
  first->SetCode(code);
  return 0;
}

TORVIXE_API int32_t SecondGainControl(DeviceId* id, const uint32_t* words) {
  ExportCall call(id, kSecondGainControl);
  cGainSecond* stage2 = call.Module<cGainSecond>(Slot::GainSecond);
  if (!stage2 || !words) return call.Null();
  stage2->SetControl(words);
  return 0;
}

TORVIXE_API int32_t GetGCValues(DeviceId* id, GCValues* values) {
  return ReadGains(id, kGetGCValues, values, false);
}

TORVIXE_API int32_t GetGCValuesMulti(DeviceId* id, GCValues* values) {
  return ReadGains(id, kGetGCValuesMulti, values, true);
}

}  // extern "C"
