// The FPGA's I2C controller: the bus the module EEPROM, the L-convertor EEPROM and the
// temperature sensor share. cI2CBus offers the byte-level operations (start with address,
// write byte, read byte, stop) and is never used alone: every EEPROM and sensor module derives
// from it and carries its own cI2CBus part, all driving the same controller.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cI2CBus : public cCommonModule {
 public:
  explicit cI2CBus(cZARIM* io);

  // Always 0. Programs the controller only when no cI2CBus of this process has done so yet.
  uint32_t SetBusFrequency(double hz);
  // `address` is the device address byte with bit 0 clear; `direction` 0 writes, 1 reads.
  // 0; 1 bus not ready; 2 no response; 3 the device never acknowledged within 0.1 s.
  uint32_t Start(uint32_t address, uint8_t direction);
  // 0; 1 bus not ready; 2 the byte was not acknowledged (a stop has been sent).
  uint32_t WriteByte(uint8_t byte);
  // 0 or 1 (bus not ready). `acknowledge` false marks the last byte of a read.
  uint32_t ReadByte(bool acknowledge, uint8_t* byte);
  uint32_t Stop();
  // 0 once the controller is idle, with *no_ack = 0x80 when the device did not acknowledge
  // (else 0); 1 when it is still busy after 0.1 s.
  uint32_t WaitIdle(uint8_t* no_ack);

  double bus_frequency() const { return BusFrequency; }

 protected:
  double BusFrequency = 0;
  uint32_t PrescalerAddress, ControlAddress, CommandAddress, ReceiveAddress, StatusAddress;
  double RequestedFrequency = 100000.0;
  double ControllerClock = 33000000.0;
};

// The process-wide flag: set once a cI2CBus has programmed the prescaler. Every board of the
// process and every module of a board share it, so the controller is programmed once per
// process, never again.
bool I2cPrescalerProgrammed();
// Clears the flag. Only for tests, which need a known starting point whatever ran before.
void ClearI2cPrescalerFlagForTesting();

}  // namespace tvx
