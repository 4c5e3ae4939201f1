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

// What the trace shows of one access.
std::string Shown(const zsim_access& a) {
  char text[48];
  std::snprintf(text, sizeof text, "%c 0x%X 0x%X", a.write ? 'W' : 'R', unsigned(a.addr),
                unsigned(a.value));
  return text;
}

class VirtualBoardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zsim_reset();
  }
  void TearDown() override {
    ReleaseDeviceInstance(&board0);
    zsim_reset();
  }
  DeviceId board0{0};
};

// A raw read is one trapped read; PLL control one trapped write; raw writes land where raw
// reads find them.
TEST_F(VirtualBoardTest, RawAccessAndPllControlAreSingleTrappedAccesses) {
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  ASSERT_EQ(zsim_set(0, "reg.0x8000", "0x1234ABCD"), 0);
  zsim_trace_clear(0);
  PortAccess access{0x8000, 0};
  EXPECT_EQ(_devinp(&board0, &access), 0);
  EXPECT_EQ(access.Value, 0x1234ABCDu);
  uint32_t value = 5;
  EXPECT_EQ(PLLControl(&board0, &value), 0);
  std::vector<std::string> shown;
  for (const zsim_access& a : Trace(0)) shown.push_back(Shown(a));
  EXPECT_EQ(shown, (std::vector<std::string>{"R 0x8000 0x1234ABCD", "W 0x8058 0x5"}));

  PortAccess poke{0x60, 0xCAFE}, peek{0x60, 0};
  EXPECT_EQ(_devoutp(&board0, &poke), 0);
  EXPECT_EQ(_devinp(&board0, &peek), 0);
  EXPECT_EQ(peek.Value, 0xCAFEu);
}

TEST_F(VirtualBoardTest, AddressesBeyondTheBarAreRefusedBeforeMemory) {
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  unsigned bar = std::stoul(Get(0, "bar.size"), nullptr, 0);
  zsim_trace_clear(0);
  for (uint32_t address : {bar, 0xFFFFFFFCu, 0x8002u}) {
    PortAccess access{address, 0x77};
    EXPECT_EQ(_devinp(&board0, &access), 5) << std::hex << address;
    EXPECT_EQ(access.Value, 0x77u);
    EXPECT_EQ(_devoutp(&board0, &access), 5) << std::hex << address;
  }
  EXPECT_TRUE(Trace(0).empty());
  PortAccess last{bar - 4, 0};
  EXPECT_EQ(_devinp(&board0, &last), 0) << "the last word of the BAR is still reachable";
}

// The record's layout as a caller of the library sees it, and the slot of the binding.
TEST_F(VirtualBoardTest, BasesAndSlotOfAHealthyBoard) {
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
  ASSERT_EQ(zsim_set(0, "slot", "11"), 0);
  EXPECT_EQ(GetDeviceSlotID(&board0), 11u);
}

// The binding's state after a refused BAR map. A read while the BAR is unmapped gives code 2
// and leaves the error text alone; a second create reports the failure again and tries
// nothing; release closes what was opened, and then a bring-up is tried anew.
TEST_F(VirtualBoardTest, AFailedBarMapIsKeptUntilRelease) {
  ASSERT_EQ(zsim_set(0, "fault.bar_map", "31"), 0);
  EXPECT_EQ(CreateDeviceInstance(&board0), 1);
  const std::string text = GetErrorMessage();
  EXPECT_EQ(text,
            "Отказ маппирования BAR устройства [0]: BARMap: unable to map BAR memory; gle = "
            "0x0000001F\n");
  EXPECT_EQ(Get(0, "open") + Get(0, "memory_mapped") + Get(0, "bar_mapped"), "110");
  PortAccess access{0x8000, 0x99};
  EXPECT_EQ(_devinp(&board0, &access), 2);
  EXPECT_EQ(access.Value, 0x99u);
  EXPECT_EQ(GetErrorMessage(), text);
  uint32_t value = 5;
  EXPECT_EQ(PLLControl(&board0, &value), -1) << "built after the failed step: no module";

  zsim_set(0, "fault.bar_map", "0");
  EXPECT_EQ(CreateDeviceInstance(&board0), 1);
  EXPECT_EQ(Get(0, "bar_mapped"), "0");
  ReleaseDeviceInstance(&board0);
  EXPECT_EQ(Get(0, "open") + Get(0, "memory_mapped"), "00");
  EXPECT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  EXPECT_EQ(Get(0, "bar_mapped"), "1");
  ReleaseDeviceInstance(&board0);
  EXPECT_EQ(Get(0, "open") + Get(0, "memory_mapped") + Get(0, "bar_mapped"), "000");
  PortAccess after{0x8000, 0};
  EXPECT_EQ(_devinp(&board0, &after), 1) << "the exports find no board";
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
