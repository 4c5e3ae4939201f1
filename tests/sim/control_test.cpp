// The control interface: keys (every one can be read back and refuses bad values), the
// register trace and its cap, reset, configuration files and ZARIM_SIM_CONFIG, and register
// requests through ZARIM_Read / ZARIM_Write.
#include <fstream>
#include <sstream>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

class ControlTest : public SimTest {};

struct KeyCase {
  const char* key;
  const char* default_value;
  std::vector<const char*> good;   // each must read back as itself (after number formatting)
  std::vector<const char*> bad;
};

const KeyCase kKeys[] = {
    {"bar.size", "0x00010000", {"0x00002000", "0x00001804", "0x01000000"}, {"0", "2", "0x1000002", "x"}},
    {"mmio", "trap", {"passive", "trap"}, {"Trap", "", "on"}},
    {"fpga.dem.ack", "auto", {"never", "auto"}, {"Never", "1"}},
    {"fpga.dem.ack_after", "2", {"0", "4294967295"}, {"-1", "x"}},
    {"fpga.dem.done", "auto", {"never", "auto"}, {"no"}},
    {"fpga.dem.expect_bytes", "0", {"5", "0"}, {"4294967296"}},
    {"fpga.dem.expect_crc", "none", {"0x12345678", "0xFFFFFFFF", "none"}, {"0x1G", "-1"}},
    {"fpga.dec.ack", "auto", {"never"}, {""}},
    {"fpga.dec.ack_after", "2", {"7"}, {"1.5"}},
    {"fpga.dec.done", "auto", {"never"}, {" never"}},
    {"fpga.dec.expect_bytes", "0", {"9"}, {"0x"}},
    {"fpga.dec.expect_crc", "none", {"0x00000000"}, {"crc"}},
    {"fpga.rs.ack", "auto", {"never"}, {"2"}},
    {"fpga.rs.ack_after", "2", {"3"}, {""}},
    {"fpga.rs.done", "auto", {"never"}, {"auto "}},
    {"fpga.rs.expect_bytes", "0", {"1"}, {"-5"}},
    {"fpga.rs.expect_crc", "none", {"0xCBF43926"}, {"0x100000000"}},
    {"ram.size", "65536", {"1", "16777216"}, {"0", "16777217"}},
    {"slot", "3", {"0", "4294967295"}, {"4294967296", "-1", "3 "}},
    {"fault.open", "0", {"2", "0"}, {"two"}},
    {"fault.memory_map", "0", {"8"}, {"1.5"}},
    {"fault.memory_unmap", "0", {"8"}, {""}},
    {"fault.bar_map", "0", {"31"}, {"0x"}},
    {"fault.bar_unmap", "0", {"31"}, {"0xG"}},
    {"fault.port", "0", {"1167"}, {"+1"}},
    {"fault.interrupt_info", "0", {"1"}, {" 1"}},
    {"dma.buffer_size", "65536", {"128", "4096"}, {"127", "0"}},
    {"trace.max", "1000000", {"0", "100000000"}, {"100000001"}},
    {"lconv.present", "1", {"0", "1"}, {"2"}},
    {"i2c.busy_polls", "1", {"0", "1000000"}, {"1000001", "-1"}},
    {"i2c.power_on", "enabled", {"disabled", "enabled"}, {"on", ""}},
    {"eeprom.write_polls", "3", {"0", "1000000"}, {"1000001"}},
    {"eeprom.pcb.fault", "none", {"no_address_ack", "no_data_ack", "stuck", "none"}, {"None", "1"}},
    {"eeprom.pcb.fault_after", "0", {"6", "4294967295"}, {"-1"}},
    {"eeprom.lconv.fault", "none", {"stuck", "none"}, {"stuck "}},
    {"eeprom.lconv.fault_after", "0", {"1"}, {"x"}},
    {"eeprom.lconv2.fault", "none", {"no_data_ack", "none"}, {""}},
    {"eeprom.lconv2.fault_after", "0", {"2"}, {""}},
    {"sensor.fault", "none", {"no_address_ack", "none"}, {"no_ack"}},
    {"sensor.fault_after", "0", {"5"}, {"0x"}},
    {"sensor.local", "41", {"0", "255"}, {"256", "-1"}},
    {"sensor.remote", "56", {"0", "255"}, {"256"}},
    {"sensor.remote_fraction", "0x00000080", {"0x00000040", "0x000000FF"}, {"0x100"}},
    {"boards", "1", {"2", "1"}, {"257"}},
};

TEST_F(ControlTest, EveryKeyHasItsDefaultReadsBackAndRefusesBadValues) {
  for (const KeyCase& c : kKeys) {
    SCOPED_TRACE(c.key);
    EXPECT_EQ(Get(0, c.key), c.default_value);
    for (const char* value : c.good) {
      EXPECT_EQ(zsim_set(0, c.key, value), 0) << value;
      EXPECT_EQ(Get(0, c.key), value);
    }
    const std::string before = Get(0, c.key);
    for (const char* value : c.bad) {
      EXPECT_NE(zsim_set(0, c.key, value), 0) << value;
      EXPECT_EQ(Get(0, c.key), before) << "a refused value changed the key";
    }
  }
}

// The documented key list and the table above describe the same keys.
TEST_F(ControlTest, KeyListNamesEverySettableKey) {
  std::istringstream list(Get(0, "keys"));
  std::vector<std::string> names;
  for (std::string name; list >> name;) names.push_back(name);
  std::vector<std::string> expected{"reg.0xADDR"};
  // The EEPROM contents keys are tested with the bus devices (tests/unit/i2c_model_test.cpp).
  for (const char* chip : {"eeprom.pcb", "eeprom.lconv", "eeprom.lconv2"})
    for (const char* key : {".image", ".file", ".byte.0xADDR"})
      expected.push_back(std::string(chip) + key);
  for (const KeyCase& c : kKeys) expected.push_back(c.key);
  std::sort(names.begin(), names.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(names, expected);
}

TEST_F(ControlTest, UnknownKeysBoardsAndValuesAreRefused) {
  EXPECT_NE(zsim_set(0, "no.such.key", "1"), 0);
  EXPECT_EQ(zsim_get(0, "no.such.key"), nullptr);
  EXPECT_NE(zsim_set(1, "slot", "5"), 0) << "board 1 of 1";
  EXPECT_EQ(zsim_get(1, "slot"), nullptr);
  EXPECT_NE(zsim_set(0, nullptr, "1"), 0);
  EXPECT_NE(zsim_set(0, "slot", nullptr), 0);
  EXPECT_EQ(zsim_get(0, nullptr), nullptr);
  for (const char* key : {"reg.0x8002", "reg.0x10000", "reg.", "reg.0x", "reg.zz", "reg.-4"})
    EXPECT_NE(zsim_set(0, key, "1"), 0) << key;
  EXPECT_NE(zsim_set(0, "reg.0x8000", "1x"), 0);
  EXPECT_EQ(zsim_set(0, "reg.32768", "1"), 0) << "a decimal address names the same word";
  EXPECT_EQ(Get(0, "reg.0x8000"), "0x00000001");
  for (const char* key : {"open", "memory_mapped", "bar_mapped", "trace.count"})
    EXPECT_NE(zsim_set(0, key, "1"), 0) << key << " is state, not a setting";
}

TEST_F(ControlTest, StateKeysDescribeTheDevice) {
  const uint32_t channels = 3, buffers = 5;
  ScopedDriverParameters registry(&channels, &buffers);
  EXPECT_EQ(Get(0, "open"), "0");
  EXPECT_EQ(Get(0, "dma.channels"), "3") << "what an open would use";
  EXPECT_EQ(Get(0, "dma.buffers_per_channel"), "5");
  OpenBoard board(0, true, false);
  EXPECT_EQ(Get(0, "open"), "1");
  EXPECT_EQ(Get(0, "memory_mapped"), "1");
  EXPECT_EQ(Get(0, "bar_mapped"), "0");
  EXPECT_EQ(Get(0, "reg.0x4000"), "0x00000001");
  EXPECT_EQ(Get(0, "trace.count"), "0") << "inspection is not an access";
}

// Port requests go to the same model and the same trace as the BAR.
TEST_F(ControlTest, PortRequestsReachTheModel) {
  OpenBoard board(0, false, false);
  zsim_trace_clear(0);
  PortRequest write{0xA204, 0xFEEDF00D};
  ASSERT_EQ(ZARIM_Write(board.handle, &write), 0);
  PortRequest read{0xA204, 0};
  ASSERT_EQ(ZARIM_Read(board.handle, &read), 0);
  EXPECT_EQ(read.value, 0xFEEDF00Du);
  EXPECT_EQ(Trace(0), (std::vector<zsim_access>{{0xA204, 0xFEEDF00D, 1}, {0xA204, 0xFEEDF00D, 0}}));
  for (uint32_t bad : {0xA202u, 0x10000u, 0xFFFFFFFCu}) {
    PortRequest request{bad, 0x5555};
    EXPECT_NE(ZARIM_Read(board.handle, &request), 0) << std::hex << bad;
    EXPECT_EQ(tvx::os::LastError(), 87u);
    EXPECT_EQ(request.value, 0x5555u);
    EXPECT_NE(ZARIM_Write(board.handle, &request), 0) << std::hex << bad;
  }
  EXPECT_NE(ZARIM_Read(board.handle, nullptr), 0);
  EXPECT_EQ(zsim_trace(0, nullptr, 0), 2u) << "refused requests are not accesses";
}

// Past trace.max the oldest entries go; the count keeps counting.
TEST_F(ControlTest, TraceCapKeepsTheNewestEntries) {
  OpenBoard board(0, false, false);
  ASSERT_EQ(zsim_set(0, "trace.max", "4"), 0);
  zsim_trace_clear(0);
  for (uint32_t i = 0; i < 10; ++i) {
    PortRequest request{0x8000, i};
    ASSERT_EQ(ZARIM_Write(board.handle, &request), 0);
  }
  zsim_access out[8] = {};
  EXPECT_EQ(zsim_trace(0, out, 8), 10u);
  for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(out[i].value, 6 + i) << i;
  EXPECT_EQ(out[4].addr, 0u) << "only the held entries are copied";
  EXPECT_EQ(zsim_trace(0, out, 2), 10u);
  EXPECT_EQ(out[1].value, 7u) << "a short copy takes the oldest held";
  EXPECT_EQ(Get(0, "trace.count"), "10");
  // Shrinking the cap keeps the newest.
  ASSERT_EQ(zsim_set(0, "trace.max", "2"), 0);
  EXPECT_EQ(zsim_trace(0, out, 8), 10u);
  EXPECT_EQ(out[0].value, 8u);
  EXPECT_EQ(out[1].value, 9u);
  // A cap of 0 keeps nothing but still counts.
  ASSERT_EQ(zsim_set(0, "trace.max", "0"), 0);
  PortRequest request{0x8000, 0};
  ASSERT_EQ(ZARIM_Read(board.handle, &request), 0);
  EXPECT_EQ(zsim_trace(0, out, 8), 11u);
  zsim_trace_clear(0);
  EXPECT_EQ(zsim_trace(0, nullptr, 0), 0u);
}

TEST_F(ControlTest, TraceIsPerBoard) {
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  OpenBoard a(0, false, false), b(1, false, false);
  zsim_trace_clear(0);
  zsim_trace_clear(1);
  PortRequest request{0x8000, 1};
  ASSERT_EQ(ZARIM_Write(b.handle, &request), 0);
  EXPECT_EQ(zsim_trace(0, nullptr, 0), 0u);
  EXPECT_EQ(zsim_trace(1, nullptr, 0), 1u);
  EXPECT_EQ(zsim_trace(2, nullptr, 0), 0u) << "no board 2";
}

TEST_F(ControlTest, ResetRestoresDefaultsAndKeepsOpenBoardsOpen) {
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  OpenBoard board(1, false, false);
  ASSERT_EQ(zsim_set(1, "slot", "40"), 0);
  ASSERT_EQ(zsim_set(1, "fault.port", "5"), 0);
  ASSERT_EQ(zsim_set(1, "reg.0x8000", "9"), 0);
  ASSERT_EQ(zsim_set(1, "lconv.present", "0"), 0);
  PortRequest request{0x8004, 3};
  ASSERT_NE(ZARIM_Write(board.handle, &request), 0);
  zsim_reset();
  EXPECT_EQ(DeviceSupportedCount(), 1u);
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  EXPECT_EQ(Get(1, "slot"), "4");
  EXPECT_EQ(Get(1, "fault.port"), "0");
  EXPECT_EQ(Get(1, "reg.0x8000"), "0x00000000");
  EXPECT_EQ(Get(1, "lconv.present"), "1");
  EXPECT_EQ(Get(1, "open"), "1");
  EXPECT_EQ(ZARIM_Write(board.handle, &request), 0) << "the handle still works";
  EXPECT_EQ(Trace(1), (std::vector<zsim_access>{{0x8004, 3, 1}}));
}

// ---- configuration files ------------------------------------------------------------------

class ConfigTest : public SimTest {
 protected:
  std::string Write(const std::string& text) {
    const std::filesystem::path path = dir_.path() / "board.ini";
    std::ofstream(path, std::ios::binary) << text;
    return path.string();
  }
  TempDir dir_;
};

TEST_F(ConfigTest, LoadsGlobalAndBoardSections) {
  const std::string path = Write(
      "# virtual rig\r\n"
      "boards = 3\r\n"
      "; every board configured so far\n"
      "mmio = passive\n"
      "[board.1]\n"
      "slot = 12        # the second board sits in slot 12\n"
      "reg.0x8000=0xBEEF\n"
      "\n"
      "  [ sim ]\n"
      "fault.open = 2\n"
      "[board.2]\n"
      "lconv.present = 0 ; no convertor\n");
  ASSERT_EQ(zsim_load_config(path.c_str()), 0);
  EXPECT_EQ(DeviceSupportedCount(), 3u);
  for (unsigned b = 0; b < 3; ++b) {
    EXPECT_EQ(Get(b, "mmio"), "passive") << b;
    EXPECT_EQ(Get(b, "fault.open"), "2") << b;
  }
  EXPECT_EQ(Get(1, "slot"), "12");
  EXPECT_EQ(Get(0, "slot"), "3");
  EXPECT_EQ(Get(1, "reg.0x8000"), "0x0000BEEF");
  EXPECT_EQ(Get(2, "lconv.present"), "0");
  EXPECT_EQ(Get(1, "lconv.present"), "1");
}

struct BadConfig {
  const char* name;
  const char* text;
  int line;
};

const BadConfig kBadConfigs[] = {
    {"UnknownKey", "slot = 5\nnope = 1\nslot = 6\n", 2},
    {"BadValue", "\n\nmmio = fast\n", 3},
    {"NoEquals", "slot 5\n", 1},
    {"BoardBeyondCount", "[board.1]\nslot = 5\n", 2},
    {"BadSection", "[board]\n", 1},
    {"UnclosedSection", "[board.0\n", 1},
    {"EmptyKey", "= 5\n", 1},
};

class BadConfigTest : public ConfigTest, public testing::WithParamInterface<BadConfig> {};

TEST_P(BadConfigTest, StopsAtTheFirstRefusedLineKeepingThoseBefore) {
  const BadConfig& c = GetParam();
  EXPECT_EQ(zsim_load_config(Write(c.text).c_str()), c.line);
  if (std::string(c.text).rfind("slot = 5\n", 0) == 0) {
    EXPECT_EQ(Get(0, "slot"), "5");
  }
}

INSTANTIATE_TEST_SUITE_P(Lines, BadConfigTest, testing::ValuesIn(kBadConfigs),
                         [](const testing::TestParamInfo<BadConfig>& info) {
                           return std::string(info.param.name);
                         });

TEST_F(ConfigTest, MissingFileIsRefused) {
  EXPECT_EQ(zsim_load_config((dir_.path() / "absent.ini").string().c_str()), -1);
  EXPECT_EQ(zsim_load_config(nullptr), -1);
}

// The file named by ZARIM_SIM_CONFIG is applied before the first call does anything; that
// takes a fresh process.
TEST(DISABLED_ConfigChild, EnvironmentFileIsAppliedBeforeTheFirstCall) {
  ASSERT_EQ(DeviceSupportedCount(), 2u);
  EXPECT_EQ(Get(1, "slot"), "42");
  Handle h = ZARIM_Open(1);
  ASSERT_NE(h, kInvalidHandle);
  EXPECT_EQ(ZARIM_GetSlotNumber(h), 42u);
  ZARIM_Close(h);
}

TEST_F(ConfigTest, EnvironmentVariableNamesAFileLoadedAtStart) {
  const std::string path = Write("boards = 2\n[board.1]\nslot = 42\n");
  ScopedEnv env("ZARIM_SIM_CONFIG", path);
  EXPECT_EQ(RunInChildProcess("DISABLED_ConfigChild.EnvironmentFileIsAppliedBeforeTheFirstCall"), 0);
}

}  // namespace
}  // namespace zsim_test
