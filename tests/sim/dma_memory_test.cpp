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
  int64_t channels, buffers;   // -1: value absent
  uint32_t buffer_size;
  uint32_t want_channels, want_buffers;
};

// Values outside what the library accepts fall back to its defaults, as the library does.
const Geometry kGeometries[] = {
    {"NoServiceKey", -1, -1, 65536, 17, 4},     {"Small", 2, 3, 128, 2, 3},
    {"WidestRing", 5, 32, 256, 5, 32},          {"BuffersOutOfRange", 3, 33, 128, 3, 4},
    {"NoBuffersPerChannel", 3, 0, 128, 3, 4},   {"ChannelsOutOfRange", 256, 2, 128, 17, 2},
    {"OnlyBuffers", -1, 8, 1024, 17, 8},        {"NoChannels", 0, 4, 128, 0, 4},
};

class GeometryTest : public SimTest, public testing::WithParamInterface<Geometry> {};

TEST_P(GeometryTest, DescriptorsBuffersAndRecordsFollowTheServiceKey) {
  const Geometry& g = GetParam();
  const uint32_t channels = uint32_t(g.channels), buffers = uint32_t(g.buffers);
  ScopedDriverParameters registry(g.channels < 0 ? nullptr : &channels,
                                  g.buffers < 0 ? nullptr : &buffers);
  ASSERT_EQ(zsim_set(0, "dma.buffer_size", std::to_string(g.buffer_size).c_str()), 0);
  OpenBoard board(0, true, false);
  EXPECT_EQ(Get(0, "dma.channels"), std::to_string(g.want_channels));
  EXPECT_EQ(Get(0, "dma.buffers_per_channel"), std::to_string(g.want_buffers));

  const uint32_t count = g.want_channels * g.want_buffers;
  ASSERT_EQ(board.memory.descriptor_count, count);
  const BufferDescriptor* d = board.Descriptors();
  ASSERT_NE(d, nullptr);
  std::set<uint32_t> bus;
  std::vector<std::pair<uintptr_t, uintptr_t>> spans;   // buffers and descriptors
  spans.emplace_back(uintptr_t(d), uintptr_t(d + count));
  for (uint32_t i = 0; i < count; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(d[i].size, g.buffer_size);
    EXPECT_EQ(d[i].bus_address % 128, 0u);
    EXPECT_NE(d[i].bus_address, 0u);
    bus.insert(d[i].bus_address);
    spans.emplace_back(uintptr_t(d[i].user_address), uintptr_t(d[i].user_address) + d[i].size);
    auto* p = reinterpret_cast<uint8_t*>(uintptr_t(d[i].user_address));
    p[0] = p[d[i].size - 1] = uint8_t(i);   // every byte of each buffer is ours
  }
  EXPECT_EQ(bus.size(), count) << "bus addresses are not distinct";

  InterruptInfo info;
  std::memset(&info, 0xA5, sizeof info);
  ASSERT_EQ(ZARIM_GetInterruptInfo(board.handle, &info), 0);
  EXPECT_EQ(info.reserved0, 0u);
  const auto* progress = reinterpret_cast<const tvx::zarimio::ChannelProgress*>(uintptr_t(info.channels));
  ASSERT_NE(progress, nullptr);
  for (uint32_t c = 0; c < g.want_channels; ++c) EXPECT_EQ(progress[c].completed, 0u) << c;
  spans.emplace_back(uintptr_t(progress), uintptr_t(progress + g.want_channels));
  std::sort(spans.begin(), spans.end());
  for (size_t i = 1; i < spans.size(); ++i)
    EXPECT_LE(spans[i - 1].second, spans[i].first) << "buffers, descriptors or records overlap";
}

INSTANTIATE_TEST_SUITE_P(Registry, GeometryTest, testing::ValuesIn(kGeometries),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SimTest, BusAddressesDifferBetweenBoards) {
  const uint32_t two = 2;
  ScopedDriverParameters registry(&two, &two);
  ASSERT_EQ(zsim_set(0, "boards", "2"), 0);
  OpenBoard a(0, true, false), b(1, true, false);
  std::set<uint32_t> bus;
  for (uint32_t i = 0; i < 4; ++i) bus.insert({a.Descriptors()[i].bus_address, b.Descriptors()[i].bus_address});
  EXPECT_EQ(bus.size(), 8u);
}

// Map, unmap and GetInterruptInfo in the wrong state or without a record, with their codes.
TEST_F(SimTest, MappingStateRules) {
  OpenBoard board(0, false, false);
  InterruptInfo info{};
  auto refused = [](int32_t result, uint32_t code, const char* what) {
    EXPECT_NE(result, 0) << what;
    EXPECT_EQ(tvx::os::LastError(), code) << what;
  };
  refused(ZARIM_GetInterruptInfo(board.handle, &info), kNotReady, "info before MemoryMap");
  refused(ZARIM_MemoryUnmap(board.handle, nullptr), kNotReady, "memory unmap, nothing mapped");
  refused(ZARIM_MemoryMap(board.handle, nullptr), kBadParameter, "memory map without record");
  ASSERT_EQ(ZARIM_MemoryMap(board.handle, &board.memory), 0);
  refused(ZARIM_MemoryMap(board.handle, &board.memory), kBusy, "memory mapped twice");
  refused(ZARIM_GetInterruptInfo(board.handle, nullptr), kBadParameter, "info without record");
  ASSERT_EQ(ZARIM_BARMap(board.handle, &board.bar), 0);
  BarInfo other = board.bar;
  other.user_address += 0x1000;
  refused(ZARIM_BARUnmap(board.handle, &other), kBadParameter, "BAR unmap of another address");
  refused(ZARIM_BARUnmap(board.handle, nullptr), kBadParameter, "BAR unmap without record");
  refused(ZARIM_BARMap(board.handle, &other), kBusy, "BAR mapped twice");
  EXPECT_EQ(ZARIM_BARUnmap(board.handle, &board.bar), 0);
  refused(ZARIM_BARUnmap(board.handle, &board.bar), kNotReady, "BAR unmap, nothing mapped");
  EXPECT_EQ(ZARIM_MemoryUnmap(board.handle, nullptr), 0);
  refused(ZARIM_GetInterruptInfo(board.handle, &info), kNotReady, "info after MemoryUnmap");
  ASSERT_EQ(zsim_set(0, "dma.buffer_size", "256"), 0);
  ASSERT_EQ(ZARIM_MemoryMap(board.handle, &board.memory), 0);
  EXPECT_EQ(board.Descriptors()->size, 256u) << "a new buffer size applies to the next map";
}

// The geometry is read at open, as the driver reads its key when it starts: before an open the
// state keys say what an open would use; a key changed later does not reshape an open board.
TEST_F(SimTest, GeometryIsFixedAtOpen) {
  const uint32_t two = 2, three = 3;
  auto registry = std::make_unique<ScopedDriverParameters>(&two, &three);
  EXPECT_EQ(Get(0, "dma.channels"), "2");
  EXPECT_EQ(Get(0, "dma.buffers_per_channel"), "3");
  OpenBoard board(0, false, false);
  registry.reset();
  registry = std::make_unique<ScopedDriverParameters>(&three, &three);
  ASSERT_EQ(ZARIM_MemoryMap(board.handle, &board.memory), 0);
  EXPECT_EQ(board.memory.descriptor_count, 6u);
  EXPECT_EQ(Get(0, "dma.channels"), "2");
  EXPECT_EQ(Get(0, "trace.count"), "0") << "inspection is not an access";
}

}  // namespace
}  // namespace zsim_test
