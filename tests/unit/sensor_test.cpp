// The temperature sensor: its set-up at bring-up (and what a failing chip does to it), the two
// readings with their sign and fraction, and the exports around them.
#include "board/sensor.h"
#include "i2c_fixture.h"

namespace tvx::test {
namespace {

using SensorTest = I2cTest;

TEST_F(SensorTest, BringUpSetsTheChipUpInThreeWrites) {
  ASSERT_EQ(CreateDeviceInstance(&id), 0);
  // Nothing else on the bus speaks during bring-up.
  EXPECT_EQ(Commands(), (std::vector<uint32_t>{0x098, 0x10A, 0x107, 0x300, 0x098, 0x10D, 0x155,
                                               0x300, 0x098, 0x122, 0x182, 0x300}));
  EXPECT_EQ(Get("sensor.reg.0x22"), "0x82");
}

// The first failed write ends the set-up; nobody hears of it and the board opens.
TEST_F(SensorTest, AFailedSetUpStopsAtOnceAndTheBoardStillOpens) {
  const struct {
    const char *fault, *after, *reg0a, *reg0d;
    double seconds;
  } cases[] = {{"no_address_ack", "0", "none", "none", 0.1},
               {"no_data_ack", "4", "0x07", "none", 0.0},
               {"no_address_ack", "6", "0x07", "0x55", 0.1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.fault) + " after " + c.after);
    model.Reset();
    Set("sensor.fault", c.fault);
    Set("sensor.fault_after", c.after);
    LastErrorText[0] = '\0';
    const double before = clock.seconds();
    ASSERT_EQ(CreateDeviceInstance(&id), 0);
    EXPECT_GE(clock.seconds() - before, c.seconds);
    EXPECT_LT(clock.seconds() - before, c.seconds + 0.01);
    EXPECT_STREQ(GetErrorMessage(), "");
    EXPECT_EQ(Get("sensor.reg.0x0A"), c.reg0a);
    EXPECT_EQ(Get("sensor.reg.0x0D"), c.reg0d);
    EXPECT_EQ(Get("sensor.reg.0x22"), "none");
    EXPECT_NE(board()->Get<cSensor>(Slot::Sensor), nullptr);
    ReleaseDeviceInstance(&id);
  }
}

// Unsigned whole degrees; of the fraction only the top two bits count.
TEST_F(SensorTest, ReadingsAreUnsignedAndTheFractionKeepsTwoBits) {
  Open();
  const struct {
    uint32_t local, remote, fraction;
    float board, fpga;
  } cases[] = {{41, 50, 0x40, 41.0f, 50.25f},
               {0xFF, 50, 0xFF, 255.0f, 50.75f},
               {0x80, 0x80, 0x3F, 128.0f, 128.0f},
               {0, 0xFF, 0xC0, 0.0f, 255.75f}};
  for (const auto& c : cases) {
    Set("sensor.local", std::to_string(c.local));
    Set("sensor.remote", std::to_string(c.remote));
    Set("sensor.remote_fraction", std::to_string(c.fraction));
    float board = -1, fpga = -1;
    EXPECT_EQ(GetPCBTemperature(&id, &board), 0);
    EXPECT_EQ(board, c.board);
    EXPECT_EQ(GetFPGATemperature(&id, &fpga), 0);
    EXPECT_EQ(fpga, c.fpga) << "remote " << c.remote << " fraction " << c.fraction;
  }
}

// Pointer, stop, then a separate read of the register.
TEST_F(SensorTest, EachRegisterIsPointedAtThenRead) {
  Open();
  float value = 0;
  ASSERT_EQ(GetPCBTemperature(&id, &value), 0);
  EXPECT_EQ(Commands(), (std::vector<uint32_t>{0x098, 0x100, 0x300, 0x099, 0x2FF, 0x300}));
  Restart();
  ASSERT_EQ(GetFPGATemperature(&id, &value), 0);
  EXPECT_EQ(Commands(), (std::vector<uint32_t>{0x098, 0x101, 0x300, 0x099, 0x2FF, 0x300, 0x098,
                                               0x110, 0x300, 0x099, 0x2FF, 0x300}));
  EXPECT_TRUE(clock.sleeps.empty());
}

TEST_F(SensorTest, FailedReadsLeaveTheResultAlone) {
  Open();
  const struct {
    const char *fault, *after;
    bool fpga;
    const char* message;
    double seconds;
  } cases[] = {
      {"no_address_ack", "0", false,
       "GetPCBTemperature [0]: I2CStart: нет готовности шины I2C после записи\n", 0.1},
      // The whole degrees came; pointing at the fraction register was refused.
      {"no_data_ack", "5", true, "GetFPGATemperature [0]: I2CWrite: нет ответа шины I2C\n", 0.0},
      // The fraction itself never came.
      {"stuck", "7", true, "GetFPGATemperature [0]: I2CRead: нет готовности шины I2C\n", 0.1},
  };
  for (const auto& c : cases) {
    Set("sensor.fault", c.fault);
    Set("sensor.fault_after", c.after);
    float value = 12.5f;
    const double before = clock.seconds();
    EXPECT_EQ(c.fpga ? GetFPGATemperature(&id, &value) : GetPCBTemperature(&id, &value), 1);
    EXPECT_STREQ(GetErrorMessage(), c.message);
    EXPECT_EQ(value, 12.5f);
    EXPECT_GE(clock.seconds() - before, c.seconds);
    EXPECT_LT(clock.seconds() - before, c.seconds + 0.01);
    Set("sensor.fault", "none");
  }
  EXPECT_EQ(GetPCBTemperature(&id, nullptr), -1);
  EXPECT_STREQ(GetErrorMessage(), "GetPCBTemperature [0]: NULL-объект или NULL-параметр\n");
  EXPECT_EQ(GetFPGATemperature(&id, nullptr), -1);
}

}  // namespace
}  // namespace tvx::test
