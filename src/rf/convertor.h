// The L-band down-convertor: its type, frequency range and preselector count, the grid of
// calibration frequencies, every preselector's control voltage at every grid frequency (from
// the convertor's own EEPROM) and every preselector's voltage limits (from the module EEPROM).
// The carrier asks it for the control voltage at a frequency; the board asks it for its type.
#pragma once

#include <cstdint>
#include <vector>

#include "hw/common_module.h"

namespace tvx {

class cEepromPCB;
class cEepromLConv;

class cConvertor : public cCommonModule {
 public:
  // Copies the four values and sizes the tables: every control voltage starts at 0.0 V; the
  // grid and the limits are filled by Init.
  cConvertor(cZARIM* io, const double* lowFrequency, const double* highFrequency,
             const uint8_t* preselectorCount, const uint32_t* pointCount);

  // Fills the grid; the EEPROMs are not read for it.
  virtual void BuildFrequencyGrid(cEepromPCB* pcbEeprom, cEepromLConv* lconvEeprom) = 0;
  // 0, the failed read's code with the module's text, or 0xFFFFFFFF when there is nothing to
  // read (no preselector or no grid point).
  virtual uint32_t LoadControlVoltages(cEepromLConv* lconvEeprom) = 0;
  virtual uint32_t FinishTables() = 0;
  // 0, or the failed read's code with the module's text.
  virtual uint32_t LoadVoltageLimits(cEepromPCB* pcbEeprom);
  // Piecewise-linear over the grid; `values` holds one value per grid point.
  virtual double Interpolate(const double* frequency, const double* values);
  virtual uint8_t GetType() = 0;
  // The whole table load: grid, control voltages, limits. A failure leaves the entries read
  // before it with their new values and the rest as they were.
  virtual uint32_t Init(cEepromPCB* pcbEeprom, cEepromLConv* lconvEeprom);
  // Volts for preselector 1 (id 0 or 1) or 2 (id 2); 0.0 for any other id.
  virtual double GetControlVoltage(const double* frequency, const uint8_t* preselectorId);

  // Preselector ids are 1-based; an id naming no preselector gives -1.0.
  double GetMaxVoltage(const uint8_t* preselectorId) const;
  double GetMinVoltage(const uint8_t* preselectorId) const;
  double GetLowFrequency() const { return lowFrequency; }
  double GetHighFrequency() const { return highFrequency; }
  double GetGridStep() const { return 50000000.0; }
  double GetBandSplit() const { return 1600000000.0; }

  uint8_t preselector_count() const { return preselectorCount; }
  uint32_t point_count() const { return pointCount; }
  const std::vector<double>& grid() const { return gridFrequency; }
  // Row k belongs to preselector id k + 1.
  const std::vector<double>& control_voltages(uint8_t row) const { return controlVoltage.at(row); }

 protected:
  // The null-pointer refusal of the table loads.
  uint32_t NoEeprom();

  double lowFrequency;
  double highFrequency;
  uint8_t preselectorCount;
  uint32_t pointCount;
  std::vector<double> maxVoltage;
  std::vector<double> minVoltage;
  std::vector<double> gridFrequency;
  std::vector<std::vector<double>> controlVoltage;
};

// Two preselectors; a grid folded at the band split; one byte per (preselector, point) in the
// convertor's EEPROM, tenths of a volt.
class cConvertor_Type2 : public cConvertor {
 public:
  using cConvertor::cConvertor;
  void BuildFrequencyGrid(cEepromPCB* pcbEeprom, cEepromLConv* lconvEeprom) override;
  uint32_t LoadControlVoltages(cEepromLConv* lconvEeprom) override;
  uint32_t FinishTables() override { return 0; }
  uint8_t GetType() override { return 2; }
};

// One preselector; a linear grid; one 16-bit millivolt value per point in the convertor's
// EEPROM, point i at entry firstEntry + i.
class cConvertor_Type3 : public cConvertor {
 public:
  cConvertor_Type3(cZARIM* io, const double* lowFrequency, const double* highFrequency,
                   const uint8_t* preselectorCount, const uint32_t* pointCount)
      : cConvertor(io, lowFrequency, highFrequency, preselectorCount, pointCount) {}
  void BuildFrequencyGrid(cEepromPCB* pcbEeprom, cEepromLConv* lconvEeprom) override;
  uint32_t LoadControlVoltages(cEepromLConv* lconvEeprom) override;
  uint32_t FinishTables() override { return 0; }
  uint8_t GetType() override { return 3; }

 protected:
  uint16_t firstEntry = 0;
};

// Types 4 and 5 are type 3 to the convertor; other modules act on the number.
class cConvertor_Type4 : public cConvertor_Type3 {
 public:
  using cConvertor_Type3::cConvertor_Type3;
  uint8_t GetType() override { return 4; }
};

class cConvertor_Type5 : public cConvertor_Type4 {
 public:
  using cConvertor_Type4::cConvertor_Type4;
  uint8_t GetType() override { return 5; }
};

}  // namespace tvx
