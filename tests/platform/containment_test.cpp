// What the platform layer must refuse so that no name or value from outside makes the library
// write past a buffer, hang, or reach outside its own directories. Everything else the layer
// does, the library's own tests exercise through the exports.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/os.h"
#include "test_env.h"

namespace tvx::os {
namespace {

constexpr const char* kKey = "SOFTWARE\\torvixe-tests\\platform";

// A value longer than the room is refused without a byte written past it; a key name is no
// path. Natively a FIFO where a value should be (here a named event's) is refused at once:
// waiting for a writer would hold up a board's creation for good.
TEST(Containment, RegistryValuesStayInTheirRoomAndNeverWait) {
  test::TempDir tree;
  test::ScopedEnv env("TORVIXE_REGISTRY", tree.str());
  const std::string name = "long-" + test::Nonce();
  const uint8_t bytes[5] = {1, 2, 3, 4, 5};
  ASSERT_TRUE(WriteRegistryValue(kKey, name.c_str(), bytes, sizeof bytes));
  RegistryKey* key = OpenRegistryKey(kKey);
  ASSERT_NE(key, nullptr);
  std::vector<uint8_t> out(5, 0xEE);
  uint32_t size = 4;
  EXPECT_FALSE(QueryRegistryValue(key, name.c_str(), out.data(), &size));
  EXPECT_EQ(out[4], 0xEE) << "wrote past the room";
  if (!test::OnWindows()) {
    const auto key_dir = tree.path() / "SOFTWARE" / "torvixe-tests" / "platform";
    test::ScopedEnv fifos("TORVIXE_RUNTIME_DIR", key_dir.string());
    const Event fifo = CreateNamedEvent("fifo");
    ASSERT_NE(fifo, nullptr);
    size = 4;
    EXPECT_FALSE(QueryRegistryValue(key, "fifo", out.data(), &size));
    CloseEvent(fifo);
  }
  CloseRegistryKey(key);
  EXPECT_TRUE(DeleteRegistryValue(kKey, name.c_str()));
  EXPECT_EQ(OpenRegistryKey("SOFTWARE\\..\\.."), nullptr) << "names are not paths";
}

// Natively the events' FIFOs sit directly in the private runtime directory, whatever the name
// says: a "Global\" prefix is dropped, and no separator leads out of the directory.
TEST(Containment, EventFifosStayInsideTheRuntimeDirectory) {
  if (test::OnWindows()) GTEST_SKIP() << "kernel objects have no files";
  namespace fs = std::filesystem;
  test::TempDir runtime;
  test::ScopedEnv env("TORVIXE_RUNTIME_DIR", runtime.str());
  const std::string stem = "tvx-test-" + test::Nonce();
  std::vector<Event> events;
  for (const std::string& name : {"Global\\" + stem + "-g", "../" + stem + "-up", stem + "-sub\\y"})
    ASSERT_NE(events.emplace_back(CreateNamedEvent(name.c_str())), nullptr) << name;
  EXPECT_TRUE(fs::is_fifo(runtime.path() / (stem + "-g")));
  EXPECT_TRUE(fs::is_fifo(runtime.path() / (stem + "-sub_y")));
  EXPECT_FALSE(fs::exists(runtime.path().parent_path() / (stem + "-up")));
  int inside = 0;
  for (const auto& entry : fs::directory_iterator(runtime.path())) inside += entry.is_fifo();
  EXPECT_EQ(inside, 3);
  for (Event e : events) CloseEvent(e);
}

}  // namespace
}  // namespace tvx::os
