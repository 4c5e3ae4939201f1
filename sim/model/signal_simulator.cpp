// The test-signal simulator of the DEM FPGA: the carrier word (DEM word 24), the control word
// (DEM word 25: divider in bits 0-15, pattern length in bytes in bits 16-27, on in bit 28) and
// the pattern (DEM word 26, one write per 16-bit word: the word's index in the high half, the
// word in the low half). A write with index 0 begins a new pattern. Nothing here generates a
// signal; the block keeps what it was told so that zsim_get can show it.
#include <cstdio>
#include <vector>

#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr size_t kMaxPatternWords = 65536;   // as many as the index field can name

class SignalSimulator : public DeviceModel {
 public:
  explicit SignalSimulator(unsigned board_index) : DeviceModel("sim", board_index) {
    OnWrite(Dem(24), [this](uint32_t value) { carrier_ = value; });
    OnWrite(Dem(25), [this](uint32_t value) { control_ = value; });
    OnWrite(Dem(26), [this](uint32_t value) { Pattern(value); });
  }

  bool Get(const std::string& key, std::string* value) const override {
    if (key == "sim.carrier") *value = FormatHex(carrier_);
    else if (key == "sim.control") *value = FormatHex(control_);
    else if (key == "sim.divider") *value = FormatDecimal(control_ & 0xFFFF);
    else if (key == "sim.length") *value = FormatDecimal((control_ >> 16) & 0xFFF);
    else if (key == "sim.on") *value = (control_ >> 28) & 1 ? "1" : "0";
    else if (key == "sim.pattern.words") *value = FormatDecimal(received_);
    else if (key == "sim.pattern.in_order") *value = in_order_ ? "1" : "0";
    else if (key == "sim.pattern") *value = PatternText();
    else return DeviceModel::Get(key, value);
    return true;
  }

 private:
  void ResetState() override {
    carrier_ = control_ = 0;
    pattern_.clear();
    received_ = 0;
    in_order_ = true;
  }

  void Pattern(uint32_t value) {
    const uint32_t index = value >> 16;
    if (index == 0) {
      pattern_.clear();
      received_ = 0;
      in_order_ = true;
    }
    if (index != received_) in_order_ = false;
    ++received_;
    if (pattern_.size() < kMaxPatternWords) pattern_.push_back(uint16_t(value));
  }

  std::string PatternText() const {
    std::string text;
    char word[8];
    for (uint16_t w : pattern_) {
      std::snprintf(word, sizeof word, text.empty() ? "%04X" : " %04X", unsigned(w));
      text += word;
    }
    return text;
  }

  uint32_t carrier_ = 0, control_ = 0;
  std::vector<uint16_t> pattern_;   // the low halves, in the order they arrived
  uint64_t received_ = 0;
  bool in_order_ = true;            // every write's index was its position in the pattern
};

}  // namespace

std::unique_ptr<DeviceModel> MakeSignalSimulator(unsigned board_index) {
  return std::make_unique<SignalSimulator>(board_index);
}

}  // namespace zsim
