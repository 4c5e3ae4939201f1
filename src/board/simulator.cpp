#include "board/simulator.h"

#include <algorithm>
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
constexpr double kRegisterSpan = 4294967296.0; // 2^32: what a 32-bit register can hold

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

// The phase accumulator turns once per 2^28 of the word, and 2^28 divides 2^32: a word reduced
// modulo 2^32 (the way the 32-bit register holds any wider integer) keeps the phase step modulo
// one turn, so a carrier outside +-clock still runs as its alias at the sampling clock, which is
// what sampling that carrier would give. The word is truncated toward zero first, as for every
// carrier that fits, and reduced in floating point, so no conversion is ever out of range.
// A frequency that is not a number (or infinite) has no word: nothing is written.
int32_t cSimulator::SetSimCarrier(double frequency) {
  const double word = std::trunc((ReferenceClock - frequency) / ReferenceClock * kPhaseScale + 0.5);
  if (!std::isfinite(word)) {
    Format(Text, "Недопустимая частота имитатора %g Гц: регистр не записан", frequency);
    return kBadValue;
  }
  double reduced = std::fmod(word, kRegisterSpan);   // exact, in (-2^32, 2^32)
  if (reduced < 0) reduced += kRegisterSpan;
  Io->WritePort(Dem(dem::kSimCarrier), uint32_t(uint64_t(reduced)));
  return 0;
}

// The divider N = round(clock / rate) - 1 is held to its 16 bits: a rate above twice the clock
// (infinity included) runs at divider 0, the fastest the simulator makes, and a rate below
// clock / 65536.5 at divider 65535, the slowest. A rate of 0, below 0 or not a number names
// no rate at all: nothing is written and the control word keeps its value.
int32_t cSimulator::SetSimRate(double rate) {
  if (!(rate > 0.0)) {
    Format(Text, "Недопустимая символьная скорость имитатора %g: регистр не записан", rate);
    return kBadValue;
  }
  const double rounded = std::clamp(ReferenceClock / rate + 0.5, 1.0, kDividerLimit);
  const uint32_t divider = uint32_t(rounded) - 1;
  Control = (Control & ~dem::kSimDividerMask) | divider | dem::kSimOn;
  Io->WritePort(Dem(dem::kSimControl), Control);
  return 0;
}

}  // namespace tvx
