// The file named by ZARIM_SIM_CONFIG is applied before the first call does anything, with the
// configuration syntax test rigs and the CLI's --sim-config use: comments, CR LF, global keys
// for every board, sections for one. (That the library's CLI reaches a board configured by a
// file is its end-to-end test.) A fresh process is needed.
#include <fstream>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

TEST(DISABLED_ConfigChild, EnvironmentFileIsAppliedBeforeTheFirstCall) {
  ASSERT_EQ(DeviceSupportedCount(), 3u);
  EXPECT_EQ(Get(1, "slot") + " " + Get(1, "reg.0x8000"), "12 0x0000BEEF");
  for (unsigned b = 0; b < 3; ++b) {
    EXPECT_EQ(Get(b, "mmio") + Get(b, "fault.open"), "passive2") << b;
    EXPECT_EQ(Get(b, "lconv.present"), b == 2 ? "0" : "1") << b;
  }
}

TEST(Config, EnvironmentVariableNamesAFileLoadedAtStart) {
  TempDir dir;
  std::ofstream(dir.path() / "board.ini", std::ios::binary)
      << "# virtual rig\r\nboards = 3\r\n; every board so far\nmmio = passive\n[board.1]\n"
         "slot = 12        # the second board\nreg.0x8000=0xBEEF\n\n  [ sim ]\nfault.open = 2\n"
         "[board.2]\nlconv.present = 0 ; no convertor\n";
  ScopedEnv env("ZARIM_SIM_CONFIG", (dir.path() / "board.ini").string());
  EXPECT_EQ(RunInChildProcess("DISABLED_ConfigChild.EnvironmentFileIsAppliedBeforeTheFirstCall"), 0);
}

}  // namespace
}  // namespace zsim_test
