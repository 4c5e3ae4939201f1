// The EEPROM reads: addressing, pauses, byte order and sign of every reading, the identity
// texts and their presets, and the exports around them.
#include <cstring>

#include "board/eeprom.h"
#include "i2c_fixture.h"

namespace tvx::test {
namespace {

using Commands_ = std::vector<uint32_t>;

class EepromTest : public I2cTest {
 protected:
  void SetUp() override {
    I2cTest::SetUp();
    Open();
  }
  cEepromPCB* pcb() const { return board()->Get<cEepromPCB>(Slot::EepromPcb); }
  cEepromLConv* lconv() const { return board()->Get<cEepromLConv>(Slot::EepromLConv); }
  void Bytes(const char* chip, uint32_t at, std::vector<uint8_t> bytes) {
    char key[40];
    for (uint8_t b : bytes) {
      std::snprintf(key, sizeof key, "eeprom.%s.byte.0x%04X", chip, at++);
      Set(key, std::to_string(b));
    }
  }
  void Fault(const char* chip, const char* fault, const char* after = "0") {
    Set(std::string("eeprom.") + chip + ".fault", fault);
    Set(std::string("eeprom.") + chip + ".fault_after", after);
  }
};

// A caller's buffer that shows how much of it was written.
struct Text {
  char bytes[24];
  Text() { std::memset(bytes, '#', sizeof bytes); }
  size_t Touched() const {
    size_t n = sizeof bytes;
    while (n > 0 && bytes[n - 1] == '#') --n;
    return n;
  }
};

// Serial numbers are big-endian and print signed; versions at least two digits. A serial
// number is one sequential read of four bytes without pauses. (The L-convertor's go through
// the same code from their own addresses: the identity exports' case reads them.)
TEST_F(EepromTest, SerialNumbersAndVersions) {
  const struct {
    std::vector<uint8_t> serial;
    const char* serial_text;
    uint8_t version;
    const char* version_text;
  } cases[] = {{{0x00, 0x00, 0x04, 0xD2}, "0000001234", 4, "04"},
               {{0x80, 0x00, 0x00, 0x00}, "-2147483648", 0, "00"},
               {{0xFF, 0xFF, 0xFF, 0xFF}, "-0000000001", 255, "255"}};
  for (const auto& c : cases) {
    Bytes("pcb", 0x0100, c.serial);
    Bytes("pcb", 0x0000, {c.version});
    Text serial, version;
    Restart();
    EXPECT_EQ(GetModuleSerialNumber(&id, serial.bytes), 0) << c.serial_text;
    EXPECT_STREQ(serial.bytes, c.serial_text);
    EXPECT_LE(serial.Touched(), kSerialTextSize);
    EXPECT_EQ(Commands(), (Commands_{0x0A6, 0x101, 0x100, 0x300, 0x0A7, 0x200, 0x200, 0x200, 0x2FF, 0x300}));
    EXPECT_TRUE(clock.sleeps.empty());
    EXPECT_EQ(GetModuleVersion(&id, version.bytes), 0);
    EXPECT_STREQ(version.bytes, c.version_text);
    EXPECT_LE(version.Touched(), kVersionTextSize);
  }
}

// A failure ends the read with its code and leaves the preset text. Stuck at the third data
// byte, the read stops there; a refused address, also when it comes only at the start for
// reading (after the address was set), is the start's failure.
TEST_F(EepromTest, FailuresKeepTheirCodeAndThePreset) {
  Fault("pcb", "stuck", "6");
  Text text;
  std::strcpy(text.bytes, "previous");
  EXPECT_EQ(GetModuleSerialNumber(&id, text.bytes), 1);
  EXPECT_STREQ(GetErrorMessage(), "GetModuleSerialNumber [0]: I2CRead: нет готовности шины I2C\n");
  EXPECT_STREQ(text.bytes, "Н/Д");
  EXPECT_EQ(Commands(), (Commands_{0x0A6, 0x101, 0x100, 0x300, 0x0A7, 0x200, 0x200, 0x200, 0x300}));
  const std::string refused = "I2CStart: нет готовности шины I2C после записи\n";
  for (const char* after : {"0", "3"}) {
    Fault("pcb", "no_address_ack", after);
    EXPECT_EQ(GetModuleSerialNumber(&id, text.bytes), 1);
    EXPECT_EQ(GetErrorMessage(), "GetModuleSerialNumber [0]: " + refused);
  }
  Fault("pcb", "no_address_ack");
  EXPECT_EQ(GetModuleVersion(&id, text.bytes), 1);
  EXPECT_EQ(GetErrorMessage(), "GetModuleVersion [0]: " + refused);
  EXPECT_STREQ(text.bytes, "n/a");
}

// A single byte: address set, pause, start for reading, pause, the byte unacknowledged (the
// receive register read), pause, stop.
TEST_F(EepromTest, SingleByteReadPausesAfterEachStep) {
  Text text;
  ASSERT_EQ(GetModuleVersion(&id, text.bytes), 0);
  EXPECT_EQ(Commands(), (Commands_{0x0A6, 0x100, 0x100, 0x300, 0x0A7, 0x2FF, 0x300}));
  ASSERT_EQ(clock.sleeps.size(), 3u);
  const uint32_t before_each[] = {0x300, 0x0A7, 0x2FF};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(clock.sleeps[i].ms, 10u);
    EXPECT_EQ(Commands(clock.sleeps[i].after_accesses).back(), before_each[i]) << "pause " << i;
  }
  EXPECT_EQ(model.Trace()[clock.sleeps[2].after_accesses - 1].addr, 0x4020u);
}

// Voltage maxima are unsigned and 0xFFFF means "not written" (-10); minima are signed. The
// calibration is signed tenths of a dB, and 0 when it cannot be read.
TEST_F(EepromTest, VoltageLimitsAndCalibrationKeepTheirSign) {
  const struct {
    uint8_t preselector;
    std::vector<uint8_t> word;
    uint32_t max_code;
    double max, min;
  } cases[] = {{1, {0xFF, 0xFE}, 0, 655.34, -0.02},
               {2, {0x80, 0x00}, 0, 327.68, -327.68},
               {1, {0xFF, 0xFF}, 0xFFFFFFF6u, -99, -0.01}};
  for (const auto& c : cases) {
    Bytes("pcb", 2 * c.preselector, c.word);
    Bytes("pcb", 2 * c.preselector + 4, c.word);
    double max = -99, min = -99;
    EXPECT_EQ(pcb()->ReadMaxVoltage(c.preselector, &max), c.max_code);
    EXPECT_DOUBLE_EQ(max, c.max) << "nothing delivered when not written";
    EXPECT_EQ(pcb()->ReadMinVoltage(c.preselector, &min), 0u);
    EXPECT_DOUBLE_EQ(min, c.min);
  }
  EXPECT_STREQ(pcb()->GetErrorText(), "максимальное напряжение преселектора не записано");
  for (const auto& [byte, db] : {std::pair{0x0C, 1.2}, std::pair{0x80, -12.8}}) {
    Bytes("pcb", 0x0010, {uint8_t(byte)});
    double read = -99;
    EXPECT_EQ(pcb()->ReadCalibration(&read), 0u);
    EXPECT_DOUBLE_EQ(read, db);
  }
  Fault("pcb", "no_address_ack");
  double v = -99;
  EXPECT_EQ(std::pair(pcb()->ReadMaxVoltage(1, &v), pcb()->ReadMinVoltage(1, &v)), std::pair(3u, 3u));
  EXPECT_EQ(v, -99);
  EXPECT_EQ(pcb()->ReadCalibration(&v), 0u);
  EXPECT_EQ(v, 0.0);
  EXPECT_STREQ(pcb()->GetErrorText(), "I2CStart: нет готовности шины I2C после записи");
}

// A control voltage is two single-byte reads with a pause after each step (80 ms), in
// millivolts.
TEST_F(EepromTest, ControlVoltages) {
  double volts = 0;
  ASSERT_EQ(lconv()->ReadControlVoltage(3, &volts), 0u);
  EXPECT_DOUBLE_EQ(volts, 3.5) << "default table: 2.000 V + 0.500 V per entry";
  EXPECT_EQ(clock.sleeps.size(), 8u);
  Bytes("lconv", 4 * 255, {0xFF, 0xFF});
  ASSERT_EQ(lconv()->ReadControlVoltage(255, &volts), 0u);
  EXPECT_DOUBLE_EQ(volts, 65.535) << "entry 255 lies at 1020, unsigned";
  Restart();
  Fault("lconv", "no_address_ack");
  EXPECT_EQ(lconv()->ReadControlVoltage(0, &volts), 3u);
  EXPECT_EQ(volts, 65.535);
  EXPECT_TRUE(clock.sleeps.empty()) << "no pause after a failed step";
}

// The L-convertor's exports answer for the convertor types whose EEPROM has the data; for the
// others they touch neither the buffer nor the bus. (Null buffers and boards without a
// convertor are the bad-input walk's.)
TEST_F(EepromTest, IdentityExportsNeedAConvertorTypeWithTheData) {
  Text text;
  EXPECT_EQ(GetLConvertorSerialNumber(&id, text.bytes), 0) << GetErrorMessage();
  EXPECT_STREQ(text.bytes, "0000200001");
  for (uint8_t type : {2, 255}) {
    board()->LConvertorType = type;
    Restart();
    Text untouched;
    EXPECT_EQ(GetLConvertorSerialNumber(&id, untouched.bytes), -2);
    EXPECT_STREQ(GetErrorMessage(),
                 "GetLConvertorSerialNumber [0]: SN is not supported for current L-convertor\n");
    EXPECT_EQ(GetLConvertorVersion(&id, untouched.bytes), -2);
    EXPECT_STREQ(GetErrorMessage(),
                 "GetLConvertorVersion [0]: Version is not supported in that L-convertor\n");
    EXPECT_EQ(untouched.Touched(), 0u);
    EXPECT_TRUE(model.Trace().empty());
  }
  board()->LConvertorType = 6;
  EXPECT_EQ(GetLConvertorVersion(&id, text.bytes), 0);
  EXPECT_STREQ(text.bytes, "02");
  Fault("lconv", "no_address_ack");
  EXPECT_EQ(GetLConvertorVersion(&id, text.bytes), 1);
  EXPECT_STREQ(GetErrorMessage(),
               "GetLConvertorVersion [0]: I2CStart: нет готовности шины I2C после записи\n");
  EXPECT_STREQ(text.bytes, "Н/Д");
}

}  // namespace
}  // namespace tvx::test
