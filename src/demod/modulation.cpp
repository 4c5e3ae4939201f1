#include "demod/modulation.h"

#include <cstring>

#include "demod/word_stream.h"
#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"

namespace tvx {
namespace {

struct SignalRow {
  const char* m;
  const char* e;
  const char* o;
  uint32_t level;
  int32_t carrierThreshold;
  uint32_t timingThreshold;
  uint32_t mode;
  uint32_t bitsPerSymbol;
  uint32_t timingTable;
};

constexpr int32_t kNa = int32_t(kNotApplicable);

// Names in dashes are placeholders that name no file. Row 21 has no files of its own (its one
// table is the X file): its three names are the placeholder of row 20, so that an application
// that loads what it is told finds no file rather than an empty name.
constexpr SignalRow kRows[cModulation::kModulations] = {
    {"mpm_2.dat", "epm_2.dat", "opm_2.dat", 158, 8, 6, 31, 1, 0},
    {"mpm_4.dat", "epm_4.dat", "opm_4.dat", 158, 8, 4, 15, 2, 0},
    {"mpm_4s.dat", "epm_4s.dat", "opm_4s.dat", 146, 8, 4, 15, 2, 0},
    {"mpm_8.dat", "epm_8.dat", "opm_8.dat", 158, 8, 3, 9, 3, 0},
    {"mqam_8.dat", "eqam_8.dat", "oqam_8.dat", 81, -52, 3, 9, 3, 0},
    {"mqam_16.dat", "eqam_16.dat", "oqam_16.dat", 160, 12, 3, 7, 4, 0},
    {"mqam_32.dat", "eqam_32.dat", "oqam_32.dat", 144, -38, 3, 5, 5, 1},
    {"mqam_64.dat", "eqam_64.dat", "oqam_64.dat", 168, 7, 3, 4, 6, 0},
    {"mpm_2a.dat", "epm_2a.dat", "opm_2a.dat", 158, 8, 6, 31, 1, 0},
    {"mpm_4a.dat", "epm_4a.dat", "opm_4a.dat", 158, 8, 4, 15, 2, 0},
    {"-DEC-", "-DEC-", "-DEC-", kNotApplicable, kNa, kNotApplicable, 0, 1, 0},
    {"-PRS-", "-PRS-", "-PRS-", kNotApplicable, kNa, kNotApplicable, 31, 1, 0},
    {"-IQ-", "-IQ-", "-IQ-", kNotApplicable, kNa, kNotApplicable, 1, 0, 0},
    {"mpm_2_67.dat", "epm_2_67.dat", "opm_2_67.dat", 158, 8, 6, 31, 1, 8},
    {"m16apskX.dat", "e16apskX.dat", "o16apskX.dat", 120, 0, 3, 7, 4, 1},
    {"m32apskX.dat", "e32apskX.dat", "o32apskX.dat", 97, -14, 3, 5, 5, 1},
    {"MQAM_128.DAT", "-QAM128-", "-QAM128-", 146, -37, 3, kNotApplicable, kNotApplicable, 0},
    {"MQAM_256.DAT", "-QAM256-", "-QAM256-", 170, -55, 3, kNotApplicable, kNotApplicable, 0},
    {"M8QAM_DS.DAT", "-8QAM-", "O8QAM_DS.DAT", 142, -6, 3, 9, 3, 2},
    {"M8QAM_PD.DAT", "-8QAM-", "O8QAM_PD.DAT", 160, 18, 3, 9, 3, 2},
    {"-NA-", "-NA-", "-NA-", 97, 0, 3, kNotApplicable, 2, 0},
    {"-NA-", "-NA-", "-NA-", 0, 0, 0, 0, 0, 0},
};

// Digit of each code-rate index in the names of rows 14 and 15; there is no digit 6. Index 9
// has none either: its names keep their "X", so a load of one fails on a file that does not
// exist and says which, instead of loading the table of another code rate.
constexpr char kCodeRateDigits[] = "012345789X";
static_assert(sizeof kCodeRateDigits - 1 == cModulation::kMaxCodeRate + 1);

// SetType accepts only indices inside the table, so the row is always there.
const SignalRow& Row(uint32_t modulation) { return kRows[modulation]; }

}  // namespace

int32_t cModulation::SetType(const uint8_t* modulation, const uint8_t* codeRate,
                             const uint8_t* coding) {
  if (modulation == nullptr || codeRate == nullptr || coding == nullptr) {
    Format(Text, "%s", kDataPointerNotSet);
    return 1;
  }
  if (*modulation >= kModulations) {
    Format(Text, "Неподдерживаемый вид модуляции, индекс #%d", int(*modulation));
    return 1;
  }
  Modulation = *modulation;
  if (*codeRate > kMaxCodeRate) {
    Format(Text, "Неподдерживаемый тип скорости кодирования, индекс #%d", int(*codeRate));
    return 1;
  }
  CodeRate = *codeRate;
  if (*coding > kMaxCoding) {
    Format(Text, "Неподдерживаемый тип кодирования сигнального созвездия, индекс #%d", int(*coding));
    return 1;
  }
  ConstellationCoding = *coding;
  return 0;
}

const char* cModulation::Name(const char* const* column) {
  CopyText(NameBuffer, sizeof NameBuffer, *column);
  if (Modulation == 14 || Modulation == 15) {
    if (char* x = std::strchr(NameBuffer, 'X')) *x = kCodeRateDigits[CodeRate];
  }
  return NameBuffer;
}

const char* cModulation::GetTableFileM() { return Name(&Row(Modulation).m); }
const char* cModulation::GetTableFileE() { return Name(&Row(Modulation).e); }
const char* cModulation::GetTableFileO() { return Name(&Row(Modulation).o); }
const char* cModulation::GetTableFileX() const { return Modulation == 21 ? "n_DVBS2X.DAT" : "N/A"; }
uint32_t cModulation::GetLevelCode() const { return Row(Modulation).level; }
int32_t cModulation::GetCarrierLockThreshold() const { return Row(Modulation).carrierThreshold; }
uint32_t cModulation::GetTimingLockThreshold() const { return Row(Modulation).timingThreshold; }
uint32_t cModulation::GetModeCode() const { return Row(Modulation).mode; }
uint32_t cModulation::GetBitsPerSymbol() const { return Row(Modulation).bitsPerSymbol; }
uint32_t cModulation::GetTimingBits() const { return (Row(Modulation).timingTable | 0x10) << 8; }

int32_t cModulation::LoadPackTable(const char* fileName) {
  static const WordTableTexts kTexts{"Ошибка открытия файла таблицы упаковки %s",
                                     "Ошибка чтения файла таблицы упаковки %s"};
  return StreamWordFile(Io, Dem(dem::kPackTable), fileName, kTexts, Text, sizeof Text);
}

}  // namespace tvx
