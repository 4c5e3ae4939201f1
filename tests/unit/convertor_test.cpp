// The convertor's grids, interpolation and table loads, and the preselector DAC load, in process.
#include <cstdio>

#include "board_fixture.h"
#include "rf/convertor.h"
#include "rf/preselectors.h"

namespace tvx::test {
namespace {

constexpr uint32_t kDac = 0x400C;

class ConvertorTest : public BoardTest {
 protected:
  void Open(const char* type) {
    Set("lconv.type", type);
    ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
    model.ClearTrace();
  }
  cConvertor* convertor() const { return board()->Get<cConvertor>(Slot::Convertor); }
  void Byte(const char* chip, uint32_t address, uint32_t value) {
    char key[40];
    std::snprintf(key, sizeof key, "eeprom.%s.byte.0x%04X", chip, unsigned(address));
    Set(key, std::to_string(value & 0xFF));
  }
  // Preselector k's limits in the module EEPROM, hundredths of a volt, big-endian.
  void Limits(uint32_t k, int max, int min) {
    for (const auto& [at, v] : {std::pair{2 * k, max}, std::pair{2 * k + 4, min}})
      Byte("pcb", at, uint32_t(v) >> 8), Byte("pcb", at + 1, uint32_t(v));
  }
  DeviceId id{0};
  char text[256] = {};
};

// A zig-zag table (1.0 V at even points, 5.0 V at odd ones) shows any wrong segment: exact at
// grid points, linear between, the first segment extended below the grid and the last above
// it, a jump at the split, which the folded grid holds at points 14 and 15.
TEST_F(ConvertorTest, GridsAndInterpolation) {
  Open("3");
  std::vector<double> grid;
  for (int i = 0; i < 25; ++i) grid.push_back(9.5e8 + i * 5e7);
  EXPECT_EQ(convertor()->grid(), grid);
  ReleaseDeviceInstance(&id);
  Set("lconv.type", "2");
  for (uint32_t i = 0; i < 26; ++i) Byte("lconv2", 4 * i, i % 2 ? 50 : 10);
  Open("2");
  grid.clear();
  for (int i = 0; i < 26; ++i) grid.push_back(9e8 + (i < 15 ? i : i - 1) * 5e7);
  EXPECT_EQ(convertor()->grid(), grid);
  const struct { double f; uint8_t id; double volts; } cases[] = {
      {9e8, 1, 1.0},   {9.5e8, 0, 5.0},   {9.25e8, 1, 3.0},   {8.75e8, 1, -1.0},   {1.6e9, 1, 1.0},
      {1.605e9, 1, 4.6}, {2.125e9, 1, 7.0}, {1.605e9, 2, 10.05}, {1.2e9, 3, 0.0}};
  for (const auto& c : cases)
    EXPECT_NEAR(convertor()->GetControlVoltage(&c.f, &c.id), c.volts, 1e-9)
        << c.f << " Hz, preselector " << int(c.id);
  for (uint8_t id : {0, 3}) EXPECT_EQ(convertor()->GetMaxVoltage(&id), -1.0);
}

// A failed table read names the point or preselector it stopped at; the export gives 1.
TEST_F(ConvertorTest, AFailedTableLoadSaysWhere) {
  const std::string bus = "I2CStart: нет готовности шины I2C после записи\n\n";
  const struct { const char* type, *fault_key, *after; std::string text; } cases[] = {
      {"3", "eeprom.lconv", "10", "error getting preselector control voltage (m) index 1/24. " + bus},
      {"2", "eeprom.lconv2", "4", "error getting preselector control voltage index 1/25  presId 1. " + bus},
      {"2", "eeprom.pcb", "12", "error getting min.control voltage for Preselector#0. " + bus}};
  for (const auto& c : cases) {
    model.Reset();
    Open(c.type);
    Set(std::string(c.fault_key) + ".fault", "no_address_ack");
    Set(std::string(c.fault_key) + ".fault_after", c.after);
    EXPECT_EQ(InitLConvertorVList(&id), 1);
    EXPECT_EQ(GetErrorMessage(), "InitLConvertorVList [0]: " + c.text);
    ReleaseDeviceInstance(&id);
  }
}

// (V - min) * 4096 / (max - min), truncated toward zero and never held to the DAC's range; bit
// 15 on the first word only (the second is 0 with one preselector). At 0.95 GHz the default
// tables give 2.0 V (type 3), 2.5 V and 3.0 V (type 2).
TEST_F(ConvertorTest, DacCodesFromVoltages) {
  const struct { const char* type; int max1, min1, max2, min2; std::vector<uint32_t> words; } cases[] = {
      {"3", 2000, 50, 0, 0, {0x8000 | 315, 0}},      {"3", 300, 201, 0, 0, {0xFFFFFFD7, 0}},
      {"2", 250, 200, 300, 275, {0x9000, 0x1000}},   {"2", 1950, 40, 1950, 40, {0x8000 | 450, 557}}};
  for (const auto& c : cases) {
    model.Reset();
    Limits(1, c.max1, c.min1), Limits(2, c.max2, c.min2);
    Open(c.type);
    EXPECT_EQ(cPreselectors(io(), text, sizeof text).LoadPreselectors(convertor(), 9.5e8), 0) << text;
    EXPECT_EQ(Written(kDac), c.words) << c.type << " " << c.max1 << " " << c.min1;
    ReleaseDeviceInstance(&id);
  }
}

// A zero voltage range stops the load before the DAC; a word the DAC never takes fails it after
// 30 ms of polling with that word's code, and the second word is not sent after the first.
TEST_F(ConvertorTest, RefusedLoads) {
  Limits(1, 1000, 50), Limits(2, 500, 500);
  Open("2");
  cPreselectors preselectors(io(), text, sizeof text);
  EXPECT_EQ(preselectors.LoadPreselectors(convertor(), 1e9), 4);
  EXPECT_STREQ(text, "Ошибка загрузки преселектора 2, разница макс. и мин. напряжений нулевая (5.000, 5.000)");
  EXPECT_TRUE(Written(kDac).empty());
  for (bool second : {false, true}) {
    io()->on_read = [second](uint32_t address, uint32_t* value) {
      if (address == kDac && ((*value & 0x8000) == 0) == second) *value &= 0x7FFFFFFF;
    };
    model.ClearTrace();
    const double before = clock.seconds();
    EXPECT_EQ(preselectors.LoadPreselectorDac(0x123, 0x456), second ? -2 : -1);
    EXPECT_STREQ(text, second ? "DAC isn't ready, load code (N2) 0x00000456, timeout 30\n"
                              : "DAC isn't ready, load code (N1) 0x00008123, timeout 30\n");
    EXPECT_EQ(Written(kDac).size(), second ? 2u : 1u);
    EXPECT_NEAR(clock.seconds() - before, 0.03, 0.001);
  }
}

}  // namespace
}  // namespace tvx::test
