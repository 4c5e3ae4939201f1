// The register BAR under what the end-to-end tests do not apply: traps from several threads
// at once, and faults that are not the board's.
#include <atomic>
#include <csignal>
#include <thread>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

using BarTest = SimTest;

// Three threads at once, two of them on different pages of one board: every access is
// modelled, every value read back is the one written.
TEST_F(BarTest, TrapsFromThreeThreadsOnTwoBoards) {
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  OpenBoard a(0), b(1);
  zsim_trace_clear(0), zsim_trace_clear(1);
  std::atomic<uint32_t> wrong{0};
  auto hammer = [&](const OpenBoard* board, uint32_t address) {
    for (uint32_t i = 0; i < 2000; ++i) {
      board->Reg(address) = i ^ address;
      if (board->Reg(address) != (i ^ address)) ++wrong;
    }
  };
  std::thread t1(hammer, &a, 0x0020u), t2(hammer, &b, 0x8000u), t3(hammer, &a, 0xA280u);
  t1.join(), t2.join(), t3.join();
  EXPECT_EQ(wrong.load(), 0u);
  EXPECT_EQ(zsim_trace(0, nullptr, 0), 2 * 2 * 2000u);
  EXPECT_EQ(zsim_trace(1, nullptr, 0), 2 * 2000u);
}

// In a fresh process each: an access violation outside any BAR must reach the handler
// installed before the board's traps, or kill without one.
void ExitCleanly(int) { std::_Exit(0); }

void ForeignFault() {
  zsim_reset();
  OpenBoard board;
  ASSERT_EQ(zsim_set(0, "reg.0x8000", "0x1234"), 0);
  ASSERT_EQ(board.Reg(0x8000), 0x1234u) << "the board's traps work";
  void* foreign = tvx::os::AllocatePages(tvx::os::PageSize());
  ASSERT_TRUE(tvx::os::ProtectPages(foreign, tvx::os::PageSize(), false));
  *static_cast<volatile uint32_t*>(foreign) = 1;
}

TEST(DISABLED_TrapChainChild, WithEarlierHandler) {
  std::signal(SIGSEGV, ExitCleanly);
  ForeignFault();
  FAIL() << "a foreign fault was swallowed";
}
TEST(DISABLED_TrapChainChild, WithoutHandler) {
  ForeignFault();
  std::_Exit(0);   // reached only when the fault was swallowed: that is the failure
}

TEST(TrapChain, ForeignFaultReachesTheEarlierHandlerOrKills) {
  EXPECT_EQ(RunInChildProcess("DISABLED_TrapChainChild.WithEarlierHandler"), 0);
  // Under Windows the default ends in the system's crash handling (a debugger under Wine).
  EXPECT_TRUE(OnWindows() || RunInChildProcess("DISABLED_TrapChainChild.WithoutHandler") != 0);
}

}  // namespace
}  // namespace zsim_test
