// Identity and temperatures: serial numbers and versions from the module and L-convertor
// EEPROMs, the board and FPGA temperatures from the sensor.
#include "api/frame.h"
#include "board/eeprom.h"
#include "board/sensor.h"

using namespace tvx;

namespace {

const ExportText kModuleSerial{"GetModuleSerialNumber"};
const ExportText kModuleVersion{"GetModuleVersion"};
const ExportText kLConvSerial{"GetLConvertorSerialNumber"};
const ExportText kLConvVersion{"GetLConvertorVersion"};
const ExportText kPcbTemperature{"GetPCBTemperature"};
const ExportText kFpgaTemperature{"GetFPGATemperature"};

// Only the convertors of types 3 to 6 carry an identity in their EEPROM; the two-preselector
// convertor (type 2) has a byte table there and nothing else.
bool CarriesIdentity(uint8_t type) { return type >= 3 && type <= 6; }

// The convertor's type number. Bring-up stores the convertor's GetType answer in the board
// record as soon as the convertor is built; before that the record holds the presence code
// (2 or 3), which already separates the two-preselector convertor from the others, so the
// answer is right at every stage of bring-up.
uint8_t ConvertorType(const ExportCall& call) { return call.board()->LConvertorType; }

int32_t LConvertorIdentity(DeviceId* id, char* text, const ExportText& wording,
                           const char* refusal, uint32_t (cEepromLConv::*read)(char*)) {
  ExportCall call(id, wording);
  cEepromLConv* eeprom = call.Module<cEepromLConv>(Slot::EepromLConv);
  cCommonModule* convertor = call.Module<cCommonModule>(Slot::Convertor);
  if (!eeprom || !convertor || !text) return call.Null();
  // Refused before any bus traffic, and the caller's text is left as it was.
  if (!CarriesIdentity(ConvertorType(call))) return call.Report(-2, "%s", refusal);
  if ((eeprom->*read)(text) != 0) return call.Fail(1, eeprom->GetErrorText());
  return 0;
}

}  // namespace

extern "C" {

// On a failed read the caller's text holds the "no data" preset the read starts with.
TORVIXE_API int32_t GetModuleSerialNumber(DeviceId* id, char* text) {
  ExportCall call(id, kModuleSerial);
  cEepromPCB* eeprom = call.Module<cEepromPCB>(Slot::EepromPcb);
  if (!eeprom || !text) return call.Null();
  if (eeprom->ReadModuleSerialNumber(text) != 0) return call.Fail(1, eeprom->GetErrorText());
  return 0;
}

TORVIXE_API int32_t GetModuleVersion(DeviceId* id, char* text) {
  ExportCall call(id, kModuleVersion);
  cEepromPCB* eeprom = call.Module<cEepromPCB>(Slot::EepromPcb);
  if (!eeprom || !text) return call.Null();
  if (eeprom->ReadModuleVersion(text) != 0) return call.Fail(1, eeprom->GetErrorText());
  return 0;
}

TORVIXE_API int32_t GetLConvertorSerialNumber(DeviceId* id, char* text) {
  return LConvertorIdentity(id, text, kLConvSerial,
                            "SN is not supported for current L-convertor\n",
                            &cEepromLConv::ReadSerialNumber);
}

TORVIXE_API int32_t GetLConvertorVersion(DeviceId* id, char* text) {
  return LConvertorIdentity(id, text, kLConvVersion,
                            "Version is not supported in that L-convertor\n",
                            &cEepromLConv::ReadVersion);
}

TORVIXE_API int32_t GetPCBTemperature(DeviceId* id, float* celsius) {
  ExportCall call(id, kPcbTemperature);
  cSensor* sensor = call.Module<cSensor>(Slot::Sensor);
  if (!sensor || !celsius) return call.Null();
  float value = 0;
  if (sensor->ReadBoardTemperature(&value) != 0) return call.Fail(1, sensor->GetErrorText());
  *celsius = value;
  return 0;
}

TORVIXE_API int32_t GetFPGATemperature(DeviceId* id, float* celsius) {
  ExportCall call(id, kFpgaTemperature);
  cSensor* sensor = call.Module<cSensor>(Slot::Sensor);
  if (!sensor || !celsius) return call.Null();
  float value = 0;
  if (sensor->ReadFpgaTemperature(&value) != 0) return call.Fail(1, sensor->GetErrorText());
  *celsius = value;
  return 0;
}

}  // extern "C"
