#include "stream/iso_converter.h"

#include <cmath>

#include "hw/clock.h"
#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"

namespace tvx {
namespace {

constexpr double kWordScale = 268435456.0;   // 2^28
constexpr uint32_t kStrobeMs = 10;
// The largest divider exponent whose power of two a signed 32-bit word holds.
constexpr int kMaxExponent = 30;

}  // namespace

// The generator is set to 2^n * outFClk with n the largest exponent that keeps it at or below
// the limit; between the limit and twice the limit n is 0 and the generator runs above its
// limit as asked. From twice the limit up n would be negative, a divider the control field
// cannot express: such a clock is refused like a zero one, with the same text, and so is one
// that is negative or not a number (a negative factor, or bits per symbol that do not apply)
// and one so low that 2^n no longer fits the 32-bit word the generator's divider is computed in
// (below about 0.044 Hz). Nothing is written for a refused clock.
int32_t cIsoConverter::SetOutputClock(uint32_t bitsPerSymbol, double symbolRate, float a, float b) {
  const double out = double(bitsPerSymbol) * symbolRate * double(a) * double(b);
  const double exponent = std::log(GeneratorLimit / out) / std::log(2.0);
  if (out == 0.0 || !(out > 0.0 && out < 2 * GeneratorLimit) ||
      !(std::trunc(exponent) <= kMaxExponent)) {
    Format(Text, "Ошибка установки выходной тактовой частоты, outFClk = %5.6f", out);
    return 1;
  }
  const int n = int(std::trunc(exponent));
  const double power = double(int32_t(1) << n);
  const uint32_t word = uint32_t(power * out * kWordScale / (ReferenceClock * 0.5) + 0.5);
  Io->WritePort(Dem(dem::kIsoFrequency), word);
  Strobe(dem::kIsoFirstStrobe);
  SerialTransaction(0x00, 0x22, 8);
  SerialTransaction(0x01, 0x900000, 24);
  SerialTransaction(0x04, word, 32);
  Strobe(dem::kIsoSecondStrobe);
  Control = (uint32_t(n) & 0xF) << dem::kIsoExponentShift | dem::kIsoReady;
  Io->WritePort(Dem(dem::kIsoControl), Control);
  return 0;
}

void cIsoConverter::Strobe(uint32_t bit) {
  Control = bit;
  Io->WritePort(Dem(dem::kIsoControl), Control);
  Clock().SleepMs(kStrobeMs);
  Control = 0;
  Io->WritePort(Dem(dem::kIsoControl), Control);
}

// Most significant bit first; each write carries the whole shifted word, of which the
// generator takes bit 0.
void cIsoConverter::SerialTransaction(uint32_t command, uint32_t data, uint32_t bits) {
  Io->WritePort(Dem(dem::kIsoControl), dem::kIsoTransaction);
  for (int i = 7; i >= 0; --i) Io->WritePort(Dem(dem::kIsoSerialData), command >> i);
  for (int j = int(bits) - 1; j >= 0; --j) Io->WritePort(Dem(dem::kIsoSerialData), data >> j);
  Io->WritePort(Dem(dem::kIsoControl), 0);
}

int32_t cIsoConverter::GetLoading() {
  uint32_t value = 0;
  Io->ReadPort(Dem(dem::kIsoLoading), &value);
  return int32_t(int16_t(uint16_t(value)));
}

}  // namespace tvx
