// The demodulator chain end to end on the virtual board, in the order an application follows:
// signal type and its packing table, carrier, symbol rate, channel filter, the lock bits and
// the measured carrier and rate, the iso converter. (A direct tuning's one word is the unit
// tests'.)
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "torvixe.h"
#include "zarimsim.h"

namespace {

constexpr uint32_t kIsoWord = 0x8100, kIsoControl = 0x8104;

std::string Key(const char* key) {
  const char* value = zsim_get(0, key);
  return value != nullptr ? value : "(none)";
}

uint32_t Crc32(const std::vector<unsigned char>& bytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (unsigned char b : bytes) {
    crc ^= b;
    for (int k = 0; k < 8; ++k) crc = crc & 1 ? (crc >> 1) ^ 0xEDB88320 : crc >> 1;
  }
  return ~crc;
}

// The writes to `address` since the trace was cleared.
std::vector<uint32_t> Written(uint32_t address) {
  std::vector<zsim_access> trace(1 << 16);
  trace.resize(zsim_trace(0, trace.data(), trace.size()));
  std::vector<uint32_t> out;
  for (const zsim_access& a : trace)
    if (a.write && a.addr == address) out.push_back(a.value);
  return out;
}

class DemodChainTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    zsim_reset();
    DeviceId id{0};
    ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
  }
  static void TearDownTestSuite() {
    DeviceId id{0};
    ReleaseDeviceInstance(&id);
    zsim_reset();
  }
  // The lock bits after at most `reads` status reads.
  uint32_t Locks(int reads) {
    uint32_t word = 0;
    for (int i = 0; i < reads; ++i) {
      word = 0;
      EXPECT_EQ(GetBitStatus(&id, &word), 0);
      if ((word & 3) == 3) break;
    }
    return word & 3;
  }
  DeviceId id{0};
};

TEST_F(DemodChainTest, TheOverviewOrderLocksOntoTheSignal) {
  const uint8_t qpsk = 1, rate = 0, coding = 0;
  ASSERT_EQ(SetSignalType(&id, &qpsk, &rate, &coding), 0) << GetErrorMessage();
  SignalParameters p{};
  ASSERT_EQ(GetSignalParameters(&id, &p), 0);
  const std::string table = std::string("samples/tables/") + p.TableFileM;
  std::ifstream in(table, std::ios::binary);
  const std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(in), {}};
  ASSERT_GE(bytes.size(), 4u) << table << ": the build writes the samples";
  ASSERT_EQ(LoadPackMode(&id, table.c_str()), 0) << GetErrorMessage();
  EXPECT_EQ(Key("pack.words"), std::to_string(bytes.size() / 4));
  const std::vector<unsigned char> words(bytes.begin(), bytes.begin() + bytes.size() / 4 * 4);
  char crc[16];
  std::snprintf(crc, sizeof crc, "0x%08X", unsigned(Crc32(words)));
  EXPECT_EQ(Key("pack.crc"), crc);

  const double carrier = 1.2e9, sps = 10e6;
  ASSERT_EQ(SetCarrier(&id, &carrier), 0) << GetErrorMessage();
  ASSERT_EQ(SetTiming(&id, &sps), 0) << GetErrorMessage();
  const uint8_t shape = 3;
  ASSERT_EQ(FilterLoad(&id, "samples/filters", &shape, &shape), 0) << GetErrorMessage();
  EXPECT_EQ(Key("filter.taps"), "128") << "n20d_16.dat: 256 values, half of them loaded";
  EXPECT_EQ(Key("demod.decimation") + " " + Key("demod.m"), "16 1");

  EXPECT_EQ(Locks(50), 3u);
  double measured = 0;
  ASSERT_EQ(MeasureCarrier(&id, 0, &measured), 0);
  EXPECT_NEAR(measured, 1200025000.0, 1.0) << "the signal's 25 kHz offset, from the loop's error";
  ASSERT_EQ(MeasureTiming(&id, 0, &measured), 0);
  EXPECT_NEAR(measured, 10e6, 1.0);
  // Rates that use the second decimation (M 2 and 32) lock and measure too, and the carrier's
  // error term scales with each.
  for (double rs : {2e6, 100e3}) {
    ASSERT_EQ(zsim_set(0, "signal.rate", std::to_string(rs).c_str()), 0);
    ASSERT_EQ(SetTiming(&id, &rs), 0) << GetErrorMessage();
    EXPECT_EQ(Locks(50), 3u) << rs;
    ASSERT_EQ(MeasureTiming(&id, 0, &measured), 0);
    EXPECT_NEAR(measured, rs, rs * 1e-6) << rs;
    ASSERT_EQ(MeasureCarrier(&id, 0, &measured), 0);
    EXPECT_NEAR(measured, 1200025000.0, 1.0) << rs;
  }
  ASSERT_EQ(zsim_set(0, "signal.rate", "10e6"), 0);
  ASSERT_EQ(SetTiming(&id, &sps), 0);

  // QPSK's two bits per symbol at 10 Msymbols/s: a 20 MHz output clock, exponent 2.
  zsim_trace_clear(0);
  const float one = 1.0f;
  ASSERT_EQ(ISOCVRTSetTiming(&id, &one, &one), 0) << GetErrorMessage();
  EXPECT_EQ(Written(kIsoWord), std::vector<uint32_t>{0x0DB6DB6E});
  EXPECT_EQ(Written(kIsoControl).back(), 0x280u);
  EXPECT_NEAR(std::stod(Key("iso.frequency")), 20e6, 1.0);
}

}  // namespace
