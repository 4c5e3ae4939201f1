// The RF front end as the library drives it: the synthesizers' set-up, ready and lock lines with
// their faults, the ADC's serial port bit by bit. (The frequencies decoded from the library's
// own loads, the preselector DAC's words, and that a convertor type sets presence and version
// together, the library's bring-up and carrier tests show.)
#include <array>
#include <string>
#include <vector>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

constexpr uint32_t kControlWord = 0x4000, kSynthS = 0x4004, kSynthL = 0x4008;
constexpr uint32_t kStatus1 = 0x8018, kCounter = 0x8020, kStatus2 = 0x8180;
constexpr uint32_t kAdcControl = 0x8098, kAdcData = 0x809C;
constexpr uint32_t kReady = 1u << 31, kLock = 1u << 24;

class RfModels : public PortTest {
 protected:
  // What the library writes to set the fractional-N L synthesizer up and tune it: register
  // mode, the set-up of its mode (0 for the type-4 chip, 1 for the others), then one retune
  // {divider word, integer part, fraction}. `skew` (step, xor) spoils one word of the set-up.
  void LoadFractional(uint32_t mode, std::array<uint32_t, 3> tune, std::pair<int, uint32_t> skew = {-1, 0}) {
    static const uint32_t kSetup[18][3] = {
        {2, 1, 2},           {6, 0x2003CA, 0x200B4A}, {9, 0x3FFF, 0x5FFFFF}, {5, 0xF88, 0xF88},
        {5, 0x6110, 0x6110}, {5, 0x2818, 0x2818},     {5, 0x60A0, 0x60A0},   {5, 0x1628, 0x1628},
        {5, 0, 0},           {3, 100, 100},           {4, 0, 0},             {1, 2, 2},
        {7, 333, 333},       {8, 0xC1BEFF, 0xC1BEFF}, {10, 0x2046, 0x2046},  {11, 0x78061, 0x78061},
        {12, 0, 0},          {15, 0x81, 0x81}};
    Write(kControlWord, 4);
    for (int i = 0; i < 18; ++i)
      Write(kSynthL, kSetup[i][0] << 24 | (kSetup[i][1 + mode] ^ (i == skew.first ? skew.second : 0)));
    for (uint32_t word : {5u << 24 | tune[0], 5u << 24 | 0x2818, 5u << 24 | 0x60A0, 5u << 24 | 0x1628,
                          5u << 24, 3u << 24 | tune[1], 4u << 24 | tune[2]})
      Write(kSynthL, word);
  }

  // The ADC's serial port, most significant bit first; a read takes each bit from the status
  // word's bit 14 before clocking it.
  uint32_t AdcRead(uint32_t address, uint32_t status = kStatus1) {
    Write(kAdcControl, 3);
    for (int i = 15; i >= 0; --i) Write(kAdcData, ((address | 0x8000) >> i) & 1);
    Write(kAdcControl, 1);
    uint32_t value = 0;
    for (int i = 7; i >= 0; --i) {
      const uint32_t line = Read(status);
      Write(kAdcData, 0);
      if (line & (1u << 14)) value |= 1u << i;
    }
    Write(kAdcControl, 0);
    return value;
  }
  void AdcWrite(uint32_t address, uint32_t value) {
    Write(kAdcControl, 3);
    for (int i = 23; i >= 0; --i) Write(kAdcData, ((address << 8 | value) >> i) & 1);
    Write(kAdcControl, 0);
  }
};

// The fractional-N chip locks only after its whole set-up, in register mode, word for word for
// its mode, and a retune in order: any one word of the eighteen changed, the set-up of the
// other chip, no register mode, or a retune out of order leaves it unlocked.
TEST_F(RfModels, FractionalLSynthesizerLocksOnlyAfterItsExactSetUpAndRetune) {
  struct Case {
    const char* what;
    uint32_t type, mode;
    int skew_step;   // -1: none
    bool register_mode, retune_in_order, locks;
  };
  std::vector<Case> cases = {{"type 5, mode 1", 5, 1, -1, true, true, true},
                             {"type 4, mode 0", 4, 0, -1, true, true, true},
                             {"type 5 with mode 0's words", 5, 0, -1, true, true, false},
                             {"type 4 with mode 1's words", 4, 1, -1, true, true, false},
                             {"no register mode", 5, 1, -1, false, true, false},
                             {"integer part before the calibration", 5, 1, -1, true, false, false}};
  for (int step = 0; step < 18; ++step) cases.push_back({"one set-up word off", 5, 1, step, true, true, false});
  for (const Case& c : cases) {
    Reset();
    ASSERT_EQ(zsim_set(0, "lconv.type", std::to_string(c.type).c_str()), 0);
    LoadFractional(c.mode, {0x6110, 246, 0x400000}, {c.skew_step, 1});
    if (!c.register_mode) {
      Write(kControlWord, 0);
      LoadFractional(c.mode, {0x6110, 246, 0x400000});
      Write(kControlWord, 0);   // LoadFractional selects it: take it away again and repeat
      for (uint32_t word : {0x05006110u, 0x05002818u, 0x050060A0u, 0x05001628u, 0x05000000u,
                            3u << 24 | 246, 4u << 24 | 0x400000})
        Write(kSynthL, word);
    }
    if (!c.retune_in_order)
      for (uint32_t word : {3u << 24 | 246, 0x05006110u, 0x05002818u, 0x050060A0u, 0x05001628u,
                            4u << 24 | 0x400000, 0x05000000u})
        Write(kSynthL, word);
    Advance(5000);
    EXPECT_EQ((Read(kSynthL) & kLock) != 0, c.locks) << c.what << " " << c.skew_step;
  }
  // Output divided by 2: 246.25 x 10 MHz / 2.
  EXPECT_EQ(Read(kControlWord), 5u) << "the presence bit stays beside the register mode";
  EXPECT_EQ(Keys({"synth.l.frequency", "synth.l.n", "synth.l.kind", "synth.l.reg.3"}),
            "1231250000.00 246.25 fractional 0x000000F6");
}

// Ready and lock bits read at 0.2, 1, 3 and 5 ms after the counter word: ready rises after
// 0.5 ms, lock after 3 ms, each later by its count of reads. A counter word with A above B
// (which the prescaler cannot count), no reference word since power-on, or a function word
// other than the chip's never locks.
TEST_F(RfModels, ReadyAndLockLinesFollowTimeCountsFaultsAndProgram) {
  const struct {
    const char* fault, *ready_after, *lock_after;
    uint32_t reference, function, counter;
    const char* seen;
  } cases[] = {
      {"none", "0", "0", 0x20000D, 0x93120, 0x400E02, "-- R- RL RL"},
      {"none", "2", "3", 0x20000D, 0x93120, 0x400E02, "-- -- R- RL"},
      {"never_ready", "0", "0", 0x20000D, 0x93120, 0x400E02, "-- -- -L -L"},
      {"never_lock", "0", "0", 0x20000D, 0x93120, 0x400E02, "-- R- R- R-"},
      {"lose_lock", "0", "0", 0x20000D, 0x93120, 0x400E02, "-- R- RL R-"},
      {"none", "0", "0", 0x20000D, 0x93120, 0x400016, "-- R- R- R-"},
      {"none", "0", "0", 0, 0x93120, 0x400E02, "-- R- R- R-"},
      {"none", "0", "0", 0x20000D, 0x931A0, 0x400E02, "-- R- R- R-"},
  };
  for (const auto& c : cases) {
    Reset();
    ASSERT_EQ(zsim_set(0, "synth.s.fault", c.fault) | zsim_set(0, "synth.s.ready_after", c.ready_after) |
                  zsim_set(0, "synth.s.lock_after", c.lock_after), 0);
    if (c.reference) Write(kSynthS, c.reference);
    Write(kSynthS, c.function);
    Write(kSynthS, c.counter);
    std::string seen;
    for (uint32_t step : {200, 800, 2000, 2000}) {
      Advance(step);
      const uint32_t v = Read(kSynthS);
      seen += std::string(seen.empty() ? "" : " ") + (v & kReady ? "R" : "-") + (v & kLock ? "L" : "-");
    }
    EXPECT_EQ(seen, c.seen) << c.fault << " " << c.ready_after << " " << c.lock_after << " " << c.counter;
  }
}

TEST_F(RfModels, AdcAnswersBitSeriallyOnBothChannelsInSharedWords) {
  for (uint32_t status : {kStatus1, kStatus2})
    EXPECT_EQ(AdcRead(0x01, status) << 8 | AdcRead(0x02, status), 0x0C08u) << status;
  AdcWrite(0x14, 1);
  EXPECT_EQ(Get(0, "adc.output_mode"), "0x00") << "not in force before the update";
  Advance(4900);
  AdcWrite(0xFF, 1);
  EXPECT_EQ(Get(0, "adc.output_mode"), "0x00") << "an update before the mode settled";
  Advance(100);
  AdcWrite(0xFF, 1);
  EXPECT_EQ(Get(0, "adc.output_mode") + " " + Get(0, "adc.updates"), "0x01 2");
  EXPECT_EQ(AdcRead(0xFF), 0u) << "the update clears itself";
  Write(kAdcControl, 4);
  Write(kAdcControl, 0);
  EXPECT_EQ(Get(0, "adc.output_mode"), "0x00") << "a reset request restores power-on";
  Advance(4900);
  EXPECT_EQ(AdcRead(0x01), 0u) << "nothing answers before the reset settled";
  Advance(100);
  EXPECT_EQ(AdcRead(0x01), 0x0Cu);
  ASSERT_EQ(zsim_set(0, "adc.fault", "absent"), 0);
  EXPECT_EQ(AdcRead(0x01), 0u);
  // The status and counter words the ADC shares keep their other bits.
  Write(kStatus1, 0x30004000);
  EXPECT_EQ(Read(kStatus1), 0x30000000u) << "bit 14 is the ADC's line, undriven";
  ASSERT_EQ(zsim_set(0, "adc.counter", "0xA5"), 0);
  Write(kCounter, 0x12345678);
  EXPECT_EQ(Read(kCounter), 0x8080A508u)
      << "bits 31-16: the demodulator's levels, unlocked; bits 7-0: the attenuator's code";
}

}  // namespace
}  // namespace zsim_test
