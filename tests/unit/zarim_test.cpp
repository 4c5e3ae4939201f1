// The binding's own logic: flags, result codes and texts, and the BAR bounds that keep raw
// access inside the board.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "model_io.h"

namespace tvx::test {
namespace {

// A "BAR" of 16 words inside guard words, reached through the real access path.
class BindingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    memory.fill(0xA5A5A5A5u);
    script.bar = &memory[4];
    script.bar_size = 64;
  }
  std::array<uint32_t, 24> memory{};
  IoScript script;
  ModelIo io{nullptr, &script};
};

// No handle, no BAR, or no access mode: each refused with its code and text.
TEST_F(BindingTest, AccessWithoutHandleBarOrModeIsRefused) {
  uint32_t value = 42;
  EXPECT_EQ(io.ReadPort(0, &value), 1);
  EXPECT_STREQ(io.GetErrorText(), "ReadPort: invalid handle value specified\n");
  ASSERT_EQ(io.Open(0), 0);
  EXPECT_EQ(io.ReadPort(0, &value), 2);
  EXPECT_STREQ(io.GetErrorText(), "ReadPort: BAR is not mapped in user mode\n");
  EXPECT_EQ(io.WritePort(0, 1), 2);
  EXPECT_STREQ(io.GetErrorText(), "WritePort: BAR is not mapped in user mode\n");
  io.SetRwMode(7);
  EXPECT_EQ(io.ReadPort(0, &value), 4);
  EXPECT_STREQ(io.GetErrorText(), "ReadPort: rwMode is not specified\n");
  EXPECT_EQ(io.WritePort(0, 0), 4);
  EXPECT_STREQ(io.GetErrorText(), "WritePort: rwMode is not specified\n");
  EXPECT_EQ(value, 42u);
}

// The last word of the BAR is reached; anything beyond it or misaligned never reaches memory.
TEST_F(BindingTest, AddressesOutsideTheBarOrMisalignedNeverReachMemory) {
  ASSERT_EQ(io.Open(0), 0);
  ASSERT_EQ(io.BARMap(), 0);
  EXPECT_EQ(io.WritePort(60, 0x12345678), 0);
  EXPECT_EQ(memory[4 + 15], 0x12345678u);
  uint32_t value = 0;
  EXPECT_EQ(io.ReadPort(60, &value), 0);
  EXPECT_EQ(value, 0x12345678u);
  for (uint32_t address : {64u, 0x10000u, 0xFFFFFFFCu, 2u, 61u}) {
    value = 7;
    EXPECT_EQ(io.ReadPort(address, &value), 5) << address;
    EXPECT_EQ(value, 7u);
    EXPECT_EQ(io.WritePort(address, 0), 5) << address;
  }
  EXPECT_STREQ(io.GetErrorText(),
               "WritePort: address 0x0000003D is outside the register BAR (0x40 bytes) or not "
               "aligned\n");
  for (int i : {0, 1, 2, 3, 20, 21, 22, 23}) EXPECT_EQ(memory[i], 0xA5A5A5A5u) << i;
}

// A record without our marker (the vendor's, on hardware) says nothing about the BAR size,
// whatever its bytes 8-11 hold: every address goes to the mapped BAR as given.
TEST_F(BindingTest, AForeignBarRecordIsNotCheckedForBounds) {
  script.bar_marker = 0;
  script.bar_size = 4;
  ASSERT_EQ(io.Open(0), 0);
  ASSERT_EQ(io.BARMap(), 0);
  EXPECT_EQ(io.WritePort(64, 0x0BADF00D), 0);
  EXPECT_EQ(memory[4 + 16], 0x0BADF00Du);
}

// Unmapping what is not mapped calls nothing; a failed BAR unmap keeps the BAR mapped; Close
// keeps the handle, so a second close calls the library again instead of refusing.
TEST_F(BindingTest, UnmapAndCloseEdges) {
  ASSERT_EQ(io.Open(4), 0);
  EXPECT_EQ(io.MemoryUnmap(), -2);
  EXPECT_STREQ(io.GetErrorText(), "MemoryUnmap: memory is not mapped\n");
  ASSERT_EQ(io.BARMap(), 0);
  script.bar_unmap = 0x57;
  EXPECT_NE(io.BARUnmap(), 0);
  EXPECT_TRUE(io.bar_mapped());
  EXPECT_STREQ(io.GetErrorText(), "BARUnmap: unable to unmap BAR memory; gle = 0x00000057\n");
  script.bar_unmap = 0;
  EXPECT_EQ(io.BARUnmap(), 0);
  EXPECT_FALSE(io.bar_mapped());
  io.Close();
  EXPECT_FALSE(io.opened());
  io.Close();
  EXPECT_EQ(script.calls, (std::vector<std::string>{"open", "bar_map", "bar_unmap", "bar_unmap",
                                                    "close", "close"}));
}

TEST_F(BindingTest, OperationsWithoutADeviceRefuseWithTheirTexts) {
  struct Case {
    int32_t (cZARIM::*op)();
    int32_t code;
    const char* text;
  };
  for (const Case& c : {Case{&cZARIM::MemoryMap, 1, "MemoryMap: invalid handle specified\n"},
                        Case{&cZARIM::MemoryUnmap, -1, "MemoryUnmap: invalid handle specified\n"},
                        Case{&cZARIM::BARMap, 1, "BARMap: invalid handle specified\n"},
                        Case{&cZARIM::BARUnmap, 1, "BARUnmap: invalid handle specified\n"},
                        Case{&cZARIM::Close, 1, "Close: invalid handle value\n"}}) {
    EXPECT_EQ((io.*c.op)(), c.code);
    EXPECT_STREQ(io.GetErrorText(), c.text);
  }
  EXPECT_TRUE(script.calls.empty());
}

}  // namespace
}  // namespace tvx::test
