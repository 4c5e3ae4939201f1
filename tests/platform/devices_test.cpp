// Device enumeration: natively over a private $TORVIXE_DEVICES directory; under Wine no board
// is present, and every index must say so without leaving text behind.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/os.h"
#include "platform_test_util.h"

namespace tvx::os {
namespace {

// The driver's interface class; POSIX ignores it, Windows finds no such device under Wine.
constexpr Guid kClass{0x6a3b91d0, 0x2f4c, 0x4e1a, {0x9b, 0x0e, 0x51, 0x7c, 0x2d, 0x88, 0x40, 0xf3}};

class Devices : public ::testing::Test {
 protected:
  void AddEntries(std::initializer_list<const char*> names) {
    for (const char* name : names) std::ofstream(dir_.path() / name).put('\n');
  }
  // Fills the buffer with garbage first so that an untouched buffer cannot pass for empty.
  bool Path(uint32_t index, std::string* out, size_t size = 64) {
    char buffer[64];
    std::memset(buffer, 'X', sizeof buffer);
    const bool ok = DeviceInterfacePath(kClass, index, buffer, size);
    *out = std::string(buffer, strnlen(buffer, sizeof buffer));
    return ok;
  }

  test::TempDir dir_;
  test::ScopedEnv env_{"TORVIXE_DEVICES", dir_.str()};
};

TEST_F(Devices, WindowsUnderWineHasNoBoards) {
  if (!test::OnWindows()) GTEST_SKIP();
  EXPECT_EQ(CountDeviceInterfaces(kClass), 0u);
  for (uint32_t index : {0u, 1u, 7u}) {
    std::string path;
    EXPECT_FALSE(Path(index, &path));
    EXPECT_EQ(path, "");
  }
}

TEST_F(Devices, PosixListsEntriesSortedUnderDev) {
  if (test::OnWindows()) GTEST_SKIP();
  AddEntries({"zarim1", "zarim10", "zarim0"});
  ASSERT_EQ(CountDeviceInterfaces(kClass), 3u);
  const char* expected[] = {"/dev/zarim0", "/dev/zarim1", "/dev/zarim10"};
  for (uint32_t i = 0; i < 3; ++i) {
    std::string path;
    EXPECT_TRUE(Path(i, &path));
    EXPECT_EQ(path, expected[i]);
  }
  std::string path;
  EXPECT_FALSE(Path(3, &path)) << "index past the end";
  EXPECT_EQ(path, "");
}

TEST_F(Devices, PosixRefusesAPathThatDoesNotFit) {
  if (test::OnWindows()) GTEST_SKIP();
  AddEntries({"zarim0"});   // "/dev/zarim0" is 11 characters
  std::string path;
  EXPECT_FALSE(Path(0, &path, 11));
  EXPECT_EQ(path, "");
  EXPECT_TRUE(Path(0, &path, 12));
  EXPECT_EQ(path, "/dev/zarim0");
}

}  // namespace
}  // namespace tvx::os
