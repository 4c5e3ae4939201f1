// The bounded formatting every message goes through.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "hw/clock.h"
#include "hw/text.h"

namespace tvx {
namespace {

TEST(Text, LongMessagesAreCutAndTerminated) {
  char buffer[256];
  std::memset(buffer, 'x', sizeof buffer);
  std::string long_text(400, 'a');
  Format(buffer, "%s [%d]: %s\n", "Export", 3, long_text.c_str());
  EXPECT_EQ(std::strlen(buffer), 255u);
  EXPECT_EQ(std::string(buffer, 11), "Export [3]:");
}

TEST(Text, AMessageMayQuoteItsOwnBuffer) {
  char buffer[64] = "inner";
  Format(buffer, "%s; %s", "outer", buffer);
  EXPECT_STREQ(buffer, "outer; inner");
}

TEST(Text, CopyTellsWhetherItFitted) {
  char buffer[4];
  EXPECT_TRUE(CopyText(buffer, sizeof buffer, "abc"));
  EXPECT_STREQ(buffer, "abc");
  EXPECT_FALSE(CopyText(buffer, sizeof buffer, "abcd"));
  EXPECT_STREQ(buffer, "abc");
}

// A clock that only moves when the code under test sleeps or when the test says so.
class ManualClock : public ClockSource {
 public:
  int64_t Counter() override { return now; }
  int64_t Frequency() override { return 1000; }
  void SleepMs(uint32_t ms) override { now += ms; }
  int64_t now = 5000;
};

TEST(HiResTimer, MeasuresOnTheInstalledClock) {
  ManualClock clock;
  ClockSource* previous = InstallClock(&clock);
  HiResTimer timer;
  timer.StartTimer();
  Clock().SleepMs(250);
  EXPECT_DOUBLE_EQ(timer.ElapsedSeconds(), 0.25);
  clock.now += 1000;
  EXPECT_DOUBLE_EQ(timer.ElapsedSeconds(), 1.25);
  InstallClock(previous);
  EXPECT_NE(&Clock(), &clock);
}

}  // namespace
}  // namespace tvx
