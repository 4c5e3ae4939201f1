#include "hw/regs.h"

namespace tvx {

FpgaBaseAddresses& FpgaBases() {
  static FpgaBaseAddresses bases{};
  return bases;
}

void SetFpgaBases() {
  FpgaBaseAddresses& b = FpgaBases();
  b.IntBase = kIntBase;
  b.DemBase = kDemBase;
  b.PeripheralBase = kPeripheralBase;
  b.DecBase = kDecBase;
  b.RsBase = kRsBase;
  b.Initialized = 1;
}

}  // namespace tvx
