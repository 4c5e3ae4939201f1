// Fault injection: each fault key makes its call fail with the given last-error code and
// leaves the board's flags as a real failure would; cleared again, the call works.
#include <functional>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

struct FaultCase {
  const char* key;
  bool open, memory, bar;                        // what is in place before the call
  std::function<int32_t(OpenBoard&)> call;       // the failing call
  const char* flag;                              // the flag it must leave ...
  const char* flag_after;                        // ... at this value
};

int32_t ReadPort(OpenBoard& b) {
  PortRequest request{0x8000, 0};
  return ZARIM_Read(b.handle, &request);
}
int32_t WritePort(OpenBoard& b) {
  PortRequest request{0x8000, 1};
  return ZARIM_Write(b.handle, &request);
}

const FaultCase kFaults[] = {
    {"fault.memory_map", true, false, false,
     [](OpenBoard& b) { return ZARIM_MemoryMap(b.handle, &b.memory); }, "memory_mapped", "0"},
    {"fault.memory_unmap", true, true, false,
     [](OpenBoard& b) { return ZARIM_MemoryUnmap(b.handle, nullptr); }, "memory_mapped", "1"},
    {"fault.bar_map", true, true, false,
     [](OpenBoard& b) { return ZARIM_BARMap(b.handle, &b.bar); }, "bar_mapped", "0"},
    {"fault.bar_unmap", true, true, true,
     [](OpenBoard& b) { return ZARIM_BARUnmap(b.handle, &b.bar); }, "bar_mapped", "1"},
    {"fault.port", true, false, false, ReadPort, "open", "1"},
    {"fault.port", true, false, false, WritePort, "open", "1"},
    {"fault.interrupt_info", true, true, false,
     [](OpenBoard& b) {
       InterruptInfo info{};
       return ZARIM_GetInterruptInfo(b.handle, &info);
     },
     "memory_mapped", "1"},
};

class FaultTest : public SimTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(FaultTest, FailsWithTheGivenLastErrorAndWorksOnceCleared) {
  const FaultCase& c = GetParam();
  OpenBoard board(0, c.memory, c.bar);
  ASSERT_EQ(zsim_set(0, c.key, "1234"), 0);
  EXPECT_EQ(Get(0, c.key), "1234");
  zsim_trace_clear(0);
  tvx::os::SetLastError(0);
  EXPECT_NE(c.call(board), 0);
  EXPECT_EQ(tvx::os::LastError(), 1234u);
  EXPECT_EQ(Get(0, c.flag), c.flag_after);
  EXPECT_EQ(zsim_trace(0, nullptr, 0), 0u) << "a failed call reached the registers";
  ASSERT_EQ(zsim_set(0, c.key, "0"), 0);
  EXPECT_EQ(c.call(board), 0);
}

INSTANTIATE_TEST_SUITE_P(Keys, FaultTest, testing::ValuesIn(kFaults),
                         [](const testing::TestParamInfo<FaultCase>& info) {
                           std::string name = std::string(info.param.key).substr(6) + "_" +
                                              std::to_string(info.index);
                           return name;
                         });

TEST_F(SimTest, FaultOpenLeavesItsCodeAndNoEvents) {
  ASSERT_EQ(zsim_set(0, "fault.open", "2"), 0);
  tvx::os::SetLastError(0);
  EXPECT_EQ(ZARIM_Open(0), kInvalidHandle);
  EXPECT_EQ(tvx::os::LastError(), 2u);
  EXPECT_EQ(Get(0, "open"), "0");
  ASSERT_EQ(zsim_set(0, "fault.open", "0"), 0);
  OpenBoard board(0, false, false);
  EXPECT_EQ(Get(0, "open"), "1");
}

// A BAR whose unmap failed is still mapped and still traps.
TEST_F(SimTest, FailedBarUnmapLeavesTheBarWorking) {
  OpenBoard board;
  ASSERT_EQ(zsim_set(0, "reg.0x8004", "77"), 0);
  ASSERT_EQ(zsim_set(0, "fault.bar_unmap", "5"), 0);
  EXPECT_NE(ZARIM_BARUnmap(board.handle, &board.bar), 0);
  EXPECT_EQ(board.Reg(0x8004), 77u);
  ASSERT_EQ(zsim_set(0, "fault.bar_unmap", "0"), 0);
  EXPECT_EQ(ZARIM_BARUnmap(board.handle, &board.bar), 0);
  EXPECT_EQ(Get(0, "bar_mapped"), "0");
}

// Faults belong to one board.
TEST_F(SimTest, FaultKeysArePerBoard) {
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  ASSERT_EQ(zsim_set(0, "fault.open", "2"), 0);
  EXPECT_EQ(ZARIM_Open(0), kInvalidHandle);
  OpenBoard other(1);
  EXPECT_EQ(Get(1, "fault.open"), "0");
}

}  // namespace
}  // namespace zsim_test
