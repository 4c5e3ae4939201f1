// The iso converter's output clock: from bits per symbol, symbol rate and two factors of the
// caller, a power-of-two divider and a frequency word for the clock generator behind the DEM
// block, which is set up through three serial transactions clocked out one bit per write.
// Also the converter's loading value.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cIsoConverter : public cCommonModule {
 public:
  // Copies *referenceClock once.
  cIsoConverter(cZARIM* io, const double* referenceClock, double generatorLimit)
      : cCommonModule(io), ReferenceClock(*referenceClock), GeneratorLimit(generatorLimit) {}

  // 0; 1 with the module's text for an output clock the generator cannot be set to (nothing
  // is written then).
  int32_t SetOutputClock(uint32_t bitsPerSymbol, double symbolRate, float a, float b);
  int32_t GetLoading();

  uint32_t control() const { return Control; }

 private:
  void Strobe(uint32_t bit);
  void SerialTransaction(uint32_t command, uint32_t data, uint32_t bits);

  double ReferenceClock;
  double GeneratorLimit;
  uint32_t Control = 0;
};

}  // namespace tvx
