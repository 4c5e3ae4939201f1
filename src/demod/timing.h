// Symbol timing: the decimation that brings the sampling clock down to a few samples per
// symbol, the nominal rate NCO word and the loop parameters of the timing recovery, and the
// rate the loop has settled on. The chosen first decimation also picks the channel filter's
// coefficient file; the remembered rate feeds the carrier read-back and the iso converter.
#pragma once

#include <cstdint>

#include "hw/common_module.h"
#include "torvixe.h"

namespace tvx {

class cModulation;

class cTiming : public cCommonModule {
 public:
  // Copies *sampleClock once; the global is never read again.
  cTiming(cZARIM* io, const double* sampleClock, uint8_t convertorType)
      : cCommonModule(io), ConvertorType(convertorType), SampleClock(*sampleClock) {}

  virtual uint32_t GetOversamplingCode();
  virtual double GetNormalizedRate() { return SymbolRate / SampleClock; }
  virtual double GetMaxSymbolRate();

  // 0; 1 for a rate outside the table, with the module's text and nothing written.
  int32_t SetSymbolRate(const double* rate, const cModulation* modulation);
  // 0; -1 above the convertor's maximum; 1 below the table. Stores the rate either way.
  int32_t SelectDecimation(double rate);
  double MeasureSymbolRate();
  bool IsLocked(const uint32_t* threshold);
  uint32_t GetDecimation() const { return FirstDecimation; }
  double GetSymbolRate() const { return SymbolRate; }
  void GetControl(TimingControl* control) const;

 protected:
  virtual uint32_t OversamplingFactor() const { return 32; }

 private:
  void WriteLoopWord(uint32_t timingBits);
  uint32_t ReadRateNco();

  uint8_t ConvertorType;
  double SampleClock;
  // Nothing is known of a rate before the first accepted SetTiming: every field reads 0, the
  // read-back of the rate answers 0 and the filter load looks for decimation 0 (a file the
  // coefficient set does not have).
  double SymbolRate = 0;
  uint32_t FirstDecimation = 0;
  uint32_t ControlWord = 0;
  uint32_t LoopCode = 0;
  uint32_t AuxCode = 0;
};

class cTimingE : public cTiming {
 public:
  using cTiming::cTiming;

 protected:
  uint32_t OversamplingFactor() const override { return 128; }
};

// The timing-recovery mode word.
class cTimingMode : public cCommonModule {
 public:
  explicit cTimingMode(cZARIM* io) : cCommonModule(io) {}
  virtual int32_t SetMode(const uint32_t* mode);
};

}  // namespace tvx
