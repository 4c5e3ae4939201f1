// The interface module, PLL control and circuit reset: the registers they touch and the
// codes and texts they give.
#include <vector>

#include "api/controls.h"
#include "board_fixture.h"

// Found by argument-dependent lookup from inside the standard algorithms.
static bool operator==(const zsim_access& a, const zsim_access& b) {
  return a.addr == b.addr && a.value == b.value && a.write == b.write;
}

namespace tvx::test {
namespace {

std::vector<zsim_access> Accesses(const zsim::BoardModel& m) { return m.Trace(); }

class ControlsTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    ASSERT_EQ(CreateDeviceInstance(&id), 0);
    model.ClearTrace();
  }
  DeviceId id{0};
};

TEST_F(ControlsTest, PllControlWritesDemWord22Once) {
  uint32_t value = 5;
  EXPECT_EQ(PLLControl(&id, &value), 0);
  EXPECT_EQ(Accesses(model), (std::vector<zsim_access>{{0x8058, 5, 1}}));
  EXPECT_EQ(board()->Get<cPLL>(Slot::Pll)->last_written(), 5u);
}

TEST_F(ControlsTest, PllControlWithTheBarUnmappedFailsWithTheBindingText) {
  uint32_t value = 5;
  ASSERT_EQ(PLLControl(&id, &value), 0);
  io()->set_bar_mapped(false);
  value = 9;
  EXPECT_EQ(PLLControl(&id, &value), 2);
  EXPECT_STREQ(GetErrorMessage(),
               "PLLControl [0]: Ошибка задания управления ФАПЧ; WritePort: BAR is not mapped in "
               "user mode\n\n");
  // The cached value keeps the last value that reached the register.
  EXPECT_EQ(board()->Get<cPLL>(Slot::Pll)->last_written(), 5u);
  io()->set_bar_mapped(true);
}

TEST_F(ControlsTest, PllWithoutHardwareAccessObjectSaysSo) {
  cPLL pll(nullptr);
  EXPECT_EQ(pll.Control(1), 1);
  EXPECT_STREQ(pll.GetErrorText(), "Не задан модуль интерфейса устройства");
}

TEST_F(ControlsTest, CircuitResetWritesDemWord2045AndIgnoresTheWriteResult) {
  uint32_t value = 1;
  EXPECT_EQ(CircuitReset(&id, &value), 0);
  EXPECT_EQ(Accesses(model), (std::vector<zsim_access>{{0x9FF4, 1, 1}}));

  io()->set_bar_mapped(false);
  SetLastErrorText("before");
  value = 7;
  EXPECT_EQ(CircuitReset(&id, &value), 0);
  EXPECT_STREQ(GetErrorMessage(), "before");
  EXPECT_EQ(board()->Get<cCircuitResetE>(Slot::CircuitReset)->last_written(), 7u);
  io()->set_bar_mapped(true);
}

TEST_F(ControlsTest, InterfaceVersionIsTwoAndReadsNoRegister) {
  uint8_t version = 0;
  EXPECT_EQ(GetInterfaceVersion(&id, &version), 0);
  EXPECT_EQ(version, 2);
  EXPECT_TRUE(model.Trace().empty());
}

TEST_F(ControlsTest, ConvertorCodeReadsPeripheralWord0Once) {
  auto* interface = board()->Get<cInterfaceE>(Slot::Interface);
  ASSERT_EQ(model.Set("lconv.present", "1"), 0);
  EXPECT_EQ(interface->GetConvertorCode(), 3);
  ASSERT_EQ(model.Trace().size(), 1u);
  EXPECT_EQ(model.Trace()[0].addr, 0x4000u);
  EXPECT_EQ(model.Trace()[0].write, 0);
  EXPECT_EQ(interface->GetEepromPcbAddress(), 0xA6);
}

// Null arguments and empty slots: the null message, -1, and nothing written.
TEST_F(ControlsTest, NullArgumentsTakeTheNullPath) {
  uint8_t version = 0x55;
  DeviceId empty{1};
  EXPECT_EQ(GetInterfaceVersion(&empty, &version), -1);
  EXPECT_STREQ(GetErrorMessage(), "GetInterfaceVersion [1]: NULL-объект или NULL-параметр\n");
  EXPECT_EQ(version, 0x55);
  EXPECT_EQ(PLLControl(&id, nullptr), -1);
  EXPECT_STREQ(GetErrorMessage(), "PLLControl [0]: NULL-объект или NULL-параметр\n");
  EXPECT_EQ(CircuitReset(nullptr, nullptr), -1);
  EXPECT_STREQ(GetErrorMessage(), "CircuitReset: NULL-объект или NULL-параметр\n");
  EXPECT_TRUE(model.Trace().empty());
}

}  // namespace
}  // namespace tvx::test
