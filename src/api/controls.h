// The interface module (what this board variant is), the circuit reset and the PLL control.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cInterface : public cCommonModule {
 public:
  using cCommonModule::cCommonModule;
  virtual uint8_t GetPresenceBit() = 0;
  virtual uint8_t GetVersion() = 0;
  virtual uint16_t GetEepromPcbAddress() = 0;
  // 3 when an L-band convertor with its own EEPROM is fitted, 2 for the plain one.
  uint8_t GetConvertorCode();
};

class cInterfaceE : public cInterface {
 public:
  using cInterface::cInterface;
  uint8_t GetPresenceBit() override;
  uint8_t GetVersion() override { return 2; }
  uint16_t GetEepromPcbAddress() override { return 0xA6; }
};

class cCircuitReset : public cCommonModule {
 public:
  using cCommonModule::cCommonModule;
  virtual int32_t WriteResetWord(const uint32_t* value) = 0;
};

class cCircuitResetE : public cCircuitReset {
 public:
  explicit cCircuitResetE(cZARIM* io);
  ~cCircuitResetE() override;
  // The register write's result is not looked at: the reset word is fire-and-forget.
  int32_t WriteResetWord(const uint32_t* value) override;
  uint32_t last_written() const { return *last_; }

 private:
  uint32_t* last_;
};

class cPLL : public cCommonModule {
 public:
  using cCommonModule::cCommonModule;
  int32_t Control(uint32_t value);
  uint32_t last_written() const { return value_; }

 private:
  uint32_t value_ = 0;
};

}  // namespace tvx
