// The signal type the demodulator is set up for (modulation, code rate, constellation coding)
// and everything the fixed per-modulation tables say about it: the table files that go with
// it, bits per symbol, the timing bits SetTiming programs, and the lock thresholds of the
// status word. Selecting a type writes nothing; the packing table is streamed from a file.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

// Marks a table value that does not apply to a signal type; reported unchanged, and as a
// lock threshold it can never be reached.
constexpr uint32_t kNotApplicable = 0xABCDEF;

class cModulation : public cCommonModule {
 public:
  explicit cModulation(cZARIM* io) : cCommonModule(io) {}

  // 0, or 1 with the module's text for the first index out of range (the indices checked
  // before it are already stored).
  int32_t SetType(const uint8_t* modulation, const uint8_t* codeRate, const uint8_t* coding);

  // The current row's file names. Rows 14 and 15 carry the code-rate digit in place of their
  // first "X"; the result lives until the next call on this module.
  const char* GetTableFileM();
  const char* GetTableFileE();
  const char* GetTableFileO();
  const char* GetTableFileX() const;
  uint32_t GetLevelCode() const;
  int32_t GetCarrierLockThreshold() const;
  uint32_t GetTimingLockThreshold() const;
  uint32_t GetModeCode() const;
  uint32_t GetBitsPerSymbol() const;
  uint32_t GetTimingBits() const;

  // 0; 1 (cannot open or read the file) or 2 (no buffer for it), with the module's text.
  int32_t LoadPackTable(const char* fileName);

  uint32_t modulation() const { return Modulation; }
  uint32_t code_rate() const { return CodeRate; }
  uint32_t constellation_coding() const { return ConstellationCoding; }

  static constexpr uint32_t kModulations = 22;
  static constexpr uint32_t kMaxCodeRate = 9;
  static constexpr uint32_t kMaxCoding = 17;

 private:
  const char* Name(const char* const* column);

  uint32_t Modulation = 1;
  uint32_t CodeRate = 0;
  uint32_t ConstellationCoding = 0;
  char NameBuffer[32] = {};
};

}  // namespace tvx
