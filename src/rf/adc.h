// The ADC, programmed over a three-wire serial port that the DEM FPGA exposes as a control
// word and a one-bit data word; the converter's answers come back, one bit per clock, on bit
// 14 of a channel status word (channel 1's or channel 2's). The load identifies the
// converter, checks its speed grade and sets its output mode.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cADC : public cCommonModule {
 public:
  // `statusAddress`: the byte address of the status word carrying the converter's data line.
  cADC(cZARIM* io, uint32_t statusAddress) : cCommonModule(io), statusAddress(statusAddress) {}

  // The converter's 8-bit register at *address into *value: 0. Register accesses are not
  // checked: a status read the binding refuses reads as a 0 bit.
  virtual int32_t ReadRegister(const uint16_t* address, uint16_t* value);
  // The low byte of *value to the converter's register *address: 0.
  virtual int32_t WriteRegister(const uint16_t* address, const uint16_t* value);
  // 0; kNotFound or kWrongSpeed with the module's text (nothing written to the converter).
  virtual int32_t Load();
  // The load, with the answers read from channel 1's / channel 2's status word (which stays
  // the one read afterwards).
  virtual int32_t LoadChannel1();
  virtual int32_t LoadChannel2();
  // The converter's counter byte, 0 to 255.
  virtual uint32_t ReadCounter();

  static constexpr int32_t kNotFound = 1;
  static constexpr int32_t kWrongSpeed = 2;

  uint32_t status_address() const { return statusAddress; }

 private:
  uint32_t statusAddress;
};

}  // namespace tvx
