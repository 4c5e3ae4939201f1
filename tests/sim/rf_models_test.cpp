// The RF front end as the library drives it: synthesizer words decoded back into the frequency
// they program, ready and lock lines with their faults, the preselector DAC, the ADC's serial
// port read bit by bit, and the convertor type key that must keep presence and version together.
#include <memory>

#include "sim_test_util.h"

namespace zsim_test {
namespace {

constexpr uint32_t kControlWord = 0x4000, kSynthS = 0x4004, kSynthL = 0x4008, kDac = 0x400C;
constexpr uint32_t kStatus1 = 0x8018, kCounter = 0x8020, kStatus2 = 0x8180;
constexpr uint32_t kAdcControl = 0x8098, kAdcData = 0x809C;
constexpr uint32_t kReady = 1u << 31, kLock = 1u << 24;

class RfModels : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    board_ = std::make_unique<OpenBoard>(0, false, false);
  }
  void TearDown() override {
    board_.reset();
    SimTest::TearDown();
  }

  uint32_t Read(uint32_t address) {
    PortRequest request{address, 0};
    EXPECT_EQ(ZARIM_Read(board_->handle, &request), 0);
    return request.value;
  }
  void Write(uint32_t address, uint32_t value) {
    PortRequest request{address, value};
    EXPECT_EQ(ZARIM_Write(board_->handle, &request), 0);
  }
  // One word to a synthesizer, and the ready check that follows it.
  bool Send(uint32_t address, uint32_t word) {
    Write(address, word);
    return (Read(address) & kReady) != 0;
  }

  // The ADC's serial port: instruction and data most significant bit first; a read clocks
  // each bit in after looking at the status word's bit 14.
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
    for (int i = 15; i >= 0; --i) Write(kAdcData, (address >> i) & 1);
    for (int i = 7; i >= 0; --i) Write(kAdcData, (value >> i) & 1);
    Write(kAdcControl, 0);
  }

  std::unique_ptr<OpenBoard> board_;
};

TEST_F(RfModels, SamplingSynthesizerDecodesTheLoadBackIntoItsFrequency) {
  const struct { uint32_t counter; const char* hz; const char* n; } cases[] = {
      {0x400E02, "186666666.67", "112"},   // B 14, A 0
      {0x401502, "280000000.00", "168"},   // B 21, A 0
      {0x400E16, "195000000.00", "117"},   // B 14, A 5
  };
  for (const auto& c : cases) {
    zsim_reset();
    EXPECT_TRUE(Send(kSynthS, 0x20000D));
    EXPECT_TRUE(Send(kSynthS, 0x93120));
    EXPECT_TRUE(Send(kSynthS, c.counter));
    EXPECT_EQ(Read(kSynthS), kReady | kLock | c.counter) << c.hz;
    EXPECT_EQ(Get(0, "synth.s.frequency") + " N " + Get(0, "synth.s.n"), std::string(c.hz) + " N " + c.n);
    EXPECT_EQ(Get(0, "synth.s.function") + Get(0, "synth.s.locked"), "0x000931201");
  }
}

TEST_F(RfModels, IntegerLSynthesizerOnTheDefaultConvertor) {
  EXPECT_EQ(Get(0, "synth.l.kind"), "integer");
  for (uint32_t word : {0x4u, 0x90012u, 0x1019u}) EXPECT_TRUE(Send(kSynthL, word));   // N 134
  EXPECT_NE(Read(kSynthL) & kLock, 0u);
  EXPECT_EQ(Get(0, "synth.l.frequency") + " N " + Get(0, "synth.l.n"), "1340000000.00 N 134");
}

TEST_F(RfModels, FractionalLSynthesizerTakesAddressedRegistersInRegisterMode) {
  ASSERT_EQ(zsim_set(0, "lconv.type", "5"), 0);
  Write(kControlWord, 4);
  EXPECT_EQ(Read(kControlWord), 5u) << "the presence bit stays beside the register mode";
  const struct { uint32_t divider_setting, nint, nfrac; const char* hz; } cases[] = {
      {0x6090, 155, 0x800000, "1555000000.00"},   // output divided by 1
      {0x6110, 246, 0x400000, "1231250000.00"},   // by 2: 246.25 x 10 MHz / 2
  };
  for (const auto& c : cases) {
    for (uint32_t word : {5u << 24 | c.divider_setting, 5u << 24 | 0x2818, 5u << 24 | 0x60A0,
                          5u << 24 | 0x1628, 5u << 24, 3u << 24 | c.nint, 4u << 24 | c.nfrac})
      EXPECT_TRUE(Send(kSynthL, word));
    EXPECT_NE(Read(kSynthL) & kLock, 0u) << c.hz;
    EXPECT_EQ(Get(0, "synth.l.frequency"), c.hz);
  }
  EXPECT_EQ(Get(0, "synth.l.kind") + Get(0, "synth.l.register_mode") + Get(0, "synth.l.reg.3"),
            "fractional10x000000F6");
}

TEST_F(RfModels, ReadyAndLockLinesFollowTheirCountsAndFaults) {
  // Reads after the counter word: ready bit, then lock bit, per read.
  const struct { const char* fault; const char* ready_after; const char* lock_after; const char* seen; } cases[] = {
      {"none", "0", "1", "R- RL RL RL"},
      {"none", "2", "3", "-- -- R- RL"},
      {"never_ready", "0", "0", "-L -L -L -L"},
      {"never_lock", "0", "0", "R- R- R- R-"},
      {"lose_lock", "0", "1", "R- RL R- R-"},
  };
  for (const auto& c : cases) {
    zsim_reset();
    ASSERT_EQ(zsim_set(0, "synth.s.fault", c.fault) | zsim_set(0, "synth.s.ready_after", c.ready_after) |
                  zsim_set(0, "synth.s.lock_after", c.lock_after), 0);
    Write(kSynthS, 0x20000D);
    Write(kSynthS, 0x400E02);
    std::string seen;
    for (int i = 0; i < 4; ++i) {
      const uint32_t v = Read(kSynthS);
      seen += std::string(i ? " " : "") + (v & kReady ? "R" : "-") + (v & kLock ? "L" : "-");
    }
    EXPECT_EQ(seen, c.seen) << c.fault << " " << c.ready_after << " " << c.lock_after;
  }
}

TEST_F(RfModels, LoopWithoutASensibleProgramNeverLocks) {
  const struct { bool reference; uint32_t counter; bool locks; } cases[] = {
      {true, 0x400016, false},   // A 5 above B 0: the prescaler cannot count that
      {false, 0x400E02, false},  // no reference word since power-on
      {true, 0x400E02, true}};
  for (const auto& c : cases) {
    zsim_reset();
    if (c.reference) Write(kSynthS, 0x20000D);
    Write(kSynthS, c.counter);
    Read(kSynthS);
    EXPECT_EQ(Read(kSynthS) & kLock, c.locks ? kLock : 0u) << std::hex << c.counter;
  }
}

TEST_F(RfModels, PreselectorDacRoutesByBit15AndReportsVoltages) {
  Write(kDac, 0x8000 | 2048);
  EXPECT_NE(Read(kDac) & kReady, 0u);
  Write(kDac, 0);
  // Module EEPROM: preselector 1 from 0.50 V to 20.00 V, preselector 2 from 0.40 V to 19.50 V.
  EXPECT_EQ(Get(0, "dac.code.1") + " " + Get(0, "dac.voltage.1") + " " + Get(0, "dac.code.2") +
                " " + Get(0, "dac.voltage.2"),
            "2048 10.250 0 0.400");
  ASSERT_EQ(zsim_set(0, "dac.fault", "never_ready"), 0);
  Write(kDac, 0x8000 | 4096);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(Read(kDac) & kReady, 0u);
  EXPECT_EQ(Get(0, "dac.voltage.1"), "20.000");
}

TEST_F(RfModels, AdcAnswersItsRegistersBitSeriallyOnBothChannels) {
  for (uint32_t status : {kStatus1, kStatus2}) {
    EXPECT_EQ(AdcRead(0x01, status), 12u);
    EXPECT_EQ(AdcRead(0x02, status), 0x08u);
  }
  ASSERT_EQ(zsim_set(0, "adc.speed", "0x10"), 0);
  EXPECT_EQ(AdcRead(0x02), 0x10u);

  AdcWrite(0x14, 1);
  EXPECT_EQ(Get(0, "adc.output_mode"), "0x00") << "not in force before the update";
  AdcWrite(0xFF, 1);
  EXPECT_EQ(Get(0, "adc.output_mode") + " " + Get(0, "adc.updates"), "0x01 1");
  EXPECT_EQ(AdcRead(0xFF), 0u) << "the update clears itself";
  Write(kAdcControl, 4);
  Write(kAdcControl, 0);
  EXPECT_EQ(Get(0, "adc.output_mode"), "0x00") << "a reset request restores power-on";

  ASSERT_EQ(zsim_set(0, "adc.fault", "absent"), 0);
  EXPECT_EQ(AdcRead(0x01), 0u);
}

TEST_F(RfModels, SharedStatusWordsKeepTheOtherBitsTheirs) {
  Write(kStatus1, 0x30004000);
  EXPECT_EQ(Read(kStatus1), 0x30000000u) << "bit 14 is the ADC's line, undriven";
  ASSERT_EQ(zsim_set(0, "adc.counter", "0xA5"), 0);
  Write(kCounter, 0x12345678);
  EXPECT_EQ(Read(kCounter), 0x1234A578u);
  ASSERT_EQ(zsim_set(0, "reg.0x8018", "0x4000"), 0);
  EXPECT_EQ(AdcRead(0x01), 0xFFu) << "a forced word holds every bit, the line included";
}

// The type sets presence and version together (the library's convertor tests set every type
// and see it detected); read back, it follows what the library would see, whichever key changed it.
TEST_F(RfModels, ConvertorTypeReadsBackFromPresenceAndVersion) {
  EXPECT_EQ(Get(0, "lconv.type"), "3");
  ASSERT_EQ(zsim_set(0, "lconv.present", "1") | zsim_set(0, "eeprom.lconv.byte.0x0084", "4"), 0);
  EXPECT_EQ(Get(0, "lconv.type") + Get(0, "synth.l.kind"), "5fractional");
  for (const char* bad : {"1", "6", "three"}) EXPECT_EQ(zsim_set(0, "lconv.type", bad), 2) << bad;
}

}  // namespace
}  // namespace zsim_test
