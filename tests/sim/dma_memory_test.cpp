// DMA memory whose geometry follows the driver's service key (read by the library's own code,
// whose fall-backs its configuration test covers) and the buffer size key.
#include <algorithm>
#include <cstring>
#include <set>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

using DmaTest = SimTest;

// Every buffer its own memory and bus address; no buffer overlaps another, the descriptors
// or the progress records.
TEST_F(DmaTest, DescriptorsBuffersAndRecordsFollowTheServiceKey) {
  const struct { int64_t channels, buffers; uint32_t buffer_size, want_channels, want_buffers; } cases[] = {{-1, -1, 65536, 17, 4}, {5, 32, 256, 5, 32}, {0, 4, 128, 0, 4}};
  for (const auto& g : cases) {   // channels or buffers -1: the value absent
    SCOPED_TRACE(testing::Message() << g.channels << " x " << g.buffers);
    const uint32_t channels = uint32_t(g.channels), buffers = uint32_t(g.buffers);
    Parameters(g.channels < 0 ? nullptr : &channels, g.buffers < 0 ? nullptr : &buffers);
    ASSERT_EQ(zsim_set(0, "dma.buffer_size", std::to_string(g.buffer_size).c_str()), 0);
    OpenBoard board(0, true, false);
    EXPECT_EQ(Get(0, "dma.channels") + "x" + Get(0, "dma.buffers_per_channel"),
              std::to_string(g.want_channels) + "x" + std::to_string(g.want_buffers));
    const uint32_t count = g.want_channels * g.want_buffers;
    ASSERT_EQ(board.memory.descriptor_count, count);
    const BufferDescriptor* d = board.Descriptors();
    std::set<uint32_t> bus;
    std::vector<std::pair<uintptr_t, uintptr_t>> spans{{uintptr_t(d), uintptr_t(d + count)}};
    for (uint32_t i = 0; i < count; ++i) {
      EXPECT_EQ(d[i].size, g.buffer_size) << i;
      EXPECT_TRUE(d[i].bus_address % 128 == 0 && d[i].bus_address != 0) << i;
      bus.insert(d[i].bus_address);
      spans.emplace_back(uintptr_t(d[i].user_address), uintptr_t(d[i].user_address) + d[i].size);
      auto* p = reinterpret_cast<uint8_t*>(uintptr_t(d[i].user_address));
      p[0] = p[d[i].size - 1] = uint8_t(i);   // every byte of each buffer is ours
    }
    EXPECT_EQ(bus.size(), count) << "bus addresses are not distinct";
    InterruptInfo info;   // the reserved word must be cleared, not left as it was
    std::memset(&info, 0xA5, sizeof info);
    ASSERT_EQ(ZARIM_GetInterruptInfo(board.handle, &info), 0);
    EXPECT_EQ(info.reserved0, 0u);
    const auto* progress = reinterpret_cast<const ChannelProgress*>(uintptr_t(info.channels));
    for (uint32_t c = 0; c < g.want_channels; ++c) EXPECT_EQ(progress[c].completed, 0u) << c;
    spans.emplace_back(uintptr_t(progress), uintptr_t(progress + g.want_channels));
    std::sort(spans.begin(), spans.end());
    for (size_t i = 1; i < spans.size(); ++i)
      EXPECT_LE(spans[i - 1].second, spans[i].first) << "buffers, descriptors or records overlap";
  }
}

}  // namespace
}  // namespace zsim_test
