// Serial numbers, versions and temperatures of a board on the virtual board, through the real
// binding and trapped register access: the default identity, the texts of a sensor that never
// answers, and a second board beside the first.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>

#include "torvixe.h"
#include "zarimsim.h"

namespace {

class IdentityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zsim_reset();
    ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
    ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  }
  void TearDown() override {
    ReleaseDeviceInstance(&board1);
    ReleaseDeviceInstance(&board0);
    zsim_reset();
  }
  DeviceId board0{0}, board1{1};
  char text[32];
};

// The process programmed a controller at the first board; the second keeps its power-on
// setting, and each board has its own EEPROM.
TEST_F(IdentityTest, EachBoardReportsItsIdentityAndTheDefaultTemperatures) {
  EXPECT_EQ(GetModuleSerialNumber(&board0, text), 0) << GetErrorMessage();
  EXPECT_STREQ(text, "0012345678");
  float pcb = 0, fpga = 0;
  EXPECT_EQ(GetPCBTemperature(&board0, &pcb), 0) << GetErrorMessage();
  EXPECT_EQ(GetFPGATemperature(&board0, &fpga), 0) << GetErrorMessage();
  EXPECT_EQ(pcb, 41.0f);
  EXPECT_EQ(fpga, 56.5f);
  ASSERT_EQ(CreateDeviceInstance(&board1), 0) << GetErrorMessage();
  const char* prescaler = zsim_get(1, "i2c.prescaler");
  EXPECT_STREQ(prescaler ? prescaler : "(null)", "none");
  ASSERT_EQ(zsim_set(1, "eeprom.pcb.byte.0x0000", "9"), 0);
  EXPECT_EQ(GetModuleVersion(&board1, text), 0);
  EXPECT_STREQ(text, "09");
  EXPECT_EQ(GetModuleVersion(&board0, text), 0);
  EXPECT_STREQ(text, "03");
}

TEST_F(IdentityTest, ASensorThatNeverAnswersFailsAfterATenthOfASecondAndTheBoardOpens) {
  ASSERT_EQ(zsim_set(1, "sensor.fault", "no_address_ack"), 0);
  ASSERT_EQ(CreateDeviceInstance(&board1), 0) << GetErrorMessage();
  float value = -7;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(GetPCBTemperature(&board1, &value), 1);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_GE(seconds, 0.1);
  EXPECT_LT(seconds, 1.0);
  EXPECT_STREQ(GetErrorMessage(),
               "GetPCBTemperature [1]: I2CStart: нет готовности шины I2C после записи\n");
  // The text is Windows-1251 on every target: "нет" is ED E5 F2.
  EXPECT_NE(std::strstr(GetErrorMessage(), "\xED\xE5\xF2 "), nullptr);
  EXPECT_EQ(value, -7);
  EXPECT_EQ(GetModuleSerialNumber(&board1, text), 0) << "the rest of the bus is unaffected";
}

}  // namespace
