// Registry values through the platform layer: natively over a private directory tree, under
// Wine in HKEY_LOCAL_MACHINE under a key of the tests' own. Value names carry a nonce so runs
// never see each other's values; every value written is deleted again.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/os.h"
#include "test_env.h"

namespace tvx::os {
namespace {

using Bytes = std::vector<uint8_t>;
constexpr const char* kKey = "SOFTWARE\\torvixe-tests\\platform";

class Registry : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const auto& [path, name] : written_) EXPECT_TRUE(DeleteRegistryValue(path.c_str(), name.c_str()));
  }
  std::string Write(const std::string& stem, const Bytes& bytes, const std::string& path = kKey) {
    const std::string name = stem + "-" + nonce_;
    EXPECT_TRUE(WriteRegistryValue(path.c_str(), name.c_str(), bytes.data(), uint32_t(bytes.size())));
    written_.emplace_back(path, name);
    return name;
  }
  // Reads through a freshly opened key, as the library does; "refused" when the read fails.
  static std::string Read(const std::string& name, uint32_t room, const std::string& path = kKey) {
    RegistryKey* key = OpenRegistryKey(path.c_str());
    EXPECT_NE(key, nullptr);
    if (key == nullptr) return "no key";
    Bytes out(room + 1, 0xEE);   // one guard byte past the room
    uint32_t size = room;
    const bool ok = QueryRegistryValue(key, name.c_str(), out.data(), &size);
    CloseRegistryKey(key);
    EXPECT_EQ(out[room], 0xEE) << "wrote past the room";
    return ok ? std::string(out.begin(), out.begin() + size) : "refused";
  }

  test::TempDir tree_;
  test::ScopedEnv env_{"TORVIXE_REGISTRY", tree_.str()};
  const std::string nonce_ = test::Nonce();
  std::vector<std::pair<std::string, std::string>> written_;
};

TEST_F(Registry, ReadsValuesThatFitAndRefusesLongerOnes) {
  const struct { const char* stem; Bytes bytes; uint32_t room; const char* read; } cases[] = {
      {"dword", {'x', 'V', '4', 0x12}, 4, "xV4\x12"},
      {"shorter", {'a', 'b', 'c'}, 16, "abc"},
      {"empty", {}, 4, ""},
      {"longer", {1, 2, 3, 4, 5, 6, 7, 8}, 4, "refused"},
      {"one-over", {1, 2, 3, 4, 5}, 4, "refused"},
  };
  for (const auto& c : cases) EXPECT_EQ(Read(Write(c.stem, c.bytes), c.room), c.read) << c.stem;
  EXPECT_EQ(Read(Write("shorter", {'z'}), 16), "z") << "an overwrite replaces the whole value";
  EXPECT_EQ(Read("absent-" + nonce_, 4), "refused");
  EXPECT_EQ(OpenRegistryKey(("SOFTWARE\\torvixe-tests\\absent-" + nonce_).c_str()), nullptr);
  EXPECT_EQ(OpenRegistryKey("SOFTWARE\\..\\.."), nullptr) << "names are not paths";
}

// On POSIX the tree is an interface of its own: administrators and tools create the files.
TEST_F(Registry, PosixValueIsAFileOfRawBytesUnderTheKeyPath) {
  if (test::OnWindows()) GTEST_SKIP() << "the Windows registry has no file layout";
  const auto dir = tree_.path() / "SYSTEM" / "CurrentControlSet" / "Services" / "zarim" / "Parameters";
  std::filesystem::create_directories(dir);
  std::ofstream(dir / "Boards", std::ios::binary).write("\x02\x00\x00\x00", 4);
  EXPECT_EQ(Read("Boards", 4, "SYSTEM\\CurrentControlSet\\Services\\zarim\\Parameters"),
            std::string("\x02\x00\x00\x00", 4));
  // A FIFO (here a named event's) is refused at once: waiting for a writer would hold up the
  // board's creation for good.
  test::ScopedEnv fifos("TORVIXE_RUNTIME_DIR", dir.string());
  const Event fifo = CreateNamedEvent("CHCount");
  ASSERT_NE(fifo, nullptr);
  CloseEvent(fifo);
  EXPECT_EQ(Read("CHCount", 4, "SYSTEM\\CurrentControlSet\\Services\\zarim\\Parameters"), "refused");
  const std::string name = Write("layout", {0xAB, 0xCD});
  std::ifstream file(tree_.path() / "SOFTWARE" / "torvixe-tests" / "platform" / name, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "\xAB\xCD");
}

}  // namespace
}  // namespace tvx::os
