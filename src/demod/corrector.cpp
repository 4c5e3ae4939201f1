#include "demod/corrector.h"

#include <algorithm>

#include "demod/word_stream.h"
#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"

namespace tvx {

int32_t cCorrector::SetControl(const uint32_t* word) {
  if (word == nullptr) {
    Format(Text, "%s", kDataPointerNotSet);
    return -1;
  }
  return int32_t(Io->WritePort(Dem(dem::kEqControl), *word));
}

int32_t cCorrector::LoadErrorTable(const char* fileName) {
  static const WordTableTexts kTexts{"Ошибка открытия файла таблицы ошибок корректора %s",
                                     "Ошибка чтения файла таблицы ошибок корректора %s"};
  return StreamWordFile(Io, Dem(dem::kEqErrorTable), fileName, kTexts, Text, sizeof Text);
}

// A failed read gives 0 for both values of the tap.
void cCorrector::ReadCoefficients(uint16_t* first, uint16_t* second) {
  for (uint32_t i = 0; i < TapCount; ++i) {
    uint32_t value = 0;
    Io->ReadPort(Dem(dem::kEqTapsRead + i), &value);
    first[i] = uint16_t((value >> dem::kEqReadFirstShift) & dem::kEqValueMask);
    second[i] = uint16_t((value >> dem::kEqReadSecondShift) & dem::kEqValueMask);
  }
}

void cCorrector::LoadCoefficients(const uint16_t* first, const uint16_t* second) {
  for (uint32_t i = 0; i < TapCount; ++i)
    Io->WritePort(Dem(dem::kEqTapsWrite + i),
                  uint32_t(first[i] & dem::kEqValueMask) << dem::kEqWriteFirstShift |
                      (second[i] & dem::kEqValueMask));
}

// The equalizer has 13 tap words; beyond them lie other blocks' registers (DEM word 112 is the
// second gain stage's status), and a caller's arrays sized for the taps would be read past
// their end. A larger count is held to 13: the first 13 taps are loaded and reported.
void cCorrector::set_tap_count(uint32_t count) { TapCount = std::min(count, kTaps); }

}  // namespace tvx
