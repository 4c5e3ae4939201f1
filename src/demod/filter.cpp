#include "demod/filter.h"

#include <cmath>
#include <cstring>
#include <memory>

#include "demod/file_data.h"
#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"
#include "platform/stdio_ext.h"

namespace tvx {
namespace {

constexpr const char* kFilterNames[cFilter::kShapes] = {
    "ibsd", "n10d", "n15d", "n20d", "n25d", "n30d", "n35d", "n40d", "nf40d", "wded", "ibsw",
    "n05w", "n08w", "n10w", "n15w", "n20w", "n25w", "n30w", "n35w", "n40w", "nf40w", "wdew"};

constexpr size_t kFileNameSize = 16;
constexpr uint32_t kValuesPerDecimation = 64;

// Number of significant bits of d, less 3; 0 up to D = 2 (and for D = 4, whose three bits give
// 0 too).
uint8_t ShiftFor(uint32_t d) {
  if (d <= 2) return 0;
  uint8_t bits = 0;
  for (uint32_t v = d; v != 0; v >>= 1) ++bits;
  return uint8_t(bits - 3);
}

// scale * value + 0.5, truncated toward zero to a signed 32-bit word. A value whose product
// lies beyond the 32-bit range has no such word: it is held to the nearest end of the range
// (the 14-bit field keeps the low bits either way), and NaN counts as 0, so that no value a
// file holds makes the conversion undefined.
int32_t Quantise(double scale, double value) {
  const double q = std::trunc(scale * value + 0.5);
  if (!(q == q)) return 0;
  if (q >= 2147483647.0) return INT32_MAX;
  if (q <= -2147483648.0) return INT32_MIN;
  return int32_t(q);
}

}  // namespace

cFilter::cFilter(cZARIM* io, uint8_t coefficientWidth)
    : cCommonModule(io), CoefficientWidth(coefficientWidth),
      FileName(new char[kFileNameSize]()), Directory(new char[kMaxPath + 1]()) {}

cFilter::~cFilter() {
  delete[] FileName;
  delete[] Directory;
}

// An index beyond the table has no name; the loader refuses it before asking.
const char* cFilter::GetFilterName(const uint8_t* index) {
  return *index < kShapes ? kFilterNames[*index] : "";
}

void cFilter::WriteCoefficients(const double* values, uint32_t count, uint32_t scale, uint32_t mask,
                                uint8_t shift) {
  for (uint32_t k = 0; k < count / 2; ++k) {
    const uint32_t q = uint32_t(Quantise(double(scale), values[k]));
    Io->WritePort(Dem(dem::kFilterTap), (q & mask) | k << dem::kFilterTapShift |
                                            uint32_t(shift) << dem::kFilterShiftShift);
  }
}

// The directory is kept as the caller gave it, up to the length a path can have.
int32_t cFilter::SetDirectory(const char* directory) {
  if (std::strlen(directory) > kMaxPath) {
    Format(Text, "Слишком длинное имя каталога коэффициентов фильтра (%u символов, не более %u)",
           unsigned(std::strlen(directory) > 99999 ? 99999 : std::strlen(directory)),
           unsigned(kMaxPath));
    return 1;
  }
  CopyText(Directory, kMaxPath + 1, directory);
  return 0;
}

int32_t cFilter::LoadCoefficientFile(uint8_t index, uint32_t decimation) {
  FilterIndex = index;
  Decimation = decimation;
  if (index >= kShapes) {
    Format(Text, "Недопустимый индекс фильтра %d (допустимо 0..%d)", int(index), kShapes - 1);
    return 1;
  }
  const uint32_t scale = 1u << (CoefficientWidth - 1);
  const uint32_t mask = (1u << CoefficientWidth) - 1;
  FormatInto(FileName, kFileNameSize, "%s_%u.dat", GetFilterName(&index), unsigned(decimation));
  char path[kMaxPath + 2];
  FormatInto(path, sizeof path, "%s%c%s", Directory, os::kPathSeparator, FileName);
  if (std::strlen(path) > kMaxPath) {
    Format(Text, "Слишком длинный путь к файлу коэффициентов фильтра %s%c%s", Directory,
           os::kPathSeparator, FileName);
    return 1;
  }
  const uint8_t shift = ShiftFor(decimation);

  const uint64_t capacity = uint64_t{decimation} * kValuesPerDecimation;
  LoadBuffer<double> buffer;
  std::unique_ptr<cFileData<double>> file(new cFileData<double>(path, "rt"));
  if (!file->is_open()) {
    Format(Text, "Ошибка открытия файла коэффициентов фильтра %s", path);
    return 1;
  }
  if (!buffer.Allocate(capacity)) {
    Format(Text, "Ошибка выделения памяти для коэффициентов фильтра %s", path);
    return 1;
  }
  Count = file->ReadValues(buffer.data(), "%le", uint32_t(capacity));
  const bool too_long = file->more_values();
  file.reset();
  if (too_long) {
    Format(Text, "Файл коэффициентов фильтра %s содержит больше %u значений", path,
           unsigned(capacity));
    return 1;
  }
  WriteCoefficients(buffer.data(), Count, scale, mask, shift);
  return 0;
}

}  // namespace tvx
