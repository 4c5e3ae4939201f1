// The simulator exports over the register model: the control word and who writes it, the
// carrier word, the pattern writes, and values beyond what the registers hold.
#include <limits>

#include "board/simulator.h"
#include "loader_fixture.h"

namespace tvx::test {
namespace {

constexpr uint32_t kCarrier = 0x8060, kControl = 0x8064, kPattern = 0x8068;

class SimulatorTest : public LoaderTest {
 protected:
  int32_t Rate(double sps) { return SimulatorSetTiming(&id, &sps); }
  int32_t Carrier(double hz) { return SimulatorSetCarrier(&id, &hz); }
  int32_t Control(uint32_t on) { return SimulatorControl(&id, &on); }
  uint32_t ControlWord() const { return board()->Get<cSimulator>(Slot::Simulator)->control_word(); }
};

// Only bit 0 of the control value counts. The reference clock is the one at bring-up: a later
// change of the process-wide clock does not reach it.
TEST_F(SimulatorTest, RateAndControlShareTheControlWord) {
  const double saved = SampleClock;
  SampleClock = 2.8e8;
  EXPECT_EQ(Rate(1000000.0), 0);
  SampleClock = saved;
  for (uint32_t on : {0u, 3u, 2u}) EXPECT_EQ(Control(on), 0);
  EXPECT_EQ(Trace(), (std::vector<zsim_access>{W(kControl, 0x100000BA), W(kControl, 0x000000BA),
                                               W(kControl, 0x100000BA), W(kControl, 0x000000BA)}));
}

// Words beyond 32 bits are reduced modulo 2^32, as the register holds them.
TEST_F(SimulatorTest, CarrierWords) {
  const double clock = kDefaultSampleClock;
  const std::pair<double, uint32_t> cases[] = {
      {0.0, 0x10000000},        {clock, 0},           {2 * clock, 0xF0000001},
      {-clock, 0x20000000},     {1e6, 0x0FEA0EA1},    {-8 * clock, 0x90000000},
      {9.1 * clock, 0x7E666667}, {17 * clock, 1},      {-1e12, 0xE2492492}};
  for (const auto& [hz, word] : cases) {
    model.ClearTrace();
    EXPECT_EQ(Carrier(hz), 0);
    EXPECT_EQ(Trace(), (std::vector<zsim_access>{W(kCarrier, word)})) << hz;
  }
  EXPECT_EQ(ControlWord(), 0u) << "the carrier leaves the control word alone";
}

// Both exports answer 0 and leave LastErrorText alone for every value: a divider beyond 16
// bits is held to 0 or 65535; a value that names no rate or frequency writes nothing.
TEST_F(SimulatorTest, ValuesBeyondTheRegistersAreHeldOrIgnored) {
  ASSERT_EQ(Rate(1000000.0), 0);
  model.ClearTrace();
  SetLastErrorText("before");
  const double clock = kDefaultSampleClock;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  for (double sps : {0.0, -1.0, nan}) EXPECT_EQ(Rate(sps), 0) << sps;
  for (double hz : {nan, inf, -inf}) EXPECT_EQ(Carrier(hz), 0) << hz;
  EXPECT_TRUE(Trace().empty());
  EXPECT_EQ(ControlWord(), 0x100000BAu);
  for (double sps : {clock / 65536.0, clock / 65537.0, 1e-300, 1.99 * clock, 2.01 * clock, inf})
    EXPECT_EQ(Rate(sps), 0) << sps;
  EXPECT_EQ(Trace(), (std::vector<zsim_access>{W(kControl, 0x1000FFFF), W(kControl, 0x1000FFFF),
                                               W(kControl, 0x1000FFFF), W(kControl, 0x10000000),
                                               W(kControl, 0x10000000), W(kControl, 0x10000000)}));
  EXPECT_STREQ(GetErrorMessage(), "before");
}

// The length goes into bits 16-27 modulo 4096 without a register write; the words, each with
// its index, go to DEM word 26; the next control write carries the length.
TEST_F(SimulatorTest, PatternLengthWrapsAt4096) {
  const struct {
    size_t length;
    uint32_t field;
    size_t writes;
  } cases[] = {{10, 0x000A0000, 5}, {11, 0x000B0000, 5}, {4096, 0, 0}, {4098, 0x00020000, 1},
               {8200, 0x00080000, 4}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.length);
    std::vector<uint8_t> bytes(c.length);
    for (size_t i = 0; i < c.length; ++i) bytes[i] = uint8_t(i * 7 + 1);
    const std::string file = files.Write("pattern.bin", bytes);
    model.ClearTrace();
    ASSERT_EQ(SimulatorLoad(&id, file.c_str()), 0);
    const std::vector<zsim_access> t = Trace();
    ASSERT_EQ(t.size(), c.writes);
    for (size_t i = 0; i < t.size(); ++i)
      ASSERT_EQ(t[i], W(kPattern, uint32_t(i) << 16 | bytes[2 * i + 1] << 8 | bytes[2 * i])) << i;
    EXPECT_EQ(ControlWord() & 0x0FFF0000u, c.field);
  }
  ASSERT_EQ(Control(1), 0);
  EXPECT_EQ(Trace().back(), W(kControl, 0x10080000));
}

// The module's code comes back as it is and LastErrorText stays untouched.
TEST_F(SimulatorTest, LoadFailuresKeepTheErrorText) {
  const std::string file = files.Write("p.bin", Bytes({1, 2, 3, 4}));
  const std::string missing = files.Path("missing.bin");
  auto* simulator = board()->Get<cSimulator>(Slot::Simulator);
  SetLastErrorText("before");
  EXPECT_EQ(SimulatorLoad(&id, missing.c_str()), 1);
  EXPECT_EQ(simulator->GetErrorText(), "Ошибка открытия файла имитатора " + missing);
  file_data::InstallAllocationHook(RefuseAllocation);
  EXPECT_EQ(SimulatorLoad(&id, file.c_str()), 2);
  EXPECT_STREQ(simulator->GetErrorText(), "Ошибка выделения 4 байт памяти");
  EXPECT_STREQ(GetErrorMessage(), "before");
  EXPECT_TRUE(Trace().empty());
}

}  // namespace
}  // namespace tvx::test
