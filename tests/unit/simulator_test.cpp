// The simulator exports over the register model: the control word's fields and who writes it,
// the carrier word, the pattern writes, and the guards against rates and frequencies the
// registers cannot hold.
#include <cmath>
#include <limits>

#include "board/simulator.h"
#include "loader_fixture.h"

namespace tvx::test {
namespace {

constexpr uint32_t kCarrier = 0x8060, kControl = 0x8064, kPattern = 0x8068;
zsim_access W(uint32_t addr, uint32_t value) { return {addr, value, 1}; }

class SimulatorTest : public LoaderTest {
 protected:
  int32_t Rate(double sps) { return SimulatorSetTiming(&id, &sps); }
  int32_t Carrier(double hz) { return SimulatorSetCarrier(&id, &hz); }
  int32_t Control(uint32_t on) { return SimulatorControl(&id, &on); }
  uint32_t ControlWord() const { return board()->Get<cSimulator>(Slot::Simulator)->control_word(); }
};

TEST_F(SimulatorTest, RateAndControlShareTheControlWord) {
  EXPECT_EQ(board()->Get<cSimulator>(Slot::Simulator)->reference_clock(), kDefaultSampleClock);
  EXPECT_EQ(Rate(1000000.0), 0);
  EXPECT_EQ(Control(0), 0);
  EXPECT_EQ(Control(3), 0);   // only bit 0 counts
  EXPECT_EQ(Control(2), 0);
  EXPECT_EQ(Trace(), (std::vector<zsim_access>{W(kControl, 0x100000BA), W(kControl, 0x000000BA),
                                               W(kControl, 0x100000BA), W(kControl, 0x000000BA)}));
  EXPECT_EQ(Key("sim.divider"), "186");
}

// The clock is the one at bring-up; a later change of the process-wide clock does not reach it.
TEST_F(SimulatorTest, ReferenceClockIsTakenOnceAtCreation) {
  const double saved = SampleClock;
  SampleClock = 2.8e8;
  EXPECT_EQ(Rate(1000000.0), 0);
  SampleClock = saved;
  EXPECT_EQ(Trace(), (std::vector<zsim_access>{W(kControl, 0x100000BA)}));
}

TEST_F(SimulatorTest, CarrierWords) {
  const double clock = kDefaultSampleClock;
  const struct {
    double hz;
    uint32_t word;
  } cases[] = {{0.0, 0x10000000}, {clock, 0}, {clock / 2, 0x08000000}, {2 * clock, 0xF0000001},
               {-clock, 0x20000000}, {1e6, 0x0FEA0EA1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.hz);
    model.ClearTrace();
    EXPECT_EQ(Carrier(c.hz), 0);
    EXPECT_EQ(Trace(), (std::vector<zsim_access>{W(kCarrier, c.word)}));
  }
  EXPECT_EQ(ControlWord(), 0u) << "the carrier leaves the control word alone";
}

// Rates without a 16-bit divider and frequencies without a 32-bit word are refused with a
// text; nothing is written and the control word keeps its value.
TEST_F(SimulatorTest, ValuesTheRegistersCannotHoldAreRefused) {
  ASSERT_EQ(Rate(1000000.0), 0);
  model.ClearTrace();
  const double clock = kDefaultSampleClock;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  for (double sps : {0.0, -1.0, nan, inf, -inf, 2.01 * clock, clock / 65537.0, 1.0}) {
    SCOPED_TRACE(sps);
    EXPECT_EQ(Rate(sps), 2);
    EXPECT_EQ(std::string(GetErrorMessage()).rfind("SimulatorSetTiming [0]: Недопустимая", 0), 0u)
        << GetErrorMessage();
  }
  for (double hz : {nan, inf, 1e12, -1e12, 9.1 * clock}) {
    SCOPED_TRACE(hz);
    EXPECT_EQ(Carrier(hz), 2);
    EXPECT_EQ(std::string(GetErrorMessage()).rfind("SimulatorSetCarrier [0]: Недопустимая", 0), 0u)
        << GetErrorMessage();
  }
  EXPECT_TRUE(Trace().empty());
  EXPECT_EQ(ControlWord(), 0x100000BAu);
  // The edges that still fit: divider 65535 and divider 0.
  EXPECT_EQ(Rate(clock / 65536.0), 0);
  EXPECT_EQ(Rate(clock), 0);
  EXPECT_EQ(Rate(1.99 * clock), 0);
  EXPECT_EQ(Trace(), (std::vector<zsim_access>{W(kControl, 0x1000FFFF), W(kControl, 0x10000000),
                                               W(kControl, 0x10000000)}));
}

// The length goes into bits 16-27 modulo 4096 without a register write; the words, each with
// its index, go to DEM word 26; the next control write carries the length.
TEST_F(SimulatorTest, PatternLengthWrapsAt4096) {
  const struct {
    size_t length;
    uint32_t field;
    size_t writes;
  } cases[] = {{10, 0x000A0000, 5}, {11, 0x000B0000, 5}, {1, 0x00010000, 0}, {0, 0, 0},
               {4094, 0x0FFE0000, 2047}, {4096, 0, 0}, {4097, 0x00010000, 0}, {4098, 0x00020000, 1},
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
  EXPECT_EQ(Key("sim.length"), "8");
}

// The module's code comes back as it is and the error text stays untouched.
TEST_F(SimulatorTest, LoadFailuresKeepTheErrorText) {
  const std::string file = files.Write("p.bin", Bytes({1, 2, 3, 4}));
  const std::string missing = files.Path("missing.bin");
  auto* simulator = board()->Get<cSimulator>(Slot::Simulator);
  SetLastErrorText("before");
  EXPECT_EQ(SimulatorLoad(&id, missing.c_str()), 1);
  EXPECT_STREQ(GetErrorMessage(), "before");
  EXPECT_EQ(simulator->GetErrorText(), "Ошибка открытия файла имитатора " + missing);
  file_data::InstallAllocationHook(RefuseAllocation);
  EXPECT_EQ(SimulatorLoad(&id, file.c_str()), 2);
  EXPECT_STREQ(GetErrorMessage(), "before");
  EXPECT_STREQ(simulator->GetErrorText(), "Ошибка выделения 4 байт памяти");
  EXPECT_TRUE(Trace().empty());
}

TEST_F(SimulatorTest, NullPathsOfTheFourExports) {
  static const double kValue = 1e6;
  static const uint32_t kOn = 1;
  static DeviceId empty{3};
  const struct {
    int32_t (*call)(DeviceId*);
    const char* text;
  } cases[] = {
      {[](DeviceId* d) { return SimulatorLoad(d, nullptr); },
       "SimulatorLoad [0]: NULL-объект или NULL-параметр\n"},
      {[](DeviceId* d) { return SimulatorControl(d, nullptr); },
       "SimulatorControl [0]: NULL-объект или NULL-параметр\n"},
      {[](DeviceId* d) { return SimulatorSetCarrier(d, nullptr); },
       "SimulatorSetCarrier [0]: NULL-объект или NULL-параметр\n"},
      {[](DeviceId* d) { return SimulatorSetTiming(d, nullptr); },
       "SimulatorSetTiming [0]: NULL-объект или NULL-параметр\n"},
      {[](DeviceId*) { return SimulatorControl(nullptr, &kOn); },
       "SimulatorControl: NULL-объект или NULL-параметр\n"},
      {[](DeviceId*) { return SimulatorSetCarrier(&empty, &kValue); },
       "SimulatorSetCarrier [3]: NULL-объект или NULL-параметр\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.call(&id), -1) << c.text;
    EXPECT_STREQ(GetErrorMessage(), c.text);
  }
  EXPECT_TRUE(Trace().empty());
}

}  // namespace
}  // namespace tvx::test
