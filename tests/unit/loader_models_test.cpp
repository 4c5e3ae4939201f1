// The virtual board's FPGA configuration, RAM and simulator blocks, driven directly through the
// register model: the acceptance rule, the acknowledge timing, the line decoding of INT word 4,
// what zsim_get reports, and the RAM's address latch.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "board_model.h"

namespace {

constexpr uint32_t kControl = 0x10, kDemPort = 0x8000, kDecPort = 0xA000, kRsPort = 0xA200;

class ModelTest : public ::testing::Test {
 protected:
  std::string Key(const std::string& key) const {
    std::string value;
    return model.Get(key, &value) ? value : "(unknown key)";
  }
  void Words(uint32_t port, std::initializer_list<uint32_t> words) {
    for (uint32_t w : words) model.Write(port, w);
  }
  zsim::BoardModel model{0};
};

// What makes an image acceptable, case by case: the words after the DEM reset request, the
// settings, and whether the done bit shows before the release.
TEST_F(ModelTest, AcceptanceRule) {
  const struct {
    const char* what;
    std::vector<uint32_t> words;
    std::vector<std::pair<const char*, const char*>> settings;
    bool done;
    const char* bytes;
  } cases[] = {
      {"image and two zero words", {0x04030201, 5, 0, 0}, {}, true, "5"},
      {"only one zero word", {0x04030201, 5, 0}, {}, false, "5"},
      {"zero words only", {0, 0, 0}, {}, false, "0"},
      {"nothing at all", {}, {}, false, "0"},
      {"zeros inside count, trailing ones do not", {1, 0, 0x100, 0, 0}, {}, true, "10"},
      {"length as expected", {0x04030201, 5, 0, 0}, {{"fpga.dem.expect_bytes", "5"}}, true, "5"},
      {"length not as expected", {0x04030201, 5, 0, 0}, {{"fpga.dem.expect_bytes", "8"}}, false, "5"},
      // CRC-32 of "123456789" is 0xCBF43926.
      {"CRC as expected", {0x34333231, 0x38373635, 0x39, 0, 0}, {{"fpga.dem.expect_crc", "0xCBF43926"}}, true, "9"},
      {"CRC not as expected", {0x34333231, 0x38373635, 0x39, 0, 0}, {{"fpga.dem.expect_crc", "0xCBF43927"}}, false, "9"},
      {"done never", {1, 0, 0}, {{"fpga.dem.done", "never"}}, false, "1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    model.Reset();
    for (const auto& [key, value] : c.settings) ASSERT_EQ(model.Set(key, value), 0);
    model.Write(kControl, 1);
    for (uint32_t w : c.words) model.Write(kDemPort, w);
    EXPECT_EQ((model.Peek(kControl) & 2) != 0, c.done);
    EXPECT_EQ(Key("fpga.dem.bytes"), c.bytes);
    EXPECT_EQ(Key("fpga.dem.words"), std::to_string(c.words.size()));
    model.Write(kControl, 0);
    EXPECT_EQ(Key("fpga.dem.state"), c.done ? "loaded" : "unconfigured");
    EXPECT_EQ(Key("fpga.dem.loaded"), c.done ? "1" : "0");
  }
}

TEST_F(ModelTest, AcknowledgeAfterNReadsAndPeeksDoNotCount) {
  const struct {
    const char* after;
    int clear_reads;
  } cases[] = {{"0", 0}, {"2", 2}, {"5", 5}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.after);
    model.Reset();
    ASSERT_EQ(model.Set("fpga.dec.ack_after", c.after), 0);
    model.Write(kControl, 4);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(model.Peek(kControl), c.after == std::string("0") ? 4u : 0u);
    for (int i = 0; i < c.clear_reads; ++i) EXPECT_EQ(model.Read(kControl), 0u) << i;
    EXPECT_EQ(model.Read(kControl), 4u);
    EXPECT_EQ(model.Read(kControl), 4u);
  }
  model.Reset();
  ASSERT_EQ(model.Set("fpga.dem.ack", "never"), 0);
  model.Write(kControl, 1);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(model.Read(kControl), 0u);
}

// All-ones requests RS alone; any other word sets the DEM and DEC lines and lets RS go.
TEST_F(ModelTest, ControlWordDecoding) {
  model.Write(kControl, 1);
  Words(kDemPort, {7, 0, 0});
  model.Write(kControl, 0);
  ASSERT_EQ(Key("fpga.dem.state"), "loaded");

  model.Write(kControl, 0xFFFFFFFF);
  EXPECT_EQ(Key("fpga.rs.state"), "configuring");
  EXPECT_EQ(Key("fpga.dem.state"), "loaded") << "RS's request leaves DEM alone";
  Words(kRsPort, {9, 0, 0});
  Words(kDecPort, {1, 2, 3});   // DEC is not being configured: not its data
  EXPECT_EQ(Key("fpga.dec.words"), "0");
  model.Read(kControl);
  model.Read(kControl);
  EXPECT_EQ(model.Read(kControl), 0x2u | 0x4u | 0x10u) << "DEM done, RS done, RS acknowledge";
  model.Write(kControl, 4);   // DEC requested; RS let go, loaded
  EXPECT_EQ(Key("fpga.rs.state"), "loaded");
  EXPECT_EQ(Key("fpga.dec.state"), "configuring");
  model.Write(kControl, 1);   // DEM restarts, DEC let go without an image
  EXPECT_EQ(Key("fpga.dec.state"), "unconfigured");
  EXPECT_EQ(Key("fpga.dem.state"), "configuring");
}

// A repeated request starts over, but the failed image stays visible until new data arrives.
TEST_F(ModelTest, RetryKeepsTheLastFiguresUntilNewData) {
  ASSERT_EQ(model.Set("fpga.dem.expect_bytes", "4"), 0);
  model.Write(kControl, 1);
  Words(kDemPort, {0x11, 0x22, 0, 0});
  EXPECT_EQ(model.Peek(kControl) & 2, 0u);
  model.Write(kControl, 1);   // the loader gives up and leaves the reset mask
  EXPECT_EQ(Key("fpga.dem.words"), "4");
  EXPECT_EQ(Key("fpga.dem.bytes"), "5");
  EXPECT_EQ(model.Peek(kControl) & 2, 0u) << "no image yet in this attempt";
  Words(kDemPort, {0x44332211, 0, 0});
  EXPECT_EQ(Key("fpga.dem.words"), "3");
  EXPECT_EQ(model.Peek(kControl) & 2, 2u);
  model.Reset();
  EXPECT_EQ(Key("fpga.dem.state"), "unconfigured");
  EXPECT_EQ(Key("fpga.dem.expect_bytes"), "0");
  EXPECT_EQ(Key("fpga.dem.crc"), "0x00000000");
}

// Address then data; word 2 without a fresh address is not a RAM write.
TEST_F(ModelTest, RamLatchesTheAddressForOneDataWrite) {
  model.Write(0x8000, 3);
  model.Write(0x8008, 0x1ABCD);
  model.Write(0x8008, 0x5555);
  EXPECT_EQ(Key("ram.3"), "0xABCD");
  EXPECT_EQ(Key("ram.0x3"), "0xABCD");
  EXPECT_EQ(Key("ram.writes"), "1");
  ASSERT_EQ(model.Set("ram.size", "4"), 0);
  EXPECT_EQ(Key("ram.3"), "0x0000") << "a new size clears the RAM";
  model.Write(0x8000, 4);
  model.Write(0x8008, 1);
  EXPECT_EQ(Key("ram.dropped"), "1");
  EXPECT_EQ(Key("ram.4"), "(unknown key)");
}

TEST_F(ModelTest, SimulatorKeepsWhatItIsTold) {
  model.Write(0x8060, 0x10000000);
  model.Write(0x8064, 0x100A00BA);
  for (uint32_t v : {0x00001234u, 0x00015678u, 0x00030000u}) model.Write(0x8068, v);
  EXPECT_EQ(Key("sim.carrier"), "0x10000000");
  EXPECT_EQ(Key("sim.control"), "0x100A00BA");
  EXPECT_EQ(Key("sim.divider"), "186");
  EXPECT_EQ(Key("sim.length"), "10");
  EXPECT_EQ(Key("sim.on"), "1");
  EXPECT_EQ(Key("sim.pattern"), "1234 5678 0000");
  EXPECT_EQ(Key("sim.pattern.words"), "3");
  EXPECT_EQ(Key("sim.pattern.in_order"), "0") << "index 3 came third";
  model.Write(0x8068, 0x0000FFFF);   // index 0: a new pattern
  EXPECT_EQ(Key("sim.pattern"), "FFFF");
  EXPECT_EQ(Key("sim.pattern.in_order"), "1");
}

}  // namespace
