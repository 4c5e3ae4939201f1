// The I2C bus operations: the once-per-process prescaler, the command words, acknowledge
// polling, and every failure code with its text and its stop condition (or the lack of one).
#include <algorithm>
#include <functional>

#include "i2c_fixture.h"

namespace tvx::test {
namespace {

using Access = std::pair<uint32_t, uint32_t>;   // address, value written
using Commands_ = std::vector<uint32_t>;

// What the trace shows of the controller's set-up: disabled, the prescaler, enabled.
std::vector<Access> ControllerSetup(const std::vector<zsim_access>& trace) {
  std::vector<Access> out;
  for (const zsim_access& a : trace)
    if (a.write && (a.addr == kPrescalerReg || a.addr == kStatusReg)) out.emplace_back(a.addr, a.value);
  return out;
}
std::vector<Access> Programmed(uint32_t prescaler) {
  return {{kStatusReg, 0}, {kPrescalerReg, prescaler}, {kStatusReg, 0x80}};
}

// 33 MHz / (4 x 100 kHz) - 1, rounded, at the first bring-up; a second board, and any module
// built later, leave every controller as it is. For the first module of a process, 0 asks for
// the default and a frequency no register value can give is held to the end of the range.
TEST_F(I2cTest, ThePrescalerIsProgrammedOnceForTheWholeProcess) {
  ASSERT_FALSE(I2cPrescalerProgrammed());
  ASSERT_EQ(CreateDeviceInstance(&id), 0);
  EXPECT_EQ(ControllerSetup(model.Trace()), Programmed(82));
  EXPECT_EQ(Get("i2c.prescaler"), "82");
  EXPECT_TRUE(I2cPrescalerProgrammed());
  Restart();
  DeviceId second{1};
  ASSERT_EQ(CreateDeviceInstance(&second), 0);
  cI2CBus bus(io());
  EXPECT_EQ(bus.SetBusFrequency(400000.0), 0u);
  EXPECT_TRUE(ControllerSetup(model.Trace()).empty());
  for (const auto& [requested, in_use, prescaler] :
       {std::tuple{0.0, 100000.0, 82u}, {400000.0, 400000.0, 20u}, {1e12, 1e12, 0u}}) {
    ClearI2cPrescalerFlagForTesting();
    Restart();
    EXPECT_EQ(bus.SetBusFrequency(requested), 0u);
    EXPECT_EQ(bus.bus_frequency(), in_use);
    EXPECT_EQ(ControllerSetup(model.Trace()), Programmed(prescaler)) << requested;
  }
}

uint32_t StartOnce(cI2CBus& bus) { return bus.Start(0x98, 0); }
uint32_t StartTwice(cI2CBus& bus) { return bus.Start(0x98, 0), bus.Start(0xA6, 0); }
uint32_t WriteAfterStart(cI2CBus& bus) {
  if (uint32_t r = bus.Start(0x98, 0)) return 100 + r;
  return bus.WriteByte(0x0A);
}
uint32_t ReadAfterStart(cI2CBus& bus) {
  if (uint32_t r = bus.Start(0x98, 1)) return 100 + r;
  uint8_t byte = 0x5A;
  return bus.ReadByte(false, &byte);
}

// Address polling that runs out sends a stop to release the bus; a controller that never
// finishes gets none, as it could not send one. `commands` is everything written to the
// controller (the polling's repeated addresses folded), `seconds` the waits that run out.
TEST_F(I2cTest, FailuresGiveTheirCodeTextAndStopCondition) {
  const struct {
    const char *fault, *after;
    std::function<uint32_t(cI2CBus&)> operation;
    uint32_t code;
    const char* text;
    Commands_ commands;
    double seconds;
  } cases[] = {
      {"no_address_ack", "0", StartOnce, 3, "I2CStart: нет готовности шины I2C после записи",
       {0x098, 0x300}, 0.1},
      {"stuck", "0", StartOnce, 2, "I2CStart: нет ответа шины I2C", {0x098}, 0.1},
      {"stuck", "0", StartTwice, 1, "I2CStart: нет готовности шины I2C", {0x098}, 0.2},
      {"no_data_ack", "0", WriteAfterStart, 2, "I2CWrite: нет ответа шины I2C", {0x098, 0x10A, 0x300}, 0},
      {"stuck", "1", WriteAfterStart, 1, "I2CWrite: нет готовности шины I2C", {0x098, 0x10A}, 0.1},
      {"stuck", "1", ReadAfterStart, 1, "I2CRead: нет готовности шины I2C", {0x099, 0x2FF}, 0.1},
  };
  Open();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    model.Reset();
    Restart();
    Set("sensor.fault", c.fault);
    Set("sensor.fault_after", c.after);
    cI2CBus bus(io());
    const double before = clock.seconds();
    EXPECT_EQ(c.operation(bus), c.code);
    EXPECT_STREQ(bus.GetErrorText(), c.text);
    Commands_ commands = Commands();
    commands.erase(std::unique(commands.begin(), commands.end()), commands.end());
    EXPECT_EQ(commands, c.commands);
    ExpectWaited(before, c.seconds);
  }
}

// Idle is bit 0 clear, the acknowledge bit 7, whatever else is set; a status that cannot be
// read counts as busy.
TEST_F(I2cTest, WaitIdleReportsTheAcknowledgeBitAndAnUnreadableStatusIsBusy) {
  Open();
  cI2CBus bus(io());
  for (const auto& [status, result, no_ack] : {std::tuple{"0xFFFFFFFE", 0u, 0x80}, {"0x7E", 0u, 0},
                                               {"0x01", 1u, 0x11}}) {
    Set("reg.0x4024", status);
    uint8_t flag = 0x11;
    EXPECT_EQ(bus.WaitIdle(&flag), result) << status;
    EXPECT_EQ(flag, no_ack) << status;
  }
  Set("reg.0x4024", "none");
  io()->set_bar_mapped(false);
  uint8_t flag = 0x11;
  const double before = clock.seconds();
  EXPECT_EQ(bus.WaitIdle(&flag), 1u);
  EXPECT_EQ(flag, 0x11);
  EXPECT_GE(clock.seconds() - before, 0.1);
  EXPECT_EQ(bus.Start(0x98, 0), 1u);
  EXPECT_STREQ(bus.GetErrorText(), "I2CStart: нет готовности шины I2C");
  io()->set_bar_mapped(true);
}

}  // namespace
}  // namespace tvx::test
