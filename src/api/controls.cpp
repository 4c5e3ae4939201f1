#include "api/controls.h"

#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/regs/periph.h"
#include "hw/text.h"

namespace tvx {

// The interface version (2 on this board) plus the presence bit: 2 for the plain convertor,
// 3 for one that carries its own EEPROM.
uint8_t cInterface::GetConvertorCode() {
  uint8_t version = GetVersion();
  return uint8_t(version + GetPresenceBit());
}

uint8_t cInterfaceE::GetPresenceBit() {
  // A failed read leaves the word at 0: no convertor EEPROM is assumed.
  uint32_t word = 0;
  Io->ReadPort(Periph(periph::kPresence), &word);
  return uint8_t(word & periph::kLConvPresentBit);
}

cCircuitResetE::cCircuitResetE(cZARIM* io) : cCircuitReset(io), last_(new uint32_t(0)) {}

cCircuitResetE::~cCircuitResetE() { delete last_; }

int32_t cCircuitResetE::WriteResetWord(const uint32_t* value) {
  Io->WritePort(Dem(dem::kCircuitReset), *value);
  *last_ = *value;
  return 0;
}

int32_t cPLL::Control(uint32_t value) {
  if (!Io) {
    Format(Text, "Не задан модуль интерфейса устройства");
    return 1;
  }
  if (Io->WritePort(Dem(dem::kPllControl), value) != 0) {
    Format(Text, "%s; %s", "Ошибка задания управления ФАПЧ", Io->GetErrorText());
    return 2;
  }
  value_ = value;
  return 0;
}

}  // namespace tvx
