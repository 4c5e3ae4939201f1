// FPGA loading through the real binding and trapped register access: the reset time-out as a
// caller sees it (wall time and text), and the sample images the build ships, each checked by
// the board against its length and CRC. (The register sequence of a load is the unit tests'.)
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "torvixe.h"
#include "zarimsim.h"

namespace {

std::string Get(const std::string& key) {
  const char* v = zsim_get(0, key.c_str());
  return v ? v : "(unknown key)";
}

// The usual reflected CRC-32, to tell the board what to expect independently of its own.
std::string Crc32(const std::vector<uint8_t>& bytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (uint8_t b : bytes) {
    crc ^= b;
    for (int i = 0; i < 8; ++i) crc = (crc >> 1) ^ ((crc & 1) ? 0xEDB88320u : 0);
  }
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", ~crc);
  return text;
}

class LoadOnVirtualBoard : public ::testing::Test {
 protected:
  void SetUp() override {
    zsim_reset();
    ASSERT_EQ(CreateDeviceInstance(&board), 0) << GetErrorMessage();
    zsim_trace_clear(0);
  }
  void TearDown() override {
    ReleaseDeviceInstance(&board);
    zsim_reset();
  }
  DeviceId board{0};
};

TEST_F(LoadOnVirtualBoard, ResetNeverAcknowledgedAnswersThreeAfterAboutOnePointOneSeconds) {
  std::ofstream("e2e_five.bin", std::ios::binary).write("\1\2\3\4\5", 5);
  ASSERT_EQ(zsim_set(0, "fpga.dem.ack", "never"), 0);
  ASSERT_EQ(zsim_set(0, "trace.max", "1"), 0);   // a second of polls need not be kept
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(FPGALoad(&board, "dem", "e2e_five.bin"), 3);
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

// The board is told what to expect of each sample: a wrong image would never raise done.
TEST_F(LoadOnVirtualBoard, SampleImagesLoadAllThree) {
  for (std::string name : {"DEM", "DEC", "RS"}) {
    SCOPED_TRACE(name);
    std::string stem = "fpga.";
    for (char c : name) stem += char(c - 'A' + 'a');
    const std::string file = "samples/" + stem.substr(5) + ".bin";
    std::ifstream in(file, std::ios::binary);
    const std::vector<uint8_t> image(std::istreambuf_iterator<char>(in), {});
    ASSERT_GT(image.size(), 1000u) << "the build writes the samples";
    ASSERT_EQ(zsim_set(0, (stem + ".expect_bytes").c_str(), std::to_string(image.size()).c_str()), 0);
    ASSERT_EQ(zsim_set(0, (stem + ".expect_crc").c_str(), Crc32(image).c_str()), 0);
    EXPECT_EQ(FPGALoad(&board, name.c_str(), file.c_str()), 0) << GetErrorMessage();
  }
  EXPECT_EQ(Get("fpga.dem.loaded") + Get("fpga.dec.loaded") + Get("fpga.rs.loaded"), "111");
}

}  // namespace
