// DMA memory: its geometry follows the driver's service key, as the library reads it, and
// the buffer size key; descriptors, buffers and progress records are what the DMA master and
// the data channels rely on.
#include <algorithm>
#include <cstring>
#include <set>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

struct Geometry {
  const char* name;
  bool has_channels, has_buffers;
  uint32_t channels_value, buffers_value;
  uint32_t buffer_size;
  uint32_t want_channels, want_buffers;   // what the board must use
};

// Values outside what the library accepts fall back to its defaults, as the library does.
const Geometry kGeometries[] = {
    {"NoServiceKey", false, false, 0, 0, 65536, 17, 4},
    {"Small", true, true, 2, 3, 128, 2, 3},
    {"OneChannel", true, true, 1, 1, 4096, 1, 1},
    {"WidestRing", true, true, 5, 32, 256, 5, 32},
    {"BuffersOutOfRange", true, true, 3, 33, 128, 3, 4},
    {"NoBuffersPerChannel", true, true, 3, 0, 128, 3, 4},
    {"ChannelsOutOfRange", true, true, 256, 2, 128, 17, 2},
    {"OnlyBuffers", false, true, 0, 8, 1024, 17, 8},
    {"NoChannels", true, true, 0, 4, 128, 0, 4},
};

class GeometryTest : public SimTest, public testing::WithParamInterface<Geometry> {};

TEST_P(GeometryTest, DescriptorsBuffersAndRecordsFollowTheServiceKey) {
  const Geometry& g = GetParam();
  ScopedDriverParameters registry(g.has_channels ? &g.channels_value : nullptr,
                                  g.has_buffers ? &g.buffers_value : nullptr);
  ASSERT_EQ(zsim_set(0, "dma.buffer_size", std::to_string(g.buffer_size).c_str()), 0);
  OpenBoard board(0, true, false);
  EXPECT_EQ(Get(0, "dma.channels"), std::to_string(g.want_channels));
  EXPECT_EQ(Get(0, "dma.buffers_per_channel"), std::to_string(g.want_buffers));

  const uint32_t count = g.want_channels * g.want_buffers;
  ASSERT_EQ(board.memory.descriptor_count, count);
  for (uint8_t b : board.memory.reserved) EXPECT_EQ(b, 0);
  const auto* d = reinterpret_cast<const BufferDescriptor*>(uintptr_t(board.memory.descriptors));
  ASSERT_NE(d, nullptr);

  std::set<uint32_t> bus;
  std::vector<std::pair<uintptr_t, uintptr_t>> spans;
  for (uint32_t i = 0; i < count; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(d[i].size, g.buffer_size);
    EXPECT_EQ(d[i].size % 128, 0u);
    EXPECT_EQ(d[i].bus_address % 128, 0u);
    EXPECT_NE(d[i].bus_address, 0u);
    bus.insert(d[i].bus_address);
    spans.emplace_back(uintptr_t(d[i].user_address), uintptr_t(d[i].user_address) + d[i].size);
    // Every byte of each buffer is ours to read and write.
    auto* p = reinterpret_cast<uint8_t*>(uintptr_t(d[i].user_address));
    p[0] = uint8_t(i);
    p[d[i].size - 1] = uint8_t(i);
  }
  EXPECT_EQ(bus.size(), count) << "bus addresses are not distinct";
  std::sort(spans.begin(), spans.end());
  for (size_t i = 1; i < spans.size(); ++i) EXPECT_LE(spans[i - 1].second, spans[i].first);

  InterruptInfo info;
  std::memset(&info, 0xA5, sizeof info);
  ASSERT_EQ(ZARIM_GetInterruptInfo(board.handle, &info), 0);
  EXPECT_EQ(info.reserved0, 0u);
  for (uint8_t b : info.reserved) EXPECT_EQ(b, 0);
  const auto* progress = reinterpret_cast<const ChannelProgress*>(uintptr_t(info.channels));
  ASSERT_NE(progress, nullptr);
  for (uint32_t c = 0; c < g.want_channels; ++c) {
    EXPECT_EQ(progress[c].completed, 0u) << c;
    EXPECT_EQ(progress[c].reserved0, 0u) << c;
  }
  // The records lie outside every buffer and every descriptor.
  const uintptr_t first = uintptr_t(progress), last = first + g.want_channels * 24;
  for (auto& span : spans) EXPECT_TRUE(last <= span.first || first >= span.second);
  EXPECT_TRUE(first >= uintptr_t(d + count) || last <= uintptr_t(d));
}

INSTANTIATE_TEST_SUITE_P(Registry, GeometryTest, testing::ValuesIn(kGeometries),
                         [](const testing::TestParamInfo<Geometry>& info) {
                           return std::string(info.param.name);
                         });

TEST_F(SimTest, BufferSizeMustBeAPositiveMultipleOf128) {
  for (const char* bad : {"0", "64", "100", "65600", "0x1000001", "", "4k", "-128"})
    EXPECT_NE(zsim_set(0, "dma.buffer_size", bad), 0) << bad;
  EXPECT_EQ(Get(0, "dma.buffer_size"), "65536");
  for (const char* good : {"128", "0x80", "4096", "16777216"}) {
    EXPECT_EQ(zsim_set(0, "dma.buffer_size", good), 0) << good;
    EXPECT_EQ(std::stoul(Get(0, "dma.buffer_size")), std::stoul(good, nullptr, 0));
  }
}

TEST_F(SimTest, BusAddressesDifferBetweenBoards) {
  const uint32_t channels = 2, buffers = 2;
  ScopedDriverParameters registry(&channels, &buffers);
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  OpenBoard a(0, true, false), b(1, true, false);
  const auto* da = reinterpret_cast<const BufferDescriptor*>(uintptr_t(a.memory.descriptors));
  const auto* db = reinterpret_cast<const BufferDescriptor*>(uintptr_t(b.memory.descriptors));
  std::set<uint32_t> bus;
  for (uint32_t i = 0; i < 4; ++i) bus.insert({da[i].bus_address, db[i].bus_address});
  EXPECT_EQ(bus.size(), 8u);
}

TEST_F(SimTest, MemoryStateRules) {
  OpenBoard board(0, false, false);
  InterruptInfo info{};
  EXPECT_NE(ZARIM_GetInterruptInfo(board.handle, &info), 0) << "before MemoryMap";
  EXPECT_EQ(tvx::os::LastError(), 21u);
  EXPECT_NE(ZARIM_MemoryUnmap(board.handle, nullptr), 0) << "nothing mapped";
  EXPECT_EQ(tvx::os::LastError(), 21u);
  EXPECT_NE(ZARIM_MemoryMap(board.handle, nullptr), 0);
  EXPECT_EQ(tvx::os::LastError(), 87u);
  ASSERT_EQ(ZARIM_MemoryMap(board.handle, &board.memory), 0);
  EXPECT_NE(ZARIM_MemoryMap(board.handle, &board.memory), 0) << "mapped twice";
  EXPECT_EQ(tvx::os::LastError(), 170u);
  EXPECT_NE(ZARIM_GetInterruptInfo(board.handle, nullptr), 0);
  EXPECT_EQ(ZARIM_GetInterruptInfo(board.handle, &info), 0);
  EXPECT_NE(info.channels, 0u);
  EXPECT_EQ(ZARIM_MemoryUnmap(board.handle, nullptr), 0);
  EXPECT_EQ(Get(0, "memory_mapped"), "0");
  EXPECT_NE(ZARIM_GetInterruptInfo(board.handle, &info), 0) << "after MemoryUnmap";
  // A new buffer size applies to the next map.
  ASSERT_EQ(zsim_set(0, "dma.buffer_size", "256"), 0);
  ASSERT_EQ(ZARIM_MemoryMap(board.handle, &board.memory), 0);
  EXPECT_EQ(reinterpret_cast<const BufferDescriptor*>(uintptr_t(board.memory.descriptors))->size,
            256u);
}

// The geometry is read when the board is opened, as the driver reads its key when it starts:
// a key changed later does not reshape a board that is already open.
TEST_F(SimTest, GeometryIsFixedAtOpen) {
  const uint32_t two = 2, three = 3;
  auto registry = std::make_unique<ScopedDriverParameters>(&two, &two);
  OpenBoard board(0, false, false);
  registry.reset();
  registry = std::make_unique<ScopedDriverParameters>(&three, &three);
  ASSERT_EQ(ZARIM_MemoryMap(board.handle, &board.memory), 0);
  EXPECT_EQ(board.memory.descriptor_count, 4u);
  EXPECT_EQ(Get(0, "dma.channels"), "2");
}

}  // namespace
}  // namespace zsim_test
