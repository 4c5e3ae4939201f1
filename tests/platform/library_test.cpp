// Dynamic-library naming and loading.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/os.h"
#include "test_env.h"

namespace tvx::os {
namespace {

// Cut to the room and terminated; nothing written at a room of 0 nor past the room.
TEST(DynamicLibraryFileName, NamesTheFileOfThisPlatformTruncatedToTheRoom) {
  char full[64];
  EXPECT_EQ(DynamicLibraryFileName("zarimio", full, sizeof full), full);
  EXPECT_STREQ(full, test::OnWindows() ? "zarimio.dll" : "libzarimio.so");
  for (size_t room : {size_t{0}, size_t{1}, size_t{5}, std::strlen(full), std::strlen(full) + 1}) {
    char out[64];
    std::memset(out, 'X', sizeof out);
    DynamicLibraryFileName("zarimio", out, room);
    const size_t expect = room == 0 ? 0 : std::min(room - 1, std::strlen(full));
    EXPECT_EQ(std::string(out, expect), std::string(full, expect)) << room;
    EXPECT_EQ(out[expect], room == 0 ? 'X' : '\0') << room;
    EXPECT_EQ(out[std::max<size_t>(room, 1)], 'X') << room;
  }
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
