// The virtual board's I2C controller and bus devices, driven through the library's bus
// operations: what real controllers and serial EEPROMs do that the library's reads never
// exercise (writes, wrap-around, write cycles, a disabled controller), the keys that shape
// the devices, and the documented default contents.
#include <filesystem>
#include <fstream>

#include "board/eeprom.h"
#include "board/sensor.h"
#include "i2c_fixture.h"

namespace tvx::test {
namespace {

class I2cModelTest : public I2cTest {
 protected:
  void SetUp() override {
    I2cTest::SetUp();
    Open();
  }
  uint8_t ByteAt(cFlash& chip, uint32_t address, uint32_t length) {
    uint8_t byte = 0;
    EXPECT_EQ(chip.ReadByteAt(address, length, false, &byte), 0u) << chip.GetErrorText();
    return byte;
  }
  // A page write: address bytes, then data, then the stop that starts the write cycle.
  void WriteBytes(cI2CBus& bus, uint8_t device, std::vector<uint8_t> bytes) {
    ASSERT_EQ(bus.Start(device, 0), 0u);
    for (uint8_t b : bytes) ASSERT_EQ(bus.WriteByte(b), 0u);
    bus.Stop();
  }
};

TEST_F(I2cModelTest, ADisabledControllerAnswersNothingUntilEnabled) {
  Set("i2c.power_on", "disabled");
  EXPECT_EQ(Get("i2c.enabled"), "0");
  cI2CBus bus(io());   // the process has programmed a controller already: this one stays off
  EXPECT_EQ(bus.Start(0x98, 0), 3u);
  ClearI2cPrescalerFlagForTesting();
  cI2CBus first(io());
  EXPECT_EQ(Get("i2c.enabled"), "1");
  EXPECT_EQ(first.Start(0x98, 0), 0u);
  first.Stop();
}

TEST_F(I2cModelTest, InspectingTheStatusDoesNotUseUpTheBusyTime) {
  Set("i2c.busy_polls", "3");
  // Bring-up's last stop condition may still be running: the library never waits after one.
  while (model.Read(kStatusReg) & 1) {
  }
  model.Write(kCommandReg, 0x300);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(model.Peek(kStatusReg), 1u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(model.Read(kStatusReg), 1u);
  EXPECT_EQ(model.Read(kStatusReg), 0u);
  // A command written while busy is lost.
  model.Write(kCommandReg, 0x098);
  model.Write(kCommandReg, 0x1A6);
  for (int i = 0; i < 3; ++i) model.Read(kStatusReg);
  EXPECT_EQ(model.Read(kStatusReg), 0u) << "the start was taken, the byte was not";
}

TEST_F(I2cModelTest, EepromReadsRollOverAndPageWritesWrapInsideThePage) {
  cFlash chip(io(), 0xA6);
  Set("eeprom.pcb.byte.0x1FFF", "0xAB");
  ASSERT_EQ(chip.SetAddress(0x1FFF, 2), 0u);
  ASSERT_EQ(chip.Start(0xA6, 1), 0u);
  uint8_t last = 0, first = 0;
  ASSERT_EQ(chip.ReadByte(true, &last), 0u);
  ASSERT_EQ(chip.ReadByte(false, &first), 0u);
  chip.Stop();
  EXPECT_EQ(last, 0xAB);
  EXPECT_EQ(first, 3) << "the module version, at 0x0000";
  EXPECT_EQ(Get("eeprom.pcb.pointer"), "0x0001");

  WriteBytes(chip, 0xA6, {0x00, 0x1E, 1, 2, 3, 4});
  EXPECT_EQ(Get("eeprom.pcb.byte.0x001E"), "0x01");
  EXPECT_EQ(Get("eeprom.pcb.byte.0x001F"), "0x02");
  EXPECT_EQ(Get("eeprom.pcb.byte.0x0000"), "0x03");
  EXPECT_EQ(Get("eeprom.pcb.byte.0x0001"), "0x04");
  EXPECT_EQ(Get("eeprom.pcb.byte.0x0020"), "0xFF");
}

TEST_F(I2cModelTest, AWriteWithoutItsStopIsDropped) {
  cI2CBus bus(io());
  ASSERT_EQ(bus.Start(0xA6, 0), 0u);
  for (uint8_t b : {0x00, 0x40, 0x99}) ASSERT_EQ(bus.WriteByte(b), 0u);
  ASSERT_EQ(bus.Start(0xA6, 1), 0u);   // a repeated start
  bus.Stop();
  EXPECT_EQ(Get("eeprom.pcb.byte.0x0040"), "0xFF");
  Restart();
  EXPECT_EQ(bus.Start(0xA6, 0), 0u);
  EXPECT_EQ(Commands().size(), 1u) << "no write cycle to wait for";
  bus.Stop();
}

// Each convertor carries its own EEPROM at 0xA0; only the fitted one answers.
TEST_F(I2cModelTest, TheConvertorEepromFollowsThePresenceBit) {
  cFlash chip(io(), 0xA0);
  EXPECT_EQ(ByteAt(chip, 0x0084, 2), 2);
  EXPECT_EQ(Get("eeprom.lconv.pointer"), "0x0085");
  Set("lconv.present", "0");
  EXPECT_EQ(ByteAt(chip, 0x0D, 1), 40);
  EXPECT_EQ(Get("eeprom.lconv2.pointer"), "0x000E");
  EXPECT_EQ(Get("eeprom.lconv.pointer"), "0x0085");
  // Two address bytes to a one-byte chip: the second is data, and it is written; the read
  // that follows finds the byte after it.
  EXPECT_EQ(ByteAt(chip, 0x0084, 2), 25);
  EXPECT_EQ(Get("eeprom.lconv2.byte.0x00"), "0x84");
}

TEST_F(I2cModelTest, AHeldBusComesBackWhenTheDeviceLetsGo) {
  cI2CBus bus(io());
  Set("sensor.fault", "stuck");
  EXPECT_EQ(bus.Start(0x98, 0), 2u);
  EXPECT_EQ(bus.Start(0xA6, 0), 1u) << "every device is cut off";
  Set("sensor.fault", "none");
  EXPECT_EQ(bus.Start(0xA6, 0), 0u);
  bus.Stop();
}

TEST_F(I2cModelTest, SensorRegistersKeepWhatWasWritten) {
  cSensor sensor(io());
  uint8_t value = 0;
  ASSERT_EQ(sensor.WriteRegister(0x30, 0x5A), 0u);
  ASSERT_EQ(sensor.ReadRegister(0x30, &value), 0u);
  EXPECT_EQ(value, 0x5A);
  EXPECT_EQ(Get("sensor.reg.0x30"), "0x5A");
  EXPECT_EQ(Get("sensor.reg.0x31"), "none");
  EXPECT_EQ(Get("sensor.reg.0x100"), "<unknown>");
  // Writes to the temperature registers do not change what they read.
  ASSERT_EQ(sensor.WriteRegister(0x01, 0x10), 0u);
  float fpga = 0;
  ASSERT_EQ(sensor.ReadFpgaTemperature(&fpga), 0u);
  EXPECT_EQ(fpga, 56.5f);
}

TEST_F(I2cModelTest, ImageKeysSetReadBackAndRefuseBadValues) {
  Set("eeprom.pcb.image", "0102 03");
  EXPECT_EQ(Get("eeprom.pcb.image"), "010203");
  EXPECT_EQ(Get("eeprom.pcb.byte.0x0003"), "0xFF");
  for (const char* bad : {"010", "0g", "0 1", "-1"})
    EXPECT_EQ(model.Set("eeprom.pcb.image", bad), zsim::BoardModel::kBadValue) << bad;
  EXPECT_EQ(model.Set("eeprom.lconv2.image", std::string(2 * 257, 'A')),
            zsim::BoardModel::kBadValue);
  EXPECT_EQ(Get("eeprom.pcb.image"), "010203") << "a refused value changes nothing";
  EXPECT_EQ(model.Set("eeprom.lconv2.byte.0x100", "1"), zsim::BoardModel::kUnknownKey);
  EXPECT_EQ(model.Set("eeprom.lconv2.byte.0xFF", "256"), zsim::BoardModel::kBadValue);
  Set("eeprom.pcb.image", "default");
  EXPECT_EQ(Get("eeprom.pcb.image").substr(0, 8), "03FF07D0");

  const std::filesystem::path file =
      std::filesystem::temp_directory_path() / "tvx_i2c_model_test.bin";
  {
    std::ofstream out(file, std::ios::binary);
    out << std::string("\x11\x22\xFF\x33", 4);
  }
  Set("eeprom.lconv2.file", file.string());
  EXPECT_EQ(Get("eeprom.lconv2.image"), "1122FF33");
  EXPECT_EQ(Get("eeprom.lconv2.file"), file.string());
  {
    std::ofstream out(file, std::ios::binary);
    out << std::string(257, '\x01');
  }
  EXPECT_EQ(model.Set("eeprom.lconv2.file", file.string()), zsim::BoardModel::kBadValue);
  std::filesystem::remove(file);
  EXPECT_EQ(model.Set("eeprom.lconv2.file", file.string()), zsim::BoardModel::kBadValue);
  model.Reset();
  EXPECT_EQ(Get("eeprom.lconv2.file"), "");
  EXPECT_EQ(Get("eeprom.lconv2.image").substr(0, 4), "1419");
}

std::string Erased(size_t bytes) { return std::string(2 * bytes, 'F'); }

// docs/virtual-board.md lists these contents; the board must hold exactly them.
TEST_F(I2cModelTest, TheDefaultContentsAreTheDocumentedOnes) {
  EXPECT_EQ(Get("eeprom.pcb.image"),
            "03" + Erased(1) + "07D0079E00320028" + Erased(6) + "0C" + Erased(0x100 - 0x11) +
                "00BC614E");
  std::string lconv;
  for (int e = 0; e < 25; ++e) {
    char entry[16];
    std::snprintf(entry, sizeof entry, "%04X", 2000 + 500 * e);
    lconv += entry + (e < 24 ? Erased(2) : "");
  }
  EXPECT_EQ(Get("eeprom.lconv.image"), lconv + Erased(0x80 - 0x62) + "00030D41" + "02");
  std::string plain;
  for (int i = 0; i < 26; ++i) {
    char pair[8];
    std::snprintf(pair, sizeof pair, "%02X%02X", 20 + 5 * i, 25 + 5 * i);
    plain += pair + (i < 25 ? Erased(2) : "");
  }
  EXPECT_EQ(Get("eeprom.lconv2.image"), plain);
  EXPECT_EQ(Get("sensor.local"), "41");
  EXPECT_EQ(Get("sensor.remote"), "56");
  EXPECT_EQ(Get("sensor.remote_fraction"), "0x00000080");
}

}  // namespace
}  // namespace tvx::test
