// The file holder and the loaders' buffer: opening, sizes past 4 GiB, short reads, number
// scanning with a capacity, and the counters the loader tests rely on to find leaks.
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

// Each read starts at the beginning and reads no more than the file holds. Sizes beyond
// 2 GiB (a 32-bit `long` on Windows) come out whole.
TEST(FileData, SizeAndReadFromTheStart) {
  Files files;
  Binary holder(files.Write("five.bin", Bytes({1, 2, 3, 4, 5})).c_str(), "rb");
  ASSERT_TRUE(holder.is_open());
  unsigned char buffer[8] = {};
  const uint64_t three = 3, ten = 10;
  EXPECT_EQ(holder.Read(buffer, &three), 3u);
  EXPECT_EQ(holder.Size(), 5u);
  EXPECT_EQ(holder.Read(buffer, &ten), 5u);
  EXPECT_EQ(std::vector<uint8_t>(buffer, buffer + 6), Bytes({1, 2, 3, 4, 5, 0}));
  EXPECT_EQ(holder.Read(buffer, nullptr), 0u);
  EXPECT_EQ(holder.Read(nullptr, &three), 0u);
  holder.Close();
  holder.Close();
  EXPECT_EQ(holder.Size(), 0u);
  EXPECT_EQ(file_data::OpenHolders(), 0);

  const uint64_t size = (uint64_t{5} << 30) + 3;
  Binary huge(files.Sparse("huge.bin", size).c_str(), "rb");
  EXPECT_EQ(huge.Size(), size);
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

std::vector<uint64_t> requests;
bool Record(uint64_t bytes) {
  requests.push_back(bytes);
  return bytes < 100;
}

TEST(LoadBuffer, ZeroedCountedAndBounded) {
  {
    LoadBuffer<uint32_t> first;
    ASSERT_TRUE(first.Allocate(64));
    std::memset(first.data(), 0xAB, 64 * sizeof(uint32_t));
    EXPECT_EQ(file_data::LiveBuffers(), 1);
  }
  EXPECT_EQ(file_data::LiveBuffers(), 0);
  LoadBuffer<uint32_t> again;
  ASSERT_TRUE(again.Allocate(64));
  for (int i = 0; i < 64; ++i) ASSERT_EQ(again.data()[i], 0u) << i;
  ASSERT_TRUE(again.Allocate(0)) << "an empty file needs no memory";
  EXPECT_EQ(again.data(), nullptr);
  EXPECT_EQ(file_data::LiveBuffers(), 0);
  EXPECT_FALSE(again.Allocate(kMaxLoadBytes / 4 + 1));
  EXPECT_FALSE(again.Allocate(~uint64_t{0}));

  requests.clear();
  file_data::InstallAllocationHook(Record);
  LoadBuffer<uint16_t> small;
  EXPECT_TRUE(small.Allocate(49));
  EXPECT_FALSE(small.Allocate(50));
  EXPECT_EQ(small.data(), nullptr) << "a failed allocation leaves nothing behind";
  EXPECT_EQ(requests, (std::vector<uint64_t>{98, 100}));
  file_data::InstallAllocationHook(nullptr);
  EXPECT_EQ(file_data::LiveBuffers(), 0);
}

}  // namespace
}  // namespace tvx::test
