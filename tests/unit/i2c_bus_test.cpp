// The I2C bus operations: the once-per-process prescaler, the command words, acknowledge
// polling, and every failure code with its text and its stop condition (or the lack of one).
#include <algorithm>
#include <functional>

#include "i2c_fixture.h"

namespace tvx::test {
namespace {

using Access = std::pair<uint32_t, uint32_t>;   // address, value written

std::vector<Access> ControllerSetup(const std::vector<zsim_access>& trace) {
  std::vector<Access> out;
  for (const zsim_access& a : trace)
    if (a.write && (a.addr == kPrescalerReg || a.addr == kStatusReg))
      out.emplace_back(a.addr, a.value);
  return out;
}

// Disabled while the prescaler changes, then enabled: 33 MHz / (4 x 100 kHz) - 1, rounded.
// A second board, and any module built later, leave every controller as it is.
TEST_F(I2cTest, ThePrescalerIsProgrammedOnceForTheWholeProcess) {
  ASSERT_FALSE(I2cPrescalerProgrammed());
  ASSERT_EQ(CreateDeviceInstance(&id), 0);
  EXPECT_EQ(ControllerSetup(model.Trace()),
            (std::vector<Access>{{kStatusReg, 0}, {kPrescalerReg, 82}, {kStatusReg, 0x80}}));
  EXPECT_TRUE(I2cPrescalerProgrammed());
  Restart();
  DeviceId second{1};
  ASSERT_EQ(CreateDeviceInstance(&second), 0);
  cI2CBus bus(io());
  EXPECT_EQ(bus.SetBusFrequency(400000.0), 0u);
  EXPECT_TRUE(ControllerSetup(model.Trace()).empty());

  // Other frequencies, for the first module of a process; 0 asks for the default.
  const struct {
    double requested, in_use;
    uint32_t prescaler;
  } cases[] = {{0.0, 100000.0, 82}, {400000.0, 400000.0, 20}, {1e12, 1e12, 0}};
  for (const auto& c : cases) {
    ClearI2cPrescalerFlagForTesting();
    Restart();
    EXPECT_EQ(bus.SetBusFrequency(c.requested), 0u);
    EXPECT_EQ(bus.bus_frequency(), c.in_use);
    EXPECT_EQ(ControllerSetup(model.Trace()), (std::vector<Access>{{kStatusReg, 0},
                                                                   {kPrescalerReg, c.prescaler},
                                                                   {kStatusReg, 0x80}}));
  }
}

struct BusFailure {
  const char* name;
  std::vector<std::pair<const char*, const char*>> keys;
  std::function<uint32_t(cI2CBus&)> operation;
  uint32_t code;
  const char* text;
  std::vector<uint32_t> commands;   // everything written to the controller
  double seconds;                   // waits that run out on the way
};

uint32_t WriteAfterStart(cI2CBus& bus) {
  if (uint32_t r = bus.Start(0x98, 0)) return 100 + r;
  return bus.WriteByte(0x0A);
}

uint32_t ReadAfterStart(cI2CBus& bus) {
  if (uint32_t r = bus.Start(0x98, 1)) return 100 + r;
  uint8_t byte = 0x5A;
  return bus.ReadByte(false, &byte);
}

const BusFailure kBusFailures[] = {
    // Address polling runs out: a stop condition releases the bus.
    {"address never acknowledged", {{"sensor.fault", "no_address_ack"}},
     [](cI2CBus& bus) { return bus.Start(0x98, 0); }, 3,
     "I2CStart: нет готовности шины I2C после записи", {0x098, 0x300}, 0.1},
    // The controller never finishes: no stop, it could not be sent.
    {"bus held at the address", {{"sensor.fault", "stuck"}},
     [](cI2CBus& bus) { return bus.Start(0x98, 0); }, 2, "I2CStart: нет ответа шины I2C",
     {0x098}, 0.1},
    {"bus held before the start",
     {{"sensor.fault", "stuck"}},
     [](cI2CBus& bus) {
       bus.Start(0x98, 0);
       return bus.Start(0xA6, 0);
     },
     1, "I2CStart: нет готовности шины I2C", {0x098}, 0.2},
    {"data byte refused", {{"sensor.fault", "no_data_ack"}}, WriteAfterStart, 2,
     "I2CWrite: нет ответа шины I2C", {0x098, 0x10A, 0x300}, 0.0},
    {"bus held at a data byte", {{"sensor.fault", "stuck"}, {"sensor.fault_after", "1"}},
     WriteAfterStart, 1, "I2CWrite: нет готовности шины I2C", {0x098, 0x10A}, 0.1},
    {"bus held at a received byte", {{"sensor.fault", "stuck"}, {"sensor.fault_after", "1"}},
     ReadAfterStart, 1, "I2CRead: нет готовности шины I2C", {0x099, 0x2FF}, 0.1},
};

TEST_F(I2cTest, FailuresGiveTheirCodeTextAndStopCondition) {
  Open();
  for (const BusFailure& c : kBusFailures) {
    SCOPED_TRACE(c.name);
    model.Reset();
    Restart();
    for (auto [key, value] : c.keys) Set(key, value);
    cI2CBus bus(io());
    const double before = clock.seconds();
    EXPECT_EQ(c.operation(bus), c.code);
    EXPECT_STREQ(bus.GetErrorText(), c.text);
    std::vector<uint32_t> commands = Commands();
    // Address polling repeats the address; what matters is that it came, and what followed.
    commands.erase(std::unique(commands.begin(), commands.end()), commands.end());
    EXPECT_EQ(commands, c.commands);
    // Every wait that runs out is 0.1 s of polling, no more.
    EXPECT_GE(clock.seconds() - before, c.seconds);
    EXPECT_LT(clock.seconds() - before, c.seconds + 0.01);
  }
}

// Address polling waits out an EEPROM's write cycle without running into the time-out.
TEST_F(I2cTest, AddressPollingWaitsOutTheWriteCycleOfAnEeprom) {
  Set("eeprom.write_polls", "5");
  Open();
  cI2CBus bus(io());
  ASSERT_EQ(bus.Start(0xA6, 0), 0u);
  for (uint8_t byte : {0x01, 0x20, 0x77}) ASSERT_EQ(bus.WriteByte(byte), 0u);
  bus.Stop();
  Restart();
  const double before = clock.seconds();
  EXPECT_EQ(bus.Start(0xA6, 0), 0u);
  EXPECT_EQ(Commands(), std::vector<uint32_t>(6, 0x0A6)) << "five refusals, then the answer";
  EXPECT_LT(clock.seconds() - before, 0.01);
  bus.Stop();
}

// Idle is bit 0 clear, the acknowledge bit 7; a status that cannot be read counts as busy.
TEST_F(I2cTest, WaitIdleReportsTheAcknowledgeBitAndAnUnreadableStatusIsBusy) {
  Open();
  cI2CBus bus(io());
  uint8_t no_ack = 0x11;
  ASSERT_EQ(bus.WaitIdle(&no_ack), 0u);
  EXPECT_EQ(no_ack, 0);
  Set("reg.0x4024", "0xFFFFFFFE");   // idle, not acknowledged, every other bit set too
  EXPECT_EQ(bus.WaitIdle(&no_ack), 0u);
  EXPECT_EQ(no_ack, 0x80);
  Set("reg.0x4024", "0x7E");         // idle and acknowledged, whatever else is set
  EXPECT_EQ(bus.WaitIdle(&no_ack), 0u);
  EXPECT_EQ(no_ack, 0);
  Set("reg.0x4024", "0x01");
  EXPECT_EQ(bus.WaitIdle(&no_ack), 1u) << "bit 0 is busy";

  io()->set_bar_mapped(false);
  no_ack = 0x11;
  const double before = clock.seconds();
  EXPECT_EQ(bus.WaitIdle(&no_ack), 1u);
  EXPECT_EQ(no_ack, 0x11);
  EXPECT_GE(clock.seconds() - before, 0.1);
  EXPECT_EQ(bus.Start(0x98, 0), 1u);
  EXPECT_STREQ(bus.GetErrorText(), "I2CStart: нет готовности шины I2C");
  io()->set_bar_mapped(true);
}

}  // namespace
}  // namespace tvx::test
