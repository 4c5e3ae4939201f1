// Bring-up and tear-down of the board record, in process.
#include <string>
#include <vector>

#include "board_fixture.h"
#include "hw/regs.h"

namespace tvx::test {
namespace {

using Calls = std::vector<std::string>;

TEST_F(BoardTest, HealthyBringUpOpensMapsAndBuildsTheSmallControls) {
  DeviceId id{0};
  ASSERT_EQ(CreateDeviceInstance(&id), 0);
  EXPECT_EQ(script.calls, (Calls{"open", "memory_map", "bar_map"}));
  EXPECT_STREQ(GetErrorMessage(), "");
  cBoard* b = board();
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->Status, 0);
  EXPECT_EQ(b->BoardVariant, 2);
  EXPECT_NE(b->Get<cCommonModule>(Slot::Interface), nullptr);
  EXPECT_NE(b->Get<cCommonModule>(Slot::Pll), nullptr);
  EXPECT_NE(b->Get<cCommonModule>(Slot::CircuitReset), nullptr);
  EXPECT_EQ(FpgaBases().DemBase, 0x2000u);
  EXPECT_EQ(FpgaBases().Initialized, 1);
  EXPECT_DOUBLE_EQ(SampleClock, 560e6 / 3);

  ReleaseDeviceInstance(&id);
  EXPECT_EQ(board(), nullptr);
  EXPECT_EQ(script.calls,
            (Calls{"open", "memory_map", "bar_map", "memory_unmap", "bar_unmap", "close"}));
}

TEST_F(BoardTest, ConvertorCodeFollowsThePresenceBit) {
  for (auto [present, code] : {std::pair{"1", 3}, std::pair{"0", 2}}) {
    ASSERT_EQ(model.Set("lconv.present", present), 0);
    DeviceId id{0};
    ASSERT_EQ(CreateDeviceInstance(&id), 0);
    EXPECT_EQ(board()->LConvertorType, code) << "present=" << present;
    ReleaseDeviceInstance(&id);
  }
}

struct BringUpFailure {
  const char* name;
  IoScript script;
  int32_t status;
  const char* text;
  Calls calls;   // everything the binding saw, bring-up and release
};

class BringUpFailureTest : public BoardTest,
                           public ::testing::WithParamInterface<BringUpFailure> {};

TEST_P(BringUpFailureTest, StopsWithItsStatusAndReleasesWhatWasOpened) {
  const BringUpFailure& c = GetParam();
  script = c.script;
  DeviceId id{3};
  EXPECT_EQ(CreateDeviceInstance(&id), 1);
  EXPECT_STREQ(GetErrorMessage(), c.text);
  ASSERT_NE(board(3), nullptr);
  EXPECT_EQ(board(3)->Status, c.status);
  // Modules after the failed step were never built.
  EXPECT_EQ(board(3)->Get<cCommonModule>(Slot::Interface), nullptr);
  ReleaseDeviceInstance(&id);
  EXPECT_EQ(script.calls, c.calls);
}

IoScript Fails(uint32_t IoScript::*field, uint32_t code) {
  IoScript s;
  s.*field = code;
  return s;
}

INSTANTIATE_TEST_SUITE_P(
    Steps, BringUpFailureTest,
    ::testing::Values(
        // Open refused: nothing was opened, and Close finds no handle to close.
        BringUpFailure{"open", Fails(&IoScript::open, 2), 1,
                       "Отказ открытия устройства [3]: Could not open device 3; gle = 0002\n",
                       {"open"}},
        BringUpFailure{"memory_map", Fails(&IoScript::memory_map, 8), 2,
                       "Отказ маппирования памяти устройства [3]: MemoryMap: unable to map "
                       "memory; gle = 0x00000008\n",
                       {"open", "memory_map", "close"}},
        // The BAR map failed: release unmaps the memory, skips the BAR and closes.
        BringUpFailure{"bar_map", Fails(&IoScript::bar_map, 31), 3,
                       "Отказ маппирования BAR устройства [3]: BARMap: unable to map BAR "
                       "memory; gle = 0x0000001F\n",
                       {"open", "memory_map", "bar_map", "memory_unmap", "close"}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(BoardTest, AFailedBoardIsReportedAgainWithoutARetry) {
  script.memory_map = 5;
  DeviceId id{0};
  ASSERT_EQ(CreateDeviceInstance(&id), 1);
  std::string first = GetErrorMessage();
  LastErrorText[0] = '\0';
  EXPECT_EQ(CreateDeviceInstance(&id), 1);
  EXPECT_EQ(GetErrorMessage(), first);
  EXPECT_EQ(builds, 1);
  EXPECT_EQ(script.calls, (Calls{"open", "memory_map"}));

  // Only a release makes room for a new bring-up.
  ReleaseDeviceInstance(&id);
  script.memory_map = 0;
  EXPECT_EQ(CreateDeviceInstance(&id), 0);
  EXPECT_EQ(builds, 2);
}

TEST_F(BoardTest, AHealthyBoardIsReusedAndLeavesTheErrorTextAlone) {
  DeviceId id{0};
  ASSERT_EQ(CreateDeviceInstance(&id), 0);
  cBoard* first = board();
  SetLastErrorText("earlier failure");
  EXPECT_EQ(CreateDeviceInstance(&id), 0);
  EXPECT_EQ(board(), first);
  EXPECT_EQ(builds, 1);
  EXPECT_STREQ(GetErrorMessage(), "earlier failure");
}

TEST_F(BoardTest, AnExceptionDuringBringUpLeavesTheIndexEmpty) {
  throw_on_build = true;
  DeviceId id{1};
  EXPECT_EQ(CreateDeviceInstance(&id), 1);
  EXPECT_STREQ(GetErrorMessage(), "CreateDeviceInstance exception: no binding today");
  EXPECT_EQ(board(1), nullptr);
  throw_on_build = false;
  EXPECT_EQ(CreateDeviceInstance(&id), 0);
  EXPECT_EQ(builds, 2);
}

TEST_F(BoardTest, AFailingBarUnmapStillClosesTheDevice) {
  script.bar_unmap = 6;
  DeviceId id{0};
  ASSERT_EQ(CreateDeviceInstance(&id), 0);
  ReleaseDeviceInstance(&id);
  EXPECT_EQ(script.calls,
            (Calls{"open", "memory_map", "bar_map", "memory_unmap", "bar_unmap", "close"}));
}

TEST_F(BoardTest, IndicesOutsideTheTableAndNullIdsAreRefused) {
  for (int index : {128, 200, 255}) {
    DeviceId id{uint8_t(index)};
    EXPECT_EQ(CreateDeviceInstance(&id), 1);
    EXPECT_EQ(GetErrorMessage(),
              "CreateDeviceInstance [" + std::to_string(index) + "]: NULL-объект или NULL-параметр\n");
    ReleaseDeviceInstance(&id);   // nothing to release, nothing touched
  }
  EXPECT_EQ(CreateDeviceInstance(nullptr), 1);
  EXPECT_STREQ(GetErrorMessage(), "CreateDeviceInstance: NULL-объект или NULL-параметр\n");
  ReleaseDeviceInstance(nullptr);
  EXPECT_EQ(builds, 0);
}

}  // namespace
}  // namespace tvx::test
