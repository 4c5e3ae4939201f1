// The virtual board's I2C controller and bus devices, driven through the library's bus
// operations: what real controllers and serial EEPROMs do that the library's reads never
// exercise (writes, wrap-around, a disabled controller), the keys that shape the devices, and
// the documented default contents.
#include <filesystem>
#include <fstream>

#include "board/eeprom.h"
#include "i2c_fixture.h"

namespace tvx::test {
namespace {

class I2cModelTest : public I2cTest {
 protected:
  void SetUp() override {
    I2cTest::SetUp();
    Open();
  }
};

TEST_F(I2cModelTest, ADisabledControllerAnswersNothingUntilEnabled) {
  Set("i2c.power_on", "disabled");
  cI2CBus bus(io());   // the process has programmed a controller already: this one stays off
  EXPECT_EQ(bus.Start(0x98, 0), 3u);
  ClearI2cPrescalerFlagForTesting();
  cI2CBus first(io());
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

// Reads roll over at the end of the chip, page writes wrap inside their 32-byte page, and a
// write ended by a repeated start instead of a stop is dropped.
TEST_F(I2cModelTest, EepromRollOverPageWrapAndDroppedWrites) {
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

  ASSERT_EQ(chip.Start(0xA6, 0), 0u);
  for (uint8_t b : {0x00, 0x1E, 1, 2, 3}) ASSERT_EQ(chip.WriteByte(b), 0u);
  chip.Stop();
  EXPECT_EQ(Get("eeprom.pcb.byte.0x001F"), "0x02");
  EXPECT_EQ(Get("eeprom.pcb.byte.0x0000"), "0x03");
  EXPECT_EQ(Get("eeprom.pcb.byte.0x0020"), "0xFF");

  ASSERT_EQ(chip.Start(0xA6, 0), 0u);
  for (uint8_t b : {0x00, 0x40, 0x99}) ASSERT_EQ(chip.WriteByte(b), 0u);
  ASSERT_EQ(chip.Start(0xA6, 1), 0u);
  chip.Stop();
  EXPECT_EQ(Get("eeprom.pcb.byte.0x0040"), "0xFF");
}

TEST_F(I2cModelTest, ImageKeysSetReadBackAndRefuseBadValues) {
  Set("eeprom.pcb.image", "0102 03");
  EXPECT_EQ(Get("eeprom.pcb.image"), "010203");
  EXPECT_EQ(Get("eeprom.pcb.byte.0x0003"), "0xFF");
  for (const std::string& bad : {std::string("010"), std::string("0g"), std::string(2 * 0x2001, 'A')})
    EXPECT_EQ(model.Set("eeprom.pcb.image", bad), zsim::BoardModel::kBadValue) << bad;
  EXPECT_EQ(Get("eeprom.pcb.image"), "010203") << "a refused value changes nothing";
  EXPECT_EQ(model.Set("eeprom.lconv2.byte.0x100", "1"), zsim::BoardModel::kUnknownKey);
  EXPECT_EQ(model.Set("eeprom.lconv2.byte.0xFF", "256"), zsim::BoardModel::kBadValue);

  const std::filesystem::path file =
      std::filesystem::temp_directory_path() / "tvx_i2c_model_test.bin";
  std::ofstream(file, std::ios::binary) << std::string("\x11\x22\xFF\x33", 4);
  Set("eeprom.lconv2.file", file.string());
  EXPECT_EQ(Get("eeprom.lconv2.image"), "1122FF33");
  std::filesystem::remove(file);
  EXPECT_EQ(model.Set("eeprom.lconv2.file", file.string()), zsim::BoardModel::kBadValue);
  model.Reset();
  EXPECT_EQ(Get("eeprom.lconv2.image").substr(0, 4), "1419");
}

std::string Erased(size_t bytes) { return std::string(2 * bytes, 'F'); }

// docs/virtual-board.md lists these contents; the board must hold exactly them.
TEST_F(I2cModelTest, TheDefaultContentsAreTheDocumentedOnes) {
  EXPECT_EQ(Get("eeprom.pcb.image"),
            "03" + Erased(1) + "07D0079E00320028" + Erased(6) + "0C" + Erased(0x100 - 0x11) +
                "00BC614E");
  std::string lconv, plain;
  char entry[16];
  for (int e = 0; e < 25; ++e) {
    std::snprintf(entry, sizeof entry, "%04X", 2000 + 500 * e);
    lconv += entry + (e < 24 ? Erased(2) : "");
  }
  EXPECT_EQ(Get("eeprom.lconv.image"), lconv + Erased(0x80 - 0x62) + "00030D41" + "02");
  for (int i = 0; i < 26; ++i) {
    std::snprintf(entry, sizeof entry, "%02X%02X", 20 + 5 * i, 25 + 5 * i);
    plain += entry + (i < 25 ? Erased(2) : "");
  }
  EXPECT_EQ(Get("eeprom.lconv2.image"), plain);
}

}  // namespace
}  // namespace tvx::test
