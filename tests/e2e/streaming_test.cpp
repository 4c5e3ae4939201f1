// The data path end to end: the buffer map programmed into the virtual board's DMA engine,
// every channel read at once by a thread of its own, and every buffer proven by its payload to
// be the next one of its channel. (Overruns: the data path's unit cases pin the results, the
// CLI's capture case shows them end to end.)
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "hw/driver_parameters.h"
#include "test_env.h"
#include "torvixe.h"
#include "zarimsim.h"
#include "zarimsim_payload.h"

namespace {

constexpr uint32_t kStart = 0x40000000;

class StreamingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zsim_reset();
    // 20 buffers a second: a reader must stall for a whole ring, 200 ms, before anything is lost,
    // which no busy machine running the sanitizers or Wine comes near.
    ASSERT_EQ(zsim_set(0, "dma.rate", "20"), 0);
    ASSERT_EQ(CreateDeviceInstance(&board), 0) << GetErrorMessage();
    ASSERT_EQ(MasterGetBuffers(&board, &map), 0);
    ASSERT_EQ(uint32_t{map.DescriptorCount}, 17u * 4);   // a packed field: compared by value
    ASSERT_EQ(MasterLoad(&board, &map), 0) << GetErrorMessage();
    size = static_cast<const BufferDescriptor*>(map.Descriptors)[0].Size;
  }
  void TearDown() override {
    MasterStop(&board);
    ReleaseDeviceInstance(&board);
    zsim_reset();
  }
  DeviceId board{0};
  BufferMap map{};
  uint32_t size = 0;
};

// Every channel read by a thread of its own, each buffer checked to be the next of its channel,
// until `buffers` of each arrived. The readers are waiting before the engine starts, so none
// comes in late.
int ReadEveryChannel(DeviceId* board, uint32_t size, uint64_t buffers) {
  std::atomic<int> failures{0};
  std::vector<std::thread> readers;
  for (uint32_t c = 0; c < 17; ++c) {
    readers.emplace_back([&, c] {
      std::vector<uint8_t> data(2 * size_t(size));
      for (uint64_t next = 0; next < buffers;) {
        uint32_t got = 0;
        const int32_t result = ReadChannelData(board, c, data.data(), uint32_t(data.size()), &got, 2000);
        if (result != 0 || got != data.size()) return void(++failures);
        for (uint32_t at = 0; at < got; at += size)
          if (zsim_payload_check(&data[at], size, c, next++) != ZSIM_PAYLOAD_OK) return void(++failures);
      }
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  if (MasterStart(board, &kStart) != 0) ++failures;
  for (auto& t : readers) t.join();
  return failures;
}

TEST_F(StreamingTest, SeventeenChannelsArriveCompleteAndInOrder) {
  EXPECT_EQ(ReadEveryChannel(&board, size, 24), 0);
}

// The largest ring the descriptor select can address, 32 buffers, on all 17 channels: the
// driver's service key says so (on Windows the machine's own key, its value removed after).
TEST(StreamingRing, ThirtyTwoBuffersOnEachOfSeventeenChannels) {
  tvx::test::TempDir registry;
  tvx::test::ScopedEnv env("TORVIXE_REGISTRY", registry.str());
  char key[256];
  tvx::ServiceKeyPath(tvx::kDriverService, key, sizeof key);
  const uint8_t thirty_two[4] = {32, 0, 0, 0};
  ASSERT_TRUE(tvx::os::WriteRegistryValue(key, tvx::kBuffersPerChannelValue, thirty_two, 4));
  zsim_reset();
  ASSERT_EQ(zsim_set(0, "dma.rate", "20"), 0);   // a reader may stall 1.6 s before a loss
  DeviceId board{0};
  BufferMap map{};
  ASSERT_EQ(CreateDeviceInstance(&board), 0) << GetErrorMessage();
  ASSERT_EQ(MasterGetBuffers(&board, &map), 0);
  EXPECT_EQ(uint32_t{map.DescriptorCount}, 17u * 32);
  ASSERT_EQ(MasterLoad(&board, &map), 0) << GetErrorMessage();
  EXPECT_EQ(ReadEveryChannel(&board, static_cast<const BufferDescriptor*>(map.Descriptors)[0].Size, 40), 0);
  EXPECT_STREQ(zsim_get(0, "dma.state"), "running");
  MasterStop(&board);
  ReleaseDeviceInstance(&board);
  tvx::os::DeleteRegistryValue(key, tvx::kBuffersPerChannelValue);
  zsim_reset();
}

}  // namespace
