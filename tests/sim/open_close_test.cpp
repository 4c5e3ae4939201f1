// Boards, handles, slot numbers and the named data events: what ZARIM_Open creates and
// ZARIM_Close takes down again.
#include <cstdio>
#include <cstring>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

using OpenCloseTest = SimTest;

TEST_F(OpenCloseTest, BoardCountFollowsTheBoardsKeyAndBoundsTheIndex) {
  for (unsigned count : {0u, 3u, 256u, 2u}) {
    // Accepted on any board index, also one beyond the boards there are.
    ASSERT_EQ(zsim_set(200, "boards", std::to_string(count).c_str()), 0) << count;
    EXPECT_EQ(DeviceSupportedCount(), count);
  }
  for (uint8_t index : {uint8_t(2), uint8_t(255)}) {
    tvx::os::SetLastError(0);
    EXPECT_EQ(ZARIM_Open(index), kInvalidHandle) << int(index);
    EXPECT_EQ(tvx::os::LastError(), 2u) << int(index);
  }
  OpenBoard second(1, false, false);
  EXPECT_EQ(Get(1, "open"), "1");
  EXPECT_EQ(Get(0, "open"), "0");
}

// A board opens once at a time; every open gets a fresh handle and stale ones are refused.
TEST_F(OpenCloseTest, HandlesAreFreshPerOpen) {
  Handle first = ZARIM_Open(0);
  ASSERT_NE(first, kInvalidHandle);
  EXPECT_EQ(ZARIM_Open(0), kInvalidHandle);
  EXPECT_EQ(tvx::os::LastError(), kBusy);
  ASSERT_EQ(ZARIM_Close(first), 0);
  EXPECT_EQ(Get(0, "open"), "0");
  Handle second = ZARIM_Open(0);
  ASSERT_NE(second, kInvalidHandle);
  EXPECT_NE(second, first);
  EXPECT_NE(ZARIM_Close(first), 0);
  EXPECT_EQ(Get(0, "open"), "1") << "a stale handle closed the board's new open";
  EXPECT_EQ(ZARIM_Close(second), 0);
}

// Every function that takes a handle refuses one that names no open board, with last error 6,
// and does not touch the caller's record nor the open board.
TEST_F(OpenCloseTest, BadHandlesAreRefusedByEveryFunction) {
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  OpenBoard open(1);
  Handle closed = ZARIM_Open(0);
  ASSERT_NE(closed, kInvalidHandle);
  ZARIM_Close(closed);
  for (Handle h : {kInvalidHandle, Handle(0), Handle(1), closed, open.handle ^ 0x100,
                   open.handle ^ 1, Handle(0x123456789ABCDEF0ull)}) {
    SCOPED_TRACE(testing::Message() << std::hex << h);
    uint8_t record[20];
    std::memset(record, 0xA5, sizeof record);
    PortRequest request{0x8000, 0x5A5A5A5A};
    auto refused = [](int32_t result) {
      const bool ok = result != 0 && tvx::os::LastError() == kBadHandle;
      tvx::os::SetLastError(0);
      return ok;
    };
    const bool results[] = {refused(ZARIM_Read(h, &request)), refused(ZARIM_Write(h, &request)),
                            refused(ZARIM_MemoryMap(h, record)), refused(ZARIM_MemoryUnmap(h, nullptr)),
                            refused(ZARIM_BARMap(h, record)), refused(ZARIM_BARUnmap(h, &open.bar)),
                            refused(ZARIM_GetInterruptInfo(h, record)), refused(ZARIM_Close(h))};
    for (size_t i = 0; i < std::size(results); ++i) EXPECT_TRUE(results[i]) << "call " << i;
    EXPECT_EQ(ZARIM_GetSlotNumber(h), 0xFFFFFFFFu);
    EXPECT_EQ(request.value, 0x5A5A5A5Au);
    for (uint8_t b : record) EXPECT_EQ(b, 0xA5);
  }
  EXPECT_EQ(Get(1, "bar_mapped"), "1");
  EXPECT_EQ(Get(1, "memory_mapped"), "1");
}

TEST_F(OpenCloseTest, SlotDefaultsToThreePlusIndexAndFollowsItsKey) {
  ASSERT_EQ(zsim_set(0, "boards", "3"), 0);
  for (uint8_t i = 0; i < 3; ++i) {
    OpenBoard board(i, false, false);
    EXPECT_EQ(ZARIM_GetSlotNumber(board.handle), 3u + i);
    ASSERT_EQ(zsim_set(i, "slot", "0x11"), 0);
    EXPECT_EQ(ZARIM_GetSlotNumber(board.handle), 17u);
  }
}

TEST_F(OpenCloseTest, CloseUnmapsWhatTheCallerLeftMapped) {
  { OpenBoard board; }
  for (const char* flag : {"open", "memory_mapped", "bar_mapped"}) EXPECT_EQ(Get(0, flag), "0") << flag;
  OpenBoard again;   // maps afresh: nothing was left behind that would make it busy
  EXPECT_EQ(again.Reg(0x8000), 0u);
}

std::string EventName(uint32_t slot, uint32_t channel) {
  char name[64];
  std::snprintf(name, sizeof name, "Global\\zarim%devnt%d", int(slot), int(channel));
  return name;
}

// The data events carry the slot and channel numbers the library formats into the names it
// opens. A slot of this run's own keeps events of other runs (POSIX FIFOs stay) out of it.
TEST_F(OpenCloseTest, DataEventsExistPerChannelWhileOpen) {
  const uint32_t channels = 3;
  ScopedDriverParameters registry(&channels, nullptr);
  const uint32_t s = uint32_t(100000 + std::stoull(tvx::test::Nonce(), nullptr, 16) % 900000);
  ASSERT_EQ(zsim_set(0, "slot", std::to_string(s).c_str()), 0);
  EXPECT_EQ(tvx::os::OpenNamedEvent(EventName(s, 0).c_str()), nullptr) << "before open";
  auto exists = [&](uint32_t c) {
    tvx::os::Event event = tvx::os::OpenNamedEvent(EventName(s, c).c_str());
    tvx::os::CloseEvent(event);
    return event != nullptr;
  };
  for (int round = 0; round < 2; ++round) {   // a second open creates them again
    OpenBoard board(0, false, false);
    for (uint32_t c = 0; c < channels; ++c) EXPECT_TRUE(exists(c)) << EventName(s, c);
    EXPECT_FALSE(exists(channels));
  }
  // On Windows an event goes with its last handle; a POSIX FIFO may stay, harmlessly.
  if (OnWindows()) {
    for (uint32_t c = 0; c < channels; ++c) EXPECT_FALSE(exists(c)) << c;
  }
}

}  // namespace
}  // namespace zsim_test
