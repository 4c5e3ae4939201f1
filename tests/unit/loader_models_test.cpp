// The virtual board's FPGA configuration, RAM and simulator blocks, driven directly through the
// register model: the acceptance rule, the acknowledge timing, the line decoding of INT word 4,
// what zsim_get reports, and the RAM's address latch.
#include <gtest/gtest.h>

#include <string>
#include <vector>

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

// The words after the DEM reset request, the settings, and whether done shows before release.
TEST_F(ModelTest, AcceptanceRule) {
  const struct {
    const char* what;
    std::vector<uint32_t> words;
    std::pair<const char*, const char*> setting;
    bool done;
    const char* bytes;
  } cases[] = {
      {"image and two zero words", {0x04030201, 5, 0, 0}, {}, true, "5"},
      {"only one zero word", {0x04030201, 5, 0}, {}, false, "5"},
      {"zeros inside count, trailing ones do not", {1, 0, 0x100, 0, 0}, {}, true, "10"},
      {"length not as expected", {0x04030201, 5, 0, 0}, {"fpga.dem.expect_bytes", "8"}, false, "5"},
      // CRC-32 of "123456789" is 0xCBF43926.
      {"CRC as expected", {0x34333231, 0x38373635, 0x39, 0, 0}, {"fpga.dem.expect_crc", "0xCBF43926"}, true, "9"},
      {"CRC not as expected", {0x34333231, 0x38373635, 0x39, 0, 0}, {"fpga.dem.expect_crc", "0xCBF43927"}, false, "9"},
      {"done never", {1, 0, 0}, {"fpga.dem.done", "never"}, false, "1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    model.Reset();
    if (c.setting.first) {
      ASSERT_EQ(model.Set(c.setting.first, c.setting.second), 0);
    }
    model.Write(kControl, 1);
    for (uint32_t w : c.words) model.Write(kDemPort, w);
    EXPECT_EQ((model.Peek(kControl) & 2) != 0, c.done);
    EXPECT_EQ(Key("fpga.dem.bytes"), c.bytes);
    EXPECT_EQ(Key("fpga.dem.words"), std::to_string(c.words.size()));
    model.Write(kControl, 0);
    EXPECT_EQ(Key("fpga.dem.state"), c.done ? "loaded" : "unconfigured");
  }
}

TEST_F(ModelTest, AcknowledgeAfterNReadsAndPeeksDoNotCount) {
  ASSERT_EQ(model.Set("fpga.dec.ack_after", "5"), 0);
  model.Write(kControl, 4);
  EXPECT_EQ(model.Peek(kControl), 0u);
  EXPECT_EQ(model.Peek(kControl), 0u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(model.Read(kControl), 0u) << i;
  EXPECT_EQ(model.Read(kControl), 4u);
  EXPECT_EQ(model.Read(kControl), 4u);
}

// All-ones requests RS alone; any other word sets the DEM and DEC lines and lets RS go.
TEST_F(ModelTest, ControlWordDecoding) {
  model.Write(kControl, 1);
  Words(kDemPort, {7, 0, 0});
  model.Write(kControl, 0);
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

// Address then data; word 2 without a fresh address is not a RAM write.
TEST_F(ModelTest, RamLatchesTheAddressForOneDataWrite) {
  model.Write(0x8000, 3);
  model.Write(0x8008, 0x1ABCD);
  model.Write(0x8008, 0x5555);
  EXPECT_EQ(Key("ram.0x3"), "0xABCD");
  EXPECT_EQ(Key("ram.writes"), "1");
  ASSERT_EQ(model.Set("ram.size", "4"), 0);
  EXPECT_EQ(Key("ram.3"), "0x0000") << "a new size clears the RAM";
  model.Write(0x8000, 4);
  model.Write(0x8008, 1);
  EXPECT_EQ(Key("ram.dropped"), "1");
}

TEST_F(ModelTest, SimulatorKeepsWhatItIsTold) {
  model.Write(0x8060, 0x10000000);
  model.Write(0x8064, 0x100A00BA);
  for (uint32_t v : {0x00001234u, 0x00015678u, 0x00030000u}) model.Write(0x8068, v);
  EXPECT_EQ(Key("sim.carrier"), "0x10000000");
  EXPECT_EQ(Key("sim.divider") + " " + Key("sim.length") + " " + Key("sim.on"), "186 10 1");
  EXPECT_EQ(Key("sim.pattern"), "1234 5678 0000");
  EXPECT_EQ(Key("sim.pattern.in_order"), "0") << "index 3 came third";
  model.Write(0x8068, 0x0000FFFF);   // index 0: a new pattern
  EXPECT_EQ(Key("sim.pattern"), "FFFF");
  EXPECT_EQ(Key("sim.pattern.in_order"), "1");
}

}  // namespace
