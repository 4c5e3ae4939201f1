// The preselector load the carrier performs when it tunes the receiver above 200 MHz: the
// convertor's control voltage at the frequency, scaled into a DAC code within each
// preselector's voltage range, and the two DAC words loaded through peripheral word 3. It
// works on the hardware-access object and the message text of the module it serves, so the
// carrier keeps the codes and texts as its own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hw/zarim.h"

namespace tvx {

class cConvertor;

class cPreselectors {
 public:
  // `text` (of `text_size` bytes) is the serving module's message text.
  cPreselectors(cZARIM* io, char* text, size_t text_size) : Io(io), Text(text), TextSize(text_size) {}
  virtual ~cPreselectors() = default;

  // 0 loaded; 3, 4 or 5 for a preselector whose maximum and minimum voltages are equal (two
  // preselectors: the first, the second; one preselector), before any DAC write;
  // kNoDacCode when a voltage gives no 32-bit code; kDacNotTaken when the DAC did not take a
  // word (LoadPreselectorDac's text stays).
  int32_t LoadPreselectors(cConvertor* convertor, double frequency);
  // 0; kDacFirstNotReady (the second word is then not written) or kDacSecondNotReady.
  virtual int32_t LoadPreselectorDac(uint32_t code1, uint32_t code2);
  // Polls the DAC without sleeping until it has taken the last word or `timeout` seconds
  // have gone by; true when it took it.
  bool WaitDacReady(double timeout);

  static constexpr int32_t kZeroRangeFirst = 3;
  static constexpr int32_t kZeroRangeSecond = 4;
  static constexpr int32_t kZeroRangeSingle = 5;
  static constexpr int32_t kNoDacCode = 6;
  static constexpr int32_t kDacNotTaken = 3;
  static constexpr int32_t kDacFirstNotReady = -1;    // 0xFFFFFFFF
  static constexpr int32_t kDacSecondNotReady = -2;   // 0xFFFFFFFE
  static constexpr int64_t kDacTimeoutMs = 30;

 private:
  cZARIM* Io;
  char* Text;
  size_t TextSize;
};

}  // namespace tvx
