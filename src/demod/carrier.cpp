#include "demod/carrier.h"

#include <cmath>
#include <exception>
#include <limits>

#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"
#include "rf/convertor.h"
#include "rf/preselectors.h"
#include "rf/synthesizer.h"

namespace tvx {
namespace {

constexpr double kTwoTo31 = 2147483648.0;
constexpr double kRegisterSpan = 4294967296.0;   // 2^32

// The preselector load of the carrier: the DAC load goes through the carrier's own (virtual)
// operation, the codes and texts are the carrier's.
class CarrierPreselectors : public cPreselectors {
 public:
  CarrierPreselectors(cZARIM* io, char* text, size_t size, cCarrier* carrier)
      : cPreselectors(io, text, size), carrier_(carrier) {}
  int32_t LoadPreselectorDac(uint32_t code1, uint32_t code2) override {
    return carrier_->LoadPreselectorDac(code1, code2);
  }

 private:
  cCarrier* carrier_;
};

// (x / fs * 2^31) * 2 + 0.5 truncated toward zero, as the register's 32-bit pattern. Where the
// value fits a signed 32-bit word (|x| below fs / 2) that is the plain conversion. A direct
// carrier from fs / 2 up to 200 MHz does not fit; its word is reduced modulo 2^32 (exactly, in
// floating point), which is the word of the carrier's alias: the NCO's phase turns once per
// 2^32, so the register then holds the one phase step that tunes to that carrier, and reading
// it back unsigned gives the carrier itself below fs and its alias above.
uint32_t NcoWord(double x, double fs) {
  double word = std::trunc((x / fs * kTwoTo31) * 2 + 0.5);
  word = std::fmod(word, kRegisterSpan);
  if (word < 0) word += kRegisterSpan;
  return uint32_t(uint64_t(word));
}

}  // namespace

double cCarrier::GetLoStep(uint8_t type) { return type == 5 || type == 6 ? 5000000.0 : 10000000.0; }

double cCarrier::GetIfFrequency(uint8_t type) {
  return type == 5 || type == 6 ? 350000000.0 : 140000000.0;
}

void cCarrier::SetDirectInput(uint8_t type, uint32_t flag) {
  if (type == 4 || type == 5 || type == 6) Io->WritePort(Dem(dem::kDirectInput), flag);
}

void cCarrier::SetBandSelect(const uint32_t* flag) { Io->WritePort(Dem(dem::kBandSelect), *flag); }

void cCarrier::WriteNcoWord(const uint32_t* word) { Io->WritePort(Dem(dem::kCarrierNco), *word); }

int32_t cCarrier::LoadPreselectors(double frequency) {
  CarrierPreselectors preselectors(Io, Text, sizeof Text, this);
  return preselectors.LoadPreselectors(Convertor, frequency);
}

// Values that name no carrier are refused before anything changes, with no conversion made
// from them: +inf is above the range, and -inf, which no NCO word stands for, is refused the
// same way; NaN compares false everywhere and goes the L-band way, where the synthesizer
// refuses its LO (NaN) with its own code and text.
int32_t cCarrier::SetFrequency(const double* frequency, bool loadNco) {
  const double f = *frequency;
  if (f > Convertor->GetHighFrequency() || f == -std::numeric_limits<double>::infinity()) {
    Format(Text, "Недопустимая частота: %5.3lf", f);
    return -1;
  }
  Frequency = f;
  const uint8_t type = Convertor->GetType();
  if (type == 1 || type == 2) {
    const uint32_t band = f >= Convertor->GetBandSplit() ? 1 : 0;
    SetBandSelect(&band);
  }
  uint32_t nco = 0;
  if (f < kDirectLimit) {
    nco = NcoWord(f, SampleClock);
    SetDirectInput(type, 1);
  } else {
    SetDirectInput(type, 0);
    const double step = GetLoStep(type);
    const double target = GetIfFrequency(type) + f;
    // The step count truncated toward zero; for every finite f up to the convertor's limit
    // that is the signed 32-bit conversion (a few hundred steps), and NaN stays NaN.
    const double lo = step * std::trunc(target / step + 0.5);
    const double intermediate = lo - f;
    if (std::isfinite(intermediate)) nco = NcoWord(SampleClock - intermediate, SampleClock);
    if (lo != SynthFrequency) {
      if (int32_t r = LoadSynthesizer(lo, type)) return r;
      if (f > kDirectLimit) {
        int32_t r = 0;
        try {
          r = LoadPreselectors(Frequency);
        } catch (...) {
          Format(Text, "AV Ошибка загрузки преселекторов, частота: %5.3lf", lo);
          r = 3;
        }
        if (r != 0) return r;
      }
      SynthFrequency = lo;
    }
  }
  if (loadNco) WriteNcoWord(&nco);
  return 0;
}

double cCarrier::MeasureFrequency(double symbolRate) {
  const uint8_t type = Convertor->GetType();
  const uint32_t a = ReadNcoFrequency();
  const int32_t e = ReadFrequencyError();
  const double fs = SampleClock;
  if (Frequency < kDirectLimit) return a * fs / kTwoTo31 * 0.5;
  return SynthFrequency - (GetNyquistFactor(type) - a / kTwoTo31 * 0.5) * fs +
         e * symbolRate / kTwoTo31 * 0.5;
}

bool cCarrier::IsLocked(const uint32_t* threshold) {
  uint32_t value = 0;
  Io->ReadPort(Dem(dem::kLockLevels), &value);
  return dem::LockLevelReached(value, dem::kCarrierLockShift, *threshold);
}

uint32_t cCarrier::ReadNcoFrequency() {
  uint32_t value = 0;
  Io->ReadPort(Dem(dem::kCarrierNcoRead), &value);
  return value;
}

int32_t cCarrier::ReadFrequencyError() {
  uint32_t value = 0;
  Io->ReadPort(Dem(dem::kFrequencyError), &value);
  return int32_t(value);
}

int32_t cCarrierE::LoadPreselectorDac(uint32_t code1, uint32_t code2) {
  cPreselectors dac(Io, Text, sizeof Text);
  return dac.LoadPreselectorDac(code1, code2);
}

int32_t cCarrierE::LoadSynthesizer(double frequency, uint8_t type) {
  cSynthesizerE synthesizer(Io, type);
  const uint32_t r = synthesizer.LoadLSynthesizer(&frequency, &type, 0);
  if (r != 0) Format(Text, "%s", synthesizer.GetErrorText());
  return int32_t(r);
}

}  // namespace tvx
