#include "rf/convertor.h"

#include "board/eeprom.h"
#include "hw/text.h"

namespace tvx {
namespace {

constexpr uint32_t kNothingToRead = 0xFFFFFFFF;

template <class T>
T ValueOr0(const T* p) {
  return p ? *p : T{};
}

}  // namespace

cConvertor::cConvertor(cZARIM* io, const double* lowFrequency, const double* highFrequency,
                       const uint8_t* preselectorCount, const uint32_t* pointCount)
    : cCommonModule(io),
      lowFrequency(ValueOr0(lowFrequency)),
      highFrequency(ValueOr0(highFrequency)),
      preselectorCount(ValueOr0(preselectorCount)),
      pointCount(ValueOr0(pointCount)),
      maxVoltage(this->preselectorCount),
      minVoltage(this->preselectorCount),
      gridFrequency(this->pointCount),
      controlVoltage(this->preselectorCount, std::vector<double>(this->pointCount, 0.0)) {}

uint32_t cConvertor::NoEeprom() {
  Format(Text, "%s", kDataPointerNotSet);
  return kNothingToRead;
}

// All maxima first, then all minima. The message counts preselectors from 0, as it always has.
uint32_t cConvertor::LoadVoltageLimits(cEepromPCB* pcbEeprom) {
  if (!pcbEeprom) return NoEeprom();
  for (uint32_t k = 0; k < preselectorCount; ++k) {
    double volts = 0;
    if (uint32_t r = pcbEeprom->ReadMaxVoltage(uint8_t(k + 1), &volts)) {
      Format(Text, "error getting max.control voltage for Preselector#%d. %s\n", int(k),
             pcbEeprom->GetErrorText());
      return r;
    }
    maxVoltage[k] = volts;
  }
  for (uint32_t k = 0; k < preselectorCount; ++k) {
    double volts = 0;
    if (uint32_t r = pcbEeprom->ReadMinVoltage(uint8_t(k + 1), &volts)) {
      Format(Text, "error getting min.control voltage for Preselector#%d. %s\n", int(k),
             pcbEeprom->GetErrorText());
      return r;
    }
    minVoltage[k] = volts;
  }
  return 0;
}

// The segment is the one that starts at the last grid point strictly below f, so on a folded
// grid the zero-width segment at the band split is never chosen. Below the grid the first
// segment is extended. Above the last point the carrier never asks (it refuses such a
// frequency first); should anyone, the last segment is extended too, so that no value beyond
// the table is read. A grid of one point gives its value, an empty one 0.0.
double cConvertor::Interpolate(const double* frequency, const double* values) {
  if (!frequency || !values || pointCount == 0) return 0.0;
  if (pointCount == 1) return values[0];
  const double f = *frequency;
  uint32_t k = 0;
  for (uint32_t i = 0; i < pointCount; ++i)
    if (f > gridFrequency[i]) k = i;
  if (k > pointCount - 2) k = pointCount - 2;
  const double* g = gridFrequency.data();
  return values[k] + (values[k + 1] - values[k]) / (g[k + 1] - g[k]) * (f - g[k]);
}

uint32_t cConvertor::Init(cEepromPCB* pcbEeprom, cEepromLConv* lconvEeprom) {
  if (!pcbEeprom || !lconvEeprom) return NoEeprom();
  BuildFrequencyGrid(pcbEeprom, lconvEeprom);
  if (uint32_t r = LoadControlVoltages(lconvEeprom)) return r;
  if (uint32_t r = LoadVoltageLimits(pcbEeprom)) return r;
  return FinishTables();
}

// A one-preselector convertor has no row for id 2: it gets 0.0 like any id naming nothing.
double cConvertor::GetControlVoltage(const double* frequency, const uint8_t* preselectorId) {
  if (!preselectorId) return 0.0;
  const uint32_t row = *preselectorId <= 1 ? 0 : *preselectorId == 2 ? 1 : preselectorCount;
  if (row >= preselectorCount) return 0.0;
  return Interpolate(frequency, controlVoltage[row].data());
}

// Id 0 names no preselector (ids are 1-based), so it reads nothing either.
double cConvertor::GetMaxVoltage(const uint8_t* preselectorId) const {
  if (!preselectorId || *preselectorId == 0 || *preselectorId > preselectorCount) return -1.0;
  return maxVoltage[*preselectorId - 1u];
}

double cConvertor::GetMinVoltage(const uint8_t* preselectorId) const {
  if (!preselectorId || *preselectorId == 0 || *preselectorId > preselectorCount) return -1.0;
  return minVoltage[*preselectorId - 1u];
}

// The lower band's grid ends at the band split and the upper band's starts there, so the
// split stands twice and the last point falls on the high frequency.
void cConvertor_Type2::BuildFrequencyGrid(cEepromPCB*, cEepromLConv*) {
  const double step = GetGridStep();
  for (uint32_t i = 0; i < pointCount; ++i) {
    double g = lowFrequency + i * step;
    if (g > GetBandSplit()) g -= step;
    gridFrequency[i] = g;
  }
}

uint32_t cConvertor_Type2::LoadControlVoltages(cEepromLConv* lconvEeprom) {
  if (!lconvEeprom) return NoEeprom();
  if (preselectorCount == 0 || pointCount == 0) return kNothingToRead;
  for (uint32_t p = 1; p <= preselectorCount; ++p) {
    for (uint32_t i = 0; i < pointCount; ++i) {
      uint8_t byte = 0;
      if (uint32_t r = lconvEeprom->ReadControlByte(uint8_t(p), i, &byte)) {
        Format(Text, "error getting preselector control voltage index %d/%d  presId %d. %s\n",
               int(i), int(pointCount - 1), int(p), lconvEeprom->GetErrorText());
        return r;
      }
      controlVoltage[p - 1][i] = byte / 10.0;
    }
  }
  return 0;
}

void cConvertor_Type3::BuildFrequencyGrid(cEepromPCB*, cEepromLConv*) {
  for (uint32_t i = 0; i < pointCount; ++i) gridFrequency[i] = lowFrequency + i * GetGridStep();
}

// Entry numbers are 8-bit: a table that ran past entry 255 would wrap to entry 0.
uint32_t cConvertor_Type3::LoadControlVoltages(cEepromLConv* lconvEeprom) {
  if (!lconvEeprom) return NoEeprom();
  if (preselectorCount == 0 || pointCount == 0) return kNothingToRead;
  for (uint32_t i = 0; i < pointCount; ++i) {
    double volts = 0;
    if (uint32_t r = lconvEeprom->ReadControlVoltage(uint8_t(firstEntry + i), &volts)) {
      Format(Text, "error getting preselector control voltage (m) index %d/%d. %s\n", int(i),
             int(pointCount - 1), lconvEeprom->GetErrorText());
      return r;
    }
    controlVoltage[0][i] = volts;
  }
  return 0;
}

}  // namespace tvx
