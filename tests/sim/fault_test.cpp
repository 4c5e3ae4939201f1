// Fault injection: each fault key makes its call fail with the given last-error code and
// leaves the board as a real failure would; cleared again, the call works.
#include <functional>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

struct FaultCase {
  const char* key;
  bool memory, bar;                          // what is mapped before the call
  std::function<int32_t(OpenBoard&)> call;   // the failing call
  const char* flag;                          // the flag it must leave ...
  const char* flag_after;                    // ... at this value
};

const FaultCase kFaults[] = {
    {"fault.memory_map", false, false,
     [](OpenBoard& b) { return ZARIM_MemoryMap(b.handle, &b.memory); }, "memory_mapped", "0"},
    {"fault.memory_unmap", true, false,
     [](OpenBoard& b) { return ZARIM_MemoryUnmap(b.handle, nullptr); }, "memory_mapped", "1"},
    {"fault.bar_map", true, false,
     [](OpenBoard& b) { return ZARIM_BARMap(b.handle, &b.bar); }, "bar_mapped", "0"},
    {"fault.bar_unmap", true, true,
     [](OpenBoard& b) { return ZARIM_BARUnmap(b.handle, &b.bar); }, "bar_mapped", "1"},
    {"fault.port", false, false,
     [](OpenBoard& b) {
       PortRequest request{0x8000, 0};
       return ZARIM_Read(b.handle, &request);
     },
     "open", "1"},
    {"fault.port", false, false,
     [](OpenBoard& b) {
       PortRequest request{0x8000, 1};
       return ZARIM_Write(b.handle, &request);
     },
     "open", "1"},
    {"fault.interrupt_info", true, false,
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
  zsim_trace_clear(0);
  tvx::os::SetLastError(0);
  EXPECT_NE(c.call(board), 0);
  EXPECT_EQ(tvx::os::LastError(), 1234u);
  EXPECT_EQ(Get(0, c.flag), c.flag_after);
  EXPECT_EQ(zsim_trace(0, nullptr, 0), 0u) << "a failed call reached the registers";
  EXPECT_TRUE(!c.bar || board.Reg(0x4000) == 1u) << "a BAR still mapped still traps";
  ASSERT_EQ(zsim_set(0, c.key, "0"), 0);
  EXPECT_EQ(c.call(board), 0);
}

INSTANTIATE_TEST_SUITE_P(Keys, FaultTest, testing::ValuesIn(kFaults),
                         [](const auto& info) {
                           return std::string(info.param.key).substr(6) + "_" + std::to_string(info.index);
                         });

// fault.open belongs to its board: the other opens, and once cleared so does this one.
TEST_F(SimTest, FaultOpenLeavesItsCodeOnItsBoardOnly) {
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  ASSERT_EQ(zsim_set(0, "fault.open", "2"), 0);
  tvx::os::SetLastError(0);
  EXPECT_EQ(ZARIM_Open(0), kInvalidHandle);
  EXPECT_EQ(tvx::os::LastError(), 2u);
  EXPECT_EQ(Get(0, "open"), "0");
  OpenBoard other(1, false, false);
  ASSERT_EQ(zsim_set(0, "fault.open", "0"), 0);
  OpenBoard board(0, false, false);
}

}  // namespace
}  // namespace zsim_test
