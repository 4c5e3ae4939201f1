// The board configuration from the driver's service key: defaults for whatever cannot be read,
// and refusal of values the data path cannot serve.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "api/master_cfg.h"
#include "platform/os.h"
#include "test_env.h"

namespace tvx {
namespace {

constexpr char kKey[] = "SYSTEM\\CurrentControlSet\\Services\\zarim\\Parameters";

struct Value {
  const char* name;
  std::vector<uint8_t> bytes;
};

struct ConfigCase {
  const char* what;
  std::vector<Value> values;
  uint32_t channels;
  uint32_t buffers;
};

std::vector<uint8_t> Le(uint32_t v) {
  return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
}

class MasterCfgTest : public ::testing::TestWithParam<ConfigCase> {
 protected:
  void SetUp() override { Clear(); }
  void TearDown() override { Clear(); }
  static void Clear() {
    os::DeleteRegistryValue(kKey, "CHCount");
    os::DeleteRegistryValue(kKey, "BuffersPerCH");
  }
  // POSIX keeps the registry in a directory tree; point it at a private one. Windows uses
  // the real registry and ignores the variable.
  test::TempDir dir_;
  test::ScopedEnv env_{"TORVIXE_REGISTRY", dir_.str()};
};

TEST_P(MasterCfgTest, ReadsOrFallsBack) {
  const ConfigCase& c = GetParam();
  for (const Value& v : c.values)
    ASSERT_TRUE(os::WriteRegistryValue(kKey, v.name, v.bytes.data(), uint32_t(v.bytes.size())));
  cMasterCfg cfg("zarim");
  EXPECT_EQ(cfg.GetCHCount(), c.channels);
  EXPECT_EQ(cfg.GetBuffersPerCH(), c.buffers);
}

INSTANTIATE_TEST_SUITE_P(
    Values, MasterCfgTest,
    ::testing::Values(
        ConfigCase{"none", {}, 17, 4},
        ConfigCase{"buffers_only", {{"BuffersPerCH", Le(8)}}, 17, 8},
        ConfigCase{"both", {{"CHCount", Le(3)}, {"BuffersPerCH", Le(2)}}, 3, 2},
        ConfigCase{"no_channels", {{"CHCount", Le(0)}}, 0, 4},
        ConfigCase{"eight_byte_count", {{"CHCount", {9, 0, 0, 0, 0, 0, 0, 0}}}, 17, 4},
        ConfigCase{"one_byte_count", {{"CHCount", {9}}}, 17, 4},
        ConfigCase{"count_beyond_8_bits", {{"CHCount", Le(256)}}, 17, 4},
        ConfigCase{"zero_buffers", {{"BuffersPerCH", Le(0)}}, 17, 4},
        ConfigCase{"too_many_buffers", {{"BuffersPerCH", Le(33)}}, 17, 4},
        ConfigCase{"largest", {{"CHCount", Le(255)}, {"BuffersPerCH", Le(32)}}, 255, 32}),
    [](const auto& info) { return std::string(info.param.what); });

}  // namespace
}  // namespace tvx
