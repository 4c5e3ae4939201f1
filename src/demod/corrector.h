// The demodulator's equalizer (the corrector): its control word, the error table streamed from
// a file, and the tap coefficients read back or loaded by the caller. Every tap is one register
// word carrying two 12-bit values.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cCorrector : public cCommonModule {
 public:
  cCorrector(cZARIM* io, const uint32_t* tapCount) : cCommonModule(io), TapCount(*tapCount) {}

  // 0, or the register write's result; -1 without a word.
  int32_t SetControl(const uint32_t* word);
  // 0; 1 (cannot open or read the file) or 2 (no buffer for it), with the module's text.
  int32_t LoadErrorTable(const char* fileName);
  void ReadCoefficients(uint16_t* first, uint16_t* second);
  void LoadCoefficients(const uint16_t* first, const uint16_t* second);

  uint32_t tap_count() const { return TapCount; }
  // Follows the caller's count, held to the taps the equalizer has (see the .cpp).
  void set_tap_count(uint32_t count);

  static constexpr uint32_t kTaps = 13;

 private:
  uint32_t TapCount;
};

class cCorrectorE : public cCorrector {
 public:
  using cCorrector::cCorrector;
};

}  // namespace tvx
