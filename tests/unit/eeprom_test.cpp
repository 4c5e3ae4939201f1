// The EEPROM reads: addressing, pauses, byte order and sign of every reading, the identity
// texts and their presets, and the exports around them.
#include <cstring>

#include "board/eeprom.h"
#include "i2c_fixture.h"

namespace tvx::test {
namespace {

class EepromTest : public I2cTest {
 protected:
  void SetUp() override {
    I2cTest::SetUp();
    Open();
  }
  cEepromPCB* pcb() const { return Module<cEepromPCB>(Slot::EepromPcb); }
  cEepromLConv* lconv() const { return Module<cEepromLConv>(Slot::EepromLConv); }
  void Bytes(const char* chip, uint32_t at, std::vector<uint8_t> bytes) {
    for (uint8_t b : bytes) {
      char key[40];
      std::snprintf(key, sizeof key, "eeprom.%s.byte.0x%04X", chip, at++);
      Set(key, std::to_string(b));
    }
  }
};

// A caller's buffer with room to show anything written past the text.
struct Text {
  char bytes[24];
  Text() { std::memset(bytes, '#', sizeof bytes); }
  size_t Touched() const {
    size_t n = sizeof bytes;
    while (n > 0 && bytes[n - 1] == '#') --n;
    return n;
  }
};

TEST_F(EepromTest, SerialNumbersAreBigEndianAndPrintSigned) {
  const struct {
    std::vector<uint8_t> bytes;
    const char* text;
  } cases[] = {{{0x00, 0x00, 0x04, 0xD2}, "0000001234"},
               {{0x00, 0xBC, 0x61, 0x4E}, "0012345678"},
               {{0x7F, 0xFF, 0xFF, 0xFF}, "2147483647"},
               {{0x80, 0x00, 0x00, 0x00}, "-2147483648"},
               {{0xFF, 0xFF, 0xFF, 0xFF}, "-0000000001"},
               {{0x00, 0x00, 0x00, 0x00}, "0000000000"}};
  for (const auto& c : cases) {
    Bytes("pcb", 0x0100, c.bytes);
    Text text;
    EXPECT_EQ(GetModuleSerialNumber(&id, text.bytes), 0) << c.text;
    EXPECT_STREQ(text.bytes, c.text);
    EXPECT_LE(text.Touched(), kSerialTextSize);
    // The L-convertor's serial number has the same shape at 0x0080.
    Bytes("lconv", 0x0080, c.bytes);
    Text lconv_text;
    EXPECT_EQ(lconv()->ReadSerialNumber(lconv_text.bytes), 0u);
    EXPECT_STREQ(lconv_text.bytes, c.text);
  }
}

// One sequential read of four bytes, no pauses.
TEST_F(EepromTest, ASerialNumberIsOneTransactionWithoutPauses) {
  Text text;
  ASSERT_EQ(GetModuleSerialNumber(&id, text.bytes), 0);
  EXPECT_EQ(Commands(), (std::vector<uint32_t>{0x0A6, 0x101, 0x100, 0x300, 0x0A7, 0x200, 0x200,
                                               0x200, 0x2FF, 0x300}));
  EXPECT_TRUE(clock.sleeps.empty());
  EXPECT_EQ(Get("eeprom.pcb.pointer"), "0x0104");
}

TEST_F(EepromTest, ASerialNumberFailingOnItsThirdByteStopsAndKeepsThePreset) {
  // Address byte, two address bytes, address byte, two data bytes: then the bus is held.
  Set("eeprom.pcb.fault", "stuck");
  Set("eeprom.pcb.fault_after", "6");
  Text text;
  std::strcpy(text.bytes, "previous");
  EXPECT_EQ(GetModuleSerialNumber(&id, text.bytes), 1);
  EXPECT_STREQ(GetErrorMessage(), "GetModuleSerialNumber [0]: I2CRead: нет готовности шины I2C\n");
  EXPECT_STREQ(text.bytes, "Н/Д");
  EXPECT_EQ(Commands(),
            (std::vector<uint32_t>{0x0A6, 0x101, 0x100, 0x300, 0x0A7, 0x200, 0x200, 0x200, 0x300}))
      << "no fourth byte, and the stop condition all the same";
}

TEST_F(EepromTest, FailuresBeforeTheDataKeepTheirCodeAndThePreset) {
  const struct {
    const char* fault;
    const char* after;
    const char* message;
  } cases[] = {
      {"no_address_ack", "0", "I2CStart: нет готовности шины I2C после записи"},
      {"no_data_ack", "1", "I2CWrite: нет ответа шины I2C"},
      // Refused only when addressed for reading, after the address was set.
      {"no_address_ack", "3", "I2CStart: нет готовности шины I2C после записи"},
  };
  for (const auto& c : cases) {
    Set("eeprom.pcb.fault", c.fault);
    Set("eeprom.pcb.fault_after", c.after);
    Text serial, version;
    EXPECT_EQ(GetModuleSerialNumber(&id, serial.bytes), 1);
    EXPECT_EQ(GetErrorMessage(), std::string("GetModuleSerialNumber [0]: ") + c.message + "\n");
    EXPECT_STREQ(serial.bytes, "Н/Д");
    Set("eeprom.pcb.fault_after", c.after);
    EXPECT_EQ(GetModuleVersion(&id, version.bytes), 1);
    EXPECT_EQ(GetErrorMessage(), std::string("GetModuleVersion [0]: ") + c.message + "\n");
    EXPECT_STREQ(version.bytes, "n/a");
  }
  Set("eeprom.pcb.fault", "none");
  Text version;
  EXPECT_EQ(lconv()->ReadVersion(version.bytes), 0u);
  Set("eeprom.lconv.fault", "no_address_ack");
  EXPECT_EQ(lconv()->ReadVersion(version.bytes), 3u);
  EXPECT_STREQ(version.bytes, "Н/Д");
}

TEST_F(EepromTest, VersionsAreAtLeastTwoDigits) {
  const struct {
    uint8_t byte;
    const char* text;
  } cases[] = {{4, "04"}, {0, "00"}, {99, "99"}, {200, "200"}, {255, "255"}};
  for (const auto& c : cases) {
    Bytes("pcb", 0x0000, {c.byte});
    Bytes("lconv", 0x0084, {c.byte});
    Text module, lconv_text;
    EXPECT_EQ(GetModuleVersion(&id, module.bytes), 0);
    EXPECT_STREQ(module.bytes, c.text);
    EXPECT_LE(module.Touched(), kVersionTextSize);
    EXPECT_EQ(lconv()->ReadVersion(lconv_text.bytes), 0u);
    EXPECT_STREQ(lconv_text.bytes, c.text);
  }
}

// Address set, pause, start for reading, pause, the byte unacknowledged, pause, stop.
TEST_F(EepromTest, ASingleByteReadPausesAfterEachStep) {
  Text text;
  ASSERT_EQ(GetModuleVersion(&id, text.bytes), 0);
  EXPECT_EQ(Commands(), (std::vector<uint32_t>{0x0A6, 0x100, 0x100, 0x300, 0x0A7, 0x2FF, 0x300}));
  ASSERT_EQ(clock.sleeps.size(), 3u);
  const uint32_t before_each[] = {0x300, 0x0A7, 0x2FF};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(clock.sleeps[i].ms, 10u);
    EXPECT_EQ(LastCommandWithin(clock.sleeps[i].after_accesses), before_each[i]) << "pause " << i;
  }
  // The receive register was read before the last pause.
  const std::vector<zsim_access> trace = model.Trace();
  EXPECT_EQ(trace[clock.sleeps[2].after_accesses - 1].addr, 0x4020u);
  EXPECT_EQ(trace.back().value, 0x300u);
}

TEST_F(EepromTest, ReadByteAtUsesTheAddressLengthAndAcknowledgeFlag) {
  uint8_t byte = 0;
  ASSERT_EQ(pcb()->ReadByteAt(0x0110, 1, true, &byte), 0u);
  EXPECT_EQ(Commands(), (std::vector<uint32_t>{0x0A6, 0x110, 0x300, 0x0A7, 0x200, 0x300}));
}

TEST_F(EepromTest, AWordIsOneTransactionHighByteFirst) {
  Bytes("pcb", 0x0040, {0x12, 0x34});
  uint16_t word = 0;
  ASSERT_EQ(pcb()->ReadWordAt(0x0040, 2, &word), 0u);
  EXPECT_EQ(word, 0x1234);
  EXPECT_EQ(Commands(),
            (std::vector<uint32_t>{0x0A6, 0x100, 0x140, 0x300, 0x0A7, 0x200, 0x2FF, 0x300}));
  EXPECT_TRUE(clock.sleeps.empty());

  // A byte that does not come ends the read without a stop condition.
  Restart();
  Set("eeprom.pcb.fault", "stuck");
  Set("eeprom.pcb.fault_after", "5");
  word = 0xAAAA;
  EXPECT_EQ(pcb()->ReadWordAt(0x0040, 2, &word), 1u);
  EXPECT_EQ(word, 0xAAAA);
  EXPECT_EQ(Commands().back(), 0x2FFu);
}

TEST_F(EepromTest, VoltageLimitsKeepTheirSignAndTheUnwrittenMarker) {
  struct Case {
    uint8_t preselector;
    std::vector<uint8_t> word;
    uint32_t max_code;
    double max, min;
  };
  const Case cases[] = {
      {1, {0x07, 0xD0}, 0, 20.00, 20.00},
      {1, {0xFF, 0xFE}, 0, 655.34, -0.02},
      {2, {0xFF, 0x9C}, 0, 654.36, -1.00},
      {2, {0x80, 0x00}, 0, 327.68, -327.68},
      {1, {0xFF, 0xFF}, 0xFFFFFFF6u, 0, -0.01},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(int(c.word[0]) * 256 + c.word[1]);
    Bytes("pcb", 2 * c.preselector, c.word);
    Bytes("pcb", 2 * c.preselector + 4, c.word);
    double max = -99, min = -99;
    EXPECT_EQ(pcb()->ReadMaxVoltage(c.preselector, &max), c.max_code);
    if (c.max_code == 0) {
      EXPECT_DOUBLE_EQ(max, c.max);
    } else {
      EXPECT_EQ(max, -99) << "nothing delivered";
      EXPECT_STREQ(pcb()->GetErrorText(), "максимальное напряжение преселектора не записано");
    }
    EXPECT_EQ(pcb()->ReadMinVoltage(c.preselector, &min), 0u);
    EXPECT_DOUBLE_EQ(min, c.min);
  }
  // Bus failures pass their code through.
  Set("eeprom.pcb.fault", "no_address_ack");
  double v = -99;
  EXPECT_EQ(pcb()->ReadMaxVoltage(1, &v), 3u);
  EXPECT_EQ(pcb()->ReadMinVoltage(1, &v), 3u);
  EXPECT_EQ(v, -99);
}

// Two single-byte reads with a pause after each: 80 ms of pauses in all.
TEST_F(EepromTest, AControlVoltageIsTwoByteReadsInMillivolts) {
  double volts = 0;
  ASSERT_EQ(lconv()->ReadControlVoltage(3, &volts), 0u);
  EXPECT_DOUBLE_EQ(volts, 3.5) << "default table: 2.000 V + 0.500 V per entry";
  uint32_t paused = 0;
  for (const auto& s : clock.sleeps) paused += s.ms;
  EXPECT_EQ(paused, 80u);
  EXPECT_EQ(clock.sleeps.size(), 8u);

  Bytes("lconv", 4 * 255, {0xFF, 0xFF});
  ASSERT_EQ(lconv()->ReadControlVoltage(255, &volts), 0u);
  EXPECT_DOUBLE_EQ(volts, 65.535) << "entry 255 lies at 1020, unsigned";

  Restart();
  Set("eeprom.lconv.fault", "no_address_ack");
  volts = -1;
  EXPECT_EQ(lconv()->ReadControlVoltage(0, &volts), 3u);
  EXPECT_EQ(volts, -1);
  EXPECT_EQ(clock.sleeps.size(), 0u) << "no pause after a failed step";
}

// The two-preselector convertor's EEPROM takes one address byte.
TEST_F(EepromTest, AControlByteIsReadWithOneAddressByte) {
  Set("lconv.present", "0");
  uint8_t byte = 0;
  ASSERT_EQ(lconv()->ReadControlByte(2, 3, &byte), 0u);
  EXPECT_EQ(byte, 40) << "preselector 2, index 3 of the default table: 4.0 V";
  EXPECT_EQ(Commands(), (std::vector<uint32_t>{0x0A0, 0x10D, 0x300, 0x0A1, 0x2FF, 0x300}));
  EXPECT_EQ(Get("eeprom.lconv2.pointer"), "0x000E");
  ASSERT_EQ(lconv()->ReadControlByte(1, 0, &byte), 0u);
  EXPECT_EQ(byte, 20);
}

TEST_F(EepromTest, TheCalibrationIsSignedTenthsAndZeroWhenUnreadable) {
  const struct {
    uint8_t byte;
    double db;
  } cases[] = {{0x0C, 1.2}, {0xFB, -0.5}, {0x80, -12.8}, {0x7F, 12.7}, {0x00, 0.0}};
  for (const auto& c : cases) {
    Bytes("pcb", 0x0010, {c.byte});
    double db = -99;
    EXPECT_EQ(pcb()->ReadCalibration(&db), 0u);
    EXPECT_DOUBLE_EQ(db, c.db);
  }
  Set("eeprom.pcb.fault", "no_address_ack");
  double db = -99;
  EXPECT_EQ(pcb()->ReadCalibration(&db), 0u);
  EXPECT_EQ(db, 0.0);
  EXPECT_STREQ(pcb()->GetErrorText(), "I2CStart: нет готовности шины I2C после записи");
}

TEST_F(EepromTest, ModuleExportsRefuseMissingPointersAndBoards) {
  EXPECT_EQ(GetModuleSerialNumber(&id, nullptr), -1);
  EXPECT_STREQ(GetErrorMessage(), "GetModuleSerialNumber [0]: NULL-объект или NULL-параметр\n");
  EXPECT_EQ(GetModuleVersion(&id, nullptr), -1);
  EXPECT_STREQ(GetErrorMessage(), "GetModuleVersion [0]: NULL-объект или NULL-параметр\n");
  EXPECT_TRUE(Commands().empty());
}

// A stand-in for the convertor object, which bring-up does not build yet.
class StandInConvertor : public cCommonModule {
 public:
  using cCommonModule::cCommonModule;
};

TEST_F(EepromTest, LConvertorExportsNeedTheConvertorAndRefuseTypeTwo) {
  Text text;
  EXPECT_EQ(GetLConvertorSerialNumber(&id, text.bytes), -1) << "no convertor object";
  EXPECT_STREQ(GetErrorMessage(),
               "GetLConvertorSerialNumber [0]: NULL-объект или NULL-параметр\n");
  EXPECT_EQ(GetLConvertorVersion(&id, text.bytes), -1);
  EXPECT_EQ(text.Touched(), 0u);

  BoardSlots::Put(board(), Slot::Convertor, new StandInConvertor(io()));
  board()->LConvertorType = 3;
  EXPECT_EQ(GetLConvertorSerialNumber(&id, text.bytes), 0);
  EXPECT_STREQ(text.bytes, "0000200001");
  EXPECT_EQ(GetLConvertorVersion(&id, text.bytes), 0);
  EXPECT_STREQ(text.bytes, "02");
  EXPECT_EQ(GetLConvertorVersion(&id, nullptr), -1);

  for (uint8_t type : {2, 0, 1, 7, 255}) {
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
    EXPECT_TRUE(model.Trace().empty()) << "refused before any bus traffic";
  }
  for (uint8_t type : {4, 5, 6}) {
    board()->LConvertorType = type;
    EXPECT_EQ(GetLConvertorVersion(&id, text.bytes), 0) << int(type);
  }

  board()->LConvertorType = 3;
  Set("eeprom.lconv.fault", "no_address_ack");
  EXPECT_EQ(GetLConvertorVersion(&id, text.bytes), 1);
  EXPECT_STREQ(GetErrorMessage(),
               "GetLConvertorVersion [0]: I2CStart: нет готовности шины I2C после записи\n");
  EXPECT_STREQ(text.bytes, "Н/Д");
}

}  // namespace
}  // namespace tvx::test
