// The control interface: keys (list and defaults as documented, values read back, bad ones
// refused), the register trace and its cap, reset, port requests, configuration files and
// ZARIM_SIM_CONFIG.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

using ControlTest = SimTest;
using Strings = std::vector<std::string>;

// The documentation's settings table: each key (shorthand "`a.b.image`, `.file`" expanded)
// with its default as written there.
std::vector<std::pair<std::string, std::string>> DocumentedSettings() {
  std::ifstream doc(std::filesystem::path(__FILE__).parent_path() / "../../docs/virtual-board.md");
  EXPECT_TRUE(doc.is_open());
  std::vector<std::pair<std::string, std::string>> keys;
  bool in_settings = false;
  for (std::string line; std::getline(doc, line);) {
    if (line.rfind("### ", 0) == 0) in_settings = line == "### Settings";
    if (!in_settings || line.rfind("| `", 0) != 0) continue;
    const size_t cell_end = line.find(" | "), default_end = line.find(" | ", cell_end + 3);
    std::string value = line.substr(cell_end + 3, default_end - cell_end - 3), base;
    value.erase(std::remove(value.begin(), value.end(), '`'), value.end());
    for (size_t open = line.find('`'); open < cell_end; open = line.find('`', open + 1)) {
      const size_t close = line.find('`', open + 1);
      std::string name = line.substr(open + 1, close - open - 1);
      if (name[0] == '.') name = base + name;
      else base = name.substr(0, name.rfind('.'));
      keys.emplace_back(name, value);
      open = close;
    }
  }
  return keys;
}

// The key list is the documented one, and every key has its documented default (where the
// documentation gives a value rather than a description).
TEST_F(ControlTest, KeysAndDefaultsAreTheDocumentedOnes) {
  std::istringstream list(Get(0, "keys"));
  Strings listed{std::istream_iterator<std::string>(list), std::istream_iterator<std::string>()};
  Strings documented;
  int compared = 0;
  for (auto [key, value] : DocumentedSettings()) {
    documented.push_back(key);
    if (value.find(' ') != std::string::npos || key.find("0xADDR") != std::string::npos) continue;
    if (value == "empty") value = "";
    const std::string got = Get(0, key.c_str());
    ++compared;
    if (got != value && std::isdigit(value[0]) && std::isdigit(got[0])) {
      EXPECT_EQ(std::stoull(got, nullptr, 0), std::stoull(value, nullptr, 0)) << key;
    } else {
      EXPECT_EQ(got, value) << key;
    }
  }
  EXPECT_GT(compared, 40);
  std::sort(listed.begin(), listed.end());
  std::sort(documented.begin(), documented.end());
  EXPECT_EQ(listed, documented);
}

// Values read back as set; refused ones leave the key alone. One key of each family: the
// families share their parsing.
TEST_F(ControlTest, KeysReadBackAndRefuseBadValues) {
  const struct {
    const char* key;
    Strings good;   // each must read back as itself
    Strings bad;
  } keys[] = {
      {"boards", {"2", "1"}, {"257", "-1"}},
      {"bar.size", {"0x00001804", "0x01000000"}, {"0", "2", "0x1000002", "x"}},
      {"mmio", {"passive", "trap"}, {"Trap", "", "on"}},
      {"slot", {"0", "4294967295"}, {"4294967296", "-1", "3 ", "+1", " 1", "0x", "1.5"}},
      {"dma.buffer_size", {"128", "16777216"}, {"0", "64", "127", "65600", "16777344", "4k"}},
      {"trace.max", {"0", "100000000"}, {"100000001"}},
      {"ram.size", {"1", "16777216"}, {"0", "16777217"}},
      {"lconv.present", {"0", "1"}, {"2"}},
      {"i2c.power_on", {"disabled", "enabled"}, {"on", ""}},
      {"sensor.remote_fraction", {"0x00000040", "0x000000FF"}, {"0x100", "256"}},
      {"fpga.rs.done", {"never", "auto"}, {"Never", " never", "auto ", "1"}},
      {"fpga.dec.expect_crc", {"0x12345678", "0x00000000", "none"}, {"0x1G", "-1", "0x100000000"}},
      {"fault.port", {"1167", "0"}, {"two", "-1"}},
      {"sensor.fault", {"no_address_ack", "no_data_ack", "stuck", "none"}, {"None", "stuck ", "1"}},
  };
  for (const auto& c : keys) {
    for (const std::string& value : c.good) {
      EXPECT_EQ(zsim_set(0, c.key, value.c_str()), 0) << c.key << '=' << value;
      EXPECT_EQ(Get(0, c.key), value);
    }
    for (const std::string& value : c.bad) {
      EXPECT_NE(zsim_set(0, c.key, value.c_str()), 0) << c.key << "=\"" << value << '"';
      EXPECT_EQ(Get(0, c.key), c.good.back()) << "a refused value changed " << c.key;
    }
  }
}

TEST_F(ControlTest, UnknownKeysBoardsAndValuesAreRefused) {
  EXPECT_NE(zsim_set(0, "no.such.key", "1"), 0);
  EXPECT_EQ(zsim_get(0, "no.such.key"), nullptr);
  EXPECT_NE(zsim_set(1, "slot", "5"), 0) << "board 1 of 1";
  EXPECT_EQ(zsim_get(1, "slot"), nullptr);
  EXPECT_NE(zsim_set(0, nullptr, "1"), 0);
  EXPECT_NE(zsim_set(0, "slot", nullptr), 0);
  EXPECT_EQ(zsim_get(0, nullptr), nullptr);
  for (const char* key : {"reg.0x8002", "reg.0x10000", "reg.", "reg.0x", "reg.zz", "reg.-4",
                          "open", "memory_mapped", "bar_mapped", "trace.count"})
    EXPECT_NE(zsim_set(0, key, "1"), 0) << key;
  EXPECT_NE(zsim_set(0, "reg.0x8000", "1x"), 0);
  EXPECT_EQ(zsim_set(0, "reg.32768", "1"), 0) << "a decimal address names the same word";
  EXPECT_EQ(Get(0, "reg.0x8000"), "0x00000001");
}

// Port requests go to the same model and the same trace as the BAR; refused ones are no
// accesses and leave the request alone.
TEST_F(ControlTest, PortRequestsReachTheModel) {
  OpenBoard board(0, false, false);
  zsim_trace_clear(0);
  PortRequest write{0xA204, 0xFEEDF00D}, read{0xA204, 0};
  ASSERT_EQ(ZARIM_Write(board.handle, &write), 0);
  ASSERT_EQ(ZARIM_Read(board.handle, &read), 0);
  EXPECT_EQ(read.value, 0xFEEDF00Du);
  for (uint32_t bad : {0xA202u, 0x10000u, 0xFFFFFFFCu}) {
    PortRequest request{bad, 0x5555};
    EXPECT_NE(ZARIM_Read(board.handle, &request), 0) << std::hex << bad;
    EXPECT_EQ(tvx::os::LastError(), kBadParameter);
    EXPECT_EQ(request.value, 0x5555u);
    EXPECT_NE(ZARIM_Write(board.handle, &request), 0) << std::hex << bad;
  }
  EXPECT_NE(ZARIM_Read(board.handle, nullptr), 0);
  EXPECT_EQ(TraceOf(0), (Trace{{0xA204, 0xFEEDF00D, 1}, {0xA204, 0xFEEDF00D, 0}}));
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
  ASSERT_EQ(zsim_set(0, "trace.max", "2"), 0);
  EXPECT_EQ(zsim_trace(0, out, 8), 10u);
  EXPECT_EQ(Trace(out, out + 2), (Trace{{0x8000, 8, 1}, {0x8000, 9, 1}})) << "shrinking keeps the newest";
  ASSERT_EQ(zsim_set(0, "trace.max", "0"), 0);
  PortRequest request{0x8000, 0};
  ASSERT_EQ(ZARIM_Read(board.handle, &request), 0);
  EXPECT_EQ(zsim_trace(0, out, 8), 11u) << "a cap of 0 keeps nothing but still counts";
  EXPECT_EQ(Get(0, "trace.count"), "11");
  zsim_trace_clear(0);
  EXPECT_EQ(zsim_trace(0, nullptr, 0), 0u);
}

TEST_F(ControlTest, ResetRestoresDefaultsAndKeepsOpenBoardsOpen) {
  const struct {
    const char* key;
    const char* set;
    const char* after_reset;
  } keys[] = {{"slot", "40", "4"}, {"fault.port", "5", "0"}, {"reg.0x8000", "9", "0x00000000"},
              {"lconv.present", "0", "1"}, {"mmio", "passive", "trap"}};
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  OpenBoard board(1, false, false);
  for (const auto& k : keys) ASSERT_EQ(zsim_set(1, k.key, k.set), 0) << k.key;
  PortRequest request{0x8004, 3};
  ASSERT_NE(ZARIM_Write(board.handle, &request), 0);
  zsim_reset();
  EXPECT_EQ(DeviceSupportedCount(), 1u);
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  for (const auto& k : keys) EXPECT_EQ(Get(1, k.key), k.after_reset) << k.key;
  EXPECT_EQ(Get(1, "open"), "1");
  EXPECT_EQ(ZARIM_Write(board.handle, &request), 0) << "the handle still works";
  EXPECT_EQ(TraceOf(1), (Trace{{0x8004, 3, 1}}));
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
    EXPECT_EQ(Get(b, "slot"), b == 1 ? "12" : std::to_string(3 + b)) << b;
    EXPECT_EQ(Get(b, "lconv.present"), b == 2 ? "0" : "1") << b;
  }
  EXPECT_EQ(Get(1, "reg.0x8000"), "0x0000BEEF");
}

// The number of the first refused line; the lines before it stay applied.
TEST_F(ConfigTest, StopsAtTheFirstRefusedLine) {
  const struct {
    const char* text;
    int line;
  } cases[] = {
      {"slot = 5\nnope = 1\nslot = 6\n", 2},   // unknown key
      {"slot = 5\n\nmmio = fast\n", 3},        // bad value
      {"slot = 5\n[board.1]\nslot = 5\n", 3},  // board beyond the count
      {"slot 5\n", 1},
      {"[board]\n", 1},
      {"[board.0\n", 1},
      {"= 5\n", 1},
  };
  for (const auto& c : cases) {
    zsim_reset();
    EXPECT_EQ(zsim_load_config(Write(c.text).c_str()), c.line) << c.text;
    if (std::string(c.text).rfind("slot = 5\n", 0) == 0) {
      EXPECT_EQ(Get(0, "slot"), "5") << c.text;
    }
  }
  EXPECT_EQ(zsim_load_config((dir_.path() / "absent.ini").string().c_str()), -1);
  EXPECT_EQ(zsim_load_config(nullptr), -1);
}

// The file named by ZARIM_SIM_CONFIG is applied before the first call does anything; that
// takes a fresh process.
TEST(DISABLED_ConfigChild, EnvironmentFileIsAppliedBeforeTheFirstCall) {
  ASSERT_EQ(DeviceSupportedCount(), 2u);
  Handle h = ZARIM_Open(1);
  ASSERT_NE(h, kInvalidHandle);
  EXPECT_EQ(ZARIM_GetSlotNumber(h), 42u);
  ZARIM_Close(h);
}

TEST_F(ConfigTest, EnvironmentVariableNamesAFileLoadedAtStart) {
  ScopedEnv env("ZARIM_SIM_CONFIG", Write("boards = 2\n[board.1]\nslot = 42\n"));
  EXPECT_EQ(RunInChildProcess("DISABLED_ConfigChild.EnvironmentFileIsAppliedBeforeTheFirstCall"), 0);
}

}  // namespace
}  // namespace zsim_test
