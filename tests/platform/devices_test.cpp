// Device enumeration: natively over a private $TORVIXE_DEVICES directory; under Wine no board
// is present, and every index must say so without leaving text behind.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

#include "platform/os.h"
#include "test_env.h"

namespace tvx::os {
namespace {

// The driver's interface class; POSIX ignores it, Windows finds no such device under Wine.
constexpr Guid kClass{0x6a3b91d0, 0x2f4c, 0x4e1a, {0x9b, 0x0e, 0x51, 0x7c, 0x2d, 0x88, 0x40, 0xf3}};

// The path of a device, "" when refused; the buffer starts as garbage so that an untouched one
// cannot pass for empty.
std::string Path(uint32_t index, size_t size = 64) {
  char buffer[64];
  std::memset(buffer, 'X', sizeof buffer);
  const bool ok = DeviceInterfacePath(kClass, index, buffer, size);
  const std::string path(buffer, strnlen(buffer, sizeof buffer));
  EXPECT_TRUE(ok || path.empty()) << "refused, but left \"" << path << '"';
  return ok ? path : "";
}

TEST(Devices, ListedInNameOrderAndRefusedWhenThePathDoesNotFit) {
  test::TempDir dir;
  test::ScopedEnv env("TORVIXE_DEVICES", dir.str());
  if (test::OnWindows()) {
    EXPECT_EQ(CountDeviceInterfaces(kClass), 0u);
    for (uint32_t index : {0u, 7u}) EXPECT_EQ(Path(index), "");
    return;
  }
  for (const char* name : {"zarim1", "zarim10", "zarim0"}) std::ofstream(dir.path() / name).put('\n');
  ASSERT_EQ(CountDeviceInterfaces(kClass), 3u);
  EXPECT_EQ(Path(0), "/dev/zarim0");
  EXPECT_EQ(Path(1), "/dev/zarim1");
  EXPECT_EQ(Path(2), "/dev/zarim10");
  EXPECT_EQ(Path(3), "") << "index past the end";
  EXPECT_EQ(Path(0, 11), "") << "no room for the terminator";
  EXPECT_EQ(Path(0, 12), "/dev/zarim0");
}

}  // namespace
}  // namespace tvx::os
