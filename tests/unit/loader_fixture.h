// Unit tests of the loaders: board 0 up in process over the register model, files in a private
// directory, a virtual clock (no wall time spent), and a check after every test that no file
// holder or loader buffer was left behind.
#pragma once

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "board_fixture.h"
#include "demod/file_data.h"
#include "hw/clock.h"
#include "test_env.h"

// Found by argument-dependent lookup from inside the standard algorithms.
[[maybe_unused]] static bool operator==(const zsim_access& a, const zsim_access& b) {
  return a.addr == b.addr && a.value == b.value && a.write == b.write;
}
[[maybe_unused]] static std::ostream& operator<<(std::ostream& out, const zsim_access& a) {
  char text[48];
  std::snprintf(text, sizeof text, "%c 0x%08X 0x%08X", a.write ? 'W' : 'R', unsigned(a.addr),
                unsigned(a.value));
  return out << text;
}

namespace tvx::test {

inline zsim_access W(uint32_t addr, uint32_t value) { return {addr, value, 1}; }
inline zsim_access R(uint32_t addr, uint32_t value) { return {addr, value, 0}; }
inline std::vector<uint8_t> Bytes(std::initializer_list<int> values) {
  return std::vector<uint8_t>(values.begin(), values.end());
}

// A private directory with files written into it.
class Files : public TempDir {
 public:
  std::string Path(const std::string& name) const { return (path() / name).string(); }
  std::string Write(const std::string& name, const std::vector<uint8_t>& bytes) const {
    std::ofstream(Path(name), std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return Path(name);
  }
  // A file of `size` bytes that occupies no disk space where the system allows it.
  std::string Sparse(const std::string& name, uint64_t size) const {
    std::filesystem::resize_file(Write(name, {}), size);
    return Path(name);
  }
};

// Every counter reading advances 1 ms, so a 1 s poll ends after about a thousand readings.
class LoaderClock : public ClockSource {
 public:
  int64_t Counter() override { return now += 1000; }
  int64_t Frequency() override { return 1000000; }
  void SleepMs(uint32_t ms) override {
    now += int64_t(ms) * 1000;
    sleeps.push_back(ms);
    if (throw_std) throw std::runtime_error("clock stopped");
    if (throw_other) throw 7;
  }
  int64_t now = 0;
  std::vector<uint32_t> sleeps;
  bool throw_std = false, throw_other = false;
};

class LoaderTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    previous_clock_ = InstallClock(&clock);
    ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
    model.ClearTrace();
    clock.now = 0;
    clock.sleeps.clear();
  }
  void TearDown() override {
    file_data::InstallAllocationHook(nullptr);
    EXPECT_EQ(file_data::OpenHolders(), 0) << "a file was left open";
    EXPECT_EQ(file_data::LiveBuffers(), 0) << "a loader buffer was left behind";
    InstallClock(previous_clock_);
    BoardTest::TearDown();
  }
  std::vector<zsim_access> Trace() const { return model.Trace(); }
  std::string Key(const char* key) const {
    std::string value;
    return model.Get(key, &value) ? value : "(unknown key)";
  }

  DeviceId id{0};
  LoaderClock clock;
  Files files;

 private:
  ClockSource* previous_clock_ = nullptr;
};

inline bool RefuseAllocation(uint64_t) { return false; }

}  // namespace tvx::test
