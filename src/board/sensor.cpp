#include "board/sensor.h"

namespace tvx {
namespace {

// The chip's registers.
constexpr uint8_t kLocalTemperature = 0x00;    // board, whole degrees, unsigned
constexpr uint8_t kRemoteTemperature = 0x01;   // FPGA die, whole degrees, unsigned
constexpr uint8_t kRemoteFraction = 0x10;      // FPGA die, quarter degrees in bits 7-6
constexpr uint8_t kFractionBits = 0xC0;
// Set-up: the three registers the board's design sets once, among them the FPGA die's
// temperature limit.
constexpr uint8_t kSetupRegister = 0x0A;
constexpr uint8_t kLimitRegister = 0x0D;
constexpr uint8_t kSetupRegister2 = 0x22;
constexpr uint8_t kSetupValue = 7;
constexpr uint8_t kLimitValue = 85;   // degrees
constexpr uint8_t kSetupValue2 = 0x82;

constexpr uint8_t kWrite = 0;
constexpr uint8_t kRead = 1;

}  // namespace

cSensor::cSensor(cZARIM* io, uint32_t address) : cI2CBus(io), Address(address) {
  // Each step only after the one before it succeeded; the result goes nowhere.
  if (WriteRegister(kSetupRegister, kSetupValue) == 0 &&
      WriteRegister(kLimitRegister, kLimitValue) == 0)
    WriteRegister(kSetupRegister2, kSetupValue2);
}

uint32_t cSensor::WriteRegister(uint8_t reg, uint8_t value) {
  if (uint32_t r = Start(Address, kWrite)) return r;
  if (uint32_t r = WriteByte(reg)) return r;
  if (uint32_t r = WriteByte(value)) return r;
  return Stop();
}

uint32_t cSensor::ReadRegister(uint8_t reg, uint8_t* value) {
  if (uint32_t r = Start(Address, kWrite)) return r;
  if (uint32_t r = WriteByte(reg)) return r;
  Stop();
  if (uint32_t r = Start(Address, kRead)) return r;
  if (uint32_t r = ReadByte(false, value)) return r;
  return Stop();
}

uint32_t cSensor::ReadBoardTemperature(float* celsius) {
  uint8_t whole = 0;
  if (uint32_t r = ReadRegister(kLocalTemperature, &whole)) return r;
  *celsius = float(whole);
  return 0;
}

uint32_t cSensor::ReadFpgaTemperature(float* celsius) {
  uint8_t whole = 0, fraction = 0;
  if (uint32_t r = ReadRegister(kRemoteTemperature, &whole)) return r;
  if (uint32_t r = ReadRegister(kRemoteFraction, &fraction)) return r;
  // 1/256 of a degree per unit of the 16-bit reading; the fraction's low six bits carry
  // nothing.
  *celsius = float((uint32_t(whole) * 256u | (fraction & kFractionBits)) * 0.00390625);
  return 0;
}

}  // namespace tvx
