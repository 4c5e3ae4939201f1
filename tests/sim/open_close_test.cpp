// Boards, handles, slot numbers and the named data events: what ZARIM_Open creates and
// ZARIM_Close takes down again.
#include <cstdio>
#include <cstring>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

class OpenCloseTest : public SimTest {};

TEST_F(OpenCloseTest, BoardCountFollowsTheBoardsKey) {
  EXPECT_EQ(DeviceSupportedCount(), 1u);
  for (const char* count : {"0", "3", "256", "1"}) {
    // Accepted on any board index, also one beyond the boards there are.
    ASSERT_EQ(zsim_set(200, "boards", count), 0) << count;
    EXPECT_EQ(DeviceSupportedCount(), std::stoul(count));
    EXPECT_EQ(Get(7, "boards"), count);
  }
  EXPECT_NE(zsim_set(0, "boards", "257"), 0);
  EXPECT_NE(zsim_set(0, "boards", "-1"), 0);
  EXPECT_EQ(DeviceSupportedCount(), 1u);
}

TEST_F(OpenCloseTest, IndexBeyondTheBoardsIsRefusedWithLastError) {
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  for (uint8_t index : {uint8_t(2), uint8_t(3), uint8_t(255)}) {
    tvx::os::SetLastError(0);
    EXPECT_EQ(ZARIM_Open(index), kInvalidHandle) << int(index);
    EXPECT_EQ(tvx::os::LastError(), 2u) << int(index);
  }
  OpenBoard second(1, false, false);
  EXPECT_EQ(Get(1, "open"), "1");
  EXPECT_EQ(Get(0, "open"), "0");
}

TEST_F(OpenCloseTest, NoBoardsAtAll) {
  ASSERT_EQ(zsim_set(0, "boards", "0"), 0);
  EXPECT_EQ(DeviceSupportedCount(), 0u);
  EXPECT_EQ(ZARIM_Open(0), kInvalidHandle);
  EXPECT_EQ(tvx::os::LastError(), 2u);
}

TEST_F(OpenCloseTest, SecondOpenOfAnOpenBoardIsRefused) {
  OpenBoard board(0, false, false);
  EXPECT_EQ(ZARIM_Open(0), kInvalidHandle);
  EXPECT_EQ(tvx::os::LastError(), 170u);
  EXPECT_EQ(Get(0, "open"), "1");
}

TEST_F(OpenCloseTest, EveryOpenGetsAFreshHandleAndStaleOnesAreRefused) {
  Handle first = ZARIM_Open(0);
  ASSERT_NE(first, kInvalidHandle);
  ASSERT_EQ(ZARIM_Close(first), 0);
  EXPECT_EQ(Get(0, "open"), "0");
  Handle second = ZARIM_Open(0);
  ASSERT_NE(second, kInvalidHandle);
  EXPECT_NE(second, first);
  PortRequest request{0x8000, 0};
  EXPECT_NE(ZARIM_Read(first, &request), 0);
  EXPECT_EQ(tvx::os::LastError(), 6u);
  EXPECT_NE(ZARIM_Close(first), 0);
  EXPECT_EQ(Get(0, "open"), "1") << "a stale handle closed the board's new open";
  EXPECT_EQ(ZARIM_Close(second), 0);
}

// Every function that takes a handle refuses one that names no open board, with last error 6,
// and does not touch the caller's record.
TEST_F(OpenCloseTest, BadHandlesAreRefusedByEveryFunction) {
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  OpenBoard open(1);
  Handle closed = ZARIM_Open(0);
  ASSERT_NE(closed, kInvalidHandle);
  ZARIM_Close(closed);
  const Handle bad[] = {kInvalidHandle, 0, 1, closed, open.handle ^ 0x100, open.handle ^ 1,
                        0x123456789ABCDEF0ull};
  for (Handle h : bad) {
    SCOPED_TRACE(testing::Message() << std::hex << h);
    uint8_t record[20];
    std::memset(record, 0xA5, sizeof record);
    PortRequest request{0x8000, 0x5A5A5A5A};
    auto check = [&](const char* what, int32_t result) {
      EXPECT_NE(result, 0) << what;
      EXPECT_EQ(tvx::os::LastError(), 6u) << what;
      tvx::os::SetLastError(0);
    };
    check("Close", ZARIM_Close(h));
    check("Read", ZARIM_Read(h, &request));
    check("Write", ZARIM_Write(h, &request));
    check("MemoryMap", ZARIM_MemoryMap(h, record));
    check("MemoryUnmap", ZARIM_MemoryUnmap(h, nullptr));
    check("BARMap", ZARIM_BARMap(h, record));
    check("BARUnmap", ZARIM_BARUnmap(h, &open.bar));
    check("GetInterruptInfo", ZARIM_GetInterruptInfo(h, record));
    EXPECT_EQ(ZARIM_GetSlotNumber(h), 0xFFFFFFFFu);
    EXPECT_EQ(tvx::os::LastError(), 6u);
    EXPECT_EQ(request.value, 0x5A5A5A5Au);
    for (uint8_t b : record) EXPECT_EQ(b, 0xA5);
  }
  // The open board was not disturbed by any of it.
  EXPECT_EQ(Get(1, "bar_mapped"), "1");
  EXPECT_EQ(Get(1, "memory_mapped"), "1");
  EXPECT_EQ(Get(0, "open"), "0");
}

TEST_F(OpenCloseTest, SlotDefaultsToThreePlusIndexAndFollowsItsKey) {
  ASSERT_EQ(zsim_set(0, "boards", "3"), 0);
  for (uint8_t i = 0; i < 3; ++i) {
    OpenBoard board(i, false, false);
    EXPECT_EQ(ZARIM_GetSlotNumber(board.handle), 3u + i);
    EXPECT_EQ(Get(i, "slot"), std::to_string(3 + i));
  }
  OpenBoard board(2, false, false);
  ASSERT_EQ(zsim_set(2, "slot", "0x11"), 0);
  EXPECT_EQ(ZARIM_GetSlotNumber(board.handle), 17u);
  EXPECT_EQ(Get(2, "slot"), "17");
}

TEST_F(OpenCloseTest, CloseUnmapsWhatTheCallerLeftMapped) {
  {
    OpenBoard board;
    EXPECT_EQ(Get(0, "memory_mapped"), "1");
    EXPECT_EQ(Get(0, "bar_mapped"), "1");
  }
  EXPECT_EQ(Get(0, "open"), "0");
  EXPECT_EQ(Get(0, "memory_mapped"), "0");
  EXPECT_EQ(Get(0, "bar_mapped"), "0");
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
  const std::string slot = std::to_string(100000 + std::stoull(Nonce(), nullptr, 16) % 900000);
  ASSERT_EQ(zsim_set(0, "slot", slot.c_str()), 0);
  const uint32_t s = std::stoul(slot);
  EXPECT_EQ(tvx::os::OpenNamedEvent(EventName(s, 0).c_str()), nullptr) << "before open";
  {
    OpenBoard board(0, false, false);
    ASSERT_EQ(ZARIM_GetSlotNumber(board.handle), s);
    for (uint32_t c = 0; c < channels; ++c) {
      tvx::os::Event event = tvx::os::OpenNamedEvent(EventName(s, c).c_str());
      EXPECT_NE(event, nullptr) << EventName(s, c);
      tvx::os::CloseEvent(event);
    }
    EXPECT_EQ(tvx::os::OpenNamedEvent(EventName(s, channels).c_str()), nullptr);
  }
  // On Windows an event goes with its last handle; a POSIX FIFO may stay, harmlessly.
  if (OnWindows()) {
    for (uint32_t c = 0; c < channels; ++c)
      EXPECT_EQ(tvx::os::OpenNamedEvent(EventName(s, c).c_str()), nullptr) << c;
  }
  // A second open creates them again (and finds nothing in its way).
  OpenBoard again(0, false, false);
  tvx::os::Event event = tvx::os::OpenNamedEvent(EventName(s, channels - 1).c_str());
  EXPECT_NE(event, nullptr);
  tvx::os::CloseEvent(event);
}

TEST_F(OpenCloseTest, ExportsAreFoundByName) {
  const char* library_name = tvx::zarimio::kLibraryName;
  void* library = tvx::os::LoadDynamicLibrary(library_name);
  ASSERT_NE(library, nullptr);
  for (const char* name : tvx::zarimio::kFunctionNames)
    EXPECT_NE(tvx::os::FindSymbol(library, name), nullptr) << name;
  for (const char* name : {"zsim_set", "zsim_get", "zsim_load_config", "zsim_trace",
                           "zsim_trace_clear", "zsim_reset"})
    EXPECT_NE(tvx::os::FindSymbol(library, name), nullptr) << name;
  // Nothing of the implementation leaks out under a plain name.
  EXPECT_EQ(tvx::os::FindSymbol(library, "Start"), nullptr);
  EXPECT_EQ(tvx::os::FindSymbol(library, "InstallTrapClient"), nullptr);
  tvx::os::FreeDynamicLibrary(library);
}

}  // namespace
}  // namespace zsim_test
