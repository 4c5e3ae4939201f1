// Running out of memory inside a C export must end in the export's failure answer, never in an
// exception crossing into the caller. This program replaces the global operator new so that a
// test can make every allocation fail for the length of one call.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <new>

#include "test_env.h"
#include "torvixe.h"

namespace {
std::atomic<bool> refuse_allocations{false};
}

// GCC takes free() of what this operator new returned for a mismatch; it is the pair's own.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
  if (refuse_allocations.load(std::memory_order_relaxed)) throw std::bad_alloc();
  if (void* p = std::malloc(size != 0 ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { ::operator delete(p); }

namespace tvx::test {
namespace {

// The enumeration allocates (the POSIX one builds its list of names; under Wine no device is
// present and the call never gets that far, so there the case only shows nothing breaks).
TEST(OutOfMemory, EnumerationExportsAnswerNothingFound) {
  TempDir dir;
  ScopedEnv env("TORVIXE_DEVICES", dir.str());
  std::ofstream(dir.path() / "zarim0").put('\n');
  DeviceId id{};
  refuse_allocations = true;
  const uint32_t count = DeviceSupportedCount();
  const char* name = GetFullDeviceName(&id);
  refuse_allocations = false;
  EXPECT_EQ(count, 0u);
  ASSERT_NE(name, nullptr);
  EXPECT_STREQ(name, "");
  if (!OnWindows()) {
    EXPECT_STREQ(GetFullDeviceName(&id), "/dev/zarim0");
  }
}

}  // namespace
}  // namespace tvx::test
