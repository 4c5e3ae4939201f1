// The data path end to end: the buffer map programmed into the virtual board's DMA engine,
// every channel read at once by a thread of its own, and every buffer proven by its payload to
// be the next one of its channel. (Overruns: the data path's unit cases pin the results, the
// CLI's capture case shows them end to end.)
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

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

// The readers are waiting before the engine starts, so none comes in late.
TEST_F(StreamingTest, SeventeenChannelsArriveCompleteAndInOrder) {
  std::atomic<int> failures{0};
  std::vector<std::thread> readers;
  for (uint32_t c = 0; c < 17; ++c) {
    readers.emplace_back([&, c] {
      std::vector<uint8_t> data(2 * size_t(size));
      for (uint64_t next = 0; next < 24;) {
        uint32_t got = 0;
        const int32_t result = ReadChannelData(&board, c, data.data(), uint32_t(data.size()), &got, 2000);
        if (result != 0 || got != data.size()) return void(++failures);
        for (uint32_t at = 0; at < got; at += size)
          if (zsim_payload_check(&data[at], size, c, next++) != ZSIM_PAYLOAD_OK) return void(++failures);
      }
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  ASSERT_EQ(MasterStart(&board, &kStart), 0);
  for (auto& t : readers) t.join();
  EXPECT_EQ(failures, 0);
}

}  // namespace
