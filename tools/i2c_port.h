// Reading the board's serial EEPROMs from the tool. The library exports no read of arbitrary
// EEPROM bytes, so the tool drives the FPGA's I2C controller itself through the raw register
// exports (_devinp / _devoutp), with the command sequence the library's own reads use: start
// with acknowledge polling, the memory address, stop; start for reading, sequential bytes (the
// last one not acknowledged), stop. Every wait is bounded by 0.1 s, as in the library. This
// works the same on hardware and on the virtual board, and a dump shows what the library would
// read, faults included.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "torvixe.h"

namespace tvx::cli {

// The chips on the bus the tool knows.
struct EepromChip {
  const char* name;       // as on the command line: "pcb", "lconv"
  const char* title;      // for the output
  uint8_t device;         // address byte, read/write bit clear
  int address_bytes;      // 2: high byte first; 1: low byte only
};

constexpr EepromChip kModuleEeprom{"pcb", "module EEPROM", 0xA6, 2};
// The L-convertor EEPROM takes two address bytes on the convertor that sets the presence bit
// (types 3 to 5) and one on the two-preselector convertor (type 2).
constexpr EepromChip kLConvEeprom{"lconv", "L-convertor EEPROM", 0xA0, 2};
constexpr EepromChip kPlainLConvEeprom{"lconv", "L-convertor EEPROM (type 2 convertor)", 0xA0, 1};

class I2cPort {
 public:
  // `peripheral_base` is the peripheral block's base as a 32-bit word offset.
  I2cPort(DeviceId* id, uint32_t peripheral_base);

  // Reads `count` bytes from memory address `address` of `chip` in one sequential read.
  // Empty on success; otherwise what failed, in words.
  std::string Read(const EepromChip& chip, uint32_t address, size_t count,
                   std::vector<uint8_t>* out);

 private:
  std::string Start(uint8_t address_byte);
  std::string Send(uint8_t byte);
  std::string Receive(bool acknowledge, uint8_t* byte);
  void Stop();
  // Empty once idle, with *no_ack set from bit 7.
  std::string WaitIdle(bool* no_ack);
  std::string Write(uint32_t address, uint32_t value);
  std::string ReadWord(uint32_t address, uint32_t* value);

  DeviceId* id_;
  uint32_t receive_, status_, command_;
};

// Output helpers, pure so that the tests can pin them down.
// "0x0000  03 FF 07 D0 07 9E 00 32  00 28 FF FF FF FF FF FF  |.......2.(......|": up to 16
// bytes; the address in four hex digits.
std::string DumpLine(uint32_t address, const uint8_t* bytes, size_t count);
// Four big-endian bytes as the library prints a serial number: signed, at least ten digits.
std::string SerialText(const uint8_t* bytes);
// A version byte as the library prints it: at least two digits.
std::string VersionText(uint8_t byte);

}  // namespace tvx::cli
