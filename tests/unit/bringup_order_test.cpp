// Bring-up in process: the order of construction, the clock each fitted convertor type gives,
// what each failure leaves open, and a tear-down that throws.
#include <stdexcept>
#include <utility>

#include "board/simulator.h"
#include "board_fixture.h"
#include "rf/convertor.h"

namespace tvx::test {
namespace {

using Calls = std::vector<std::string>;

std::vector<Slot> built;   // the slots in the order bring-up filled them
bool tables_before_synthesizer = false, throw_at_synthesizer = false;

void Watch(const cBoard& board, Slot slot) {
  built.push_back(slot);
  if (slot != Slot::Synthesizer) return;
  tables_before_synthesizer = board.Get<cConvertor>(Slot::Convertor)->grid().back() != 0;
  if (throw_at_synthesizer) throw std::runtime_error("half-way");
}

class BringUpOrderTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    built.clear();
    throw_at_synthesizer = false;
    previous_ = InstallBuildObserver(Watch);
  }
  void TearDown() override { InstallBuildObserver(previous_), BoardTest::TearDown(); }
  const Calls released{"open", "memory_map", "bar_map", "memory_unmap", "bar_unmap", "close"};
  DeviceId id{0};
  BuildObserver previous_ = nullptr;
};

// The convertor's tables load between its construction and the synthesizer's.
TEST_F(BringUpOrderTest, ModulesAreBuiltInTheirOrder) {
  ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
  EXPECT_EQ(built, (std::vector<Slot>{Slot::Interface, Slot::EepromPcb, Slot::EepromLConv,
                                        Slot::Fpga, Slot::Ram, Slot::Adc, Slot::Convertor,
                                        Slot::Synthesizer, Slot::GainFirst, Slot::GainSecond,
                                        Slot::Pll, Slot::Carrier, Slot::Timing, Slot::Filter,
                                        Slot::IqChCtrl, Slot::DmdChCtrl, Slot::Dma3ChCtrl,
                                        Slot::Modulation, Slot::TimingMode, Slot::Attenuator,
                                        Slot::Sensor, Slot::Master, Slot::Corrector,
                                        Slot::Simulator, Slot::Demultiplexer, Slot::IsoConverter,
                                        Slot::CircuitReset}));
  EXPECT_TRUE(tables_before_synthesizer);
}

// The fitted type is detected from the EEPROM; type 5 switches the clock for the synthesizer
// and every module after it; the fractional-N kinds are configured in their mode first.
TEST_F(BringUpOrderTest, TheConvertorAndClockFollowTheFittedType) {
  const struct { uint8_t type; double clock; const char* s_frequency, *register_6; } cases[] = {
      {2, 560e6 / 3, "186666666.67 N 112", "none"},
      {4, 560e6 / 3, "186666666.67 N 112", "0x002003CA"},
      {5, 2.8e8, "280000000.00 N 168", "0x00200B4A"}};
  for (const auto& c : cases) {
    model.Reset();
    Set("lconv.type", std::to_string(c.type));
    ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
    uint8_t type = 0;
    EXPECT_EQ(GetLConvertorType(&id, &type), 0);
    EXPECT_EQ(type, c.type);
    EXPECT_EQ(SampleClock, c.clock) << int(c.type);
    EXPECT_EQ(board()->Get<cSimulator>(Slot::Simulator)->reference_clock(), c.clock);
    EXPECT_EQ(Get("synth.s.frequency") + " N " + Get("synth.s.n") + " " + Get("synth.l.reg.6"),
              std::string(c.s_frequency) + " " + c.register_6);
    ReleaseDeviceInstance(&id);
  }
}

// Identification and table load release the device at once (and release closes nothing
// twice); a sampling clock that does not lock leaves it open and mapped until release.
TEST_F(BringUpOrderTest, EachFailureLeavesOpenWhatItSays) {
  const Calls open{"open", "memory_map", "bar_map"};
  const struct { std::vector<std::pair<const char*, const char*>> keys; int32_t status; const char* text;
                 Slot last; Calls after_bring_up; } rows[] = {
      {{{"eeprom.lconv.fault", "no_address_ack"}}, 3,
       "Failed to identify L-convertor: I2CStart: нет готовности шины I2C после записи\n",
       Slot::Adc, released},
      {{{"eeprom.pcb.byte.0x0002", "255"}, {"eeprom.pcb.byte.0x0003", "255"}}, -10,
       "Error initializing L-convertor: error getting max.control voltage for Preselector#0. "
       "максимальное напряжение преселектора не записано\n\n",
       Slot::Convertor, released},
      {{{"synth.s.fault", "never_lock"}}, -4,
       "Ошибка загрузки S-синтезатора: Нет синхронизации синтезатора частоты дискретизации, "
       "0x80400E02",
       Slot::Synthesizer, open}};
  for (const auto& row : rows) {
    model.Reset();
    script = IoScript{};
    for (const auto& [key, value] : row.keys) Set(key, value);
    EXPECT_EQ(CreateDeviceInstance(&id), 1);
    EXPECT_STREQ(GetErrorMessage(), row.text);
    EXPECT_EQ(board()->Status, row.status);
    EXPECT_EQ(built.back(), row.last) << row.text;
    EXPECT_EQ(script.calls, row.after_bring_up) << row.text;
    ReleaseDeviceInstance(&id);
    EXPECT_EQ(script.calls, released) << row.text;
  }
}

// A close that throws: the board is still released and leaves the table, and only a standard
// exception reaches the text. A bring-up left half-way by an exception releases what it opened.
class ThrowingIo : public ModelIo {
 public:
  using ModelIo::ModelIo;
  int32_t Close() override {
    ModelIo::Close();
    if (what == 1) throw std::runtime_error("close refused");
    if (what == 2) throw 7;
    return 0;
  }
  static inline int what = 0;
};

TEST_F(BringUpOrderTest, ATearDownThatThrowsStillReleasesEverything) {
  static zsim::BoardModel* board_model;
  static IoScript* io_script;
  board_model = &model, io_script = &script;
  InstallIoFactory([]() -> cZARIM* { return new ThrowingIo(board_model, io_script); });
  const char* texts[] = {"CreateDeviceInstance exception: half-way",
                         "ReleaseDeviceInstance exception: close refused", "before"};
  for (int what : {0, 1, 2}) {
    script = IoScript{};
    ThrowingIo::what = what;
    throw_at_synthesizer = what == 0;
    SetLastErrorText("before");
    ASSERT_EQ(CreateDeviceInstance(&id), what == 0);
    ReleaseDeviceInstance(&id);
    EXPECT_STREQ(GetErrorMessage(), texts[what]);
    EXPECT_EQ(board(), nullptr);
    EXPECT_EQ(script.calls, released);
  }
  ThrowingIo::what = 0;
}

}  // namespace
}  // namespace tvx::test
