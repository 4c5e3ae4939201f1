// A board brought up on the virtual board through the real binding and trapped register
// access: what the board's register trace shows, how a bring-up failure reads, what stays open
// afterwards, and an FPGA reset time-out in wall time.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "torvixe.h"
#include "zarimsim.h"

namespace {

// The board's trace, one "R 0x8000 0x1234ABCD" per access.
std::vector<std::string> Trace(unsigned board) {
  std::vector<zsim_access> all(zsim_trace(board, nullptr, 0));
  all.resize(zsim_trace(board, all.data(), all.size()));
  std::vector<std::string> shown;
  for (const zsim_access& a : all) {
    char text[48];
    std::snprintf(text, sizeof text, "%c 0x%X 0x%X", a.write ? 'W' : 'R', unsigned(a.addr),
                  unsigned(a.value));
    shown.push_back(text);
  }
  return shown;
}

std::string Get(const char* key) {
  const char* v = zsim_get(0, key);
  return v ? v : "(unknown key)";
}

class VirtualBoardTest : public ::testing::Test {
 protected:
  void SetUp() override { zsim_reset(); }
  void TearDown() override {
    ReleaseDeviceInstance(&board0);
    zsim_reset();
  }
  DeviceId board0{0};
};

// A raw read is one trapped read, PLL control one trapped write; raw writes land where raw
// reads find them. Addresses beyond the BAR or misaligned are refused before any access, up to
// the BAR's last word. The bases record reads as a caller of the library sees it.
TEST_F(VirtualBoardTest, RawAccessPllControlAndBasesOfAHealthyBoard) {
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  ASSERT_EQ(zsim_set(0, "reg.0x8000", "0x1234ABCD"), 0);
  zsim_trace_clear(0);
  PortAccess access{0x8000, 0};
  EXPECT_EQ(_devinp(&board0, &access), 0);
  EXPECT_EQ(access.Value, 0x1234ABCDu);
  uint32_t value = 5;
  EXPECT_EQ(PLLControl(&board0, &value), 0);
  EXPECT_EQ(Trace(0), (std::vector<std::string>{"R 0x8000 0x1234ABCD", "W 0x8058 0x5"}));
  PortAccess poke{0x60, 0xCAFE}, peek{0x60, 0};
  EXPECT_EQ(_devoutp(&board0, &poke), 0);
  EXPECT_EQ(_devinp(&board0, &peek), 0);
  EXPECT_EQ(peek.Value, 0xCAFEu);

  const unsigned bar = std::stoul(Get("bar.size"), nullptr, 0);
  zsim_trace_clear(0);
  for (uint32_t address : {bar, 0xFFFFFFFCu, 0x8002u}) {
    PortAccess refused{address, 0x77};
    EXPECT_EQ(_devinp(&board0, &refused), 5) << std::hex << address;
    EXPECT_EQ(refused.Value, 0x77u);
    EXPECT_EQ(_devoutp(&board0, &refused), 5) << std::hex << address;
  }
  EXPECT_TRUE(Trace(0).empty());
  PortAccess last{bar - 4, 0};
  EXPECT_EQ(_devinp(&board0, &last), 0);

  FpgaBaseAddresses bases;
  std::memset(&bases, 0xEE, sizeof bases);
  ASSERT_EQ(GetFPGABaseAddress(&board0, &bases), 0);
  const uint8_t* raw = reinterpret_cast<const uint8_t*>(&bases);
  EXPECT_EQ(std::vector<uint32_t>({bases.IntBase, bases.DemBase, bases.PeripheralBase,
                                   bases.DecBase, bases.RsBase}),
            std::vector<uint32_t>({0, 0x2000, 0x1000, 0x2800, 0x2880}));
  EXPECT_EQ(std::vector<uint8_t>(raw + 20, raw + 24), (std::vector<uint8_t>{1, 0, 0, 0}));
  ASSERT_EQ(zsim_set(0, "slot", "11"), 0);
  EXPECT_EQ(GetDeviceSlotID(&board0), 11u);
}

// After a refused BAR map the board keeps its text (with the system's code), a read gives code
// 2 and leaves the text alone, and the modules built after that step are absent; release
// closes what was opened.
TEST_F(VirtualBoardTest, AFailedBarMapIsKeptUntilRelease) {
  ASSERT_EQ(zsim_set(0, "fault.bar_map", "31"), 0);
  EXPECT_EQ(CreateDeviceInstance(&board0), 1);
  const std::string text = GetErrorMessage();
  EXPECT_EQ(text,
            "Отказ маппирования BAR устройства [0]: BARMap: unable to map BAR memory; gle = "
            "0x0000001F\n");
  EXPECT_EQ(Get("open") + Get("memory_mapped") + Get("bar_mapped"), "110");
  PortAccess access{0x8000, 0x99};
  EXPECT_EQ(_devinp(&board0, &access), 2);
  EXPECT_EQ(access.Value, 0x99u);
  EXPECT_EQ(GetErrorMessage(), text);
  uint32_t value = 5;
  EXPECT_EQ(PLLControl(&board0, &value), -1);
  ReleaseDeviceInstance(&board0);
  EXPECT_EQ(Get("open") + Get("memory_mapped") + Get("bar_mapped"), "000");
  PortAccess after{0x8000, 0};
  EXPECT_EQ(_devinp(&board0, &after), 1) << "the exports find no board";
}

// The register sequence of a load is the unit tests'; here the pauses are the system's.
TEST_F(VirtualBoardTest, FpgaResetNeverAcknowledgedAnswersThreeAfterAboutOnePointOneSeconds) {
  ASSERT_EQ(CreateDeviceInstance(&board0), 0) << GetErrorMessage();
  std::ofstream("e2e_five.bin", std::ios::binary).write("\1\2\3\4\5", 5);
  ASSERT_EQ(zsim_set(0, "fpga.dem.ack", "never"), 0);
  ASSERT_EQ(zsim_set(0, "trace.max", "1"), 0);   // a second of polls need not be kept
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(FPGALoad(&board0, "dem", "e2e_five.bin"), 3);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_GE(seconds, 1.09);
  EXPECT_LT(seconds, 2.5);
  EXPECT_STREQ(GetErrorMessage(),
               "FPGALoad [0]: \"dem\" - ПЛИС не сбросилась. Превышен таймаут ожидания  1000 мс\n");
  EXPECT_EQ(Get("fpga.dem.state"), "configuring") << "left in configuration reset";
  zsim_access last{};
  ASSERT_GT(zsim_trace(0, &last, 1), 1000u);   // copies the one entry kept: the newest
  EXPECT_TRUE(!last.write && last.addr == 0x10) << "nothing was written after the polls";
}

}  // namespace
