// The file holder: what opens, a size that cannot be known, and number scanning with a
// capacity. (Sizes past 2 GiB, short reads, the loaders' buffer and its counters are the
// loaders' tests': their fixture checks the counters after every case.)
#include <cstring>

#include "demod/file_data.h"
#include "loader_fixture.h"

namespace tvx::test {
namespace {

using Binary = cFileData<unsigned char>;
using Numbers = cFileData<double>;

// Only a regular file opens, and nothing a name reaches can make the open wait: a FIFO (on
// POSIX the named event below is one; on Windows the name reaches nothing) would otherwise
// wait for a writer forever. A holder only reads.
TEST(FileData, OpensOnlyRegularFilesAndNeverWaits) {
  Files files;
  ScopedEnv runtime("TORVIXE_RUNTIME_DIR", files.str());
  const os::Event event = os::CreateNamedEvent("fifo");
  ASSERT_NE(event, nullptr);
  os::CloseEvent(event);   // the FIFO stays, with no writer
  const std::string file = files.Write("a.bin", Bytes({1}));
  const std::string missing = files.Path("missing.bin");
  const std::string directory = files.str();
  const std::string fifo = files.Path("fifo");
  const char* device = OnWindows() ? "NUL" : "/dev/null";
  const struct {
    const char *name, *mode;
    int32_t open;
  } cases[] = {{file.c_str(), "rb", 1},    {missing.c_str(), "rb", 0},   {nullptr, "rb", 0},
               {file.c_str(), nullptr, 0}, {directory.c_str(), "rb", 0}, {"", "rb", 0},
               {fifo.c_str(), "rb", 0},    {device, "rb", 0},            {file.c_str(), "r+b", 0},
               {file.c_str(), "wb", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name ? c.name : "(null)");
    Binary holder(c.name, c.mode);
    EXPECT_EQ(holder.is_open(), c.open);
    EXPECT_EQ(file_data::OpenHolders(), c.open);
    uint64_t count = 1;
    unsigned char byte = 0;
    EXPECT_EQ(holder.Read(&byte, &count), uint64_t(c.open));
  }
  EXPECT_EQ(file_data::OpenHolders(), 0);
  EXPECT_EQ(std::filesystem::file_size(file), 1u) << "a write mode must not have truncated it";
}

// A file that reports no length but has content (as the kernel's generated files do) has no
// size to go by; an empty file has size 0.
TEST(FileData, ContentBehindAZeroLengthIsAnUnknownSize) {
  Files files;
  Binary empty(files.Write("empty.bin", {}).c_str(), "rb");
  EXPECT_EQ(empty.Size(), 0u);
  if (OnWindows()) return;
  Binary generated("/proc/self/status", "rb");
  ASSERT_TRUE(generated.is_open());
  EXPECT_EQ(generated.Size(), kUnknownSize);
}

TEST(FileData, ReadValuesStopsAtTheFirstNonNumberAndAtTheCapacity) {
  Files files;
  const struct {
    const char* text;
    uint32_t capacity;
    std::vector<double> values;
    bool more;
  } cases[] = {
      {"1.5 2.5\n-3e2", 8, {1.5, 2.5, -300}, false},   // no line end after the last
      {"1 2 x 3", 8, {1, 2}, false},
      {"", 8, {}, false},
      {"1 2 3 4 5", 2, {1, 2}, true},   // the fuzz target checks the capacity further
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const std::string file =
        files.Write("values.txt", std::vector<uint8_t>(c.text, c.text + std::strlen(c.text)));
    Numbers holder(file.c_str(), "rt");
    ASSERT_TRUE(holder.is_open());
    std::vector<double> buffer(c.capacity + 1, -1.0);
    const uint32_t count = holder.ReadValues(buffer.data(), "%le", c.capacity);
    EXPECT_EQ(std::vector<double>(buffer.begin(), buffer.begin() + count), c.values);
    EXPECT_EQ(buffer[c.capacity], -1.0) << "stored past the capacity";
    EXPECT_EQ(holder.more_values(), c.more);
    EXPECT_EQ(holder.ReadValues(buffer.data(), "%le", c.capacity), count) << "starts over";
  }
}

}  // namespace
}  // namespace tvx::test
