// The status side of the board over the register model: gain read-out with the attenuator and
// the calibration, the equalizer's two tap layouts and its count, the demultiplexer's table
// filled from the top and its control words, and the counters record.
#include <cmath>

#include "loader_fixture.h"

namespace tvx::test {
namespace {

constexpr uint32_t kFirstControl = 0x8000, kStatus1 = 0x8018, kStatus2 = 0x8180,
                   kSecond1 = 0x801C, kSecond2 = 0x81C0, kSecondA = 0x8050, kSecondB = 0x8048,
                   kAttenuator = 0x8020, kEqTable = 0x8030, kEqRead = 0x8040, kEqWrite = 0x8180,
                   kChannelCounters = 0x8028, kIntCounter = 0x60, kRs = 0xA200;

class StatusTest : public LoaderTest {
 protected:
  GCValues Gains(bool second_channel) {
    GCValues g;
    std::memset(&g, 0xEE, sizeof g);
    EXPECT_EQ((second_channel ? GetGCValuesMulti : GetGCValues)(&id, &g), 0);
    return g;
  }
  // The writes to the demultiplexer's word `w` since the trace was cleared.
  size_t RsWrites(uint32_t w) const { return Written(kRs + 4 * w).size(); }
};

// The first stage's code form per convertor type; the attenuator's width and step per type;
// the calibration (signed tenths of a dB at EEPROM address 16) added once into the total.
TEST_F(StatusTest, GainsPerConvertorType) {
  const struct { const char* type; uint32_t written, attenuator; double db, total; } rows[] = {
      {"2", 0x123, 31, 62.0, 0.5 * (31 - 31) + 10 * std::log10(0xABC / 240.0) - 64 - 1.0},
      {"3", 0x2123, 127, 63.5, 0.5 * (127 - 127) + 10 * std::log10(0xABC / 240.0) - 64 - 1.0}};
  for (const auto& r : rows) {
    Set("eeprom.pcb.byte.0x0010", "246");   // -10: -1.0 dB
    Reopen(r.type);
    const uint32_t code = 0x123;
    ASSERT_EQ(FirstGainControl(&id, &code), 0);
    EXPECT_EQ(Written(kFirstControl), std::vector<uint32_t>{r.written}) << r.type;
    Force(kAttenuator, 0xFFFFFFFF);
    Force(kStatus1, 0xFABC0000);   // bits 28-31 belong to others
    Force(kSecond1, 0xFFFF0000);   // code 0 counts as 1
    const GCValues g = Gains(false);
    EXPECT_EQ(g.attenuatorCode, r.attenuator) << r.type;
    EXPECT_EQ(g.attenuation, r.db) << r.type;
    EXPECT_EQ(g.firstGainCode, 0xABCu);
    EXPECT_EQ(g.firstGainLevel, 21.0);
    EXPECT_EQ(g.secondGainCode, 0u);
    EXPECT_NEAR(g.secondGainLevel, 96.33, 0.01);
    EXPECT_NEAR(g.totalGain, r.total, 1e-9) << r.type;
    EXPECT_EQ(g.reserved, 0xEEEEEEEEu) << "the reserved word stays the caller's";
  }
}

// Channel 2 reads its own two status words; a code of 240 at full attenuation and no
// calibration totals -64 dB.
TEST_F(StatusTest, SecondChannelAndTotal) {
  Set("eeprom.pcb.byte.0x0010", "0");
  Reopen("3");
  Force(kAttenuator, 127);
  Force(kStatus2, 240u << 16);
  Force(kSecond2, 65535);
  const GCValues g = Gains(true);
  EXPECT_EQ(g.firstGainCode, 240u);
  EXPECT_NEAR(g.totalGain, -64.0, 1e-9);
  EXPECT_NEAR(g.secondGainLevel, 0.00013, 0.00001);
  const uint32_t words[2] = {0x11, 0x22};
  ASSERT_EQ(SecondGainControl(&id, words), 0);
  EXPECT_EQ(Written(kSecondA), std::vector<uint32_t>{0x11});
  EXPECT_EQ(Written(kSecondB), std::vector<uint32_t>{0x22});
}

// The write layout (first value in bits 14-25) and the read layout (bits 20-31); the count
// follows the last manual load, held to the 13 taps.
TEST_F(StatusTest, EqualizerTapsAndCount) {
  uint16_t first[20], second[20];
  for (uint16_t i = 0; i < 20; ++i) first[i] = uint16_t(0x1000 | i), second[i] = uint16_t(0x2FF0 + i);
  const struct { uint32_t count, taps; } rows[] = {{5, 5}, {20, 13}, {0, 0}};
  for (const auto& r : rows) {
    model.ClearTrace();
    EqCoefficients in{r.count, first, second};
    ASSERT_EQ(EQManualCoeffLoad(&id, &in), 0);
    size_t written = 0;
    for (uint32_t i = 0; i < 16; ++i) written += Written(kEqWrite + 4 * i).size();
    EXPECT_EQ(written, r.taps) << r.count;
    if (r.taps > 0) {
      EXPECT_EQ(Written(kEqWrite + 4 * (r.taps - 1)),
                std::vector<uint32_t>{uint32_t((r.taps - 1) << 14 | ((0xFF0 + r.taps - 1) & 0xFFF))});
    }
    EqCoefficients out{99, first, second};
    ASSERT_EQ(EQGetCoeff(&id, &out), 0);
    EXPECT_EQ(out.Count, r.taps);
  }
  EXPECT_EQ(Get("eq.tap.12"), "0x00C 0xFFC") << "the board decoded the write layout";
  EqCoefficients in{1, first, second};
  ASSERT_EQ(EQManualCoeffLoad(&id, &in), 0);
  Force(kEqRead, 0xABC00DE0);
  EqCoefficients out{0, first, second};
  ASSERT_EQ(EQGetCoeff(&id, &out), 0);
  EXPECT_EQ(first[0], 0xABC);
  EXPECT_EQ(second[0], 0x0DE);
  EqCoefficients missing{1, nullptr, second};
  EXPECT_EQ(EQManualCoeffLoad(&id, &missing), -1);
  EXPECT_EQ(EQGetCoeff(&id, &missing), -1);
}

TEST_F(StatusTest, EqualizerErrorTable) {
  ASSERT_EQ(EQErrorTblLoad(&id, files.Write("e.dat", Bytes({1, 2, 3, 4, 5, 6})).c_str()), 0);
  EXPECT_EQ(Written(kEqTable), std::vector<uint32_t>{0x04030201});
  EXPECT_EQ(EQErrorTblLoad(&id, files.Path("none").c_str()), 1);
  EXPECT_EQ(std::string(GetErrorMessage()), "EQErrorTblLoad [0]: Ошибка открытия файла таблицы ошибок корректора " +
                                                files.Path("none") + "\n");
  const uint32_t word = 0x55;
  ASSERT_EQ(EQControl(&id, &word), 0);
  EXPECT_EQ(Written(0x8034), std::vector<uint32_t>{0x55});
}

// The bytes take the last steps of the 65 535-step space; the data offset names where they
// start; only bits 0-3 of the third control word are inverted.
TEST_F(StatusTest, DemultiplexerFillsFromTheTop) {
  DmpxControl control{1, 2, 0x12345678};
  ASSERT_EQ(DMPXControl(&id, &control), 0);
  EXPECT_EQ(Written(kRs + 4 * 21), std::vector<uint32_t>{0});
  EXPECT_EQ(Written(kRs + 4 * 25), std::vector<uint32_t>{0x12345677});
  model.ClearTrace();
  ASSERT_EQ(DMPXLoad(&id, files.Write("d.bin", Bytes({0xA1, 0xB2, 0xC3})).c_str()), 0);
  const std::vector<zsim_access> trace = model.Trace();
  ASSERT_EQ(trace.size(), 1u + 65532 + 3 * 3);
  EXPECT_EQ(trace[0], W(kRs + 8, 0));
  EXPECT_EQ(trace[65532], W(kRs + 12, 0));
  EXPECT_EQ(std::vector<zsim_access>(trace.end() - 3, trace.end()),
            (std::vector<zsim_access>{W(kRs, 0xC3), W(kRs + 4, 0), W(kRs + 12, 0)}));
  model.ClearTrace();
  control.Control3 = 0;
  ASSERT_EQ(DMPXControl(&id, &control), 0);
  EXPECT_EQ(model.Trace(), (std::vector<zsim_access>{W(kRs + 84, 0xFD), W(kRs + 88, 0xFF),
                                                     W(kRs + 92, 1), W(kRs + 96, 2),
                                                     W(kRs + 100, 0xF)}));
  model.ClearTrace();
  ASSERT_EQ(DMPXLoad(&id, files.Write("full.bin", std::vector<uint8_t>(65535, 7)).c_str()), 0);
  EXPECT_EQ(RsWrites(3), 65535u) << "a full table has no fill steps";
  model.ClearTrace();
  SetLastErrorText("before");
  EXPECT_EQ(DMPXLoad(&id, files.Write("big.bin", std::vector<uint8_t>(65536, 7)).c_str()), 1);
  EXPECT_TRUE(model.Trace().empty());
  EXPECT_STREQ(GetErrorMessage(), "before") << "a failed load leaves the text alone";
  Force(kRs, 0xFFFFFFFF);
  uint32_t status = 0;
  ASSERT_EQ(DMPXStatus(&id, &status), 0);
  EXPECT_EQ(status, 0xFu);
}

// Each counter from its own byte; the INT word whole.
TEST_F(StatusTest, CountersRecord) {
  Force(kChannelCounters, 0xFFFF1234);
  Force(kAttenuator, 0x00005600);
  Force(kIntCounter, 0x89ABCDEF);
  CountersRecord record{};
  ASSERT_EQ(Counters(&id, &record), 0);
  EXPECT_EQ(record.IqCount, 0x12u);
  EXPECT_EQ(record.DmdCount, 0x34u);
  EXPECT_EQ(record.AdcCount, 0x56u);
  EXPECT_EQ(record.IntCount, 0x89ABCDEFu);
  EXPECT_EQ(Counters(&id, nullptr), -1);
}

}  // namespace
}  // namespace tvx::test
