// The demodulator's loops as the library drives them: locking (or not) on the signal the board
// sees, read back through the library's own formulas, on either path, with the faults and on the
// simulator's signal; keys of other shapes. (The decimations, the iso converter, filter taps and
// the packing table as the model decodes them, the library's unit and end-to-end tests read
// back.)
#include <cmath>
#include <string>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

constexpr double kFs = 560e6 / 3;   // no S synthesizer load: the board's usual clock
constexpr double kTwoTo26 = 67108864.0, kTwoTo32 = 4294967296.0;
constexpr uint32_t kLSynth = 0x4008;
constexpr uint32_t kNco = 0x8008, kLoop = 0x8010, kOversampling = 0x8018, kRateNco = 0x8020;
constexpr uint32_t kNcoRead = 0x802C, kDecimation = 0x8038, kError = 0x803C;
constexpr uint32_t kSimCarrier = 0x8060, kSimControl = 0x8064, kDirect = 0x80A0;
constexpr uint32_t kLevels = kRateNco;   // the same word, read

// The library's carrier NCO word for a digital frequency.
uint32_t NcoWord(double hz) {
  double word = std::fmod(std::trunc((hz / kFs * 2147483648.0) * 2 + 0.5), kTwoTo32);
  return uint32_t(uint64_t(word < 0 ? word + kTwoTo32 : word));
}

class DemodModels : public PortTest {
 protected:
  // The library's rate set-up for a first decimation d and M = 2^log2m.
  void SetRate(double rs, uint32_t d, uint32_t log2m) {
    const uint32_t m = 1u << log2m;
    Write(kLoop, 7 | uint32_t(rs / kFs * 131072 + 0.5) << 16 | 0x1000);
    Write(kRateNco, uint32_t(d * (rs * kTwoTo26) * m / kFs + 0.5));
    Write(kOversampling, std::min(uint32_t(kFs * 128 / (d * rs * m)), 255u));
    Write(kDecimation, log2m << 16 | (m - 1));
  }
  // The LO of a type 3 (1.34 GHz) or type 5 (1.55 GHz: set up, then retuned) convertor.
  void LoadLo(uint32_t type) {
    if (type == 3)
      for (uint32_t word : {0x4u, 0x90012u, 0x1019u}) Write(kLSynth, word);
    else
      LoadFractional(1, {0x6090, 155, 0});
    Advance(5000);
    Read(kLSynth);
  }
  // n reads of the lock levels: T for timing locked, C for carrier locked, blank-separated.
  std::string Poll(int n) {
    std::string seen;
    for (int i = 0; i < n; ++i) {
      const uint32_t v = Read(kLevels);
      seen += std::string(i ? " " : "") + ((v >> 16 & 0xFF) == 0x40 ? "T" : "-") +
              (v >> 24 == 0x40 ? "C" : "-");
      EXPECT_TRUE((v >> 16 & 0xFF) == 0x40 || (v >> 16 & 0xFF) == 0x80) << std::hex << v;
    }
    return seen;
  }
  // MeasureCarrier and MeasureSymbolRate, as the library computes them.
  double MeasuredCarrier(bool direct, uint32_t type, double lo, double rs = 10e6) {
    const double a = Read(kNcoRead), e = int32_t(Read(kError));
    return direct ? a * kFs / kTwoTo32
                  : lo - ((type == 5 ? 2 : 1) - a / kTwoTo32) * kFs + e * rs / kTwoTo32;
  }
  double MeasuredRate(uint32_t d, uint32_t m) {
    return (Read(kNco) & 0x3FFFFFF) * kFs / kTwoTo26 / m / d;
  }
};

// The library tunes to `tuned`; the signal sits at `carrier`. Inside the capture range both
// loops lock and the readbacks give the signal's own carrier (through the frequency error on
// the L-band path; the direct path's measurement reads the NCO alone) and rate; outside, or
// with the input switched away, nothing locks and the readbacks are what was written.
TEST_F(DemodModels, LoopsLockOnTheSignalInsideTheCaptureRangeOnEitherPath) {
  const struct {
    const char* what;
    uint32_t type;
    int direct_flag;   // DEM word 40, -1: not written
    double tuned, carrier;
    bool lo, locks;
  } cases[] = {
      {"direct, type 3", 3, -1, 70e6, 70.025e6, false, true},
      {"direct, type 3, 1000.5 kHz off", 3, -1, 70e6, 71.0005e6, false, false},
      {"L-band, type 3", 3, -1, 1.2e9, 1200025000, true, true},
      {"L-band, type 3, 999.5 kHz off", 3, -1, 1.2e9, 1200999500, true, true},
      {"L-band, type 3, 1000.5 kHz off", 3, -1, 1.2e9, 1201000500, true, false},
      {"L-band, type 3, no LO", 3, -1, 1.2e9, 1200025000, false, false},
      {"L-band, type 5", 5, 0, 1.2e9, 1200025000, true, true},
      {"L-band, type 5, 999.5 kHz below", 5, 0, 1.2e9, 1199000500, true, true},
      {"L-band, type 5, 1000.5 kHz below", 5, 0, 1.2e9, 1198999500, true, false},
      {"L-band, type 5, direct input selected", 5, 1, 1.2e9, 1200025000, true, false},
      {"direct, type 5", 5, 1, 70e6, 70.025e6, false, true},
      {"direct, type 5, L-band input selected", 5, 0, 70e6, 70.025e6, false, false},
  };
  for (const auto& c : cases) {
    Reset();
    Set("lconv.type", std::to_string(c.type));
    Set("signal.carrier", std::to_string(c.carrier));
    Set("signal.rate", "10002000");   // 200 ppm above the nominal rate
    const bool direct = c.tuned < 200e6;
    const double lo = direct ? 0 : c.type == 5 ? 1.55e9 : 1.34e9;
    if (c.lo) LoadLo(c.type);
    if (c.direct_flag >= 0) Write(kDirect, uint32_t(c.direct_flag));
    SetRate(10e6, 16, 0);
    // Type 5's IF puts the L-band NCO frequency below zero (fs - 350 MHz): the word wraps.
    const uint32_t nco = NcoWord(direct ? c.tuned : kFs - (lo - c.tuned));
    Write(kNco, nco);
    const uint32_t w = Read(kNco);
    EXPECT_EQ(Poll(5), c.locks ? "-- T- T- TC TC" : "-- -- -- -- --") << c.what;
    if (c.locks) {
      EXPECT_NEAR(MeasuredCarrier(direct, c.type, lo), direct ? c.tuned : c.carrier, 0.05) << c.what;
      EXPECT_EQ(Read(kNcoRead), nco) << c.what;
      EXPECT_NEAR(MeasuredRate(16, 1), 10002000, 1.5) << c.what;
    } else {
      EXPECT_EQ(Read(kNcoRead), nco) << c.what;
      EXPECT_EQ(Read(kNco), w) << c.what << ": the written rate word";
    }
  }
}

// What starts the loops over, and the faults. Steps: r a read of the lock levels (one result
// each), p ten inspections through zsim_get, n the same NCO word again, l a word to the LO
// synthesizer, s a signal key, o a carrier key moving the signal out of the capture range.
TEST_F(DemodModels, LockRunsStartOverOnEveryRetuneAndFollowTheFaults) {
  const struct {
    const char* fault, *lose_after, *timing_reads, *carrier_reads, *steps, *seen;
  } cases[] = {
      {"none", "5", "2", "3", "rrrrrr", "-- T- T- TC TC TC"},
      {"none", "5", "1", "1", "rrr", "TC TC TC"},
      {"none", "5", "4", "2", "rrrrrr", "-- -- -- T- TC TC"},
      {"never_lock", "5", "1", "1", "rrrrr", "-- -- -- -- --"},
      {"lose_lock", "2", "1", "1", "rrrrr", "TC TC -- -- --"},
      {"lose_lock", "5", "2", "3", "rrrrrrrrrr", "-- T- T- TC TC TC TC TC -- --"},
      {"lose_lock", "1", "1", "1", "rrrnrr", "TC -- -- TC --"},
      {"none", "5", "2", "3", "rprprprp", "-- T- T- TC"},
      {"none", "5", "2", "3", "rrrrnrr", "-- T- T- TC -- T-"},
      {"none", "5", "2", "3", "rrrrlrr", "-- T- T- TC -- T-"},
      {"none", "5", "2", "3", "rrrrsrr", "-- T- T- TC -- T-"},
      {"none", "5", "2", "3", "rrrrorr", "-- T- T- TC -- --"},
  };
  for (const auto& c : cases) {
    Reset();
    Set("demod.fault", c.fault), Set("demod.lose_after", c.lose_after);
    Set("demod.timing_lock_reads", c.timing_reads);
    Set("demod.carrier_lock_reads", c.carrier_reads);
    Set("signal.carrier", "70025000");
    SetRate(10e6, 16, 0);
    Write(kNco, NcoWord(70e6));
    std::string seen;
    for (const char* step = c.steps; *step; ++step) {
      switch (*step) {
        case 'r': seen += (seen.empty() ? "" : " ") + Poll(1); break;
        case 'p':
          for (int i = 0; i < 10; ++i) Keys({"reg.0x8020", "demod.carrier.locked"});
          break;
        case 'n': Write(kNco, NcoWord(70e6)); break;
        case 'l': Write(kLSynth, 0x4); break;
        case 's': Set("signal.level", "-50"); break;
        case 'o': Set("signal.carrier", "72000000"); break;
      }
    }
    EXPECT_EQ(seen, c.seen) << c.fault << " " << c.steps;
  }
}

// The simulator's test signal replaces the external one while it runs, whatever the keys say.
TEST_F(DemodModels, SimulatorSignalIsWhatTheDemodulatorSeesWhileItRuns) {
  Set("signal.present", "0");
  Write(kSimCarrier, 0xFF000000);   // bits 28-31 are no part of the carrier: fs - 15/16 fs
  Write(kSimControl, 1u << 28 | 9);
  EXPECT_EQ(Keys({"demod.signal.frequency", "demod.signal.rate"}), "11666666.67 18666666.67");
  SetRate(kFs / 10, 8, 0);
  Write(kNco, 0x10000000);
  EXPECT_EQ(Get(0, "demod.offset"), "0.00");
  EXPECT_EQ(Poll(4), "-- T- T- TC");
  EXPECT_NEAR(MeasuredCarrier(true, 3, 0), kFs / 16, 0.05);
  EXPECT_EQ(Read(kError), 0u) << "tuned right onto the test signal";
  EXPECT_NEAR(MeasuredRate(8, 1), kFs / 10, 1.5);
  Write(kSimControl, 9);
  EXPECT_EQ(Keys({"demod.signal.frequency", "demod.carrier.locked"}), "none 0");
  EXPECT_EQ(Read(kNcoRead), 0x10000000u);
}

// Keys of other shapes than a plain number: the loading gauge (read through DEM word 14,
// whose writes are the demodulator's), the signal's real numbers, and a command key.
TEST_F(DemodModels, SignedRealAndCommandKeysParseWholeStringsOnly) {
  const struct { const char* key, *value; int result; const char* shown; } cases[] = {
      {"iso.loading", "-32768", 0, "-32768"}, {"iso.loading", "32768", 2, "0"},
      {"iso.loading", "0x10", 2, "0"},        {"signal.carrier", "1.5e9", 0, "1500000000.00"},
      {"signal.carrier", "12abc", 2, "1200025000.00"},
      {"signal.carrier", "nan", 2, "1200025000.00"},
      {"signal.carrier", "1e400", 2, "1200025000.00"}, {"signal.level", "-40.5", 0, "-40.50"},
      {"pack.clear", "2", 2, "0"},            {"pack.clear", "1", 0, "0"},
  };
  for (const auto& c : cases) {
    Reset();
    EXPECT_EQ(zsim_set(0, c.key, c.value), c.result) << c.key << "=" << c.value;
    EXPECT_EQ(Get(0, c.key), c.shown) << c.key << "=" << c.value;
  }
  Set("iso.loading", "-2");
  Write(kDecimation, 0x20003);
  EXPECT_EQ(Read(kDecimation), 0xFFFEu);
  EXPECT_EQ(Get(0, "demod.m"), "4");
}

}  // namespace
}  // namespace zsim_test
