// The ADC's serial port and load in process: the model answers only a transfer sent in the
// right order, so its answers check the protocol.
#include "board_fixture.h"
#include "rf/adc.h"

namespace tvx::test {
namespace {

class AdcTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
    clock.sleeps.clear();
  }
  cADC* adc() const { return board()->Get<cADC>(Slot::Adc); }
  uint16_t Read(uint16_t address) {
    uint16_t value = 0xFFFF;
    EXPECT_EQ(adc()->ReadRegister(&address, &value), 0);
    return value;
  }
  DeviceId id{0};
};

// Most significant bit first both ways; a data line stuck high reads 0xFF, stuck low 0.
TEST_F(AdcTest, RegisterReadsAndWrites) {
  Set("adc.id", "0xA5");
  EXPECT_EQ(Read(0x01), 0xA5);
  for (const auto& [forced, value] : {std::pair{"0x4000", 0xFF}, std::pair{"0", 0}}) {
    Set("reg.0x8018", forced);
    EXPECT_EQ(Read(0x02), value);
  }
  const uint16_t mode = 0x14, update = 0xFF, one = 1, three = 3;
  EXPECT_EQ(adc()->WriteRegister(&mode, &three) + adc()->WriteRegister(&update, &one), 0);
  EXPECT_EQ(Get("adc.output_mode"), "0x00") << "an update before the mode settled";
  clock.now += 10000;
  EXPECT_EQ(adc()->WriteRegister(&update, &one), 0);
  EXPECT_EQ(Get("adc.output_mode"), "0x03");
}

// Identification 12 and speed-grade bits 00 or 01 load (output mode 1, then the update); any
// other answer stops before anything is written to the converter. Channel 2 listens on DEM
// word 96 and stays there.
TEST_F(AdcTest, LoadChecksIdentityAndSpeedOnEachChannel) {
  const struct { const char* id, *speed; int32_t result; const char* text, *mode; } cases[] = {
      {"12", "0xE7", 0, "", "0x01"},
      {"12", "0x10", 2, "ADCLoad [0]: Неверная скорость АЦП\n", "0x00"},
      {"13", "0x08", 2, "ADCLoad [0]: АЦП не найден\n", "0x00"}};
  for (const auto& c : cases) {
    model.Reset();
    Set("adc.id", c.id), Set("adc.speed", c.speed);
    LastErrorText[0] = '\0';
    EXPECT_EQ(ADCLoad(&id), c.result) << c.id << " " << c.speed;
    EXPECT_STREQ(GetErrorMessage(), c.text);
    EXPECT_EQ(Get("adc.output_mode"), c.mode);
  }
  model.Reset();
  clock.sleeps.clear();
  Set("reg.0x8018", "0");
  EXPECT_EQ(ADCLoadMulti(&id), 0) << GetErrorMessage();
  EXPECT_EQ(clock.ms(), (std::vector<uint32_t>{10, 10}));
  EXPECT_EQ(Read(0x01), 12) << "still on channel 2";
  Set("reg.0x8180", "0");
  EXPECT_EQ(ADCLoadMulti(&id), 2);
  EXPECT_STREQ(GetErrorMessage(), "ADCLoadMulti [0]: АЦП не найден\n");
  Set("adc.counter", "0xA7");
  EXPECT_EQ(adc()->ReadCounter(), 0xA7u);
}

}  // namespace
}  // namespace tvx::test
