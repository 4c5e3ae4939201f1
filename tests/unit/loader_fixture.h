// Unit tests of the loaders (file holder, FPGA, RAM, simulator): board 0 brought up in process
// over the register model, files written into a private directory, a virtual clock so that
// the fixed sleeps and the 1 s reset wait cost no wall time, and a check after every test that
// no file holder or loader buffer was left behind.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "board_fixture.h"
#include "demod/file_data.h"
#include "hw/clock.h"

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

// A directory of its own, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::temp_directory_path() /
            (std::string("tvx_") + (info ? info->name() : "files"));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  // Writes `bytes` to a file of the directory; returns its path.
  std::string Write(const std::string& name, const std::vector<uint8_t>& bytes) const {
    const std::string file = Path(name);
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return file;
  }
  std::string WriteText(const std::string& name, const std::string& text) const {
    return Write(name, std::vector<uint8_t>(text.begin(), text.end()));
  }
  // A file of `size` bytes that occupies no disk space where the system allows it.
  std::string Sparse(const std::string& name, uint64_t size) const {
    const std::string file = Write(name, {});
    std::filesystem::resize_file(file, size);
    return file;
  }
  std::string Path(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// The counter runs at 1 MHz; every reading advances it by 1 ms, so a 1 s poll ends after
// about a thousand readings. Sleeps advance it by their length and are recorded.
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
  bool throw_std = false;
  bool throw_other = false;
};

inline std::vector<uint8_t> Bytes(std::initializer_list<int> values) {
  return std::vector<uint8_t>(values.begin(), values.end());
}

class LoaderTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    previous_clock_ = InstallClock(&clock);
    ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
    model.ClearTrace();
    // What bring-up waited is not the test's business.
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
  std::vector<zsim_access> Writes() const {
    std::vector<zsim_access> writes;
    for (const zsim_access& a : model.Trace())
      if (a.write) writes.push_back(a);
    return writes;
  }
  std::string Key(const char* key) const {
    std::string value;
    return model.Get(key, &value) ? value : "(unknown key)";
  }

  DeviceId id{0};
  LoaderClock clock;
  TempDir files;

 private:
  ClockSource* previous_clock_ = nullptr;
};

// Refuses every loader buffer.
inline bool RefuseAllocation(uint64_t) { return false; }

}  // namespace tvx::test
