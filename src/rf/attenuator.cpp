#include "rf/attenuator.h"

#include <cmath>

#include "hw/regs.h"
#include "hw/regs/dem.h"

namespace tvx {

int32_t cAttenuator::SetCode(const uint32_t* value) {
  code = *value;
  return 0;
}

// The widest code the attenuator of this convertor type has, which is also its mask.
uint32_t cAttenuator::CodeMask() const {
  return TwoPreselectors() ? dem::kAttenuatorMaskNarrow : dem::kAttenuatorMaskWide;
}

// A failed read counts as code 0 (no attenuation).
uint32_t cAttenuator::ReadCode() {
  uint32_t value = 0;
  Io->ReadPort(Dem(dem::kAttenuator), &value);
  return value & CodeMask();
}

// In single precision, as the step sizes are exact there.
double cAttenuator::CodeToDb(const uint32_t* value) {
  return double(float(*value) * (TwoPreselectors() ? 2.0f : 0.5f));
}

// The attenuator's step here is 0.5 dB for every convertor type, whatever CodeToDb says; the
// code is read afresh.
double cAttenuator::TotalGain(uint32_t firstGainCode, double calibration) {
  const double maxCode = CodeMask();
  const double c = firstGainCode != 0 ? double(firstGainCode) : 1.0;
  const double first = 10.0 * std::log10(c / GetFirstGainScale());
  const double a = double(ReadCode());
  return (maxCode - a) * 0.5 + first - GetGainOffset() + calibration;
}

}  // namespace tvx
