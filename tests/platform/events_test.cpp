// Named auto-reset events: the semantics the virtual board's data events and the library's
// waits rely on, on both targets. Natively the FIFOs live in a private runtime directory.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/os.h"
#include "platform_test_util.h"

namespace tvx::os {
namespace {

using Clock = std::chrono::steady_clock;

int64_t MsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

class Events : public ::testing::Test {
 protected:
  void SetUp() override {
    first_ = CreateNamedEvent(Name("first").c_str());
    second_ = CreateNamedEvent(Name("second").c_str());
    ASSERT_NE(first_, nullptr);
    ASSERT_NE(second_, nullptr);
  }
  void TearDown() override {
    CloseEvent(first_);
    CloseEvent(second_);
  }
  std::string Name(const std::string& stem) const { return "tvx-test-" + nonce_ + "-" + stem; }

  test::TempDir runtime_;
  test::ScopedEnv env_{"TORVIXE_RUNTIME_DIR", runtime_.str()};
  const std::string nonce_ = test::Nonce();
  Event first_ = nullptr;
  Event second_ = nullptr;
};

TEST_F(Events, ASignalIsSeenOnceAndSeveralCollapseIntoOne) {
  for (int signals : {1, 2, 5}) {
    SCOPED_TRACE(signals);
    for (int i = 0; i < signals; ++i) ASSERT_TRUE(SignalEvent(second_));
    EXPECT_EQ(WaitForEither(first_, second_, 1000), WaitResult::kSecond);
    EXPECT_EQ(WaitForEither(first_, second_, 50), WaitResult::kTimeout);
  }
}

TEST_F(Events, FirstWinsAndTheSecondStaysSignalled) {
  ASSERT_TRUE(SignalEvent(second_));
  ASSERT_TRUE(SignalEvent(first_));
  EXPECT_EQ(WaitForEither(first_, second_, 1000), WaitResult::kFirst);
  EXPECT_EQ(WaitForEither(first_, second_, 1000), WaitResult::kSecond);
  EXPECT_EQ(WaitForEither(first_, second_, 0), WaitResult::kTimeout);
}

TEST_F(Events, TimesOutAfterAboutTheTimeOut) {
  for (uint32_t timeout : {0u, 300u}) {
    SCOPED_TRACE(timeout);
    const auto start = Clock::now();
    EXPECT_EQ(WaitForEither(first_, second_, timeout), WaitResult::kTimeout);
    const int64_t elapsed = MsSince(start);
    EXPECT_GE(elapsed, static_cast<int64_t>(timeout) - 20);
    EXPECT_LE(elapsed, static_cast<int64_t>(timeout) + 200);
  }
}

TEST_F(Events, ASignalFromAnotherThreadReleasesABlockedWait) {
  for (uint32_t timeout : {5000u, kInfinite}) {
    SCOPED_TRACE(timeout);
    std::thread signaller([this] {
      SleepMs(100);
      SignalEvent(second_);
    });
    const auto start = Clock::now();
    EXPECT_EQ(WaitForEither(first_, second_, timeout), WaitResult::kSecond);
    EXPECT_LT(MsSince(start), 2000);
    signaller.join();
  }
}

// Handles of the same name are one event: what the board signals, the library's wait sees.
TEST_F(Events, HandlesOfOneNameShareTheEvent) {
  Event created_again = CreateNamedEvent(Name("first").c_str());
  Event opened = OpenNamedEvent(Name("first").c_str());
  ASSERT_NE(created_again, nullptr);
  ASSERT_NE(opened, nullptr);
  ASSERT_TRUE(SignalEvent(created_again));
  EXPECT_EQ(WaitForEither(opened, second_, 1000), WaitResult::kFirst);
  EXPECT_EQ(WaitForEither(first_, second_, 0), WaitResult::kTimeout) << "the wake consumed it";
  CloseEvent(created_again);
  CloseEvent(opened);
}

TEST_F(Events, OpeningAnAbsentNameFails) {
  SetLastError(0);
  EXPECT_EQ(OpenNamedEvent(Name("absent").c_str()), nullptr);
  EXPECT_NE(LastError(), 0u);
}

TEST_F(Events, NullEventsFailWithoutHarm) {
  EXPECT_EQ(WaitForEither(nullptr, second_, 0), WaitResult::kFailed);
  EXPECT_EQ(WaitForEither(first_, nullptr, 0), WaitResult::kFailed);
  EXPECT_FALSE(SignalEvent(nullptr));
  CloseEvent(nullptr);
}

// Each signal releases exactly one of several waiters, each with its own handle as separate
// processes would have. A waiter that finds the signal already taken by another must wait on,
// not report a wake it did not get.
TEST_F(Events, EachSignalReleasesExactlyOneWaiter) {
  constexpr int kWaiters = 4;
  constexpr int kSignals = 20;
  std::atomic<int> wakes{0};
  std::atomic<bool> stop{false};
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&] {
      Event mine = OpenNamedEvent(Name("first").c_str());
      Event other = OpenNamedEvent(Name("second").c_str());
      while (!stop) {
        if (WaitForEither(mine, other, 50) == WaitResult::kFirst) ++wakes;
      }
      CloseEvent(mine);
      CloseEvent(other);
    });
  }
  SleepMs(100);   // all blocked by now
  for (int k = 1; k <= kSignals; ++k) {
    ASSERT_TRUE(SignalEvent(first_));
    // The next signal only after this one was taken, so that none collapses into another.
    const auto start = Clock::now();
    while (wakes < k && MsSince(start) < 2000) SleepMs(1);
    ASSERT_GE(wakes.load(), k) << "signal " << k << " released nobody";
  }
  SleepMs(100);
  stop = true;
  for (auto& t : waiters) t.join();
  EXPECT_EQ(wakes.load(), kSignals);
}

// The FIFO layout natively: where the events live and what their names may not do.
TEST_F(Events, PosixFifosStayInsideAPrivateRuntimeDirectory) {
  if (test::OnWindows()) GTEST_SKIP() << "kernel objects have no files";
  namespace fs = std::filesystem;
  Event global = CreateNamedEvent(("Global\\" + Name("global")).c_str());
  Event escaping = CreateNamedEvent(("../" + Name("up")).c_str());
  Event nested = CreateNamedEvent((Name("sub") + "\\y").c_str());
  ASSERT_NE(global, nullptr);
  ASSERT_NE(escaping, nullptr);
  ASSERT_NE(nested, nullptr);
  EXPECT_TRUE(fs::is_fifo(runtime_.path() / Name("global")));
  EXPECT_TRUE(fs::is_fifo(runtime_.path() / (Name("sub") + "_y")));
  EXPECT_FALSE(fs::exists(runtime_.path().parent_path() / Name("up")));
  int inside = 0;
  for (const auto& entry : fs::directory_iterator(runtime_.path())) inside += entry.is_fifo();
  EXPECT_EQ(inside, 5) << "every event's FIFO sits directly in the directory";
  CloseEvent(global);
  CloseEvent(escaping);
  CloseEvent(nested);

  // Without an override the directory is $XDG_RUNTIME_DIR/torvixe, created private.
  test::TempDir xdg;
  test::ScopedEnv no_override("TORVIXE_RUNTIME_DIR", "");
  test::ScopedEnv env("XDG_RUNTIME_DIR", xdg.str());
  Event fallback = CreateNamedEvent(Name("xdg").c_str());
  ASSERT_NE(fallback, nullptr);
  EXPECT_TRUE(fs::is_fifo(xdg.path() / "torvixe" / Name("xdg")));
  EXPECT_EQ(fs::status(xdg.path() / "torvixe").permissions() & fs::perms::all, fs::perms::owner_all);
  CloseEvent(fallback);
}

}  // namespace
}  // namespace tvx::os
