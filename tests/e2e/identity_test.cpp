// Serial numbers, versions and temperatures of a board on the virtual board, through the real
// binding and trapped register access: the EEPROM contents and sensor readings set by keys,
// the texts of a sensor that never answers, and a second board beside the first. One board is
// shared by the suite; the cases that need a fault at bring-up open board 1 of their own.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "torvixe.h"
#include "zarimsim.h"

namespace {

std::string Get(unsigned board, const char* key) {
  const char* v = zsim_get(board, key);
  return v ? v : "(unknown key)";
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class IdentityTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    zsim_reset();
    shared_up = CreateDeviceInstance(&board0) == 0;
  }
  static void TearDownTestSuite() {
    ReleaseDeviceInstance(&board0);
    zsim_reset();
  }
  // Every case starts from the default contents; board 0 stays open throughout.
  void SetUp() override {
    ASSERT_TRUE(shared_up) << GetErrorMessage();
    zsim_reset();
    ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  }
  void TearDown() override { ReleaseDeviceInstance(&board1); }

  static inline DeviceId board0{0};
  static inline bool shared_up = false;
  DeviceId board1{1};
  char text[32];
};

TEST_F(IdentityTest, TheDefaultBoardReportsItsIdentityAndTemperatures) {
  EXPECT_EQ(GetModuleSerialNumber(&board0, text), 0) << GetErrorMessage();
  EXPECT_STREQ(text, "0012345678");
  EXPECT_EQ(GetModuleVersion(&board0, text), 0) << GetErrorMessage();
  EXPECT_STREQ(text, "03");
  float pcb = 0, fpga = 0;
  EXPECT_EQ(GetPCBTemperature(&board0, &pcb), 0) << GetErrorMessage();
  EXPECT_EQ(pcb, 41.0f);
  EXPECT_EQ(GetFPGATemperature(&board0, &fpga), 0) << GetErrorMessage();
  EXPECT_EQ(fpga, 56.5f);
}

TEST_F(IdentityTest, TheModuleSerialNumberComesFromItsFourBytes) {
  const char* bytes[] = {"0x00", "0x00", "0x04", "0xD2"};
  for (int i = 0; i < 4; ++i) {
    const std::string key = "eeprom.pcb.byte.0x010" + std::to_string(i);
    ASSERT_EQ(zsim_set(0, key.c_str(), bytes[i]), 0);
  }
  EXPECT_EQ(GetModuleSerialNumber(&board0, text), 0);
  EXPECT_STREQ(text, "0000001234");
  EXPECT_EQ(Get(0, "eeprom.pcb.pointer"), "0x0104");

  // The same from a whole image, and from a file.
  std::string image(2 * 0x100, 'F');
  image.replace(0, 2, "07");
  ASSERT_EQ(zsim_set(0, "eeprom.pcb.image", (image + "80000000").c_str()), 0);
  EXPECT_EQ(GetModuleSerialNumber(&board0, text), 0);
  EXPECT_STREQ(text, "-2147483648");
  EXPECT_EQ(GetModuleVersion(&board0, text), 0);
  EXPECT_STREQ(text, "07");

  const std::filesystem::path file = std::filesystem::temp_directory_path() / "tvx_pcb_eeprom.bin";
  {
    std::string bytes_on_disk(0x104, '\xFF');
    bytes_on_disk[0] = 12;
    bytes_on_disk.replace(0x100, 4, std::string("\x49\x96\x02\xD2", 4));
    std::ofstream(file, std::ios::binary) << bytes_on_disk;
  }
  ASSERT_EQ(zsim_set(0, "eeprom.pcb.file", file.string().c_str()), 0);
  std::filesystem::remove(file);
  EXPECT_EQ(GetModuleSerialNumber(&board0, text), 0);
  EXPECT_STREQ(text, "1234567890");
  EXPECT_EQ(GetModuleVersion(&board0, text), 0);
  EXPECT_STREQ(text, "12");
}

TEST_F(IdentityTest, TemperaturesAreUnsignedWithQuarterDegrees) {
  const struct {
    const char *local, *remote, *fraction;
    float board, fpga;
  } cases[] = {{"20", "50", "0x40", 20.0f, 50.25f}, {"255", "50", "0xFF", 255.0f, 50.75f},
               {"0", "200", "0x3F", 0.0f, 200.0f}};
  for (const auto& c : cases) {
    ASSERT_EQ(zsim_set(0, "sensor.local", c.local), 0);
    ASSERT_EQ(zsim_set(0, "sensor.remote", c.remote), 0);
    ASSERT_EQ(zsim_set(0, "sensor.remote_fraction", c.fraction), 0);
    float board = -1, fpga = -1;
    EXPECT_EQ(GetPCBTemperature(&board0, &board), 0);
    EXPECT_EQ(board, c.board);
    EXPECT_EQ(GetFPGATemperature(&board0, &fpga), 0);
    EXPECT_EQ(fpga, c.fpga);
  }
}

TEST_F(IdentityTest, ASensorThatNeverAnswersFailsAfterATenthOfASecondAndTheBoardOpens) {
  ASSERT_EQ(zsim_set(1, "sensor.fault", "no_address_ack"), 0);
  ASSERT_EQ(CreateDeviceInstance(&board1), 0) << GetErrorMessage();
  EXPECT_EQ(Get(1, "sensor.reg.0x0A"), "none") << "the set-up found nobody";
  float value = -7;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(GetPCBTemperature(&board1, &value), 1);
  const double seconds = SecondsSince(start);
  EXPECT_GE(seconds, 0.1);
  EXPECT_LT(seconds, 1.0);
  EXPECT_STREQ(GetErrorMessage(),
               "GetPCBTemperature [1]: I2CStart: нет готовности шины I2C после записи\n");
  // The text is Windows-1251 on every target: "нет" is ED E5 F2.
  EXPECT_NE(std::strstr(GetErrorMessage(), "\xED\xE5\xF2 "), nullptr);
  EXPECT_EQ(value, -7);
  // The rest of the bus is unaffected.
  EXPECT_EQ(GetModuleSerialNumber(&board1, text), 0);
  EXPECT_STREQ(text, "0012345678");
}

TEST_F(IdentityTest, AFailedSerialNumberKeepsThePresetAndReleasesTheBus) {
  ASSERT_EQ(zsim_set(0, "eeprom.pcb.fault", "stuck"), 0);
  ASSERT_EQ(zsim_set(0, "eeprom.pcb.fault_after", "6"), 0);
  zsim_trace_clear(0);
  std::strcpy(text, "previous");
  EXPECT_EQ(GetModuleSerialNumber(&board0, text), 1);
  EXPECT_STREQ(GetErrorMessage(), "GetModuleSerialNumber [0]: I2CRead: нет готовности шины I2C\n");
  EXPECT_STREQ(text, "Н/Д");
  // The last thing written to the controller is the stop condition.
  std::vector<zsim_access> trace(zsim_trace(0, nullptr, 0));
  trace.resize(zsim_trace(0, trace.data(), trace.size()));
  uint32_t last_command = 0;
  for (const zsim_access& a : trace)
    if (a.write && a.addr == 0x402C) last_command = a.value;
  EXPECT_EQ(last_command, 0x300u);
}

TEST_F(IdentityTest, ASecondBoardLeavesItsControllerAsItIs) {
  ASSERT_EQ(CreateDeviceInstance(&board1), 0) << GetErrorMessage();
  // The process programmed a controller long ago; this one keeps its power-on setting.
  EXPECT_EQ(Get(1, "i2c.prescaler"), "none");
  EXPECT_EQ(Get(1, "i2c.enabled"), "1");
  EXPECT_EQ(Get(1, "sensor.reg.0x22"), "0x82");
  ASSERT_EQ(zsim_set(1, "eeprom.pcb.byte.0x0000", "9"), 0);
  EXPECT_EQ(GetModuleVersion(&board1, text), 0);
  EXPECT_STREQ(text, "09");
  EXPECT_EQ(GetModuleVersion(&board0, text), 0);
  EXPECT_STREQ(text, "03") << "each board has its own EEPROM";
}

}  // namespace
