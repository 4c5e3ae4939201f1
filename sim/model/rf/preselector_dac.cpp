// The DAC that drives the convertor's preselector control voltages, behind peripheral word 3.
// A word written with bit 15 set carries the first preselector's code in bits 14-0, a word
// without it the second's: the FPGA routes each word by that bit, so the order of the two
// writes does not matter to it. A read returns bit 31 once the DAC has taken the last word
// (dac.ready_after reads after each write, or never with dac.fault = never_ready) and the
// last word written in the other bits.
//
// The model keeps each channel's last code and reports the voltage it stands for on the
// board: code 0 is the preselector's minimum control voltage and 4096 its maximum, both read
// from the module EEPROM as it is now (maximum at 2k, minimum at 2k + 4 for preselector k, in
// hundredths of a volt).
#include <cstdio>

#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr uint32_t kReady = 1u << 31;
constexpr uint32_t kFirstChannel = 1u << 15;
constexpr uint32_t kCodeBits = 0x7FFF;
constexpr uint32_t kFullScale = 4096;

class PreselectorDac : public DeviceModel {
 public:
  explicit PreselectorDac(unsigned board_index) : DeviceModel("dac", board_index) {
    keys().AddChoice("dac.fault", &fault_, 0, {"none", "never_ready"});
    keys().AddNumber("dac.ready_after", &ready_after_, 0, 0, 1000000);
    OnWrite(Periph(3), [this](uint32_t value) {
      const int channel = (value & kFirstChannel) != 0 ? 0 : 1;
      code_[channel] = value & kCodeBits;
      written_[channel] = true;
      ready_left_ = ready_after_;
    });
    OnRead(Periph(3), [this](uint32_t stored, bool peek) {
      const bool ready = fault_ == 0 && ready_left_ == 0;
      if (!peek && ready_left_ > 0) --ready_left_;
      return (stored & ~kReady) | (ready ? kReady : 0);
    });
  }

  bool Get(const std::string& key, std::string* value) const override {
    for (int channel = 0; channel < 2; ++channel) {
      const std::string n = std::to_string(channel + 1);
      if (key == "dac.code." + n) {
        *value = written_[channel] ? FormatDecimal(code_[channel]) : "none";
        return true;
      }
      if (key == "dac.voltage." + n) {
        *value = written_[channel] ? Voltage(channel) : "none";
        return true;
      }
    }
    return DeviceModel::Get(key, value);
  }

 private:
  void ResetState() override {
    code_[0] = code_[1] = 0;
    written_[0] = written_[1] = false;
    ready_left_ = 0;
  }

  // A big-endian 16-bit value of the module EEPROM.
  bool EepromWord(uint32_t address, uint32_t* word) const {
    uint32_t high = 0, low = 0;
    std::string text;
    char key[40];
    std::snprintf(key, sizeof key, "eeprom.pcb.byte.0x%04X", unsigned(address));
    if (!BoardKey(key, &text) || !ParseU32(text, &high)) return false;
    std::snprintf(key, sizeof key, "eeprom.pcb.byte.0x%04X", unsigned(address + 1));
    if (!BoardKey(key, &text) || !ParseU32(text, &low)) return false;
    *word = high << 8 | low;
    return true;
  }

  std::string Voltage(int channel) const {
    const uint32_t k = uint32_t(channel) + 1;
    uint32_t max = 0, min = 0;
    if (!EepromWord(2 * k, &max) || !EepromWord(2 * k + 4, &min) || max == 0xFFFF) return "none";
    const double low = int16_t(uint16_t(min)) / 100.0, high = max / 100.0;
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", low + code_[channel] * (high - low) / kFullScale);
    return text;
  }

  uint32_t fault_ = 0, ready_after_ = 0;
  uint32_t code_[2] = {};
  bool written_[2] = {};
  uint32_t ready_left_ = 0;
};

}  // namespace

std::unique_ptr<DeviceModel> MakePreselectorDac(unsigned board_index) {
  return std::make_unique<PreselectorDac>(board_index);
}

}  // namespace zsim
