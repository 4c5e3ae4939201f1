#include "rf/preselectors.h"

#include <cinttypes>

#include "hw/clock.h"
#include "hw/common_module.h"
#include "hw/regs.h"
#include "hw/regs/periph.h"
#include "hw/text.h"
#include "rf/convertor.h"

namespace tvx {
namespace {

constexpr double kDacTimeoutSeconds = cPreselectors::kDacTimeoutMs / 1000.0;
constexpr double kFullScale = 4096.0;

uint32_t DacRegister() { return Periph(periph::kPreselectorDac); }

// (V - min) * 4096 / (max - min), truncated toward zero and not held to the DAC's range: a
// voltage outside the preselector's range gives a code outside 0..4096 (a negative one as its
// two's-complement pattern). Only a value no 32-bit code can stand for is refused: no voltage
// table and no limits an EEPROM can hold produce one on the grid; a frequency that is not a
// number or lies far beyond the grid can.
bool DacCode(double volts, double min, double max, uint32_t* code) {
  const double x = (volts - min) * kFullScale / (max - min);
  if (!(x > -2147483649.0 && x < 2147483648.0)) return false;
  *code = uint32_t(int64_t(x));
  return true;
}

}  // namespace

int32_t cPreselectors::LoadPreselectors(cConvertor* convertor, double frequency) {
  if (!convertor) {
    FormatInto(Text, TextSize, "%s", kDataPointerNotSet);
    return kNoDacCode;
  }
  static const uint8_t kFirst = 1, kSecond = 2;
  const uint8_t type = convertor->GetType();
  const bool two = type == 1 || type == 2;
  const double max1 = convertor->GetMaxVoltage(&kFirst), min1 = convertor->GetMinVoltage(&kFirst);
  const char* zero_range =
      "Ошибка загрузки преселектора %d, разница макс. и мин. напряжений нулевая (%5.3lf, %5.3lf)";
  if (max1 - min1 == 0) {
    FormatInto(Text, TextSize, zero_range, 1, max1, min1);
    return two ? kZeroRangeFirst : kZeroRangeSingle;
  }
  double max2 = 0, min2 = 0;
  if (two) {
    max2 = convertor->GetMaxVoltage(&kSecond), min2 = convertor->GetMinVoltage(&kSecond);
    if (max2 - min2 == 0) {
      FormatInto(Text, TextSize, zero_range, 2, max2, min2);
      return kZeroRangeSecond;
    }
  }
  const double v1 = convertor->GetControlVoltage(&frequency, &kFirst);
  const double v2 = two ? convertor->GetControlVoltage(&frequency, &kSecond) : 0.0;
  uint32_t code1 = 0, code2 = 0;
  const bool first_ok = DacCode(v1, min1, max1, &code1);
  if (!first_ok || (two && !DacCode(v2, min2, max2, &code2))) {
    FormatInto(Text, TextSize,
               "Ошибка загрузки преселектора %d: напряжение %5.3lf В на частоте %5.3lf не "
               "переводится в код ЦАП",
               first_ok ? 2 : 1, first_ok ? v2 : v1, frequency);
    return kNoDacCode;
  }
  // A DAC that did not take a word fails the tuning with the DAC's text: the preselectors then
  // stand where they were, and a tuning reported as done would hide that. The code is the
  // preselector load's own 3 rather than the DAC's -1 or -2, which a caller of the carrier
  // could not tell from a refused frequency or a missing module. The carrier remembers a
  // synthesizer frequency only after a load that succeeded, so the next request for the same
  // frequency retries the whole load.
  return LoadPreselectorDac(code1, code2) == 0 ? 0 : kDacNotTaken;
}

// The time-out is printed in whole milliseconds: 30, where seconds would print 0.
int32_t cPreselectors::LoadPreselectorDac(uint32_t code1, uint32_t code2) {
  const uint32_t first = code1 | periph::kDacFirstWord;
  Io->WritePort(DacRegister(), first);
  if (!WaitDacReady(kDacTimeoutSeconds)) {
    FormatInto(Text, TextSize, "DAC isn't ready, load code (N1) 0x%.8X, timeout %" PRId64 "\n",
               first, kDacTimeoutMs);
    return kDacFirstNotReady;
  }
  Io->WritePort(DacRegister(), code2);
  if (!WaitDacReady(kDacTimeoutSeconds)) {
    FormatInto(Text, TextSize, "DAC isn't ready, load code (N2) 0x%.8X, timeout %" PRId64 "\n",
               code2, kDacTimeoutMs);
    return kDacSecondNotReady;
  }
  return 0;
}

// A read the binding refuses counts as not ready, so a broken register path ends in the
// time-out rather than passing for a DAC that took its word.
bool cPreselectors::WaitDacReady(double timeout) {
  HiResTimer timer;
  timer.StartTimer();
  uint32_t value = 0;
  for (;;) {
    value = 0;
    Io->ReadPort(DacRegister(), &value);
    const double elapsed = timer.ElapsedSeconds();
    if ((value & periph::kDacReady) != 0 || !(elapsed < timeout)) break;
  }
  return (value & periph::kDacReady) != 0;
}

}  // namespace tvx
