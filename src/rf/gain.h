// The receiver's two gain stages: the first set by one code (its form depends on the convertor
// type) and read back per channel as a 12-bit code, the second set by two control words and
// read back per channel as a 16-bit code that stands for a level in dB.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

class cGainFirst : public cCommonModule {
 public:
  // `statusAddress` is the byte address ReadCode reads until a channel read sets another.
  cGainFirst(cZARIM* io, const uint8_t* convertorType, uint32_t statusAddress)
      : cCommonModule(io), convertorType(*convertorType), statusAddress(statusAddress) {}

  virtual uint32_t ReadCode();
  virtual uint32_t ReadCodeChannel1();
  virtual uint32_t ReadCodeChannel2();

  int32_t SetCode(const uint32_t* code);
  double CodeToLevel(const uint32_t* code) const { return double(*code >> 7); }
  uint32_t last_code() const { return lastCode; }

 private:
  uint8_t convertorType;
  uint32_t statusAddress;
  uint32_t lastCode = 0;
};

class cGainSecond : public cCommonModule {
 public:
  explicit cGainSecond(cZARIM* io);

  virtual uint32_t ReadCode() = 0;
  virtual uint32_t ReadCodeChannel1() = 0;
  virtual uint32_t ReadCodeChannel2() = 0;
  virtual double CodeToDb(const uint32_t* code) = 0;

  int32_t SetControl(const uint32_t value[2]);

 protected:
  uint32_t lastControl[2] = {};
  uint32_t statusAddress;
};

class cGainSecondE : public cGainSecond {
 public:
  using cGainSecond::cGainSecond;
  uint32_t ReadCode() override;
  uint32_t ReadCodeChannel1() override;
  uint32_t ReadCodeChannel2() override;
  double CodeToDb(const uint32_t* code) override;
};

}  // namespace tvx
