// The demodulator's channel filter: coefficients from a text file chosen by the filter shape
// and by the first decimation the timing module selected, quantised to fixed-point words and
// written through one indexed register. Only the first half of a file is loaded.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cFilter : public cCommonModule {
 public:
  cFilter(cZARIM* io, uint8_t coefficientWidth);
  ~cFilter() override;

  virtual const char* GetFilterName(const uint8_t* index);
  virtual void WriteCoefficients(const double* values, uint32_t count, uint32_t scale,
                                 uint32_t mask, uint8_t shift);

  // 0; 1 with the module's text (directory or path too long, no such shape, file that does
  // not open or cannot be read, more values than the decimation's capacity).
  int32_t SetDirectory(const char* directory);
  int32_t LoadCoefficientFile(uint8_t index, uint32_t decimation);

  uint32_t count() const { return Count; }
  const char* file_name() const { return FileName; }

  static constexpr uint8_t kShapes = 22;
  static constexpr size_t kMaxPath = 259;   // characters, without the terminator

 private:
  uint8_t FilterIndex = 0;
  uint32_t Decimation = 0;
  uint8_t CoefficientWidth;
  char* FileName;      // 16 bytes
  char* Directory;     // kMaxPath + 1 bytes
  uint32_t Count = 0;
};

}  // namespace tvx
