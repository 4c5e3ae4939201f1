// The models' keys where a virtual-board user meets them: values of other shapes than a plain
// number. (The loops' locking, the decimations, the iso converter, filter taps, the packing
// table, the gain codes and the counters, the library's unit and end-to-end tests and the CLI's
// runs read back.)
#include <string>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

constexpr uint32_t kDecimation = 0x8038;

using ModelKeys = PortTest;

// The loading gauge (read through DEM word 14, whose writes are the demodulator's), the
// signal's real numbers, and a command key parse whole strings only.
TEST_F(ModelKeys, SignedRealAndCommandKeysParseWholeStringsOnly) {
  const struct { const char* key, *value; int result; const char* shown; } cases[] = {
      {"iso.loading", "-32768", 0, "-32768"}, {"iso.loading", "32768", 2, "0"},
      {"iso.loading", "0x10", 2, "0"},        {"signal.carrier", "1.5e9", 0, "1500000000.00"},
      {"signal.carrier", "12abc", 2, "1200025000.00"},
      {"signal.carrier", "nan", 2, "1200025000.00"},
      {"signal.carrier", "1e400", 2, "1200025000.00"}, {"signal.level", "-40.5", 0, "-40.50"},
      {"pack.clear", "2", 2, "0"},            {"pack.clear", "1", 0, "0"},
  };
  for (const auto& c : cases) {
    Reset();
    EXPECT_EQ(zsim_set(0, c.key, c.value), c.result) << c.key << "=" << c.value;
    EXPECT_EQ(Get(0, c.key), c.shown) << c.key << "=" << c.value;
  }
  Set("iso.loading", "-2");
  Write(kDecimation, 0x20003);
  EXPECT_EQ(Read(kDecimation), 0xFFFEu);
  EXPECT_EQ(Get(0, "demod.m"), "4");
}

}  // namespace
}  // namespace zsim_test
