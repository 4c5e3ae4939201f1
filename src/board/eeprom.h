// The two serial EEPROMs on the I2C bus: the module EEPROM on the main board (identity,
// preselector voltage limits, a gain calibration byte) and the L-convertor EEPROM on the
// down-convertor (identity, preselector control-voltage tables). Nothing is cached: every call
// reads the EEPROM again. Multi-byte values are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "board/i2c_bus.h"

namespace tvx {

class cInterfaceE;

// How many bytes the identity texts may take in the caller's buffer, terminator included.
// The caller's buffer comes without a size; these are the longest texts the reads can produce
// ("-2147483648", and a version of up to 255), so a correct result is never cut and nothing is
// written past them.
constexpr size_t kSerialTextSize = 12;
constexpr size_t kVersionTextSize = 4;

// The content check of ReadMaxVoltage: the word was never written.
constexpr uint32_t kMaxVoltageNotWritten = uint32_t(-10);

class cFlash : public cI2CBus {
 public:
  cFlash(cZARIM* io, uint16_t device_address);

  // Each returns 0 or the code of the bus operation that failed (its text is the module's).
  // `length` is the address length in bytes: 2 sends the high byte first, 1 the low byte only.
  uint32_t SetAddress(uint32_t address, uint32_t length);
  uint32_t ReadByteAt(uint32_t address, uint32_t length, bool acknowledge, uint8_t* byte);
  uint32_t ReadWordAt(uint32_t address, uint32_t length, uint16_t* word);

  // Preselector k's limits in volts, from the words at 2k (maximum, unsigned) and 2k + 4
  // (minimum, signed), hundredths of a volt. A maximum of 0xFFFF was never written:
  // kMaxVoltageNotWritten.
  uint32_t ReadMaxVoltage(uint8_t preselector, double* volts);
  uint32_t ReadMinVoltage(uint8_t preselector, double* volts);
  // Table entry e of the millivolt tables (bytes 4e and 4e + 1), in volts.
  uint32_t ReadControlVoltage(uint8_t entry, double* volts);
  // Voltage index i of preselector p in the byte tables (tenths of a volt), raw.
  uint32_t ReadControlByte(uint8_t preselector, uint32_t index, uint8_t* byte);
  // The signed gain calibration at 0x0010 in tenths, as a value in dB. Always 0.
  uint32_t ReadCalibration(double* value);

  uint16_t device_address() const { return DeviceAddress; }

 protected:
  // Four bytes from `base` in one transaction as "%.10d"; `text` keeps "Н/Д" on failure.
  uint32_t ReadSerialText(uint32_t base, char* text);
  // The byte at `address` as "%.2d"; `text` keeps `preset` on failure.
  uint32_t ReadVersionText(uint32_t address, const char* preset, char* text);

  uint16_t DeviceAddress;
};

class cEepromPCB : public cFlash {
 public:
  cEepromPCB(cZARIM* io, cInterfaceE* interface);
  uint32_t ReadModuleSerialNumber(char* text);
  uint32_t ReadModuleVersion(char* text);
};

class cEepromLConv : public cFlash {
 public:
  cEepromLConv(cZARIM* io, cInterfaceE* interface);
  virtual uint32_t ReadSerialNumber(char* text);
  virtual uint32_t ReadVersion(char* text);
};

}  // namespace tvx
