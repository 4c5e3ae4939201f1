// The DMA engine driven register by register the way MasterLoad and ReadChannelData drive it:
// starts it refuses, payloads proven buffer by buffer, the fault keys, and stops before unmap.
#include <chrono>
#include <cstring>
#include <functional>
#include <random>
#include <thread>

#include "sim_test_util.h"
#include "zarimsim_payload.h"

namespace zsim_test {
namespace {

constexpr uint32_t kChannels = 3, kRing = 4, kSize = 1024;
constexpr uint32_t kAddress = 0x00, kClear = 0x04, kGeometry = 0x08, kControl = 0x0C, kSelect = 0x14;

// Through the IO library rather than the BAR, so that valgrind can follow it.
void Write(const OpenBoard& b, uint32_t address, uint32_t value) {
  PortRequest request{address, value};
  ASSERT_EQ(ZARIM_Write(b.handle, &request), 0);
}

// What a faulty driver could get wrong in MasterLoad.
enum class Flaw { kNone, kSwappedSelect, kSizeOffByOne, kBuffersOffByOne, kWrongAddress, kClearLast };

void Load(const OpenBoard& b, Flaw flaw = Flaw::kNone, uint32_t ring = kRing) {
  const BufferDescriptor* d = b.Descriptors();
  for (uint32_t i = 0; i < b.memory.descriptor_count; ++i) {
    const uint32_t c = i / ring, k = i % ring;
    Write(b, kSelect, flaw == Flaw::kSwappedSelect ? k << 5 | c : c << 5 | k);
    Write(b, kAddress, (d[i].bus_address | 1) + (i == 5 && flaw == Flaw::kWrongAddress ? 128 : 0));
    if (k != ring - 1) continue;
    const uint32_t geometry = (ring - 1 + (flaw == Flaw::kBuffersOffByOne)) << 25 |
                              (d[i].size / 128 - 1 + (flaw == Flaw::kSizeOffByOne));
    if (flaw != Flaw::kClearLast) Write(b, kClear, 0);
    Write(b, kGeometry, geometry);
    if (flaw == Flaw::kClearLast) Write(b, kClear, 0);
  }
}

void Start(const OpenBoard& b) { Write(b, kControl, 0x40000000 | 0x20000000); }

uint64_t Count(uint32_t channel, const char* what) {
  return std::stoull(Get(0, ("dma.ch." + std::to_string(channel) + "." + what).c_str()));
}

const ChannelProgress* Progress(const OpenBoard& b) {
  InterruptInfo info{};
  EXPECT_EQ(ZARIM_GetInterruptInfo(b.handle, &info), 0);
  return reinterpret_cast<const ChannelProgress*>(uintptr_t(info.channels));
}

uint32_t Completed(const ChannelProgress* progress, uint32_t c) {
  return __atomic_load_n(&reinterpret_cast<const uint32_t*>(progress + c)[1], __ATOMIC_ACQUIRE);
}

const uint8_t* Buffer(const OpenBoard& b, uint32_t c, uint64_t sequence) {
  const BufferDescriptor& d = b.Descriptors()[c * kRing + sequence % kRing];
  return reinterpret_cast<const uint8_t*>(uintptr_t(d.user_address));
}

bool WaitUntil(const std::function<bool()>& done) {
  for (int waited = 0; waited < 5000 && !done(); waited += 2)
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  return done();
}

// Named data events are shared by the user's processes: a slot and a runtime directory of its
// own keep test programs run side by side from waking each other's readers.
class EngineTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    const uint32_t channels = kChannels, ring = kRing;
    Parameters(&channels, &ring);
    ASSERT_EQ(zsim_set(0, "dma.buffer_size", std::to_string(kSize).c_str()), 0);
    ASSERT_EQ(zsim_set(0, "slot", slot_.c_str()), 0);
  }
  std::string EventName(uint32_t channel) const {
    return "Global\\zarim" + slot_ + "evnt" + std::to_string(channel);
  }

 private:
  TempDir runtime_;
  ScopedEnv runtime_env_{"TORVIXE_RUNTIME_DIR", runtime_.str()};
  const std::string slot_ = std::to_string(1000 + std::random_device()() % 1000000);
};

struct Refusal { const char* name; Flaw flaw; bool load, unmap; const char* state; } const kRefusals[] = {
    {"NeverProgrammed", Flaw::kNone, false, false, "refused: descriptor table not programmed"},
    {"MemoryUnmapped", Flaw::kNone, true, true, "refused: memory not mapped"},
    {"SelectSwapped", Flaw::kSwappedSelect, true, false, "refused: channel 3 programmed, 3 mapped"},
    {"SizeOffByOne", Flaw::kSizeOffByOne, true, false,
     "refused: channel 0: buffer size 1152 programmed, 1024 mapped"},
    {"BuffersOffByOne", Flaw::kBuffersOffByOne, true, false,
     "refused: channel 0: geometry of 5 buffers, 4 mapped"},
    {"WrongAddress", Flaw::kWrongAddress, true, false,
     "refused: channel 1 buffer 1: bus address 0x10000301 is not descriptor 5's (0x10000280 | 1)"},
    {"ClearAfterGeometry", Flaw::kClearLast, true, false,
     "refused: no channel has its geometry (INT word 2)"},
};

class RefusalTest : public EngineTest, public testing::WithParamInterface<Refusal> {};

TEST_P(RefusalTest, StartDoesNotRunAndSaysWhy) {
  const Refusal& r = GetParam();
  ASSERT_EQ(zsim_set(0, "dma.rate", "max"), 0);
  OpenBoard board;
  if (r.load) Load(board, r.flaw);
  ASSERT_TRUE(!r.unmap || ZARIM_MemoryUnmap(board.handle, nullptr) == 0);
  Start(board);
  EXPECT_EQ(Get(0, "dma.state"), r.state);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(Count(0, "completed") + Count(1, "signalled"), 0u);
  Write(board, kControl, 0);
  EXPECT_EQ(Get(0, "dma.state"), "stopped");
}

INSTANTIATE_TEST_SUITE_P(Table, RefusalTest, testing::ValuesIn(kRefusals),
                         [](const auto& info) { return std::string(info.param.name); });

// The deepest ring, 32 buffers, uses every value of the select's five buffer bits: no buffer
// of it is taken for one beyond the ring.
TEST_F(EngineTest, TheDeepestRingRuns) {
  const uint32_t channels = 2, ring = 32;
  Parameters(&channels, &ring);
  OpenBoard board;
  Load(board, Flaw::kNone, ring);
  Start(board);
  EXPECT_EQ(Get(0, "dma.state"), "running");
}

// Every buffer of every channel, in order and complete, found through the data events and the
// progress records as ReadChannelData finds them; from sequence 0 again after each restart,
// which also changes the payload kind.
TEST_F(EngineTest, ReaderFindsEveryBufferInOrder) {
  ASSERT_EQ(zsim_set(0, "dma.rate", "60"), 0);   // a ring of 4 leaves the reader 66 ms
  OpenBoard board;
  Load(board);
  tvx::os::Event events[kChannels];
  for (uint32_t c = 0; c < kChannels; ++c) events[c] = tvx::os::OpenNamedEvent(EventName(c).c_str());
  tvx::os::Event idle = tvx::os::CreateNamedEvent(("tvx-dma-idle-" + tvx::test::Nonce()).c_str());
  const ChannelProgress* progress = Progress(board);
  const char* const kinds[] = {"prbs", "counter", "zero"};
  for (uint8_t kind = 0; kind < 3; ++kind) {
    ASSERT_EQ(zsim_set(0, "dma.payload", kinds[kind]), 0);
    const auto started = std::chrono::steady_clock::now();
    Start(board);
    ASSERT_EQ(Get(0, "dma.state"), "running");
    uint64_t next[kChannels] = {};
    for (uint64_t want = kind == 0 ? 8 : 2; next[0] < want || next[1] < want || next[2] < want;) {
      for (uint32_t c = 0; c < kChannels; ++c) {
        ASSERT_EQ(tvx::os::WaitForEither(events[c], idle, 2000), tvx::os::WaitResult::kFirst) << c;
        const uint32_t now = Completed(progress, c);
        ASSERT_LT(now - next[c], kRing) << "the reader fell a ring behind on channel " << c;
        for (; next[c] < now; ++next[c]) {
          const uint8_t* buffer = Buffer(board, c, next[c]);
          ASSERT_EQ(zsim_payload_check(buffer, kSize, c, next[c]), ZSIM_PAYLOAD_OK)
              << "channel " << c << " buffer " << next[c];
          EXPECT_EQ(buffer[2], kind) << kinds[kind];
        }
      }
    }
    Write(board, kControl, 0);
    const uint64_t stopped = Count(2, "completed");
    const std::chrono::duration<double> ran = std::chrono::steady_clock::now() - started;
    EXPECT_LE(stopped, ran.count() * 60 + 1) << "faster than dma.rate";
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(Count(2, "completed"), stopped);
    for (uint32_t c = 0; c < kChannels; ++c) {
      EXPECT_EQ(Count(c, "completed"), Completed(progress, c));
      EXPECT_EQ(Count(c, "signalled"), Count(c, "completed"));
    }
  }
  for (tvx::os::Event e : events) tvx::os::CloseEvent(e);
  tvx::os::CloseEvent(idle);
}

struct FaultCase {
  const char* name;
  std::vector<std::pair<const char*, const char*>> keys;
  uint64_t completed[kChannels], signalled[kChannels];
} const kFaultCases[] = {
    {"StallAtOnce", {{"fault.dma_stall_after", "0"}}, {0, 0, 0}, {0, 0, 0}},
    {"DropEverySecondEvent", {{"fault.dma_stall_after", "10"}, {"fault.dma_drop_event", "2"}},
     {10, 10, 10}, {5, 5, 5}},
    {"OneChannelEnabled", {{"fault.dma_stall_after", "5"}, {"dma.enable", "1,5-9"}}, {0, 5, 0},
     {0, 5, 0}},
    {"BurstPastTheRing", {{"fault.dma_stall_after", "14"}, {"fault.dma_burst", "6"}},
     {14, 14, 14}, {3, 3, 3}},
};

class FaultKeyTest : public EngineTest, public testing::WithParamInterface<FaultCase> {};

// At full speed the counts settle where the fault keys say, and the ring holds the last
// buffers in their places (after a burst, the ones a reader that lost the ring finds).
TEST_P(FaultKeyTest, CountsSettleWhereTheKeysSay) {
  const FaultCase& f = GetParam();
  ASSERT_EQ(zsim_set(0, "dma.rate", "max"), 0);
  for (const auto& [key, value] : f.keys) ASSERT_EQ(zsim_set(0, key, value), 0) << key;
  OpenBoard board;
  Load(board);
  Start(board);
  auto settled = [&] {
    bool all = true;
    for (uint32_t c = 0; c < kChannels; ++c)
      all = all && Count(c, "completed") == f.completed[c] && Count(c, "signalled") == f.signalled[c];
    return all;
  };
  ASSERT_TRUE(WaitUntil(settled)) << Count(0, "completed") << " " << Count(0, "signalled");
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_TRUE(settled());
  EXPECT_EQ(Get(0, "dma.state"), "running");
  const ChannelProgress* progress = Progress(board);
  for (uint32_t c = 0; c < kChannels; ++c) {
    EXPECT_EQ(Completed(progress, c), f.completed[c]);
    for (uint64_t q = f.completed[c] < kRing ? 0 : f.completed[c] - kRing; q < f.completed[c]; ++q)
      EXPECT_EQ(zsim_payload_check(Buffer(board, c, q), kSize, c, q), ZSIM_PAYLOAD_OK)
          << c << " " << q;
  }
}

INSTANTIATE_TEST_SUITE_P(Table, FaultKeyTest, testing::ValuesIn(kFaultCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Unmap, close and reset stop a running engine before anything is given back: a write after
// that would land in unmapped pages and crash the test (or show under a sanitizer).
TEST_F(EngineTest, UnmapCloseAndResetStopTheEngineFirst) {
  const std::function<void(OpenBoard&)> stops[] = {
      [](OpenBoard& b) { ASSERT_EQ(ZARIM_MemoryUnmap(b.handle, nullptr), 0); },
      [](OpenBoard& b) { ASSERT_EQ(ZARIM_Close(b.handle), 0); },
      [](OpenBoard&) { zsim_reset(); }};
  for (int round = 0; round < 20; ++round) {
    ASSERT_EQ(zsim_set(0, "dma.rate", "max"), 0);
    OpenBoard board;
    Load(board);
    Start(board);
    ASSERT_TRUE(WaitUntil([] { return Count(0, "completed") > 0; }));
    stops[round % 3](board);
    EXPECT_EQ(Get(0, "dma.state"), "stopped") << round;
    const uint64_t completed = Count(1, "completed");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(Count(1, "completed"), completed) << round;
  }
}

// The verifier tells each kind of damage apart, and the body really is PRBS-31: every bit the
// XOR of the bits 31 and 28 before it. The check (which generates only the first 32 body bytes
// and follows the recurrence over received bytes from there) takes every length the generator
// fills, and no flipped bit gets past it, wherever it lies: in the generated head, the near
// stretch, the far stretch a vector at a time, or the bytes after the last whole vector.
TEST(DmaPayload, CheckNamesTheDamageAndTheBodyIsPrbs31) {
  const uint64_t q = 0x100000002ull;
  std::vector<uint8_t> good(4 * kSize);
  zsim_payload_fill(good.data(), good.size(), ZSIM_PAYLOAD_PRBS, 7, 3, q);
  const struct {
    size_t offset;
    uint8_t flip;
    size_t size;
    unsigned channel;
    uint64_t sequence;
    int result;
  } cases[] = {{0, 0, kSize, 7, q, ZSIM_PAYLOAD_OK},      {0, 0, 100, 7, q, ZSIM_PAYLOAD_OK},
               {0, 0, 15, 7, q, ZSIM_PAYLOAD_SHORT},      {3, 1, kSize, 7, q, ZSIM_PAYLOAD_NOT_OURS},
               {0, 0, kSize, 6, q, ZSIM_PAYLOAD_WRONG_CHANNEL},
               {0, 0, kSize, 7, 2, ZSIM_PAYLOAD_WRONG_SEQUENCE},
               {100, 4, 101, 7, q, ZSIM_PAYLOAD_BAD_BODY}};   // the last byte of a short check
  for (const auto& c : cases) {
    std::vector<uint8_t> buffer = good;
    buffer[c.offset] ^= c.flip;
    EXPECT_EQ(zsim_payload_check(buffer.data(), c.size, c.channel, c.sequence), c.result)
        << c.offset << " " << c.size;
  }
  for (size_t size = 17; size <= good.size(); ++size) {
    ASSERT_EQ(zsim_payload_check(good.data(), size, 7, q), ZSIM_PAYLOAD_OK) << size;
    std::vector<uint8_t> buffer = good;
    buffer[size - 1] ^= uint8_t(1u << (size % 8));
    ASSERT_EQ(zsim_payload_check(buffer.data(), size, 7, q), ZSIM_PAYLOAD_BAD_BODY) << size;
    ASSERT_EQ(zsim_payload_check(buffer.data(), good.size(), 7, q), ZSIM_PAYLOAD_BAD_BODY) << size;
  }
  auto bit = [&](size_t n) { return (good[16 + n / 8] >> (n % 8)) & 1; };
  for (size_t n = 31; n < (good.size() - 16) * 8; ++n) ASSERT_EQ(bit(n), bit(n - 31) ^ bit(n - 28)) << n;
  std::vector<uint8_t> other(good.size());
  zsim_payload_fill(other.data(), other.size(), ZSIM_PAYLOAD_PRBS, 7, 3, q + 1);
  EXPECT_NE(std::memcmp(good.data() + 16, other.data() + 16, good.size() - 16), 0) << "same body";
}

}  // namespace
}  // namespace zsim_test
