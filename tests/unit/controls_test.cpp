// PLL control and circuit reset: the registers they touch and the codes and texts they give.
#include <vector>

#include "api/controls.h"
#include "board_fixture.h"

namespace tvx::test {
namespace {

class ControlsTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    ASSERT_EQ(CreateDeviceInstance(&id), 0);
    model.ClearTrace();
  }
  DeviceId id{0};
};

// The one write to DEM word 22 is checked end to end; here, what a failed write leaves: the
// binding's text, and the cached value of the last write that reached the register. Circuit
// reset writes DEM word 2045 and ignores the write's result.
TEST_F(ControlsTest, PllControlAndCircuitResetWithTheBarUnmapped) {
  uint32_t value = 5;
  ASSERT_EQ(PLLControl(&id, &value), 0);
  EXPECT_EQ(CircuitReset(&id, &value), 0);
  EXPECT_EQ(model.Trace(), (std::vector<zsim_access>{W(0x8058, 5), W(0x9FF4, 5)}));
  io()->set_bar_mapped(false);
  value = 9;
  EXPECT_EQ(PLLControl(&id, &value), 2);
  EXPECT_STREQ(GetErrorMessage(),
               "PLLControl [0]: Ошибка задания управления ФАПЧ; WritePort: BAR is not mapped in "
               "user mode\n\n");
  EXPECT_EQ(board()->Get<cPLL>(Slot::Pll)->last_written(), 5u);
  SetLastErrorText("before");
  value = 7;
  EXPECT_EQ(CircuitReset(&id, &value), 0);
  EXPECT_STREQ(GetErrorMessage(), "before");
  EXPECT_EQ(board()->Get<cCircuitResetE>(Slot::CircuitReset)->last_written(), 7u);
  io()->set_bar_mapped(true);
  cPLL pll(nullptr);
  EXPECT_EQ(pll.Control(1), 1);
  EXPECT_STREQ(pll.GetErrorText(), "Не задан модуль интерфейса устройства");
}

}  // namespace
}  // namespace tvx::test
