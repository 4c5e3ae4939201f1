// Helpers shared by the virtual board's tests, which reach the board only as a program does:
// through the IO library's exports and the control interface of zarimsim.h.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "hw/driver_parameters.h"
#include "hw/zarimio_abi.h"
#include "platform/os.h"
#include "test_env.h"
#include "zarimsim.h"

extern "C" {   // the exports used here, with the types the binding calls them through
tvx::zarimio::Handle ZARIM_Open(uint8_t index);
int32_t ZARIM_Close(tvx::zarimio::Handle device);
int32_t ZARIM_Read(tvx::zarimio::Handle device, tvx::zarimio::PortRequest* request);
int32_t ZARIM_Write(tvx::zarimio::Handle device, tvx::zarimio::PortRequest* request);
int32_t ZARIM_MemoryMap(tvx::zarimio::Handle device, void* memory_map_info);
int32_t ZARIM_MemoryUnmap(tvx::zarimio::Handle device, void* reserved);
int32_t ZARIM_BARMap(tvx::zarimio::Handle device, void* bar_info);
int32_t ZARIM_GetInterruptInfo(tvx::zarimio::Handle device, void* interrupt_info);
uint32_t DeviceSupportedCount();
}

namespace zsim_test {

using namespace tvx::zarimio;
using tvx::test::OnWindows;
using tvx::test::ScopedEnv;
using tvx::test::TempDir;

inline std::string Get(unsigned board, const char* key) {
  const char* text = zsim_get(board, key);
  return text ? text : "<null>";
}
inline void Set(const char* key, const std::string& value) {
  ASSERT_EQ(zsim_set(0, key, value.c_str()), 0) << key << "=" << value;
}
// Several keys' values of board 0, blank-separated.
inline std::string Keys(std::initializer_list<const char*> keys) {
  std::string seen;
  for (const char* key : keys) seen += " " + Get(0, key);
  return seen.substr(1);
}

// Every test starts from a board at its defaults, with the driver's service key absent: on
// POSIX a private tree, on Windows the real key, its values removed before and after.
class SimTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tvx::ServiceKeyPath(tvx::kDriverService, key_, sizeof key_);
    TearDown();
  }
  void TearDown() override { Parameters(nullptr, nullptr), zsim_reset(); }
  // The channel count and buffers per channel of the service key (null: absent).
  void Parameters(const uint32_t* channels, const uint32_t* buffers) {
    Put(tvx::kChannelCountValue, channels);
    Put(tvx::kBuffersPerChannelValue, buffers);
  }

 private:
  void Put(const char* name, const uint32_t* value) {
    tvx::os::DeleteRegistryValue(key_, name);
    if (value == nullptr) return;
    const uint8_t le[4] = {uint8_t(*value), uint8_t(*value >> 8), uint8_t(*value >> 16), uint8_t(*value >> 24)};
    ASSERT_TRUE(tvx::os::WriteRegistryValue(key_, name, le, sizeof le)) << name;
  }
  TempDir registry_;
  ScopedEnv env_{"TORVIXE_REGISTRY", registry_.str()};
  char key_[256];
};

// A board opened and mapped as the library's bring-up does it; closed at the end of the scope.
struct OpenBoard {
  explicit OpenBoard(uint8_t index = 0, bool map_memory = true, bool map_bar = true) {
    handle = ZARIM_Open(index);
    EXPECT_NE(handle, kInvalidHandle) << "open of board " << int(index);
    EXPECT_TRUE(!map_memory || ZARIM_MemoryMap(handle, &memory) == 0);
    EXPECT_TRUE(!map_bar || ZARIM_BARMap(handle, &bar) == 0);
  }
  ~OpenBoard() { ZARIM_Close(handle); }
  OpenBoard(const OpenBoard&) = delete;
  // The register at a byte address, through the mapped BAR.
  volatile uint32_t& Reg(uint32_t address) const {
    return *reinterpret_cast<volatile uint32_t*>(uintptr_t(bar.user_address) + address);
  }
  const BufferDescriptor* Descriptors() const {
    return reinterpret_cast<const BufferDescriptor*>(uintptr_t(memory.descriptors));
  }

  Handle handle = kInvalidHandle;
  MemoryMapInfo memory{};
  BarInfo bar{};
};

// Board 0 opened without mappings, its registers reached through the IO library's port
// calls, as the models' tests drive them.
class PortTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp(), board_ = std::make_unique<OpenBoard>(0, false, false);
    Reset();
  }
  void TearDown() override { board_.reset(), SimTest::TearDown(); }
  // A board at its defaults on a clock that moves only when Advance says, so that settle
  // times are exact.
  void Reset() {
    zsim_reset();
    ASSERT_EQ(zsim_set(0, "clock", "manual"), 0);
  }
  void Advance(uint32_t us) { zsim_set(0, "clock.advance_us", std::to_string(us).c_str()); }
  uint32_t Read(uint32_t address) {
    PortRequest request{address, 0};
    EXPECT_EQ(ZARIM_Read(board_->handle, &request), 0);
    return request.value;
  }
  void Write(uint32_t address, uint32_t value) {
    PortRequest request{address, value};
    EXPECT_EQ(ZARIM_Write(board_->handle, &request), 0);
  }
  std::unique_ptr<OpenBoard> board_;
};

// Runs one DISABLED_ test of this program in a fresh process; 0 when it passed.
inline int RunInChildProcess(const std::string& test) {
  const std::string command = "\"" + ::testing::internal::GetArgvs().at(0) +
                              "\" --gtest_also_run_disabled_tests --gtest_brief=1"
                              " --gtest_catch_exceptions=0 --gtest_filter=" + test;
  return std::system(command.c_str());
}

}  // namespace zsim_test
