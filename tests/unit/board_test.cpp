// Bring-up and tear-down of the board record, in process.
#include <string>
#include <vector>

#include "board_fixture.h"
#include "hw/regs.h"

namespace tvx::test {
namespace {

using Calls = std::vector<std::string>;

// A failing BAR unmap at release does not stop the memory unmap and the close.
TEST_F(BoardTest, HealthyBringUpOpensMapsAndBuildsTheSmallControls) {
  script.bar_unmap = 6;
  DeviceId id{0};
  ASSERT_EQ(CreateDeviceInstance(&id), 0);
  EXPECT_EQ(script.calls, (Calls{"open", "memory_map", "bar_map"}));
  EXPECT_STREQ(GetErrorMessage(), "");
  ASSERT_NE(board(), nullptr);
  EXPECT_EQ(board()->Status, 0);
  EXPECT_EQ(board()->BoardVariant, 2);
  for (Slot slot : {Slot::Interface, Slot::Pll, Slot::CircuitReset})
    EXPECT_NE(board()->Get<cCommonModule>(slot), nullptr);
  EXPECT_EQ(FpgaBases().DemBase, 0x2000u);
  EXPECT_EQ(FpgaBases().Initialized, 1);
  EXPECT_DOUBLE_EQ(SampleClock, 560e6 / 3);
  ReleaseDeviceInstance(&id);
  EXPECT_EQ(board(), nullptr);
  EXPECT_EQ(script.calls, (Calls{"open", "memory_map", "bar_map", "memory_unmap", "bar_unmap", "close"}));
}

// Each failed step gives its status and text (the system's code in it); modules after it are
// never built, and release undoes exactly what was done (a refused open leaves Close no handle
// to close; a refused BAR map leaves the BAR out of the unmapping).
TEST_F(BoardTest, ABringUpFailureStopsWithItsStatusAndReleasesWhatWasOpened) {
  const struct {
    uint32_t IoScript::*step;
    uint32_t code;
    int32_t status;
    const char* text;
    Calls calls;   // everything the binding saw, bring-up and release
  } cases[] = {
      {&IoScript::open, 2, 1, "Отказ открытия устройства [3]: Could not open device 3; gle = 0002",
       {"open"}},
      {&IoScript::memory_map, 8, 2,
       "Отказ маппирования памяти устройства [3]: MemoryMap: unable to map memory; gle = 0x00000008",
       {"open", "memory_map", "close"}},
      {&IoScript::bar_map, 31, 3,
       "Отказ маппирования BAR устройства [3]: BARMap: unable to map BAR memory; gle = 0x0000001F",
       {"open", "memory_map", "bar_map", "memory_unmap", "close"}}};
  for (const auto& c : cases) {
    script = IoScript{};
    script.*c.step = c.code;
    DeviceId id{3};
    EXPECT_EQ(CreateDeviceInstance(&id), 1);
    EXPECT_EQ(GetErrorMessage(), std::string(c.text) + "\n");
    ASSERT_NE(board(3), nullptr);
    EXPECT_EQ(board(3)->Status, c.status);
    EXPECT_EQ(board(3)->Get<cCommonModule>(Slot::Interface), nullptr);
    ReleaseDeviceInstance(&id);
    EXPECT_EQ(script.calls, c.calls);
  }
}

// A second create neither rebuilds a failed board (its text is given again) nor a healthy
// one (the error text is left alone); only a release makes room for a new bring-up. A board
// left by an exception leaves its index empty.
TEST_F(BoardTest, ASecondCreateRebuildsNothingAndAnExceptionLeavesTheIndexEmpty) {
  script.memory_map = 5;
  DeviceId id{0};
  ASSERT_EQ(CreateDeviceInstance(&id), 1);
  std::string first = GetErrorMessage();
  LastErrorText[0] = '\0';
  EXPECT_EQ(CreateDeviceInstance(&id), 1);
  EXPECT_EQ(GetErrorMessage(), first);
  EXPECT_EQ(script.calls, (Calls{"open", "memory_map"}));
  ReleaseDeviceInstance(&id);
  script.memory_map = 0;
  EXPECT_EQ(CreateDeviceInstance(&id), 0);
  cBoard* healthy = board();
  SetLastErrorText("earlier failure");
  EXPECT_EQ(CreateDeviceInstance(&id), 0);
  EXPECT_EQ(board(), healthy);
  EXPECT_STREQ(GetErrorMessage(), "earlier failure");
  EXPECT_EQ(builds, 2);

  throw_on_build = true;
  DeviceId other{1};
  EXPECT_EQ(CreateDeviceInstance(&other), 1);
  EXPECT_STREQ(GetErrorMessage(), "CreateDeviceInstance exception: no binding today");
  EXPECT_EQ(board(1), nullptr);
  throw_on_build = false;
  EXPECT_EQ(CreateDeviceInstance(&other), 0);
  EXPECT_EQ(builds, 4);
}

}  // namespace
}  // namespace tvx::test
