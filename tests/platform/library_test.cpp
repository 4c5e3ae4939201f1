// Dynamic-library naming and loading.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/os.h"
#include "platform_test_util.h"

namespace tvx::os {
namespace {

TEST(DynamicLibraryFileName, NamesTheFileOfThisPlatform) {
  char name[64];
  EXPECT_EQ(DynamicLibraryFileName("zarimio", name, sizeof name), name);
  EXPECT_STREQ(name, test::OnWindows() ? "zarimio.dll" : "libzarimio.so");
}

TEST(DynamicLibraryFileName, TruncatesToTheRoomAndTerminates) {
  char full[64];
  DynamicLibraryFileName("zarimio", full, sizeof full);
  for (size_t room : {size_t{1}, size_t{2}, size_t{5}, std::strlen(full), std::strlen(full) + 1}) {
    SCOPED_TRACE(room);
    char out[64];
    std::memset(out, 'X', sizeof out);
    DynamicLibraryFileName("zarimio", out, room);
    const size_t expect = std::min(room - 1, std::strlen(full));
    EXPECT_EQ(std::strlen(out), expect);
    EXPECT_EQ(std::string(out), std::string(full, expect));
    EXPECT_EQ(out[room], 'X') << "wrote past the room";
  }
  char untouched = 'X';
  EXPECT_EQ(DynamicLibraryFileName("zarimio", &untouched, 0), &untouched);
  EXPECT_EQ(untouched, 'X');
}

TEST(DynamicLibrary, AbsentLibraryGivesNull) {
  EXPECT_EQ(LoadDynamicLibrary(("tvx-absent-" + test::Nonce()).c_str()), nullptr);
}

// A system library every machine of each kind has, loaded by its plain name the same way the
// IO library is.
TEST(DynamicLibrary, LoadsBySystemNameAndResolvesSymbols) {
  struct Candidate {
    const char* base;
    const char* symbol;
  };
  const Candidate system = test::OnWindows() ? Candidate{"kernel32", "GetTickCount"}
                                             : Candidate{"resolv", "res_query"};
  void* library = LoadDynamicLibrary(system.base);
  ASSERT_NE(library, nullptr);
  EXPECT_NE(FindSymbol(library, system.symbol), nullptr);
  EXPECT_EQ(FindSymbol(library, "tvx_no_such_symbol"), nullptr);
  EXPECT_EQ(FindSymbol(nullptr, system.symbol), nullptr);
  FreeDynamicLibrary(library);
  FreeDynamicLibrary(nullptr);
}

}  // namespace
}  // namespace tvx::os
