// A board replaying a recording: what it refuses to load, what it answers, where it stops, and
// when it plays the recorded data events.
#include <chrono>
#include <fstream>
#include <functional>
#include <thread>

#include "sim_test_util.h"
#include "zarimsim_payload.h"

extern "C" {
uint32_t ZARIM_GetSlotNumber(tvx::zarimio::Handle device);
int32_t ZARIM_MemoryUnmap(tvx::zarimio::Handle device, void* reserved);
}

namespace zsim_test {
namespace {

class ReplayTest : public SimTest {
 protected:
  std::string Write(const std::string& text) {
    std::ofstream(path_, std::ios::binary) << text;
    return path_;
  }
  TempDir dir_;
  std::string path_ = dir_.str() + "/recording.txt";
};

TEST_F(ReplayTest, RefusesWhatIsNotARecordingOfTheBoardAndSaysWhere) {
  const struct {
    const char* text;
    const char* state;
  } cases[] = {
      {"", "refused: not a recording of version 1 (the file is empty)"},
      {"zarimrec 2\n1 0 0 call ZARIM_Open 0 0\n", "refused: not a recording of version 1"},
      {"zarimrec 1\n1 0 0 call ZARIM_Open 0 0\n3 1 0 R 0x0 0x0\n", "refused: line 3: event 3 where 2 was due"},
      {"zarimrec 1\n# c\n1 0 0 X 0\n", "refused: line 3: unknown event kind X"},
      {"zarimrec 1\n1 0 0 R 0x10\n", "refused: line 2: a R event with fields it cannot have"},
      {"zarimrec 1\n1 0 0 call ZARIM_Open zero 0\n", "refused: line 2: a call event with fields"},
      {"zarimrec 1\n1 0 1 call ZARIM_Open 0 0\n", "refused: no events of board 0"},
  };
  for (const auto& c : cases) {
    EXPECT_NE(zsim_set(0, "replay", Write(c.text).c_str()), 0) << c.text;
    EXPECT_EQ(Get(0, "replay.state").rfind(c.state, 0), 0u);
  }
  EXPECT_NE(zsim_set(0, "replay", (dir_.str() + "/none.txt").c_str()), 0);
  EXPECT_EQ(Get(0, "replay.state").rfind("refused: cannot read", 0), 0u);
  Set("replay", "none");
  EXPECT_EQ(Get(0, "replay.state"), "off");
}

const char kRecording[] =
    "zarimrec 1\n"
    "target /x/libzarimio.so\n"
    "1 0 - call DeviceSupportedCount 1 0\n"
    "2 10 0 call ZARIM_Open 0 0\n"
    "3 12 0 call ZARIM_MemoryMap 0 0 descriptors=68\n"
    "4 13 0 call ZARIM_BARMap 0 0 size=0x00010000\n"
    "5 14 0 call ZARIM_GetSlotNumber 3 0\n"
    "6 20 0 W 0x00000010 0x00000005\n"
    "7 21 0 R 0x00000014 0xCAFE0001\n"
    "8 22 0 call ZARIM_Read 0 0 addr=0x00000018 value=0x00000077\n"
    "9 30 0 call ZARIM_GetInterruptInfo 0 0\n"
    "10 1022 0 D 1 2\n"
    "11 5000 0 call ZARIM_MemoryUnmap 0 0\n"
    "12 5001 0 call ZARIM_Close 0 0\n";

uint32_t ReadReg(const OpenBoard& b, uint32_t address) { return b.Reg(address); }

// The application's side of kRecording, with one step changed by `vary` (which gets the
// step's number and may do something else in its place). The two values read.
std::pair<uint32_t, uint32_t> RunRecordedSteps(const std::function<bool(int, const OpenBoard&)>& vary) {
  OpenBoard board;
  auto step = [&](int n, const std::function<void()>& as_recorded) {
    if (!vary(n, board)) as_recorded();
  };
  uint32_t bar = 0;
  PortRequest request{0x18, 0};
  InterruptInfo info{};
  step(5, [&] { ZARIM_GetSlotNumber(board.handle); });
  step(6, [&] { board.Reg(0x10) = 5; });
  step(7, [&] { bar = ReadReg(board, 0x14); });
  step(8, [&] { ZARIM_Read(board.handle, &request); });
  step(9, [&] { ZARIM_GetInterruptInfo(board.handle, &info); });
  step(11, [&] { ZARIM_MemoryUnmap(board.handle, nullptr); });
  return {bar, request.value};
}

TEST_F(ReplayTest, StopsAtTheFirstDifferenceWithBothSidesAndGoesDeadAfterIt) {
  const struct {
    int step;
    std::function<void(const OpenBoard&)> instead;
    const char* state;
  } cases[] = {
      {0, nullptr, "match: 8 events"},
      // The data path's queries come as often as the timing makes them: never checked.
      {5, [](const OpenBoard& b) { ZARIM_GetSlotNumber(b.handle), ZARIM_GetSlotNumber(b.handle); },
       "match: 8 events"},
      {6, [](const OpenBoard& b) { b.Reg(0x10) = 6; },
       "differs at event 6: expected W 0x00000010 0x00000005, got W 0x00000010 0x00000006"},
      {6, [](const OpenBoard& b) { ReadReg(b, 0x10); },
       "differs at event 6: expected W 0x00000010 0x00000005, got R 0x00000010"},
      {7, [](const OpenBoard& b) { EXPECT_EQ(ReadReg(b, 0x1C), 0xFFFFFFFFu); },
       "differs at event 7: expected R 0x00000014 0xCAFE0001, got R 0x0000001C"},
      {8, [](const OpenBoard& b) {
         PortRequest request{0x18, 9};
         ZARIM_Write(b.handle, &request);
       },
       "differs at event 8: expected call ZARIM_Read 0 0 addr=0x00000018 value=0x00000077, "
       "got call ZARIM_Write addr=0x00000018 value=0x00000009"},
      {11, [](const OpenBoard& b) { b.Reg(0x10) = 5; },
       "differs at event 11: expected call ZARIM_MemoryUnmap 0 0, got W 0x00000010 0x00000005"},
  };
  for (const auto& c : cases) {
    Set("replay", Write(kRecording));
    const auto read = RunRecordedSteps([&](int n, const OpenBoard& b) {
      if (n != c.step) return false;
      c.instead(b);
      return true;
    });
    EXPECT_EQ(Get(0, "replay.state"), c.state) << "step " << c.step;
    // Recorded values until the difference, then a board gone from the bus.
    using Read = std::pair<uint32_t, uint32_t>;
    if (c.step == 0 || c.step == 5) {
      EXPECT_EQ(read, Read(0xCAFE0001u, 0x77u));
    } else if (c.step == 6) {
      EXPECT_EQ(read, Read(0xFFFFFFFFu, 0xFFFFFFFFu));
    }
  }
  // Once everything matched, the next call is one too many.
  Set("replay", Write(kRecording));
  RunRecordedSteps([](int, const OpenBoard&) { return false; });
  OpenBoard again;
  EXPECT_EQ(Get(0, "replay.state"),
            "differs after the last event: expected nothing, got call ZARIM_Open");
  EXPECT_NE(zsim_set(0, "replay", path_.c_str()), 0) << "not while the board is open";
}

TEST_F(ReplayTest, ACallRecordedAsFailedFailsAgainWithItsCode) {
  Set("replay", Write("zarimrec 1\n1 0 0 call ZARIM_Open 0 0\n2 1 0 call ZARIM_MemoryMap 1 8\n"));
  const Handle handle = ZARIM_Open(0);
  MemoryMapInfo map{};
  EXPECT_NE(ZARIM_MemoryMap(handle, &map), 0);
  EXPECT_EQ(tvx::os::LastError(), 8u);
  EXPECT_EQ(Get(0, "replay.state"), "match: 2 events");
  EXPECT_EQ(Get(0, "memory_mapped"), "0");
  ZARIM_Close(handle);
}

// The data event comes 1000 us of the board's clock after the event before it matched, and
// announces buffers that hold the board's payload.
TEST_F(ReplayTest, DataEventsComeAtTheirRecordedDelayOnTheBoardsClock) {
  Set("clock", "manual");
  Set("replay", Write(kRecording));
  OpenBoard board;
  ZARIM_GetSlotNumber(board.handle);
  board.Reg(0x10) = 5;
  ReadReg(board, 0x14);
  PortRequest request{0x18, 0};
  ZARIM_Read(board.handle, &request);
  InterruptInfo info{};
  ASSERT_EQ(ZARIM_GetInterruptInfo(board.handle, &info), 0);
  const auto* progress = reinterpret_cast<const volatile ChannelProgress*>(uintptr_t(info.channels));
  auto count_after = [&](uint32_t advance_us) {
    Set("clock.advance_us", std::to_string(advance_us));
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
    while (progress[1].completed == 0 && std::chrono::steady_clock::now() < until)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return progress[1].completed;
  };
  EXPECT_EQ(count_after(999), 0u);
  EXPECT_EQ(count_after(1), 2u);
  EXPECT_EQ(Get(0, "replay.data"), "1 of 1 played");
  const uint32_t ring = uint32_t(board.memory.descriptor_count / 17);
  for (uint64_t q = 0; q < 2; ++q) {
    const BufferDescriptor& d = board.Descriptors()[ring + q];
    EXPECT_EQ(zsim_payload_check(reinterpret_cast<const void*>(uintptr_t(d.user_address)), d.size, 1, q),
              ZSIM_PAYLOAD_OK);
  }
  EXPECT_EQ(progress[0].completed, 0u);
}

}  // namespace
}  // namespace zsim_test
