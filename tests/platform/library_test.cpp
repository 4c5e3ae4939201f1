// Dynamic-library naming and loading.
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

// A system library every machine of each kind has, loaded by its plain name as the IO library is.
TEST(DynamicLibrary, LoadsBySystemNameAndResolvesSymbols) {
  EXPECT_EQ(LoadDynamicLibrary(("tvx-absent-" + test::Nonce()).c_str()), nullptr);
  const bool windows = test::OnWindows();
  const char* symbol = windows ? "GetTickCount" : "res_query";
  void* library = LoadDynamicLibrary(windows ? "kernel32" : "resolv");
  ASSERT_NE(library, nullptr);
  EXPECT_NE(FindSymbol(library, symbol), nullptr);
  EXPECT_EQ(FindSymbol(library, "tvx_no_such_symbol"), nullptr);
  EXPECT_EQ(FindSymbol(nullptr, symbol), nullptr);
  FreeDynamicLibrary(library);
  FreeDynamicLibrary(nullptr);
}

}  // namespace
}  // namespace tvx::os
