// The file named by ZARIM_SIM_CONFIG is applied before the first call (so in a fresh process),
// with comments, CR LF, global keys for every board and sections for one.
#include <fstream>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

TEST(DISABLED_ConfigChild, EnvironmentFileIsAppliedBeforeTheFirstCall) {
  ASSERT_EQ(DeviceSupportedCount(), 3u);
  EXPECT_EQ(Get(0, "mmio") + Get(2, "mmio") + Get(1, "slot") + Get(2, "lconv.present"), "passivepassive120");
}

TEST(Config, EnvironmentVariableNamesAFileLoadedAtStart) {
  TempDir dir;
  std::ofstream(dir.path() / "board.ini", std::ios::binary)
      << "# virtual rig\r\nboards = 3\r\nmmio = passive\n[board.1]\nslot = 12   # the second\n"
         "[board.2]\nlconv.present = 0 ; no convertor\n";
  ScopedEnv env("ZARIM_SIM_CONFIG", (dir.path() / "board.ini").string());
  EXPECT_EQ(RunInChildProcess("DISABLED_ConfigChild.EnvironmentFileIsAppliedBeforeTheFirstCall"), 0);
}

}  // namespace
}  // namespace zsim_test
