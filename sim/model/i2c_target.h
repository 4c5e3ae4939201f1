// A device on the board's emulated I2C bus, as the controller (i2c_controller.cpp) sees it: it
// answers its address, takes bytes, hands out bytes and sees the stop condition. The devices
// are not register blocks of their own; the controller owns them, routes every transfer to the
// one addressed, and serves their keys as part of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "keys.h"

namespace zsim {

// What a device can be told to do wrong (key <prefix>.fault, words "none", "no_address_ack",
// "no_data_ack", "stuck").
enum class I2cFault : uint32_t {
  kNone,           // behaves
  kNoAddressAck,   // never acknowledges its address
  kNoDataAck,      // acknowledges its address, then no byte sent to it
  kStuck,          // once addressed, holds the bus: every transfer stays busy until cleared
};

class I2cTarget {
 public:
  virtual ~I2cTarget() = default;

  // The device's address byte, read/write bit clear.
  virtual uint8_t address() const = 0;
  // Whether the device is on the bus now (a convertor's EEPROM comes and goes with it).
  virtual bool attached() const { return true; }
  const std::string& prefix() const { return prefix_; }   // of its keys: "eeprom.pcb", "sensor"
  I2cFault fault() const { return I2cFault(fault_); }
  // The fault in force for the next byte: <prefix>.fault_after bytes (address bytes included)
  // pass normally after either fault key is set, then the fault takes effect.
  I2cFault FaultNow() const { return handled_ >= fault_after_ ? fault() : I2cFault::kNone; }
  void CountByte() { ++handled_; }
  void RestartFaultCount() { handled_ = 0; }

  // A start condition with this device's address and the direction; true when it
  // acknowledges (the controller has already applied the fault keys).
  virtual bool Start(bool read) = 0;
  // A byte sent to the device; true when acknowledged.
  virtual bool Write(uint8_t byte) = 0;
  // The next byte the device sends.
  virtual uint8_t Read() = 0;
  virtual void Stop() = 0;

  // Keys beyond the numbers and choices the device adds to the controller's key set.
  virtual KeyResult Set(const std::string&, const std::string&) { return KeyResult::kUnknownKey; }
  virtual bool Get(const std::string&, std::string*) const { return false; }
  virtual void KeyNames(std::vector<std::string>*) const {}
  // Power-on state: contents and pointers back to their defaults (numeric keys are reset with
  // the controller's key set).
  virtual void Reset() = 0;

 protected:
  // Declares <prefix>.fault and <prefix>.fault_after in the controller's key set.
  I2cTarget(std::string prefix, KeySet* keys);

 private:
  std::string prefix_;
  uint32_t fault_ = 0;   // an I2cFault
  uint32_t fault_after_ = 0;
  uint32_t handled_ = 0;
};

// The devices of this board. `keys` is the controller's key set, where each device declares
// its numeric keys; `write_polls` is how many address bytes an EEPROM ignores after a write
// cycle begins; `lconv_present` tells which L-band convertor, and so which convertor EEPROM,
// is fitted.
std::unique_ptr<I2cTarget> MakeModuleEeprom(KeySet* keys, const uint32_t* write_polls);
std::unique_ptr<I2cTarget> MakeLConvEeprom(KeySet* keys, const uint32_t* write_polls,
                                           std::function<bool()> lconv_present);
std::unique_ptr<I2cTarget> MakePlainLConvEeprom(KeySet* keys, const uint32_t* write_polls,
                                                std::function<bool()> lconv_present);
std::unique_ptr<I2cTarget> MakeTemperatureSensor(KeySet* keys);

}  // namespace zsim
