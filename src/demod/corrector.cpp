#include "demod/corrector.h"

#include <algorithm>
#include <cinttypes>
#include <memory>

#include "demod/file_data.h"
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

// The table is taken whole as little-endian words; trailing bytes that make no word are
// dropped. A file that cannot be read to its end streams nothing.
int32_t cCorrector::LoadErrorTable(const char* fileName) {
  const char* shown = fileName != nullptr ? fileName : "(null)";
  std::unique_ptr<cFileData<unsigned char>> file(new cFileData<unsigned char>(fileName, "rb"));
  if (!file->is_open()) {
    Format(Text, "Ошибка открытия файла таблицы ошибок корректора %s", shown);
    return 1;
  }
  const uint64_t size = file->Size();
  if (size == kUnknownSize) {
    Format(Text, "Ошибка чтения файла таблицы ошибок корректора %s", shown);
    return 1;
  }
  const uint64_t words = size / 4, bytes = words * 4;
  LoadBuffer<unsigned char> buffer;
  if (!buffer.Allocate(bytes)) {
    Format(Text, "Ошибка выделения %" PRIu64 " байт памяти", bytes);
    return 2;
  }
  if (file->Read(buffer.data(), &bytes) != bytes) {
    Format(Text, "Ошибка чтения файла таблицы ошибок корректора %s", shown);
    return 1;
  }
  file.reset();
  const unsigned char* p = buffer.data();
  for (uint64_t i = 0; i < words; ++i, p += 4)
    Io->WritePort(Dem(dem::kEqErrorTable), uint32_t(p[0]) | uint32_t(p[1]) << 8 |
                                               uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
  return 0;
}

// A failed read gives 0 for both values of the tap.
void cCorrector::ReadCoefficients(uint16_t* first, uint16_t* second) {
  for (uint32_t i = 0; i < TapCount; ++i) {
    uint32_t value = 0;
    Io->ReadPort(Dem(dem::kEqTapsRead + i), &value);
    first[i] = uint16_t((value >> 20) & dem::kEqValueMask);
    second[i] = uint16_t((value >> 4) & dem::kEqValueMask);
  }
}

void cCorrector::LoadCoefficients(const uint16_t* first, const uint16_t* second) {
  for (uint32_t i = 0; i < TapCount; ++i)
    Io->WritePort(Dem(dem::kEqTapsWrite + i),
                  uint32_t(first[i] & dem::kEqValueMask) << 14 | (second[i] & dem::kEqValueMask));
}

// The equalizer has 13 tap words; beyond them lie other blocks' registers (DEM word 112 is the
// second gain stage's status), and a caller's arrays sized for the taps would be read past
// their end. A larger count is held to 13: the first 13 taps are loaded and reported.
void cCorrector::set_tap_count(uint32_t count) { TapCount = std::min(count, kTaps); }

}  // namespace tvx
