// The status side of the board as the library reads it: gain codes and the attenuator following
// the signal, the equalizer's taps read back in the other layout, the demultiplexer's table
// filled from the top, and the counters moving with a running DMA engine.
#include <chrono>
#include <cmath>
#include <initializer_list>
#include <random>
#include <thread>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

constexpr uint32_t kDem0 = 0x8000, kStatus1 = 0x8018, kSecond1 = 0x801C, kLevels = 0x8020;
constexpr uint32_t kCounters = 0x8028, kEqTable = 0x8030, kEqControl = 0x8034, kEqRead = 0x8040;
constexpr uint32_t kSecondB = 0x8048, kSecondA = 0x8050, kSimControl = 0x8064, kEqWrite = 0x8180;
constexpr uint32_t kStatus2 = 0x8180, kSecond2 = 0x81C0, kFpga = 0x10, kIntCounter = 0x60;
constexpr uint32_t kRs = 0xA200;

uint32_t Crc32(const std::vector<uint8_t>& bytes) {
  uint32_t crc = ~0u;
  for (uint8_t b : bytes)
    for (int i = 0; i < 8; ++i, b >>= 1) crc = (crc >> 1) ^ (((crc ^ b) & 1) ? 0xEDB88320u : 0);
  return ~crc;
}

void Set(const char* key, const std::string& value) {
  ASSERT_EQ(zsim_set(0, key, value.c_str()), 0) << key << "=" << value;
}

std::string Keys(std::initializer_list<const char*> keys) {
  std::string seen;
  for (const char* key : keys) seen += " " + Get(0, key);
  return seen.substr(1);
}

class StatusModels : public PortTest {
 protected:
  double SecondDb(uint32_t address) { return -20 * std::log10((Read(address) & 0xFFFF) / 65536.0); }
};

// The bottom when nothing gets through, the top at full strength, the simulator's signal
// (-30 dBm) whatever signal.present says.
TEST_F(StatusModels, GainCodesSitWhereTheSignalPutsThem) {
  const struct { const char* what, *carrier, *level, *present; bool sim; const char* codes; }
      cases[] = {
      {"no signal", "70e6", "-40", "0", false, "0 0 65535 65535"},
      {"L-band without an LO", "1.2e9", "-40", "1", false, "0 0 65535 65535"},
      {"direct, full strength", "70e6", "0", "1", false, "4095 4095 66 66"},
      {"simulator, less 4 dB of attenuator", "70e6", "-40", "0", true, "3003 2912 414 482"},
  };
  for (const auto& c : cases) {
    zsim_reset();
    Set("signal.carrier", c.carrier), Set("signal.level", c.level);
    Set("signal.present", c.present);
    if (c.sim) Write(kSimControl, 1u << 28);
    EXPECT_EQ(Keys({"gain.first.code.1", "gain.first.code.2", "gain.second.code.1",
                    "gain.second.code.2"}), c.codes) << c.what;
    EXPECT_EQ(Read(kStatus1) >> 16 & 0xFFF, std::stoul(Get(0, "gain.first.code.1"))) << c.what;
  }
}

// A stronger signal reads higher levels on both stages, channel 2 below channel 1; the
// attenuator's loss comes off first, in 2 dB steps on a type 2 board and 0.5 dB otherwise. The
// bits the stages do not answer keep their owners' values.
TEST_F(StatusModels, LevelsClimbWithTheSignalAndFallWithTheAttenuator) {
  Set("signal.carrier", "70e6");
  Write(kStatus1, 0x30000000);
  uint32_t last_level = 0;
  double last_db = 0;
  for (int dbm = -90; dbm <= -15; dbm += 5) {
    Set("signal.level", std::to_string(dbm));
    const uint32_t first1 = Read(kStatus1) >> 16 & 0xFFF, first2 = Read(kStatus2) >> 16 & 0xFFF;
    EXPECT_GT(first1 >> 7, last_level) << dbm;
    EXPECT_GT(SecondDb(kSecond1), last_db + 3) << dbm;
    EXPECT_LT(first2, first1) << dbm;
    EXPECT_LT(SecondDb(kSecond2), SecondDb(kSecond1)) << dbm;
    EXPECT_EQ(Read(kStatus1) & 0xF0004000, 0x30000000u) << "bits 28-29 stored, 14 the idle ADC's";
    last_level = first1 >> 7, last_db = SecondDb(kSecond1);
  }
  Set("signal.level", "-40");
  const char* const steps[][2] = {{"3", "0"}, {"3", "20"}, {"2", "5"}, {"3", "127"}};
  std::vector<uint32_t> firsts;
  for (const auto& [type, code] : steps) {
    Set("lconv.type", type), Set("atten.code", code);
    EXPECT_EQ(Read(kLevels) & 0xFF, std::stoul(code));
    firsts.push_back(Read(kStatus1) >> 16 & 0xFFF);
  }
  EXPECT_GT(firsts[0], firsts[1]);
  EXPECT_EQ(firsts[1], firsts[2]) << "20 half-dB steps are 5 two-dB steps";
  EXPECT_GT(firsts[2], firsts[3]);
}

// DEM word 0 while it carries DEM's image is no control word.
TEST_F(StatusModels, GainControlWordsKeptOutsideDemConfiguration) {
  Write(kSecondA, 0x11), Write(kDem0, 0x2123);
  Write(kFpga, 1), Write(kDem0, 0xDEADBEEF), Write(kFpga, 0);
  EXPECT_EQ(Keys({"gain.first.control", "gain.second.control"}), "0x00002123 0x00000011 none");
}

// Each tap written in the write layout reads back in the read layout, bits outside the two
// fields dropped; the neighbours (the packing table at DEM word 16 written, the second stage's
// channel 2 code at DEM word 112 read) stay theirs.
TEST_F(StatusModels, EqualizerTapsReadBackInTheReadLayout) {
  const struct { uint32_t tap, written, read; const char* key; } cases[] = {
      {0, 0xABCu << 14 | 0x123, 0xABC01230, "0xABC 0x123"},
      {6, 0xFC000000 | 0xFFFu << 14 | 0x3000, 0xFFF00000, "0xFFF 0x000"},
      {12, 0x2FFF, 0x0000FFF0, "0x000 0xFFF"},
  };
  for (const auto& c : cases) {
    Write(kEqWrite + 4 * c.tap, c.written);
    EXPECT_EQ(Read(kEqRead + 4 * c.tap), c.read) << c.tap;
    EXPECT_EQ(Get(0, ("eq.tap." + std::to_string(c.tap)).c_str()), c.key) << c.tap;
  }
  EXPECT_EQ(Read(kEqRead + 4), 0u) << "a tap never loaded";
  Write(kEqRead, 0x55555555);
  Write(kSecond2, 0x1234);
  EXPECT_EQ(Keys({"eq.tap.0", "pack.words", "eq.tap.13"}), "0xABC 0x123 1 <null>");
  EXPECT_EQ(Read(kSecond2) & 0xFFFF, 65535u) << "no signal: the bottom, whatever was written";
  for (uint32_t word : {0x34333231u, 0x38373635u, 0x63626139u}) Write(kEqTable, word);
  Write(kEqControl, 0x55);   // "123456789abc" as little-endian words, then a control word
  EXPECT_EQ(Keys({"eq.table.words", "eq.table.crc", "eq.control"}), "3 0xBDB0C0E4 0x00000055");
}

// The library's load (RS 2, the fill steps, then byte, strobe, step for each byte) and loads
// that go wrong, told apart by where the first byte landed and what was stored.
TEST_F(StatusModels, DemultiplexerTableFillsFromTheTop) {
  std::vector<uint8_t> data(3001);
  std::mt19937 gen(7);
  for (uint8_t& b : data) b = uint8_t(gen() % 255 + 1);
  enum Flaw { kNone, kExtraFill, kNoStrobe, kDuringRsConfiguration };
  const struct { Flaw flaw; size_t size; const char* seen; } cases[] = {
      {kNone, 3001, "65535 62534 3001"}, {kNone, 1, "65535 65534 1"},
      {kExtraFill, 3001, "65536 62535 3001"}, {kNoStrobe, 3001, "65535 none 0"},
      {kDuringRsConfiguration, 3001, "65535 none 0"},
  };
  for (const auto& c : cases) {
    const std::vector<uint8_t> bytes(data.begin(), data.begin() + c.size);
    if (c.flaw == kDuringRsConfiguration) Write(kFpga, 0xFFFFFFFF);
    Write(kRs + 8, 0);
    for (size_t i = 0; i < 65535 - c.size + (c.flaw == kExtraFill); ++i) Write(kRs + 12, 0);
    for (uint8_t b : bytes) {
      Write(kRs, b);
      if (c.flaw != kNoStrobe) Write(kRs + 4, 0);
      Write(kRs + 12, 0);
    }
    if (c.flaw == kDuringRsConfiguration) Write(kFpga, 0);
    EXPECT_EQ(Keys({"dmpx.steps", "dmpx.fill", "dmpx.bytes"}), c.seen) << c.flaw << " " << c.size;
    const bool stored = Get(0, "dmpx.bytes") != "0";
    EXPECT_EQ(std::stoul(Get(0, "dmpx.crc"), nullptr, 16), stored ? Crc32(bytes) : 0) << c.flaw;
  }
  Set("dmpx.status", "9");
  EXPECT_EQ(Read(kRs), 9u) << "the status bits alone, whatever was written";
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
