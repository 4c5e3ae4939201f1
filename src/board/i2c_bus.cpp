#include "board/i2c_bus.h"

#include "hw/clock.h"
#include "hw/regs.h"
#include "hw/regs/periph.h"
#include "hw/text.h"

namespace tvx {
namespace {

bool prescaler_programmed = false;

// Every wait for the controller is a busy poll of this length.
constexpr double kTimeoutSeconds = 0.1;

constexpr const char kNotReady[] = "нет готовности шины I2C";
constexpr const char kNoResponse[] = "нет ответа шины I2C";
constexpr const char kNotReadyAfterWrite[] = "нет готовности шины I2C после записи";

}  // namespace

bool I2cPrescalerProgrammed() { return prescaler_programmed; }
void ClearI2cPrescalerFlagForTesting() { prescaler_programmed = false; }

// The register addresses are taken once, from the block base in force when the module is
// built (bring-up sets the bases before it builds any I2C module).
cI2CBus::cI2CBus(cZARIM* io)
    : cCommonModule(io),
      PrescalerAddress(Periph(periph::kI2cPrescaler)),
      ControlAddress(Periph(periph::kI2cControl)),
      CommandAddress(Periph(periph::kI2cCommand)),
      ReceiveAddress(Periph(periph::kI2cReceive)),
      StatusAddress(Periph(periph::kI2cStatus)) {
  SetBusFrequency(RequestedFrequency);
}

uint32_t cI2CBus::SetBusFrequency(double hz) {
  BusFrequency = hz == 0.0 ? 100000.0 : hz;
  if (prescaler_programmed) return 0;
  // 33 MHz / (100 kHz * 4) - 1, rounded: 82. A frequency no register value can give is held
  // to the nearest end of the register's range rather than converted out of range.
  const double exact = ControllerClock / (BusFrequency * 4.0) - 1.0 + 0.5;
  const uint32_t prescaler =
      !(exact > 0.0) ? 0u : exact >= 4294967295.0 ? 0xFFFFFFFFu : uint32_t(exact);
  Io->WritePort(ControlAddress, periph::kI2cDisable);
  Io->WritePort(PrescalerAddress, prescaler);
  Io->WritePort(ControlAddress, periph::kI2cEnable);
  prescaler_programmed = true;
  return 0;
}

uint32_t cI2CBus::WaitIdle(uint8_t* no_ack) {
  HiResTimer timer;
  timer.StartTimer();
  double elapsed;
  do {
    // A status read that fails leaves the word reading busy: a register path that does not
    // work must never pass for an idle bus.
    uint32_t status = periph::kI2cBusy;
    Io->ReadPort(StatusAddress, &status);
    elapsed = timer.ElapsedSeconds();
    if ((status & periph::kI2cBusy) == 0) {
      *no_ack = uint8_t(status & periph::kI2cNoAck);
      return 0;
    }
  } while (kTimeoutSeconds > elapsed);
  return 1;
}

uint32_t cI2CBus::Start(uint32_t address, uint8_t direction) {
  uint8_t no_ack = 0;
  if (WaitIdle(&no_ack) != 0) {
    Format(Text, "I2CStart: %s", kNotReady);
    return 1;
  }
  // Only the address byte goes into the command: a wider value must not turn the start into
  // another command.
  const uint32_t command = periph::kI2cCmdStart + ((address + direction) & 0xFFu);
  // An EEPROM busy with an internal write cycle ignores its address: repeating the address
  // until it is acknowledged is how the end of that cycle is found.
  HiResTimer timer;
  timer.StartTimer();
  double elapsed;
  do {
    Io->WritePort(CommandAddress, command);
    elapsed = timer.ElapsedSeconds();
    if (WaitIdle(&no_ack) != 0) {
      Format(Text, "I2CStart: %s", kNoResponse);
      return 2;
    }
    if (no_ack == 0) return 0;
  } while (kTimeoutSeconds > elapsed);
  Stop();
  Format(Text, "I2CStart: %s", kNotReadyAfterWrite);
  return 3;
}

uint32_t cI2CBus::WriteByte(uint8_t byte) {
  Io->WritePort(CommandAddress, periph::kI2cCmdWrite + byte);
  uint8_t no_ack = 0;
  if (WaitIdle(&no_ack) != 0) {
    Format(Text, "I2CWrite: %s", kNotReady);
    return 1;
  }
  if (no_ack != 0) {
    Stop();
    Format(Text, "I2CWrite: %s", kNoResponse);
    return 2;
  }
  return 0;
}

uint32_t cI2CBus::ReadByte(bool acknowledge, uint8_t* byte) {
  Io->WritePort(CommandAddress, acknowledge ? periph::kI2cCmdReadAck : periph::kI2cCmdReadLast);
  uint8_t no_ack = 0;
  if (WaitIdle(&no_ack) != 0) {
    Format(Text, "I2CRead: %s", kNotReady);
    return 1;
  }
  // An idle bus with nothing driving it reads all ones.
  uint32_t received = 0xFF;
  Io->ReadPort(ReceiveAddress, &received);
  *byte = uint8_t(received & 0xFFu);
  return 0;
}

uint32_t cI2CBus::Stop() {
  Io->WritePort(CommandAddress, periph::kI2cCmdStop);
  return 0;
}

}  // namespace tvx
