// A board brought up on the virtual board through the real binding and trapped register
// access: what the board's register trace shows, how each bring-up failure reads, and what
// stays open afterwards.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "torvixe.h"
#include "zarimsim.h"

namespace {

std::vector<zsim_access> Trace(unsigned board) {
  std::vector<zsim_access> out(zsim_trace(board, nullptr, 0));
  out.resize(zsim_trace(board, out.data(), out.size()));
  return out;
}

std::string Get(unsigned board, const char* key) {
  const char* v = zsim_get(board, key);
  return v ? v : "(unknown key)";
}

class VirtualBoardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zsim_reset();
    ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  }
  void TearDown() override {
    for (uint8_t i : {0, 1}) {
      DeviceId id{i};
      ReleaseDeviceInstance(&id);
    }
    zsim_reset();
  }
  DeviceId board0{0};
};

TEST_F(VirtualBoardTest, RawReadIsOneTrappedReadOfThatAddress) {
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  ASSERT_EQ(zsim_set(0, "reg.0x8000", "0x1234ABCD"), 0);
  zsim_trace_clear(0);
  PortAccess access{0x8000, 0};
  EXPECT_EQ(_devinp(&board0, &access), 0);
  EXPECT_EQ(access.Value, 0x1234ABCDu);
  std::vector<zsim_access> t = Trace(0);
  ASSERT_EQ(t.size(), 1u);
  EXPECT_EQ(t[0].addr, 0x8000u);
  EXPECT_EQ(t[0].value, 0x1234ABCDu);
  EXPECT_EQ(t[0].write, 0);
}

TEST_F(VirtualBoardTest, PllControlIsOneWriteOfItsValueToDemWord22) {
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  zsim_trace_clear(0);
  uint32_t value = 5;
  EXPECT_EQ(PLLControl(&board0, &value), 0);
  std::vector<zsim_access> t = Trace(0);
  ASSERT_EQ(t.size(), 1u);
  EXPECT_EQ(t[0].addr, 0x8058u);
  EXPECT_EQ(t[0].value, 5u);
  EXPECT_EQ(t[0].write, 1);
  // Raw writes land where raw reads find them.
  PortAccess poke{0x60, 0xCAFE}, peek{0x60, 0};
  EXPECT_EQ(_devoutp(&board0, &poke), 0);
  EXPECT_EQ(_devinp(&board0, &peek), 0);
  EXPECT_EQ(peek.Value, 0xCAFEu);
}

TEST_F(VirtualBoardTest, AddressesBeyondTheBarAreRefusedBeforeMemory) {
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  unsigned bar = std::stoul(Get(0, "bar.size"), nullptr, 0);
  zsim_trace_clear(0);
  for (uint32_t address : {bar, bar + 4, 0x7FFFFFFCu, 0xFFFFFFFCu, 0x8002u}) {
    PortAccess access{address, 0x77};
    EXPECT_EQ(_devinp(&board0, &access), 5) << std::hex << address;
    EXPECT_EQ(access.Value, 0x77u);
    EXPECT_EQ(_devoutp(&board0, &access), 5) << std::hex << address;
  }
  EXPECT_TRUE(Trace(0).empty());
  // The last word of the BAR is still reachable.
  PortAccess last{bar - 4, 0};
  EXPECT_EQ(_devinp(&board0, &last), 0);
}

TEST_F(VirtualBoardTest, BasesSlotAndInterfaceOfAHealthyBoard) {
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  FpgaBaseAddresses bases;
  std::memset(&bases, 0xEE, sizeof bases);
  ASSERT_EQ(GetFPGABaseAddress(&board0, &bases), 0);
  const uint8_t* raw = reinterpret_cast<const uint8_t*>(&bases);
  EXPECT_EQ(bases.IntBase, 0u);
  EXPECT_EQ(bases.DemBase, 0x2000u);
  EXPECT_EQ(bases.PeripheralBase, 0x1000u);
  EXPECT_EQ(bases.DecBase, 0x2800u);
  EXPECT_EQ(bases.RsBase, 0x2880u);
  EXPECT_EQ(std::vector<uint8_t>(raw + 20, raw + 24), (std::vector<uint8_t>{1, 0, 0, 0}));

  EXPECT_EQ(GetDeviceSlotID(&board0), std::stoul(Get(0, "slot")));
  ASSERT_EQ(zsim_set(0, "slot", "11"), 0);
  EXPECT_EQ(GetDeviceSlotID(&board0), 11u);

  uint8_t version = 0;
  EXPECT_EQ(GetInterfaceVersion(&board0, &version), 0);
  EXPECT_EQ(version, 2);
  uint32_t reset = 1;
  zsim_trace_clear(0);
  EXPECT_EQ(CircuitReset(&board0, &reset), 0);
  ASSERT_EQ(Trace(0).size(), 1u);
  EXPECT_EQ(Trace(0)[0].addr, 0x9FF4u);
}

TEST_F(VirtualBoardTest, TwoBoardsAreIndependent) {
  DeviceId board1{1};
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  ASSERT_EQ(CreateDeviceInstance(&board1), 0) << GetErrorMessage();
  zsim_trace_clear(0);
  zsim_trace_clear(1);
  PortAccess poke{0x8100, 0x11};
  ASSERT_EQ(_devoutp(&board1, &poke), 0);
  EXPECT_TRUE(Trace(0).empty());
  EXPECT_EQ(Trace(1).size(), 1u);
  EXPECT_EQ(Get(1, "reg.0x8100"), "0x00000011");
}

TEST_F(VirtualBoardTest, OpenRefusedLeavesNothingOpen) {
  ASSERT_EQ(zsim_set(0, "fault.open", "2"), 0);
  EXPECT_EQ(CreateDeviceInstance(&board0), 1);
  EXPECT_STREQ(GetErrorMessage(), "Отказ открытия устройства [0]: Could not open device 0; gle = 0002\n");
  EXPECT_EQ(Get(0, "open"), "0");
}

TEST_F(VirtualBoardTest, MemoryMapRefusedLeavesTheDeviceOpenUntilRelease) {
  ASSERT_EQ(zsim_set(0, "fault.memory_map", "8"), 0);
  EXPECT_EQ(CreateDeviceInstance(&board0), 1);
  EXPECT_STREQ(GetErrorMessage(),
               "Отказ маппирования памяти устройства [0]: MemoryMap: unable to map memory; gle = "
               "0x00000008\n");
  EXPECT_EQ(Get(0, "open"), "1");
  ReleaseDeviceInstance(&board0);
  EXPECT_EQ(Get(0, "open"), "0");
}

TEST_F(VirtualBoardTest, BarMapRefusedKeepsMemoryMappedAndRawAccessFindsNoBar) {
  ASSERT_EQ(zsim_set(0, "fault.bar_map", "31"), 0);
  EXPECT_EQ(CreateDeviceInstance(&board0), 1);
  EXPECT_STREQ(GetErrorMessage(),
               "Отказ маппирования BAR устройства [0]: BARMap: unable to map BAR memory; gle = "
               "0x0000001F\n");
  EXPECT_EQ(Get(0, "open"), "1");
  EXPECT_EQ(Get(0, "memory_mapped"), "1");
  EXPECT_EQ(Get(0, "bar_mapped"), "0");

  // A read while the BAR is unmapped: code 2, and the error text is left alone.
  PortAccess access{0x8000, 0x99};
  EXPECT_EQ(_devinp(&board0, &access), 2);
  EXPECT_EQ(access.Value, 0x99u);
  EXPECT_STREQ(GetErrorMessage(),
               "Отказ маппирования BAR устройства [0]: BARMap: unable to map BAR memory; gle = "
               "0x0000001F\n");
  // PLL control passes the failed write up with the binding's text.
  uint32_t value = 5;
  EXPECT_EQ(PLLControl(&board0, &value), -1);   // built after the failed step: no module

  // A second create reports the same failure and tries nothing.
  zsim_set(0, "fault.bar_map", "0");
  EXPECT_EQ(CreateDeviceInstance(&board0), 1);
  EXPECT_EQ(Get(0, "bar_mapped"), "0");

  // Release unmaps the memory, skips the BAR and closes.
  ReleaseDeviceInstance(&board0);
  EXPECT_EQ(Get(0, "memory_mapped"), "0");
  EXPECT_EQ(Get(0, "open"), "0");
  // Now a fresh bring-up is tried, and succeeds.
  EXPECT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  EXPECT_EQ(Get(0, "bar_mapped"), "1");
}

TEST_F(VirtualBoardTest, ConvertorPresenceBitIsReadAtBringUp) {
  ASSERT_EQ(zsim_set(0, "lconv.present", "0"), 0);
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  PortAccess access{0x4000, 0xFF};
  ASSERT_EQ(_devinp(&board0, &access), 0);
  EXPECT_EQ(access.Value & 1, 0u);
}

TEST_F(VirtualBoardTest, ReleaseClosesEverything) {
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  EXPECT_EQ(Get(0, "bar_mapped"), "1");
  ReleaseDeviceInstance(&board0);
  EXPECT_EQ(Get(0, "open"), "0");
  EXPECT_EQ(Get(0, "memory_mapped"), "0");
  EXPECT_EQ(Get(0, "bar_mapped"), "0");
  // The board's exports now find no board.
  PortAccess access{0x8000, 0};
  EXPECT_EQ(_devinp(&board0, &access), 1);
}

TEST(Enumeration, NamesExistExactlyForTheCountedDevices) {
  // On Linux the devices are the entries of $TORVIXE_DEVICES; Windows asks SetupAPI, which
  // knows no such devices under Wine, and ignores the variable.
  std::filesystem::path dir = std::filesystem::path(::testing::TempDir()) / "tvx-devices";
  std::filesystem::create_directories(dir);
  for (const char* entry : {"zarim1", "zarim0"}) std::ofstream(dir / entry).put('\n');
  static std::string env = "TORVIXE_DEVICES=" + dir.string();
  putenv(env.data());

  uint32_t n = DeviceSupportedCount();
  ASSERT_TRUE(n == 0 || n == 2) << n;
  if (n == 2) {
    DeviceId second{1};
    EXPECT_STREQ(GetFullDeviceName(&second), "/dev/zarim1");
  }
  const char* first = GetFullDeviceName(nullptr);
  for (uint32_t i = 0; i < n + 3 && i < 256; ++i) {
    DeviceId id{uint8_t(i)};
    const char* name = GetFullDeviceName(&id);
    EXPECT_EQ(name, first) << "one buffer for every call";
    EXPECT_EQ(std::strlen(name) > 0, i < n) << i;
  }
}

}  // namespace
