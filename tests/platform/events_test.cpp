// Named auto-reset events: the semantics the virtual board's data events and the library's
// waits rely on, on both targets. Natively the FIFOs live in a private runtime directory.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/os.h"
#include "test_env.h"

namespace tvx::os {
namespace {

int64_t MsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
      .count();
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
  WaitResult Wait(uint32_t ms) { return WaitForEither(first_, second_, ms); }

  test::TempDir runtime_;
  test::ScopedEnv env_{"TORVIXE_RUNTIME_DIR", runtime_.str()};
  const std::string nonce_ = test::Nonce();
  Event first_ = nullptr, second_ = nullptr;
};

// Auto-reset: a signal is seen once, several collapse into one; with both signalled the first
// wins and the second stays signalled. Handles of one name are one event: what the board
// signals, the library's wait sees.
TEST_F(Events, AutoResetFirstWinsAndOneNameIsOneEvent) {
  for (int signals : {1, 5}) {
    for (int i = 0; i < signals; ++i) ASSERT_TRUE(SignalEvent(second_));
    EXPECT_EQ(Wait(1000), WaitResult::kSecond) << signals;
    EXPECT_EQ(Wait(0), WaitResult::kTimeout) << signals;
  }
  ASSERT_TRUE(SignalEvent(second_) && SignalEvent(first_));
  EXPECT_EQ(Wait(1000), WaitResult::kFirst);
  EXPECT_EQ(Wait(1000), WaitResult::kSecond);
  EXPECT_EQ(Wait(0), WaitResult::kTimeout);

  Event created_again = CreateNamedEvent(Name("first").c_str());
  Event opened = OpenNamedEvent(Name("first").c_str());
  ASSERT_TRUE(created_again != nullptr && opened != nullptr);
  ASSERT_TRUE(SignalEvent(created_again));
  EXPECT_EQ(WaitForEither(opened, second_, 1000), WaitResult::kFirst);
  EXPECT_EQ(Wait(0), WaitResult::kTimeout) << "the wake consumed it";
  CloseEvent(created_again);
  CloseEvent(opened);
}

// A wait ends after about its time-out, or as soon as another thread signals, also without a
// time-out. Absent names and null events fail without harm.
TEST_F(Events, WaitsEndAtTheTimeOutOrAtASignalAndBadEventsFail) {
  for (int64_t timeout : {0, 300}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Wait(uint32_t(timeout)), WaitResult::kTimeout);
    EXPECT_GE(MsSince(start), timeout - 20);
    EXPECT_LE(MsSince(start), timeout + 200);
  }
  for (uint32_t timeout : {5000u, kInfinite}) {
    std::thread signaller([this] {
      SleepMs(100);
      SignalEvent(second_);
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Wait(timeout), WaitResult::kSecond) << timeout;
    EXPECT_LT(MsSince(start), 2000);
    signaller.join();
  }
  SetLastError(0);
  EXPECT_EQ(OpenNamedEvent(Name("absent").c_str()), nullptr);
  EXPECT_NE(LastError(), 0u);
  EXPECT_EQ(WaitForEither(nullptr, second_, 0), WaitResult::kFailed);
  EXPECT_EQ(WaitForEither(first_, nullptr, 0), WaitResult::kFailed);
  EXPECT_FALSE(SignalEvent(nullptr));
  CloseEvent(nullptr);
}

// Natively the FIFOs sit directly in the private runtime directory, whatever the name says.
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
}

}  // namespace
}  // namespace tvx::os
