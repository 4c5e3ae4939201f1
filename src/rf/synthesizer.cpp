#include "rf/synthesizer.h"

#include <cinttypes>
#include <initializer_list>

#include "hw/clock.h"
#include "hw/regs.h"
#include "hw/regs/periph.h"
#include "hw/text.h"

namespace tvx {
namespace {

// S: a 10 MHz reference divided by 3, a dual-modulus prescaler of 8 (N = 8B + A) and an
// output of half the loop frequency.
constexpr double kSComparisonHz = 10000000.0 / 3;
constexpr uint32_t kSRefWord = 0x20000D;
constexpr uint32_t kSCounterLatch = 2;          // bits 1-0 of the counter word
constexpr uint32_t kSAShift = 2, kSAMask = 0x7C;   // A in bits 6-2
constexpr uint32_t kSBShift = 8, kSBMask = 0x1FFF; // B in bits 20-8
constexpr uint32_t kSCounterFlag = 1u << 22;
constexpr uint32_t kSFunctionWord = 0x931A0;
constexpr uint32_t kSFunctionClear = 0xC0, kSFunctionSet = 0x20;

// L, integer-N: reference divider 1, counter word latch 1, A in bits 7-2, B in bits 20-8.
constexpr uint32_t kLRefWord = 4;
constexpr uint32_t kLCounterLatch = 1;
constexpr uint32_t kLAMask = 0xFC;
constexpr uint32_t kLFunctionBase = 0x12;
constexpr uint32_t kLFunctionClear = 0x168000, kLFunctionSet = 0x90000;
constexpr double kLowReferenceHz = 10000000.0, kHighReferenceHz = 100000000.0;

constexpr uint32_t kSendPauseMs = 1;
constexpr uint32_t kSLockPauseMs = 4;
constexpr uint32_t kLLockPauseMs = 10;
constexpr uint32_t kFractionalSettleMs = 5;

// L, fractional-N: the output divider's settings in register 5, and the ratio's parts.
constexpr double kFractionalSplitHz = 1500000000.0;
constexpr uint32_t kDivideBy2 = 0x6110, kDivideBy1 = 0x6090;
// Its addressed registers: the ratio's integer and fractional parts, and the output control
// (register 5), which takes the divider and then the same four values as at set-up.
constexpr uint32_t kIntegerRegister = 3, kFractionRegister = 4, kOutputRegister = 5;
constexpr uint32_t kOutputSettle[] = {0x2818, 0x60A0, 0x1628, 0};
constexpr double kFractionScale = 16777216.0;   // 2^24

bool IsSet(uint32_t value, uint32_t bit) { return (value & bit) != 0; }

uint32_t ReadBack(cZARIM* io, uint32_t reg) {
  uint32_t value = 0;   // a refused read counts as neither sent nor locked
  io->ReadPort(Periph(reg), &value);
  return value;
}

// A double truncated toward zero, when [lowest, limit) holds it (a number that is not finite,
// or no word can hold, is refused instead of converted).
bool Truncate(double x, double lowest, double limit, int64_t* out) {
  if (!(x >= lowest && x < limit)) return false;
  *out = int64_t(x);
  return true;
}

}  // namespace

uint32_t cSynthesizer::SetSamplingFrequency(const double* frequency) {
  if (!frequency) {
    Format(Text, "%s", kDataPointerNotSet);
    return kBadWord;
  }
  sRefWord = kSRefWord;
  int64_t n64 = 0;
  // N is a signed 32-bit number; a frequency whose N lies beyond it has no counter word.
  if (!Truncate(2 * *frequency / kSComparisonHz + 0.5, -2147483648.0, 2147483648.0, &n64)) {
    Format(Text, "Ошибка загрузки S-синтезатора: недопустимая частота %g Гц", *frequency);
    return kBadWord;
  }
  const int32_t n = int32_t(n64);
  const int32_t b = (n / 8) & int32_t(kSBMask);
  const int64_t a = int64_t(n) - 8 * int64_t(b);
  samplingFrequency = n * kSComparisonHz * 0.5;
  const uint32_t a_field = (uint32_t(a) << kSAShift) & kSAMask;
  sVcoWord = (uint32_t(b) << kSBShift) + kSCounterLatch + a_field + kSCounterFlag;
  if ((a_field >> kSAShift) > uint32_t(b)) {
    Format(Text, "Ошибка загрузки S-синтезатора: %s; A = %" PRId64 ", B = %d",
           "недопустимый код прескалера", a, int(b));
    return kBadWord;
  }
  sFunctionWord = kSFunctionWord;
  return LoadSamplingSynthesizer();
}

uint32_t cSynthesizer::LoadLSynthesizer(const double* frequency, const uint8_t* convertorType,
                                        uint32_t referenceSelect) {
  if (!frequency || !convertorType) {
    Format(Text, "%s", kDataPointerNotSet);
    return kBadWord;
  }
  const double f = *frequency;
  const uint8_t type = *convertorType;
  const double reference = referenceSelect == 1 ? kHighReferenceHz : kLowReferenceHz;
  lRefWord = kLRefWord;
  const uint32_t r = (lRefWord >> 2) & 0x3FFF;
  lFrequency = f;
  int64_t n64 = 0;
  const bool representable = Truncate(f / (reference / r) + 0.5, 0.0, 4294967296.0, &n64);
  if (representable) {
    const uint32_t n = uint32_t(n64);
    const uint32_t b = (n & 0xFFF8) / 8;
    const uint32_t a = n - 8 * b;
    lVcoWord = b * 256 + ((a * 4) & kLAMask) + kLCounterLatch;
  }
  if (type == 0 || type > 6) return kBadType;
  // Negative frequencies and ratios beyond 32 bits name no synthesizer setting.
  if (!representable || !(f >= 0)) {
    Format(Text, "Ошибка загрузки L-синтезатора: недопустимая частота %g Гц", f);
    return kBadWord;
  }
  if (type >= 4) return LoadFractional(f, reference, referenceSelect);

  uint32_t band = 0;
  if (type <= 2)
    band = f < 1250000000.0 ? 0 : f < 1700000000.0 ? 1 : f < 2000000000.0 ? 2 : 3;
  else
    band = f < 1200000000.0   ? 1
           : f < 1500000000.0 ? 2
           : f < 1800000000.0 ? 3
           : f < 2000000000.0 ? 4
                              : 5;
  // log2(8) - 3: the prescaler code for the prescaler of 8.
  const uint32_t prescaler = 0;
  lFunctionWord = ((prescaler & 3) * 128 + (band & 7) * 8 + (band & 7)) * 32768 + kLFunctionBase;
  return LoadLSynthesizerWords();
}

// The ratio is checked before anything is sent, so a refused frequency leaves the chip alone.
uint32_t cSynthesizer::LoadFractional(double f, double reference, uint32_t referenceSelect) {
  const bool low = f < kFractionalSplitHz;
  const double m = low ? (referenceSelect == 1 ? 4 : 2) : (referenceSelect == 1 ? 2 : 1);
  const double x = m * f / reference;
  int64_t integer = 0;
  if (!Truncate(x, 0.0, 4294967296.0, &integer)) {
    Format(Text, "Ошибка загрузки L-синтезатора: недопустимая частота %g Гц", f);
    return kBadWord;
  }
  const uint32_t fraction = uint32_t((x - double(integer)) * kFractionScale);
  WriteRegister(kOutputRegister, low ? kDivideBy2 : kDivideBy1);
  for (uint32_t value : kOutputSettle) WriteRegister(kOutputRegister, value);
  Clock().SleepMs(kSendPauseMs);
  WriteRegister(kIntegerRegister, uint32_t(integer));
  WriteRegister(kFractionRegister, fraction);
  Clock().SleepMs(kFractionalSettleMs);
  return IsSet(ReadBack(Io, periph::kLSynthesizer), periph::kSynthReady) ? 0 : kRefNotReady;
}

uint32_t cSynthesizer::Configure(uint32_t mode) {
  struct Step {
    uint32_t reg, mode0, other;
  };
  static const Step kSteps[] = {
      {2, 1, 2},           {6, 0x2003CA, 0x200B4A}, {9, 0x3FFF, 0x5FFFFF}, {5, 0xF88, 0xF88},
      {5, 0x6110, 0x6110}, {5, 0x2818, 0x2818},     {5, 0x60A0, 0x60A0},   {5, 0x1628, 0x1628},
      {5, 0, 0},           {3, 100, 100},           {4, 0, 0},             {1, 2, 2},
      {7, 0x14D, 0x14D},   {8, 0xC1BEFF, 0xC1BEFF}, {10, 0x2046, 0x2046},  {11, 0x78061, 0x78061},
      {12, 0, 0},          {15, 0x81, 0x81}};
  SelectRegisterMode();
  uint32_t result = 0;
  for (const Step& step : kSteps) result = WriteRegister(step.reg, mode == 0 ? step.mode0 : step.other);
  return result;
}

uint32_t cSynthesizerE::SendWord(uint32_t reg, uint32_t word, const char* name, uint32_t code) {
  Io->WritePort(Periph(reg), word);
  Clock().SleepMs(kSendPauseMs);
  const uint32_t value = ReadBack(Io, reg);
  if (IsSet(value, periph::kSynthReady)) return 0;
  Format(Text, "%s Синтезатор не готов, 0x%.8X", name, value);
  return code;
}

uint32_t cSynthesizerE::CheckLock(uint32_t reg, uint32_t ms, const char* format) {
  Clock().SleepMs(ms);
  const uint32_t value = ReadBack(Io, reg);
  if (IsSet(value, periph::kSynthLocked)) return 0;
  Format(Text, format, value);
  return kNotLocked;
}

// The function word goes out with bits 7 and 6 cleared and bit 5 set: 0x93120.
uint32_t cSynthesizerE::LoadSamplingSynthesizer() {
  sFunctionWord = (sFunctionWord & ~kSFunctionClear) | kSFunctionSet;
  const uint32_t reg = periph::kSSynthesizer;
  if (uint32_t r = SendWord(reg, sRefWord, "REF", kRefNotReady)) return r;
  if (uint32_t r = SendWord(reg, sFunctionWord, "FN", kFunctionNotReady)) return r;
  if (uint32_t r = SendWord(reg, sVcoWord, "VCO", kCounterNotReady)) return r;
  return CheckLock(reg, kSLockPauseMs, "Нет синхронизации синтезатора частоты дискретизации, 0x%.8X");
}

// Both band fields go out as 2 whatever the band: the function word sent is always 0x90012.
uint32_t cSynthesizerE::LoadLSynthesizerWords() {
  lFunctionWord = (lFunctionWord & ~kLFunctionClear) | kLFunctionSet;
  const uint32_t reg = periph::kLSynthesizer;
  if (uint32_t r = SendWord(reg, lRefWord, "REF", kRefNotReady)) return r;
  if (uint32_t r = SendWord(reg, lFunctionWord, "FN", kFunctionNotReady)) return r;
  if (uint32_t r = SendWord(reg, lVcoWord, "VCO", kCounterNotReady)) return r;
  return CheckLock(reg, kLLockPauseMs, "Нет синхронизации L-синтезатора, 0x%.8X");
}

// The value is not masked to 24 bits: a wider one reaches into the register number.
uint32_t cSynthesizerE::WriteRegister(uint32_t reg, uint32_t value) {
  Io->WritePort(Periph(periph::kLSynthesizer), (reg << periph::kSynthRegisterShift) | value);
  Clock().SleepMs(kSendPauseMs);
  return IsSet(ReadBack(Io, periph::kLSynthesizer), periph::kSynthReady) ? 0 : kRefNotReady;
}

uint32_t cSynthesizerE::SelectRegisterMode() {
  return uint32_t(Io->WritePort(Periph(periph::kRfControl), periph::kRegisterMode));
}

}  // namespace tvx
