// The board configuration from the driver's service key: defaults for whatever cannot be read,
// and refusal of values the data path cannot serve.
#include <gtest/gtest.h>

#include <vector>

#include "api/master_cfg.h"
#include "test_env.h"

namespace tvx {
namespace {

constexpr char kKey[] = "SYSTEM\\CurrentControlSet\\Services\\zarim\\Parameters";

std::vector<uint8_t> Le(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}; }

// A value counts only when it is exactly four bytes and in range (channels 0-255, buffers
// 2-32: a ring of one cannot be read); otherwise the default (17 channels, 4 buffers) stands.
// POSIX keeps the registry in a private tree here; Windows uses the real key and ignores the variable.
TEST(MasterCfg, ReadsOrFallsBack) {
  const struct {
    std::vector<uint8_t> channels, buffers;   // empty: value absent
    uint32_t want_channels, want_buffers;
  } cases[] = {
      {{}, {}, 17, 4},   {{}, Le(8), 17, 8},    {Le(3), Le(2), 3, 2},     {Le(0), {}, 0, 4},
      {{9}, {}, 17, 4},  {Le(256), {}, 17, 4},  {{}, Le(1), 17, 4},       {{}, Le(33), 17, 4},
      {{9, 0, 0, 0, 0, 0, 0, 0}, {}, 17, 4},    {Le(255), Le(32), 255, 32},
  };
  test::TempDir dir;
  test::ScopedEnv env{"TORVIXE_REGISTRY", dir.str()};
  for (const auto& c : cases) {
    for (const auto& [name, bytes] : {std::pair{"CHCount", c.channels}, {"BuffersPerCH", c.buffers}}) {
      os::DeleteRegistryValue(kKey, name);
      if (!bytes.empty()) {
        ASSERT_TRUE(os::WriteRegistryValue(kKey, name, bytes.data(), uint32_t(bytes.size())));
      }
    }
    cMasterCfg cfg("zarim");
    EXPECT_EQ(cfg.GetCHCount(), c.want_channels) << c.want_channels << "/" << c.want_buffers;
    EXPECT_EQ(cfg.GetBuffersPerCH(), c.want_buffers) << c.want_channels << "/" << c.want_buffers;
  }
  os::DeleteRegistryValue(kKey, "CHCount");
  os::DeleteRegistryValue(kKey, "BuffersPerCH");
}

}  // namespace
}  // namespace tvx
