// The three channel controls of the demodulator FPGA: one control word each, written
// unchanged (its bits belong to the FPGA). The IQ and demodulated-data channels also report a
// status bit and an 8-bit counter.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

// Shared by the three: the control register (a DEM word).
class cChannelControl : public cCommonModule {
 public:
  cChannelControl(cZARIM* io, uint32_t control_word) : cCommonModule(io), ControlWord(control_word) {}
  // 0; the register write's code when it fails (its text copied into the module's); -1 with
  // "Указатель данных не задан" for a null word, in all three (the exports never pass one).
  int32_t SetControl(const uint32_t* word);

 private:
  uint32_t ControlWord;
};

class cCountingChannel : public cChannelControl {
 public:
  cCountingChannel(cZARIM* io, uint32_t control_word, uint32_t status_bit, uint32_t counter_shift)
      : cChannelControl(io, control_word), StatusBit(status_bit),
        CounterShift(counter_shift) {}
  virtual uint8_t GetCounter();     // 0 to 255; a failed read counts 0
  virtual uint8_t GetStatusBit();   // 0 or 1; a failed read gives 0

 private:
  uint32_t StatusBit;
  uint32_t CounterShift;
};

class cIQCHCtrl : public cCountingChannel {
 public:
  explicit cIQCHCtrl(cZARIM* io);
};

class cDMDCHCtrl : public cCountingChannel {
 public:
  explicit cDMDCHCtrl(cZARIM* io);
};

class cDMA3CHCtrl : public cChannelControl {
 public:
  explicit cDMA3CHCtrl(cZARIM* io);
};

}  // namespace tvx
