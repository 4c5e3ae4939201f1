// The two-channel temperature sensor on the I2C bus: its local channel measures the board, its
// remote channel the FPGA die. Set up once when the board is opened; every read asks the chip.
#pragma once

#include <cstdint>

#include "board/i2c_bus.h"

namespace tvx {

constexpr uint32_t kSensorAddress = 0x98;

class cSensor : public cI2CBus {
 public:
  // Sets the chip up. A chip that does not answer is not reported here: the board opens
  // anyway, and the temperature reads say what is wrong.
  explicit cSensor(cZARIM* io, uint32_t address = kSensorAddress);

  // Each returns 0 or the code of the first bus operation that failed (the module's text
  // says which); on failure nothing is written to the result.
  uint32_t WriteRegister(uint8_t reg, uint8_t value);
  uint32_t ReadRegister(uint8_t reg, uint8_t* value);
  // Whole degrees, 0 to 255.
  uint32_t ReadBoardTemperature(float* celsius);
  // Quarter degrees, 0 to 255.75.
  uint32_t ReadFpgaTemperature(float* celsius);

 private:
  uint32_t Address;
};

}  // namespace tvx
