// The receiver's attenuator: its code read back from the FPGA, the code in dB, and the total
// gain of the receiver from the first gain stage's code, the attenuator and the board's
// calibration.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cAttenuator : public cCommonModule {
 public:
  cAttenuator(cZARIM* io, uint8_t convertorType) : cCommonModule(io), convertorType(convertorType) {}

  virtual double GetGainOffset() { return 64.0; }
  virtual double GetFirstGainScale() { return 240.0; }
  // Kept only: the attenuator takes no code from the library.
  virtual int32_t SetCode(const uint32_t* value);
  virtual uint32_t ReadCode();
  virtual double CodeToDb(const uint32_t* value);

  double TotalGain(uint32_t firstGainCode, double calibration);

 private:
  bool TwoPreselectors() const { return convertorType == 1 || convertorType == 2; }
  uint32_t CodeMask() const;

  uint32_t code = 0;
  uint8_t convertorType;
};

}  // namespace tvx
