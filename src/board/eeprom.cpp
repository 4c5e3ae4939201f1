#include "board/eeprom.h"

#include "api/controls.h"
#include "hw/clock.h"
#include "hw/text.h"

namespace tvx {
namespace {

constexpr uint16_t kLConvEepromAddress = 0xA0;
// The module EEPROM's address when no interface module is there to ask.
constexpr uint16_t kDefaultPcbEepromAddress = 0xA6;

constexpr uint32_t kModuleVersionAddress = 0x0000;
constexpr uint32_t kCalibrationAddress = 0x0010;
constexpr uint32_t kModuleSerialAddress = 0x0100;
constexpr uint32_t kLConvSerialAddress = 0x0080;
constexpr uint32_t kLConvVersionAddress = 0x0084;

constexpr uint8_t kWrite = 0;
constexpr uint8_t kRead = 1;

// Pause after each step of a single-byte read.
constexpr uint32_t kByteReadPauseMs = 10;

constexpr const char kNoData[] = "Н/Д";
constexpr const char kNotAvailable[] = "n/a";

// Two's-complement readings without relying on out-of-range conversions.
int32_t Signed32(uint32_t v) { return v < 0x80000000u ? int32_t(v) : -int32_t(~v) - 1; }
int Signed16(uint16_t v) { return v < 0x8000u ? int(v) : int(v) - 0x10000; }
int Signed8(uint8_t v) { return v < 0x80u ? int(v) : int(v) - 0x100; }

}  // namespace

cFlash::cFlash(cZARIM* io, uint16_t device_address)
    : cI2CBus(io), DeviceAddress(device_address) {}

uint32_t cFlash::SetAddress(uint32_t address, uint32_t length) {
  if (uint32_t r = Start(DeviceAddress, kWrite)) return r;
  if (length == 2)
    if (uint32_t r = WriteByte(uint8_t((address >> 8) & 0xFFu))) return r;
  if (uint32_t r = WriteByte(uint8_t(address & 0xFFu))) return r;
  return Stop();
}

// A random read is an address set, a separate start for reading and one byte. The pauses
// between the steps are the device's: each step is given 10 ms before the next.
uint32_t cFlash::ReadByteAt(uint32_t address, uint32_t length, bool acknowledge, uint8_t* byte) {
  if (uint32_t r = SetAddress(address, length)) return r;
  Clock().SleepMs(kByteReadPauseMs);
  if (uint32_t r = Start(DeviceAddress, kRead)) return r;
  Clock().SleepMs(kByteReadPauseMs);
  if (uint32_t r = ReadByte(acknowledge, byte)) return r;
  Clock().SleepMs(kByteReadPauseMs);
  return Stop();
}

// Both bytes in one sequential read, high byte first, without pauses.
uint32_t cFlash::ReadWordAt(uint32_t address, uint32_t length, uint16_t* word) {
  if (uint32_t r = SetAddress(address, length)) return r;
  if (uint32_t r = Start(DeviceAddress, kRead)) return r;
  uint8_t high = 0, low = 0;
  if (uint32_t r = ReadByte(true, &high)) return r;
  if (uint32_t r = ReadByte(false, &low)) return r;
  Stop();
  *word = uint16_t(high << 8 | low);
  return 0;
}

uint32_t cFlash::ReadMaxVoltage(uint8_t preselector, double* volts) {
  uint16_t word = 0;
  if (uint32_t r = ReadWordAt(2u * preselector, 2, &word)) return r;
  if (word == 0xFFFF) {
    Format(Text, "максимальное напряжение преселектора не записано");
    return kMaxVoltageNotWritten;
  }
  *volts = word / 100.0;
  return 0;
}

// The minimum may lie below zero; no value counts as unwritten.
uint32_t cFlash::ReadMinVoltage(uint8_t preselector, double* volts) {
  uint16_t word = 0;
  if (uint32_t r = ReadWordAt(2u * preselector + 4, 2, &word)) return r;
  *volts = Signed16(word) / 100.0;
  return 0;
}

uint32_t cFlash::ReadControlVoltage(uint8_t entry, double* volts) {
  const uint32_t address = 4u * entry;
  uint8_t high = 0, low = 0;
  if (uint32_t r = ReadByteAt(address, 2, false, &high)) return r;
  Clock().SleepMs(kByteReadPauseMs);
  if (uint32_t r = ReadByteAt(address + 1, 2, false, &low)) return r;
  Clock().SleepMs(kByteReadPauseMs);
  *volts = (high * 256 + low) / 1000.0;
  return 0;
}

// Only the low byte of the address goes out (one-byte addressing), so an index past the
// table wraps inside the device rather than reaching anything else.
uint32_t cFlash::ReadControlByte(uint8_t preselector, uint32_t index, uint8_t* byte) {
  return ReadByteAt(4u * index + preselector - 1u, 1, false, byte);
}

// The gain read-out adds this value without looking at a result, so a failed read must still
// deliver something harmless: 0.0 dB, exactly as on a board that was never calibrated. The
// bus failure's text stays in the module's text.
uint32_t cFlash::ReadCalibration(double* value) {
  uint8_t byte = 0;
  if (ReadByteAt(kCalibrationAddress, 2, false, &byte) != 0) {
    *value = 0.0;
    return 0;
  }
  *value = Signed8(byte) / 10.0;
  return 0;
}

uint32_t cFlash::ReadSerialText(uint32_t base, char* text) {
  CopyText(text, kSerialTextSize, kNoData);
  if (uint32_t r = SetAddress(base, 2)) return r;
  if (uint32_t r = Start(DeviceAddress, kRead)) return r;
  uint32_t value = 0, result = 0;
  for (uint32_t j = 0; j < 4 && result == 0; ++j) {
    uint8_t byte = 0;
    result = ReadByte(j < 3, &byte);
    if (result == 0) value |= uint32_t(byte) << (24 - 8 * j);
  }
  // The bus is released whether or not all four bytes came.
  Stop();
  if (result != 0) return result;
  // Signed on purpose: the number has always been shown this way, so 0x80000000 and up read
  // negative.
  FormatInto(text, kSerialTextSize, "%.10d", int(Signed32(value)));
  return 0;
}

uint32_t cFlash::ReadVersionText(uint32_t address, const char* preset, char* text) {
  CopyText(text, kVersionTextSize, preset);
  uint8_t byte = 0;
  if (uint32_t r = ReadByteAt(address, 2, false, &byte)) return r;
  FormatInto(text, kVersionTextSize, "%.2d", int(byte));
  return 0;
}

// The interface module knows where this board variant put its module EEPROM.
cEepromPCB::cEepromPCB(cZARIM* io, cInterfaceE* interface)
    : cFlash(io, interface ? interface->GetEepromPcbAddress() : kDefaultPcbEepromAddress) {}

uint32_t cEepromPCB::ReadModuleSerialNumber(char* text) {
  return ReadSerialText(kModuleSerialAddress, text);
}

uint32_t cEepromPCB::ReadModuleVersion(char* text) {
  return ReadVersionText(kModuleVersionAddress, kNotAvailable, text);
}

cEepromLConv::cEepromLConv(cZARIM* io, cInterfaceE*) : cFlash(io, kLConvEepromAddress) {}

uint32_t cEepromLConv::ReadSerialNumber(char* text) {
  return ReadSerialText(kLConvSerialAddress, text);
}

uint32_t cEepromLConv::ReadVersion(char* text) {
  return ReadVersionText(kLConvVersionAddress, kNoData, text);
}

}  // namespace tvx
