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
#include "test_env.h"

namespace tvx::os {
namespace {

using Clock = std::chrono::steady_clock;

int64_t MsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

class Events : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(first_ = CreateNamedEvent(Name("first").c_str()), nullptr);
    ASSERT_NE(second_ = CreateNamedEvent(Name("second").c_str()), nullptr);
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

// Auto-reset: a signal is seen once, several collapse into one; with both signalled the first
// wins and the second stays signalled.
TEST_F(Events, AutoResetAndFirstWins) {
  for (int signals : {1, 5}) {
    for (int i = 0; i < signals; ++i) ASSERT_TRUE(SignalEvent(second_));
    EXPECT_EQ(WaitForEither(first_, second_, 1000), WaitResult::kSecond) << signals;
    EXPECT_EQ(WaitForEither(first_, second_, 0), WaitResult::kTimeout) << signals;
  }
  ASSERT_TRUE(SignalEvent(second_));
  ASSERT_TRUE(SignalEvent(first_));
  EXPECT_EQ(WaitForEither(first_, second_, 1000), WaitResult::kFirst);
  EXPECT_EQ(WaitForEither(first_, second_, 1000), WaitResult::kSecond);
  EXPECT_EQ(WaitForEither(first_, second_, 0), WaitResult::kTimeout);
}

TEST_F(Events, TimesOutAfterAboutTheTimeOut) {
  for (int64_t timeout : {0, 300}) {
    const auto start = Clock::now();
    EXPECT_EQ(WaitForEither(first_, second_, uint32_t(timeout)), WaitResult::kTimeout);
    EXPECT_GE(MsSince(start), timeout - 20);
    EXPECT_LE(MsSince(start), timeout + 200);
  }
}

TEST_F(Events, ASignalFromAnotherThreadReleasesABlockedWait) {
  for (uint32_t timeout : {5000u, kInfinite}) {
    std::thread signaller([this] {
      SleepMs(100);
      SignalEvent(second_);
    });
    const auto start = Clock::now();
    EXPECT_EQ(WaitForEither(first_, second_, timeout), WaitResult::kSecond) << timeout;
    EXPECT_LT(MsSince(start), 2000);
    signaller.join();
  }
}

// Handles of one name are one event: what the board signals, the library's wait sees. Absent
// names and null events fail without harm.
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
  SetLastError(0);
  EXPECT_EQ(OpenNamedEvent(Name("absent").c_str()), nullptr);
  EXPECT_NE(LastError(), 0u);
  EXPECT_EQ(WaitForEither(nullptr, second_, 0), WaitResult::kFailed);
  EXPECT_EQ(WaitForEither(first_, nullptr, 0), WaitResult::kFailed);
  EXPECT_FALSE(SignalEvent(nullptr));
  CloseEvent(nullptr);
}

// Each signal releases exactly one of several waiters, each with its own handle as separate
// processes would have: a waiter that finds the signal taken by another must wait on.
TEST_F(Events, EachSignalReleasesExactlyOneWaiter) {
  constexpr int kSignals = 20;
  std::atomic<int> wakes{0};
  std::atomic<bool> stop{false};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i) {
    waiters.emplace_back([&] {
      Event mine = OpenNamedEvent(Name("first").c_str()), other = OpenNamedEvent(Name("second").c_str());
      while (!stop) wakes += WaitForEither(mine, other, 50) == WaitResult::kFirst;
      CloseEvent(mine);
      CloseEvent(other);
    });
  }
  SleepMs(100);   // all blocked by now
  for (int k = 1; k <= kSignals; ++k) {
    ASSERT_TRUE(SignalEvent(first_));
    // The next signal only after this one was taken, so that none collapses into another.
    for (const auto start = Clock::now(); wakes < k && MsSince(start) < 2000;) SleepMs(1);
    ASSERT_GE(wakes.load(), k) << "signal " << k << " released nobody";
  }
  SleepMs(100);
  stop = true;
  for (auto& t : waiters) t.join();
  EXPECT_EQ(wakes.load(), kSignals);
}

// Natively the FIFOs sit directly in the private runtime directory, whatever the name says;
// without an override that directory is $XDG_RUNTIME_DIR/torvixe, created private.
TEST_F(Events, PosixFifosStayInsideAPrivateRuntimeDirectory) {
  if (test::OnWindows()) GTEST_SKIP() << "kernel objects have no files";
  namespace fs = std::filesystem;
  std::vector<Event> events;
  for (const std::string& name : {"Global\\" + Name("global"), "../" + Name("up"), Name("sub") + "\\y"})
    ASSERT_NE(events.emplace_back(CreateNamedEvent(name.c_str())), nullptr) << name;
  EXPECT_TRUE(fs::is_fifo(runtime_.path() / Name("global")));
  EXPECT_TRUE(fs::is_fifo(runtime_.path() / (Name("sub") + "_y")));
  EXPECT_FALSE(fs::exists(runtime_.path().parent_path() / Name("up")));
  int inside = 0;
  for (const auto& entry : fs::directory_iterator(runtime_.path())) inside += entry.is_fifo();
  EXPECT_EQ(inside, 5);
  for (Event e : events) CloseEvent(e);

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
