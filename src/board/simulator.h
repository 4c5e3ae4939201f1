// The test-signal simulator in the demodulator FPGA: a short pattern loaded from a file, a
// carrier word and a control word (symbol-rate divider, pattern length, on). The control word
// is kept here and written whole; the pattern length reaches the FPGA with the next write of it.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cSimulator : public cCommonModule {
 public:
  // `reference_clock`: the sampling clock in Hz as it stands when the board builds the module.
  cSimulator(cZARIM* io, double reference_clock) : cCommonModule(io), ReferenceClock(reference_clock) {}

  // 0 loaded; 1 file not opened (or not read); 2 buffer not allocated.
  int32_t LoadSimPattern(const char* fileName);
  // Bit 0 of `on` switches the simulator on or off.
  void SetSimEnable(uint32_t on);
  // 0, or kBadValue with the module's text (nothing written) for a frequency that is not a
  // finite number; every finite one is written, its word reduced to the register's 32 bits.
  int32_t SetSimCarrier(double frequency);
  // 0, or kBadValue with the module's text (nothing written) for a rate that is not above 0;
  // every other rate is written with its divider held to 16 bits. Setting the rate also
  // switches the simulator on.
  int32_t SetSimRate(double rate);

  static constexpr int32_t kBadValue = 2;

  uint32_t control_word() const { return Control; }
  double reference_clock() const { return ReferenceClock; }

 private:
  uint32_t Control = 0;
  double ReferenceClock;
};

}  // namespace tvx
