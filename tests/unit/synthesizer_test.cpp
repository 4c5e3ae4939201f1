// The synthesizers' words, waits and failures, over the board's synthesizer model in process.
#include <cmath>

#include "board_fixture.h"
#include "rf/synthesizer.h"

namespace tvx::test {
namespace {

constexpr uint32_t kSWord = 0x4004, kLWord = 0x4008;

class SynthesizerTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
  }
  void Restart() { model.ClearTrace(), clock.sleeps.clear(); }
  cSynthesizer* s() const { return board()->Get<cSynthesizer>(Slot::Synthesizer); }
  DeviceId id{0};
};

// The nearest multiple of 1.67 MHz; A above B, or a frequency no counter word holds, is
// refused before anything is sent. SampleClock stays.
TEST_F(SynthesizerTest, SamplingClockWords) {
  const std::string refused = "sSynthLoad [0]: Ошибка загрузки S-синтезатора: ";
  const struct { double hz; int32_t result; uint32_t counter; double realised; std::string text; } cases[] = {
      {186666666.67, 0, 0x400E02, 186666666.67, ""},
      {1.71e8, 0, 0x400C1E, 171666666.67, ""},   // B 12, A 15
      {8333333.3, 1, 0, 8333333.33, refused + "недопустимый код прескалера; A = 5, B = 0"},
      {NAN, 1, 0, 8333333.33, refused + "недопустимая частота nan Гц"}};
  for (const auto& c : cases) {
    Restart();
    LastErrorText[0] = '\0';
    EXPECT_EQ(sSynthLoad(&id, &c.hz), c.result) << c.hz;
    EXPECT_EQ(GetErrorMessage(), c.text);
    EXPECT_NEAR(s()->sampling_frequency(), c.realised, 0.01);
    const bool sent = c.result == 0;
    EXPECT_EQ(Written(kSWord), sent ? std::vector<uint32_t>({0x20000D, 0x93120, c.counter})
                                    : std::vector<uint32_t>());
    EXPECT_EQ(clock.ms(), sent ? std::vector<uint32_t>({1, 1, 1, 4}) : std::vector<uint32_t>());
  }
  EXPECT_EQ(SampleClock, 560e6 / 3);
}

// A word never sent stops the load there, quoting the value read back; a loop that never
// locks fails after all three.
TEST_F(SynthesizerTest, SamplingClockFailures) {
  const double hz = 186666666.67;
  const struct { uint32_t stuck, result; size_t sent; const char* text; } cases[] = {
      {0x20000D, 0xFFFFFFFF, 1, "REF Синтезатор не готов, 0x0020000D"},
      {0x93120, 0xFFFFFFFE, 2, "FN Синтезатор не готов, 0x00093120"},
      {0x400E02, 0xFFFFFFFD, 3, "VCO Синтезатор не готов, 0x00400E02"},
      {0, 0xFFFFFFFC, 3, "Нет синхронизации синтезатора частоты дискретизации, 0x80400E02"}};
  for (const auto& c : cases) {
    Set("synth.s.fault", c.stuck ? "none" : "never_lock");
    io()->on_read = [&c](uint32_t address, uint32_t* value) {
      if (address == kSWord && (*value & 0xFFFFFF) == c.stuck) *value &= 0x7FFFFFFF;
    };
    Restart();
    EXPECT_EQ(s()->SetSamplingFrequency(&hz), c.result);
    EXPECT_STREQ(s()->GetErrorText(), c.text);
    EXPECT_EQ(Written(kSWord).size(), c.sent);
  }
}

// Integer-N: reference, function (always 0x90012) and counter word, the lock after 10 ms;
// fractional-N: register 5's settings, the ratio's integer and fraction, ready 5 ms later.
TEST_F(SynthesizerTest, LocalOscillatorWords) {
  const std::vector<uint32_t> integer_sleeps{1, 1, 1, 10}, fractional_sleeps{1, 1, 1, 1, 1, 1, 1, 1, 5};
  // Register 5's divider setting first; the three settings after it never change.
  auto fractional = [](uint32_t divider, uint32_t integer, uint32_t fraction) {
    return std::vector<uint32_t>{0x05000000 | divider, 0x05002818, 0x050060A0, 0x05001628, 0x05000000,
                                 0x03000000 | integer, 0x04000000 | fraction};
  };
  const struct { uint8_t type; double hz; uint32_t reference_select, result; std::vector<uint32_t> words; } cases[] = {
      {3, 1.34e9, 0, 0, {4, 0x90012, 0x1019}},
      {1, 2.05e9, 0, 0, {4, 0x90012, 0x1915}},
      {5, 1.555e9, 0, 0, fractional(0x6090, 0x9B, 0x800000)},
      {4, 1499999999, 0, 0, fractional(0x6110, 0x12B, 0xFFFFFC)},
      {6, 1.5e9, 1, 0, fractional(0x6090, 0x1E, 0)},
      {0, 1.34e9, 0, 0xFFFFFFF6, {}},
      {7, 1.34e9, 0, 0xFFFFFFF6, {}},
      {3, -1.0, 0, 1, {}}};
  for (const auto& c : cases) {
    Restart();
    cSynthesizerE l(io(), c.type);
    EXPECT_EQ(l.LoadLSynthesizer(&c.hz, &c.type, c.reference_select), c.result) << l.GetErrorText();
    EXPECT_EQ(Written(kLWord), c.words) << "type " << int(c.type) << " " << c.hz;
    EXPECT_EQ(clock.ms(), c.words.empty() ? std::vector<uint32_t>()
                          : c.type < 4    ? integer_sleeps
                                          : fractional_sleeps);
  }
  Set("synth.l.fault", "never_ready");
  const double hz = 1.555e9;
  const uint8_t type = 5;
  EXPECT_EQ(cSynthesizerE(io(), type).LoadLSynthesizer(&hz, &type, 0), 0xFFFFFFFFu);
}

}  // namespace
}  // namespace tvx::test
