#include "demod/timing.h"

#include <algorithm>
#include <cmath>

#include "demod/modulation.h"
#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"

namespace tvx {
namespace {

constexpr double kRateNcoScale = 67108864.0;     // 2^26
constexpr double kRateFieldScale = 131072.0;     // 2^17
constexpr double kClockMargin = 0.995;

struct DecimationRow {
  uint32_t divisor;       // the row holds for rates above (or from) C / divisor
  bool inclusive;
  uint32_t first;         // D
  uint32_t log2Second;    // log2 M
  uint32_t loopCode;
  uint32_t auxCode;
};

constexpr DecimationRow kDecimationRows[] = {
    {4, false, 2, 0, 15, 15},       {8, false, 4, 0, 15, 15},      {16, false, 8, 0, 14, 14},
    {32, false, 16, 0, 13, 12},     {64, false, 32, 0, 12, 8},     {128, false, 32, 1, 11, 0},
    {256, false, 32, 2, 10, 0},     {512, false, 32, 3, 9, 0},     {1024, false, 32, 4, 8, 0},
    {2048, false, 32, 5, 7, 0},     {4096, false, 32, 6, 6, 0},    {8192, false, 32, 7, 5, 0},
    {16384, false, 32, 8, 4, 0},    {32768, true, 32, 9, 3, 0},    {65536, true, 32, 10, 2, 0},
    {131072, true, 32, 11, 1, 0},
};

}  // namespace

uint32_t cTiming::GetOversamplingCode() {
  const uint32_t m = ControlWord & dem::kSecondDecimationMask;
  const double quotient =
      SampleClock * OversamplingFactor() / (double(FirstDecimation) * SymbolRate * double(m));
  // Only reached with an accepted rate, so the quotient is positive and finite; the minimum is
  // taken before the conversion so that it never leaves the 32-bit range.
  return uint32_t(std::min(std::trunc(quotient), 255.0));
}

double cTiming::GetMaxSymbolRate() {
  return ConvertorType == 5 || ConvertorType == 6 ? 100000000.0 : 60000000.0;
}

// NaN and every rate at or below zero fail all tests and are refused.
int32_t cTiming::SelectDecimation(double rate) {
  SymbolRate = rate;
  if (rate > GetMaxSymbolRate()) return -1;
  const double c = SampleClock * kClockMargin;
  for (const DecimationRow& row : kDecimationRows) {
    const double edge = c / row.divisor;
    if (row.inclusive ? rate >= edge : rate > edge) {
      FirstDecimation = row.first;
      ControlWord = (ControlWord & ~(dem::kSecondDecimationMask | dem::kLog2MMask)) |
                    (1u << row.log2Second) | row.log2Second << dem::kLog2MShift;
      LoopCode = row.loopCode;
      AuxCode = row.auxCode;
      return 0;
    }
  }
  return 1;
}

int32_t cTiming::SetSymbolRate(const double* rate, const cModulation* modulation) {
  const uint32_t timingBits = modulation->GetTimingBits();
  if (SelectDecimation(*rate) != 0) {
    Format(Text, "Ошибка установки тактовой частоты, недопустимое значение: %5.3f", *rate);
    return 1;
  }
  SymbolRate = *rate;
  const uint32_t m = ControlWord & dem::kSecondDecimationMask;
  // In this order of operations; an accepted rate keeps the word below 2^26 * 2.
  const uint32_t nco = uint32_t(double(FirstDecimation) * (SymbolRate * kRateNcoScale) * double(m) /
                                    SampleClock + 0.5);
  const uint32_t oversampling = GetOversamplingCode();
  WriteLoopWord(timingBits);
  Io->WritePort(Dem(dem::kRateNco), nco);
  Io->WritePort(Dem(dem::kOversampling), oversampling);
  Io->WritePort(Dem(dem::kDecimation), (ControlWord & ~dem::kSecondDecimationMask) | (m - 1));
  return 0;
}

void cTiming::WriteLoopWord(uint32_t timingBits) {
  const uint32_t field = uint32_t(GetNormalizedRate() * kRateFieldScale + 0.5);
  Io->WritePort(Dem(dem::kTimingLoop), LoopCode | field << dem::kRateFieldShift | timingBits);
}

uint32_t cTiming::ReadRateNco() {
  uint32_t value = 0;
  Io->ReadPort(Dem(dem::kRateNcoRead), &value);
  return value & dem::kRateNcoMask;
}

// Before the first accepted rate there are no decimations to divide by: the answer is 0.
double cTiming::MeasureSymbolRate() {
  const uint32_t v = ReadRateNco();
  const uint32_t m = ControlWord & dem::kSecondDecimationMask;
  if (m == 0 || FirstDecimation == 0) return 0.0;
  return double(v) * SampleClock / kRateNcoScale / double(m) / double(FirstDecimation);
}

bool cTiming::IsLocked(const uint32_t* threshold) {
  uint32_t value = 0;
  Io->ReadPort(Dem(dem::kLockLevels), &value);
  return dem::LockLevelReached(value, dem::kTimingLockShift, *threshold);
}

void cTiming::GetControl(TimingControl* control) const {
  control->FirstDecimation = FirstDecimation;
  control->ControlWord = ControlWord;
  control->LoopCode = LoopCode;
  control->AuxCode = AuxCode;
}

int32_t cTimingMode::SetMode(const uint32_t* mode) {
  Io->WritePort(Dem(dem::kTimingMode), *mode);
  return 0;
}

}  // namespace tvx
