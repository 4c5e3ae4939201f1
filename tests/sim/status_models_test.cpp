// The status side of the board as the library reads it: the gain stages' control words, and the
// counters moving with a running DMA engine. (The gain codes and levels, the equalizer's layouts
// and the demultiplexer's table as the model keeps them, the library's unit tests and the CLI's
// end-to-end runs read back; the status word's bits of other owners, the ADC's test.)
#include <chrono>
#include <random>
#include <thread>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

constexpr uint32_t kDem0 = 0x8000, kLevels = 0x8020, kCounters = 0x8028, kSecondA = 0x8050;
constexpr uint32_t kFpga = 0x10, kIntCounter = 0x60;

using StatusModels = PortTest;

// DEM word 0 while it carries DEM's image is no control word.
TEST_F(StatusModels, GainControlWordsKeptOutsideDemConfiguration) {
  Write(kSecondA, 0x11), Write(kDem0, 0x2123);
  Write(kFpga, 1), Write(kDem0, 0xDEADBEEF), Write(kFpga, 0);
  EXPECT_EQ(Keys({"gain.first.control", "gain.second.control"}), "0x00002123 0x00000011 none");
}

// ---- counters with the DMA engine running ---------------------------------------------------
constexpr uint32_t kChannels = 3, kRing = 4;

uint32_t Peek(const OpenBoard& b, uint32_t address) {
  PortRequest request{address, 0};
  EXPECT_EQ(ZARIM_Read(b.handle, &request), 0);
  return request.value;
}

void Poke(const OpenBoard& b, uint32_t address, uint32_t value) {
  PortRequest request{address, value};
  EXPECT_EQ(ZARIM_Write(b.handle, &request), 0);
}

// MasterLoad's table and a start, until the last enabled channel (the engine's last in each
// tick) has stalled after `n` buffers; then a stop.
void Stream(const OpenBoard& b, uint64_t n, uint32_t last) {
  Set("fault.dma_stall_after", std::to_string(n));
  for (uint32_t i = 0; i < kChannels * kRing; ++i) {
    Poke(b, 0x14, i / kRing << 5 | i % kRing);
    Poke(b, 0x00, b.Descriptors()[i].bus_address | 1);
    if (i % kRing == kRing - 1) Poke(b, 0x04, 0), Poke(b, 0x08, (kRing - 1) << 25 | 7);   // 1 KiB
  }
  Poke(b, 0x0C, 0x60000000);
  const std::string key = "dma.ch." + std::to_string(last) + ".completed";
  for (int i = 0; i < 2500 && Get(0, key.c_str()) != std::to_string(n); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  ASSERT_EQ(Get(0, key.c_str()), std::to_string(n));
  Poke(b, 0x0C, 0);
}

class Counters : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    const uint32_t channels = kChannels, ring = kRing;
    Parameters(&channels, &ring);
    Set("dma.buffer_size", "1024"), Set("dma.rate", "max");
    Set("slot", std::to_string(1000 + std::random_device()() % 1000000));
  }
  TempDir runtime_;
  ScopedEnv runtime_env_{"TORVIXE_RUNTIME_DIR", runtime_.str()};
};

// IQ and DMD count channels 0 and 1 modulo 256, the ADC one step per 17 buffers from
// adc.counter, INT word 24 the events signalled; all since reset, across restarts.
TEST_F(Counters, FollowTheEngineSinceReset) {
  const struct {
    const char* key, *value;
    uint64_t per_run;
    int runs;
    uint32_t last, iq, dmd, adc, ints;
  } cases[] = {
      {"adc.counter", "0", 300, 1, 2, 44, 44, 52, 900},
      {"adc.counter", "0", 300, 2, 2, 88, 88, 105, 1800},
      {"fault.dma_drop_event", "2", 10, 1, 2, 10, 10, 1, 15},
      {"adc.counter", "250", 300, 1, 2, 44, 44, 46, 900},
      {"dma.enable", "1", 300, 1, 1, 0, 44, 17, 300},
  };
  for (const auto& c : cases) {
    SetUp();
    Set(c.key, c.value);
    OpenBoard board;
    EXPECT_EQ(Keys({"counters.iq", "counters.int"}), "0 0");
    for (int r = 0; r < c.runs; ++r) Stream(board, c.per_run, c.last);
    const std::string what = std::string(c.key) + "=" + c.value + " x" + std::to_string(c.runs);
    EXPECT_EQ(Peek(board, kCounters), c.iq << 8 | c.dmd) << what;
    EXPECT_EQ(Peek(board, kLevels) >> 8 & 0xFF, c.adc) << what;
    EXPECT_EQ(Peek(board, kIntCounter), c.ints) << what;
    EXPECT_EQ(Get(0, "counters.int"), std::to_string(c.ints)) << what;
  }
  SetUp();   // a write presets the interrupt counter, which counts on from there
  OpenBoard board;
  Poke(board, kIntCounter, 0xFFFFFFF0);
  Stream(board, 10, 2);
  EXPECT_EQ(Peek(board, kIntCounter), 0xEu);
  zsim_reset();
  EXPECT_EQ(Peek(board, kIntCounter), 0u);
}

}  // namespace
}  // namespace zsim_test
