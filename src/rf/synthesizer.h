// The two phase-locked synthesizers behind the FPGA: the sampling clock ("S", peripheral word
// 1) and the L-band convertor's local oscillator ("L", peripheral word 2). A 24-bit word written
// to a synthesizer's register is shifted into the chip; reading the register back tells
// whether it was sent and whether the loop locked. The L synthesizer is integer-N (three
// words) on convertor types 1 to 3 and fractional-N (addressed registers) on types 4 to 6.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cSynthesizer : public cCommonModule {
 public:
  // The six words start at 0.
  cSynthesizer(cZARIM* io, uint8_t convertorType) : cCommonModule(io), convertorType(convertorType) {}

  // Send the S words / the integer-N L words: 0, or kRefNotReady, kFunctionNotReady,
  // kCounterNotReady, kNotLocked with the module's text. A failed step stops the load.
  virtual uint32_t LoadSamplingSynthesizer() = 0;
  virtual uint32_t LoadLSynthesizerWords() = 0;
  // One addressed write to the fractional-N kind: 0 once sent, else kRefNotReady.
  virtual uint32_t WriteRegister(uint32_t reg, uint32_t value) = 0;
  // The RF control word's register mode: the write's result.
  virtual uint32_t SelectRegisterMode() = 0;
  // The fractional-N set-up (mode 0 for convertor type 4, other modes for 5 and 6): the
  // result of the last write.
  virtual uint32_t Configure(uint32_t mode);

  // The S synthesizer at the multiple of 1 666 666.67 Hz nearest to *frequency: 0, or
  // kBadWord (prescaler code, or a frequency no counter word holds), or the load's code.
  uint32_t SetSamplingFrequency(const double* frequency);
  // The L synthesizer at *frequency for convertor type *convertorType, from a 10 MHz
  // reference (100 MHz with referenceSelect 1): 0, kBadType (nothing sent, no text),
  // kBadWord (nothing sent), or the load's code.
  uint32_t LoadLSynthesizer(const double* frequency, const uint8_t* convertorType,
                            uint32_t referenceSelect);

  static constexpr uint32_t kBadWord = 1;
  static constexpr uint32_t kRefNotReady = 0xFFFFFFFF;
  static constexpr uint32_t kFunctionNotReady = 0xFFFFFFFE;
  static constexpr uint32_t kCounterNotReady = 0xFFFFFFFD;
  static constexpr uint32_t kNotLocked = 0xFFFFFFFC;
  static constexpr uint32_t kBadType = 0xFFFFFFF6;

  double sampling_frequency() const { return samplingFrequency; }
  double l_frequency() const { return lFrequency; }
  uint8_t convertor_type() const { return convertorType; }
  uint32_t s_vco_word() const { return sVcoWord; }
  uint32_t s_function_word() const { return sFunctionWord; }
  uint32_t l_vco_word() const { return lVcoWord; }
  uint32_t l_function_word() const { return lFunctionWord; }

 protected:
  uint32_t LoadFractional(double frequency, double reference, uint32_t referenceSelect);

  double samplingFrequency = 0;   // as realised, not as requested
  double lFrequency = 0;          // as requested
  uint8_t convertorType;
  uint32_t sRefWord = 0, sVcoWord = 0, sFunctionWord = 0;
  uint32_t lRefWord = 0, lVcoWord = 0, lFunctionWord = 0;
};

class cSynthesizerE : public cSynthesizer {
 public:
  using cSynthesizer::cSynthesizer;
  uint32_t LoadSamplingSynthesizer() override;
  uint32_t LoadLSynthesizerWords() override;
  uint32_t WriteRegister(uint32_t reg, uint32_t value) override;
  uint32_t SelectRegisterMode() override;

 private:
  // Writes `word`, pauses 1 ms and reads the register back: 0 when sent, else `code` with
  // "<name> Синтезатор не готов, 0x…".
  uint32_t SendWord(uint32_t reg, uint32_t word, const char* name, uint32_t code);
  // Pauses `ms` and reads the register back: 0 when locked, else kNotLocked with `format`.
  uint32_t CheckLock(uint32_t reg, uint32_t ms, const char* format);
};

}  // namespace tvx
