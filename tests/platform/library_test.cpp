// Dynamic-library naming. (Loading by name and resolving, or failing to, are the binding
// tests': every program on the virtual board loads the IO library so.)
#include <gtest/gtest.h>

#include <string>

#include "platform/os.h"
#include "test_env.h"

namespace tvx::os {
namespace {

// Cut to the room and terminated.
TEST(DynamicLibraryFileName, NamesTheFileOfThisPlatformTruncatedToTheRoom) {
  char out[64];
  EXPECT_EQ(DynamicLibraryFileName("zarimio", out, sizeof out), out);
  EXPECT_STREQ(out, test::OnWindows() ? "zarimio.dll" : "libzarimio.so");
  DynamicLibraryFileName("zarimio", out, 5);
  EXPECT_STREQ(out, test::OnWindows() ? "zari" : "libz");
}

}  // namespace
}  // namespace tvx::os
