#include "rf/adc.h"

#include "hw/clock.h"
#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"

namespace tvx {
namespace {

// The converter's instruction word: bit 15 asks for a read, the register address below.
constexpr uint16_t kReadFlag = 0x8000;
constexpr uint16_t kIdRegister = 0x01;
constexpr uint16_t kSpeedRegister = 0x02;
constexpr uint16_t kOutputModeRegister = 0x14;
constexpr uint16_t kUpdateRegister = 0xFF;
constexpr uint16_t kExpectedId = 12;
constexpr uint16_t kSpeedBits = 0x18;     // bits 4-3: 00 and 01 are the grades this board takes
constexpr uint16_t kFastestSpeed = 0x08;
constexpr uint16_t kOutputMode = 1;
constexpr uint16_t kUpdate = 1;
constexpr uint32_t kSettleMs = 10;

}  // namespace

int32_t cADC::ReadRegister(const uint16_t* address, uint16_t* value) {
  if (!address || !value) {
    Format(Text, "%s", kDataPointerNotSet);
    return -1;
  }
  const uint32_t control = Dem(dem::kAdcControl), data = Dem(dem::kAdcData);
  const uint16_t instruction = *address | kReadFlag;
  Io->WritePort(control, dem::kAdcStart);
  for (int i = 15; i >= 0; --i) Io->WritePort(data, (instruction >> i) & 1u);
  Io->WritePort(control, dem::kAdcSwitchToRead);
  uint16_t result = 0;
  for (int i = 7; i >= 0; --i) {
    uint32_t status = 0;
    Io->ReadPort(statusAddress, &status);
    Io->WritePort(data, 0);
    if ((status & dem::kAdcDataLine) != 0) result = uint16_t(result | 1u << i);
  }
  Io->WritePort(control, dem::kAdcEnd);
  *value = result;
  return 0;
}

// Bit 15 of the address goes out as given: the load only writes addresses below 0x100.
int32_t cADC::WriteRegister(const uint16_t* address, const uint16_t* value) {
  if (!address || !value) {
    Format(Text, "%s", kDataPointerNotSet);
    return -1;
  }
  const uint32_t control = Dem(dem::kAdcControl), data = Dem(dem::kAdcData);
  Io->WritePort(control, dem::kAdcStart);
  for (int i = 15; i >= 0; --i) Io->WritePort(data, (*address >> i) & 1u);
  for (int i = 7; i >= 0; --i) Io->WritePort(data, (*value >> i) & 1u);
  Io->WritePort(control, dem::kAdcEnd);
  return 0;
}

int32_t cADC::Load() {
  const uint32_t control = Dem(dem::kAdcControl);
  Io->WritePort(control, dem::kAdcReset);
  Io->WritePort(control, dem::kAdcEnd);
  Clock().SleepMs(kSettleMs);
  uint16_t id = 0, speed = 0;
  ReadRegister(&kIdRegister, &id);
  if (id != kExpectedId) {
    Format(Text, "%s", "АЦП не найден");
    return kNotFound;
  }
  ReadRegister(&kSpeedRegister, &speed);
  if ((speed & 0xFF & kSpeedBits) > kFastestSpeed) {
    Format(Text, "%s", "Неверная скорость АЦП");
    return kWrongSpeed;
  }
  WriteRegister(&kOutputModeRegister, &kOutputMode);
  Clock().SleepMs(kSettleMs);
  WriteRegister(&kUpdateRegister, &kUpdate);
  return 0;
}

int32_t cADC::LoadChannel1() {
  statusAddress = Dem(dem::kChannelStatus);
  return Load();
}

int32_t cADC::LoadChannel2() {
  statusAddress = Dem(dem::kChannel2Status);
  return Load();
}

// A refused read gives 0.
uint32_t cADC::ReadCounter() {
  uint32_t value = 0;
  Io->ReadPort(Dem(dem::kLoopStatus), &value);
  return (value >> dem::kAdcCounterShift) & dem::kAdcCounterMask;
}

}  // namespace tvx
