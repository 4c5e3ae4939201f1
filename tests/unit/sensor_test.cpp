// The temperature sensor: its set-up at bring-up (and what a failing chip does to it), the two
// readings with their sign and fraction, and what a failed reading leaves.
#include "board/sensor.h"
#include "i2c_fixture.h"

namespace tvx::test {
namespace {

using Commands_ = std::vector<uint32_t>;

// Bring-up reads the convertor's tables over the same bus before it builds the sensor: the
// trace and the clock start afresh with the module built just before it.
class SensorTest : public I2cTest {
 protected:
  void SetUp() override {
    I2cTest::SetUp();
    self = this;
    previous_ = InstallBuildObserver([](const cBoard&, Slot slot) {
      if (slot != Slot::Dma3ChCtrl) return;
      self->model.ClearTrace();
      self->sensor_start = self->clock.seconds();
    });
  }
  void TearDown() override {
    InstallBuildObserver(previous_);
    I2cTest::TearDown();
  }
  static inline SensorTest* self = nullptr;
  double sensor_start = 0;
  BuildObserver previous_ = nullptr;
};

// Three register writes, nothing else on the bus while the sensor is built. The first failed
// write ends the set-up; nobody hears of it and the board opens.
TEST_F(SensorTest, BringUpSetsTheChipUpAndAFailureStopsItQuietly) {
  ASSERT_EQ(CreateDeviceInstance(&id), 0);
  EXPECT_EQ(Commands(), (Commands_{0x098, 0x10A, 0x107, 0x300, 0x098, 0x10D, 0x155, 0x300, 0x098,
                                   0x122, 0x182, 0x300}));
  EXPECT_EQ(Get("sensor.reg.0x22"), "0x82");
  ReleaseDeviceInstance(&id);
  for (const auto& [fault, after, registers, seconds] :
       {std::tuple{"no_address_ack", "0", "none none", 0.1}, {"no_data_ack", "4", "0x07 none", 0.0},
        {"no_address_ack", "6", "0x07 0x55", 0.1}}) {
    model.Reset();
    Set("sensor.fault", fault);
    Set("sensor.fault_after", after);
    ASSERT_EQ(CreateDeviceInstance(&id), 0);
    ExpectWaited(sensor_start, seconds);
    EXPECT_STREQ(GetErrorMessage(), "");
    EXPECT_EQ(Get("sensor.reg.0x0A") + " " + Get("sensor.reg.0x0D"), registers) << fault << after;
    EXPECT_EQ(Get("sensor.reg.0x22"), "none");
    EXPECT_NE(board()->Get<cSensor>(Slot::Sensor), nullptr);
    ReleaseDeviceInstance(&id);
  }
}

// Unsigned whole degrees; of the fraction only the top two bits count. Each register is
// pointed at, stopped, then read on its own.
TEST_F(SensorTest, ReadingsAreUnsignedAndTheFractionKeepsTwoBits) {
  Open();
  float value = 0;
  ASSERT_EQ(GetFPGATemperature(&id, &value), 0);
  EXPECT_EQ(Commands(), (Commands_{0x098, 0x101, 0x300, 0x099, 0x2FF, 0x300, 0x098, 0x110, 0x300,
                                   0x099, 0x2FF, 0x300}));
  EXPECT_TRUE(clock.sleeps.empty());
  for (const auto& [local, remote, fraction, pcb, fpga] :
       {std::tuple{0xFF, 50, 0xFF, 255.0f, 50.75f}, {0x80, 0x80, 0x3F, 128.0f, 128.0f},
        {0, 0xFF, 0xC0, 0.0f, 255.75f}}) {
    Set("sensor.local", std::to_string(local));
    Set("sensor.remote", std::to_string(remote));
    Set("sensor.remote_fraction", std::to_string(fraction));
    Restart();
    float board = -1, chip = -1;
    EXPECT_EQ(GetPCBTemperature(&id, &board), 0);
    EXPECT_EQ(board, pcb);
    EXPECT_EQ(Commands(), (Commands_{0x098, 0x100, 0x300, 0x099, 0x2FF, 0x300}));
    EXPECT_EQ(GetFPGATemperature(&id, &chip), 0);
    EXPECT_EQ(chip, fpga) << "remote " << remote << " fraction " << fraction;
  }
}

// The whole degrees came, then pointing at the fraction register was refused, or the
// fraction never came: the result keeps its value. (A sensor that never answers at all is
// the end-to-end case, with its wall time.)
TEST_F(SensorTest, FailedReadsLeaveTheResultAlone) {
  Open();
  for (const auto& [fault, after, message, seconds] :
       {std::tuple{"no_data_ack", "5", "I2CWrite: нет ответа шины I2C", 0.0},
        {"stuck", "7", "I2CRead: нет готовности шины I2C", 0.1}}) {
    Set("sensor.fault", fault);
    Set("sensor.fault_after", after);
    float value = 12.5f;
    const double before = clock.seconds();
    EXPECT_EQ(GetFPGATemperature(&id, &value), 1);
    EXPECT_EQ(GetErrorMessage(), "GetFPGATemperature [0]: " + std::string(message) + "\n");
    EXPECT_EQ(value, 12.5f);
    ExpectWaited(before, seconds);
    Set("sensor.fault", "none");
  }
}

}  // namespace
}  // namespace tvx::test
