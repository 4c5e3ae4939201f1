// FPGA loading, RAM and simulator through the real binding and trapped register access: the
// register trace of a small load, the reset time-out as a caller sees it (time and text), the
// sample images the build ships, a wrong image, and the RAM and simulator state the virtual
// board reports.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
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

std::string Get(const char* key) {
  const char* v = zsim_get(0, key);
  return v ? v : "(unknown key)";
}

std::vector<uint8_t> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

void WriteFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// The usual reflected CRC-32, to check the board's figure independently.
uint32_t Crc32(const std::vector<uint8_t>& bytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (uint8_t b : bytes) {
    crc ^= b;
    for (int i = 0; i < 8; ++i) crc = (crc >> 1) ^ ((crc & 1) ? 0xEDB88320u : 0);
  }
  return ~crc;
}

std::string Hex(uint32_t v) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", v);
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

TEST_F(LoadOnVirtualBoard, FiveByteDemImageInTheTrace) {
  WriteFile("e2e_five.bin", {0x10, 0x20, 0x30, 0x40, 0x50});
  ASSERT_EQ(FPGALoad(&board, "DEM", "e2e_five.bin"), 0) << GetErrorMessage();
  const std::vector<zsim_access> t = Trace(0);
  ASSERT_GE(t.size(), 8u);
  EXPECT_TRUE(t[0].write && t[0].addr == 0x10 && t[0].value == 1);
  size_t i = 1;
  for (; i < t.size() && !t[i].write; ++i) {
    EXPECT_EQ(t[i].addr, 0x10u) << "reset poll " << i;
    EXPECT_EQ(t[i].value & 1, i == 3 ? 1u : 0u) << "acknowledged at the third reading";
  }
  EXPECT_EQ(i, 4u);
  const uint32_t data[] = {0x40302010, 0x00000050, 0, 0};
  for (uint32_t word : data) {
    ASSERT_LT(i, t.size());
    EXPECT_TRUE(t[i].write && t[i].addr == 0x8000 && t[i].value == word) << i;
    ++i;
  }
  ASSERT_EQ(t.size(), i + 2);
  EXPECT_TRUE(!t[i].write && t[i].addr == 0x10 && (t[i].value & 2) != 0) << "the done read";
  EXPECT_TRUE(t[i + 1].write && t[i + 1].addr == 0x10 && t[i + 1].value == 0);
  EXPECT_EQ(Get("fpga.dem.loaded"), "1");
  EXPECT_EQ(Get("fpga.dem.words"), "4");
  EXPECT_EQ(Get("fpga.dem.crc"), Hex(Crc32({0x10, 0x20, 0x30, 0x40, 0x50})));
}

TEST_F(LoadOnVirtualBoard, ResetNeverAcknowledgedAnswersThreeAfterAboutOnePointOneSeconds) {
  WriteFile("e2e_five.bin", {1, 2, 3, 4, 5});
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
  EXPECT_EQ(Get("fpga.dem.words"), "0");
  zsim_access last{};
  ASSERT_GT(zsim_trace(0, &last, 1), 1000u);   // copies the one entry kept: the newest
  EXPECT_TRUE(!last.write && last.addr == 0x10) << "nothing was written after the polls";
}

TEST_F(LoadOnVirtualBoard, SampleImagesLoadAllThree) {
  const struct {
    const char* name;
    const char* file;
    const char* stem;
  } devices[] = {{"DEM", "samples/dem.bin", "fpga.dem."},
                 {"DEC", "samples/dec.bin", "fpga.dec."},
                 {"RS", "samples/rs.bin", "fpga.rs."}};
  for (const auto& d : devices) {
    SCOPED_TRACE(d.name);
    const std::vector<uint8_t> image = ReadFile(d.file);
    ASSERT_GT(image.size(), 1000u) << "the build writes the samples";
    // The board is told what to expect: a wrong image would never raise done.
    ASSERT_EQ(zsim_set(0, (std::string(d.stem) + "expect_bytes").c_str(),
                       std::to_string(image.size()).c_str()), 0);
    ASSERT_EQ(zsim_set(0, (std::string(d.stem) + "expect_crc").c_str(), Hex(Crc32(image)).c_str()), 0);
    EXPECT_EQ(FPGALoad(&board, d.name, d.file), 0) << GetErrorMessage();
    EXPECT_EQ(Get((std::string(d.stem) + "loaded").c_str()), "1");
    EXPECT_EQ(Get((std::string(d.stem) + "words").c_str()),
              std::to_string((image.size() + 3) / 4 + 2));
  }
  // All three stay loaded.
  EXPECT_EQ(Get("fpga.dem.loaded") + Get("fpga.dec.loaded") + Get("fpga.rs.loaded"), "111");
}

TEST_F(LoadOnVirtualBoard, WrongImageNeverRaisesDone) {
  ASSERT_EQ(zsim_set(0, "fpga.dec.expect_crc", "0x12345678"), 0);
  EXPECT_EQ(FPGALoad(&board, "DEC", "samples/dec.bin"), 3);
  EXPECT_STREQ(GetErrorMessage(),
               "FPGALoad [0]: \"DEC\" - ПЛИС не загрузилась: INT_0x04 = 0x00000004\n");
  EXPECT_EQ(Get("fpga.dec.loaded"), "0");
  const std::vector<zsim_access> t = Trace(0);
  ASSERT_FALSE(t.empty());
  EXPECT_TRUE(t.back().write && t.back().addr == 0x10 && t.back().value == 4)
      << "INT_0x04 keeps the reset mask";
}

TEST_F(LoadOnVirtualBoard, RamWordsReachTheirAddresses) {
  WriteFile("e2e_ram.bin", {0x34, 0x12, 0x78, 0x56, 0x9A});
  EXPECT_EQ(RAMLoad(&board, "e2e_ram.bin", 0), 0) << GetErrorMessage();
  EXPECT_EQ(Get("ram.0"), "0x1234");
  EXPECT_EQ(Get("ram.1"), "0x5678");
  EXPECT_EQ(Get("ram.2"), "0x0000") << "the odd byte is not written";
  EXPECT_EQ(Get("ram.writes"), "2");
  EXPECT_EQ(RAMLoad(&board, "e2e_no_such_file.bin", 0), -3);
  EXPECT_STREQ(GetErrorMessage(), "RAMLoad [0]: Ошибка открытия файла e2e_no_such_file.bin\n");
}

TEST_F(LoadOnVirtualBoard, SimulatorStateAsTheBoardSeesIt) {
  WriteFile("e2e_pattern.bin", {0x01, 0x80, 0x00, 0x00, 0xCD, 0xAB, 0xFF, 0xFF, 0x00, 0x01});
  EXPECT_EQ(SimulatorLoad(&board, "e2e_pattern.bin"), 0);
  const double rate = 1e6, carrier = 0.0;
  EXPECT_EQ(SimulatorSetTiming(&board, &rate), 0);
  EXPECT_EQ(SimulatorSetCarrier(&board, &carrier), 0);
  EXPECT_EQ(Get("sim.control"), "0x100A00BA");
  EXPECT_EQ(Get("sim.carrier"), "0x10000000");
  EXPECT_EQ(Get("sim.pattern"), "8001 0000 ABCD FFFF 0100");
  EXPECT_EQ(Get("sim.pattern.in_order"), "1");
  const uint32_t off = 0;
  EXPECT_EQ(SimulatorControl(&board, &off), 0);
  EXPECT_EQ(Get("sim.control"), "0x000A00BA");

  const std::string before = GetErrorMessage();
  EXPECT_EQ(SimulatorLoad(&board, "e2e_no_such_file.bin"), 1);
  EXPECT_EQ(GetErrorMessage(), before);
}

}  // namespace
