#include "board/simulator.h"

#include <cinttypes>
#include <cmath>
#include <memory>

#include "demod/file_data.h"
#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"

namespace tvx {
namespace {

// The pattern words the control word can count: bits 17-27.
constexpr uint32_t kMaxPatternWords = dem::kSimLengthMask >> dem::kSimWordsShift;
constexpr double kPhaseScale = 268435456.0;   // 2^28: one turn of the carrier phase
constexpr double kDividerLimit = 65536.0;     // divider + 1 must not exceed this

// What DEM word 26 receives for pattern word i: the index in the high half and the word itself
// in the low half. The FPGA can place each word by its index, so a lost or repeated write
// shows as a gap instead of shifting the rest of the pattern, and the pattern bits reach the
// simulator exactly as they stand in the file.
uint32_t PatternWrite(uint32_t index, const unsigned char* word) {
  return index << 16 | uint32_t(word[0]) | uint32_t(word[1]) << 8;
}

}  // namespace

int32_t cSimulator::LoadSimPattern(const char* fileName) {
  std::unique_ptr<cFileData<unsigned char>> file(new cFileData<unsigned char>(fileName, "rb"));
  if (!file->is_open()) {
    Format(Text, "Ошибка открытия файла имитатора %s", fileName != nullptr ? fileName : "(null)");
    return 1;
  }
  const uint64_t length = file->Size();
  if (length == kUnknownSize) {
    Format(Text, "Ошибка чтения файла имитатора %s", fileName);
    return 1;
  }
  // The length is recorded modulo 4096 (a longer file wraps); the register is written later.
  Control = (Control & ~dem::kSimLengthMask) |
            (uint32_t(length & 0xFFF) << dem::kSimLengthShift);
  const uint32_t words = (Control & dem::kSimLengthMask) >> dem::kSimWordsShift;
  static_assert(kMaxPatternWords == 2047);

  LoadBuffer<unsigned char> buffer;
  if (!buffer.Allocate(uint64_t{words} * 2)) {
    Format(Text, "Ошибка выделения %" PRIu64 " байт памяти", uint64_t{words} * 2);
    return 2;
  }
  const uint64_t bytes = uint64_t{words} * 2;
  if (file->Read(buffer.data(), &bytes) != bytes) {
    Format(Text, "Ошибка чтения файла имитатора %s", fileName);
    return 1;
  }
  file.reset();
  for (uint32_t i = 0; i < words; ++i)
    Io->WritePort(Dem(dem::kSimPattern), PatternWrite(i, buffer.data() + 2 * i));
  return 0;
}

void cSimulator::SetSimEnable(uint32_t on) {
  Control = (on & 1u) != 0 ? Control | dem::kSimOn : Control & ~dem::kSimOn;
  Io->WritePort(Dem(dem::kSimControl), Control);
}

// A frequency whose word falls outside a signed 32-bit number (or is not a number) is refused:
// converting it would be undefined, and any word it became would be a wrong carrier.
int32_t cSimulator::SetSimCarrier(double frequency) {
  const double word = (ReferenceClock - frequency) / ReferenceClock * kPhaseScale + 0.5;
  if (!(word > -2147483649.0 && word < 2147483648.0)) {
    Format(Text, "Недопустимая частота имитатора %g Гц", frequency);
    return kBadValue;
  }
  Io->WritePort(Dem(dem::kSimCarrier), uint32_t(int32_t(word)));
  return 0;
}

// The divider N = round(clock / rate) - 1 must fit its 16 bits: a rate of 0 (or below, or not
// a number) would divide by zero, a rate above twice the clock gives N = -1, and a rate below
// clock / 65536.5 needs more than 16 bits. Each is refused with the control word untouched,
// rather than written as a divider for some other rate.
int32_t cSimulator::SetSimRate(double rate) {
  const double rounded = ReferenceClock / rate + 0.5;
  if (!(rate > 0.0) || !(rounded >= 1.0 && rounded < kDividerLimit + 1.0)) {
    Format(Text, "Недопустимая символьная скорость имитатора %g: делитель вне 0..65535", rate);
    return kBadValue;
  }
  const uint32_t divider = uint32_t(rounded) - 1;
  Control = (Control & ~dem::kSimDividerMask) | divider | dem::kSimOn;
  Io->WritePort(Dem(dem::kSimControl), Control);
  return 0;
}

}  // namespace tvx
