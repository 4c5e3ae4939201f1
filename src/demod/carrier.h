// Carrier tuning: the split of one requested carrier between the analogue front end and the
// demodulator's NCO. Below 200 MHz the NCO takes the carrier directly; from 200 MHz up the
// convertor's synthesizer brings it to a fixed intermediate frequency, the preselectors are
// set for it, and the NCO removes what remains. Also the carrier loop's read-back and lock.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cConvertor;

class cCarrier : public cCommonModule {
 public:
  cCarrier(cZARIM* io, double sampleClock, cConvertor* convertor)
      : cCommonModule(io), SampleClock(sampleClock), Convertor(convertor) {}

  virtual double GetLoStep(uint8_t type);
  virtual double GetIfFrequency(uint8_t type);
  virtual void SetDirectInput(uint8_t type, uint32_t flag);
  virtual void SetBandSelect(const uint32_t* flag);
  virtual void WriteNcoWord(const uint32_t* word);
  virtual int32_t LoadPreselectorDac(uint32_t code1, uint32_t code2) = 0;
  virtual int32_t LoadSynthesizer(double frequency, uint8_t type) = 0;

  // 0; -1 for a frequency the convertor does not take; the synthesizer's or the preselector
  // load's code. The NCO word is written only with loadNco and only on success.
  int32_t SetFrequency(const double* frequency, bool loadNco);
  double MeasureFrequency(double symbolRate);
  bool IsLocked(const uint32_t* threshold);
  double GetNyquistFactor(uint8_t type) const { return type == 5 || type == 6 ? 2.0 : 1.0; }
  uint32_t ReadNcoFrequency();
  int32_t ReadFrequencyError();

  double frequency() const { return Frequency; }
  double synth_frequency() const { return SynthFrequency; }

  static constexpr double kDirectLimit = 200000000.0;

 protected:
  // The preselector load; a hook for tests to make it throw.
  virtual int32_t LoadPreselectors(double frequency);

 private:
  double SampleClock;
  // Before the first tuning the carrier reads back as on the direct path, from 0 Hz.
  double Frequency = 0;
  double SynthFrequency = 0;
  cConvertor* Convertor;
};

class cCarrierE : public cCarrier {
 public:
  using cCarrier::cCarrier;
  int32_t LoadPreselectorDac(uint32_t code1, uint32_t code2) override;
  int32_t LoadSynthesizer(double frequency, uint8_t type) override;
};

}  // namespace tvx
