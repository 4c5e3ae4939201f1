// Registry values through the platform layer: natively over a private directory tree, under
// Wine in HKEY_LOCAL_MACHINE under a key of the tests' own. Value names carry a nonce so runs
// never see each other's values; every value written is deleted again.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/os.h"
#include "platform_test_util.h"

namespace tvx::os {
namespace {

constexpr const char* kKey = "SOFTWARE\\torvixe-tests\\platform";

class Registry : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const auto& [path, name] : written_) EXPECT_TRUE(DeleteRegistryValue(path.c_str(), name.c_str()));
  }
  std::string Write(const std::string& stem, const std::vector<uint8_t>& bytes, const char* path = kKey) {
    const std::string name = stem + "-" + nonce_;
    EXPECT_TRUE(WriteRegistryValue(path, name.c_str(), bytes.data(), static_cast<uint32_t>(bytes.size())));
    written_.emplace_back(path, name);
    return name;
  }
  // Reads through a freshly opened key, as the library does.
  bool Read(const std::string& name, std::vector<uint8_t>* out, uint32_t room, const char* path = kKey) {
    RegistryKey* key = OpenRegistryKey(path);
    EXPECT_NE(key, nullptr);
    if (key == nullptr) return false;
    out->assign(room + 1, 0xEE);   // one guard byte past the room
    uint32_t size = room;
    const bool ok = QueryRegistryValue(key, name.c_str(), out->data(), &size);
    CloseRegistryKey(key);
    EXPECT_EQ((*out)[room], 0xEE) << "wrote past the room";
    if (ok) out->resize(size);
    return ok;
  }

  test::TempDir tree_;
  test::ScopedEnv env_{"TORVIXE_REGISTRY", tree_.str()};
  const std::string nonce_ = test::Nonce();
  std::vector<std::pair<std::string, std::string>> written_;
};

TEST_F(Registry, ReadsValuesThatFitAndRefusesLongerOnes) {
  struct Case {
    const char* stem;
    std::vector<uint8_t> bytes;
    uint32_t room;
    bool ok;
  };
  const Case cases[] = {
      {"dword", {0x78, 0x56, 0x34, 0x12}, 4, true},
      {"shorter", {1, 2, 3}, 16, true},
      {"empty", {}, 4, true},
      {"longer", {1, 2, 3, 4, 5, 6, 7, 8}, 4, false},
      {"one-over", {1, 2, 3, 4, 5}, 4, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.stem);
    const std::string name = Write(c.stem, c.bytes);
    std::vector<uint8_t> got;
    ASSERT_EQ(Read(name, &got, c.room), c.ok);
    if (c.ok) {
      EXPECT_EQ(got, c.bytes);
    }
  }
}

TEST_F(Registry, MissingKeyOrValueIsNotRead) {
  EXPECT_EQ(OpenRegistryKey(("SOFTWARE\\torvixe-tests\\absent-" + nonce_).c_str()), nullptr);
  // Registry names are not paths: ".." must not reach outside the tree.
  EXPECT_EQ(OpenRegistryKey("SOFTWARE\\..\\.."), nullptr);
  Write("present", {1});
  std::vector<uint8_t> got;
  EXPECT_FALSE(Read("absent-" + nonce_, &got, 4));
}

TEST_F(Registry, OverwriteReplacesTheWholeValue) {
  const std::string name = Write("rewritten", {1, 2, 3, 4, 5, 6, 7, 8});
  Write("rewritten", {9, 9});
  std::vector<uint8_t> got;
  ASSERT_TRUE(Read(name, &got, 8));
  EXPECT_EQ(got, (std::vector<uint8_t>{9, 9}));
}

TEST_F(Registry, WriteCreatesNestedKeysAndDeleteIsIdempotent) {
  const std::string nested = std::string(kKey) + "\\Nested\\Deeper";
  const std::string name = Write("nested", {7}, nested.c_str());
  std::vector<uint8_t> got;
  ASSERT_TRUE(Read(name, &got, 1, nested.c_str()));
  EXPECT_EQ(got, std::vector<uint8_t>{7});

  EXPECT_TRUE(DeleteRegistryValue(nested.c_str(), name.c_str()));
  EXPECT_FALSE(Read(name, &got, 1, nested.c_str()));
  EXPECT_TRUE(DeleteRegistryValue(nested.c_str(), name.c_str())) << "already absent";
  EXPECT_TRUE(DeleteRegistryValue(("SOFTWARE\\torvixe-tests\\absent-" + nonce_).c_str(), "x"));
}

// On POSIX the tree is an interface of its own: administrators and tools create the files.
TEST_F(Registry, PosixValueIsAFileOfRawBytesUnderTheKeyPath) {
  if (test::OnWindows()) GTEST_SKIP() << "the Windows registry has no file layout";
  const auto dir = tree_.path() / "SYSTEM" / "CurrentControlSet" / "Services" / "zarim" / "Parameters";
  std::filesystem::create_directories(dir);
  std::ofstream(dir / "Boards", std::ios::binary).write("\x02\x00\x00\x00", 4);
  std::vector<uint8_t> got;
  ASSERT_TRUE(Read("Boards", &got, 4, "SYSTEM\\CurrentControlSet\\Services\\zarim\\Parameters"));
  EXPECT_EQ(got, (std::vector<uint8_t>{2, 0, 0, 0}));

  const std::string name = Write("layout", {0xAB, 0xCD});
  std::ifstream file(tree_.path() / "SOFTWARE" / "torvixe-tests" / "platform" / name, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  EXPECT_EQ(bytes, "\xAB\xCD");
}

}  // namespace
}  // namespace tvx::os
