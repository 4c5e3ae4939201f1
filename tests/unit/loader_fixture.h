// Unit tests of the loaders: board 0 up in process over the register model, files in a private
// directory, a clock that advances 1 ms a reading (a 1 s poll ends after about a thousand),
// and a check after every test that no file holder or loader buffer was left behind.
#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "board_fixture.h"
#include "demod/file_data.h"
#include "test_env.h"

namespace tvx::test {

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

class LoaderTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    clock.step = 1000;
    ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
    model.ClearTrace();
    clock.sleeps.clear();
  }
  void TearDown() override {
    file_data::InstallAllocationHook(nullptr);
    EXPECT_EQ(file_data::OpenHolders(), 0) << "a file was left open";
    EXPECT_EQ(file_data::LiveBuffers(), 0) << "a loader buffer was left behind";
    BoardTest::TearDown();
  }
  std::vector<zsim_access> Trace() const { return model.Trace(); }
  // Board 0 again, with another convertor fitted.
  void Reopen(const char* convertor_type) {
    ReleaseDeviceInstance(&id);
    Set("lconv.type", convertor_type);
    ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
    model.ClearTrace();
  }
  // What reads of the register at `address` return from now on.
  void Force(uint32_t address, uint32_t value) {
    char key[16];
    std::snprintf(key, sizeof key, "reg.0x%04X", unsigned(address));
    Set(key, std::to_string(value));
  }

  DeviceId id{0};
  Files files;
};

inline bool RefuseAllocation(uint64_t) { return false; }

}  // namespace tvx::test
