// The iso converter's output-clock generator behind DEM words 64 to 66, and its loading gauge.
//
// DEM word 64 holds the output frequency word. DEM word 65 is the control: bit 0 is held at 1
// for the length of a serial transaction, bits 1 and 2 strobe the generator, bit 7 marks a
// finished set-up and bits 8-11 hold the exponent n of the output divider. DEM word 66 takes
// one serial bit per write (bit 0 of the word), most significant first: an 8-bit command,
// then 8, 24 or 32 data bits. A transaction of any other length is garbled and dropped. The
// generator keeps the data of the last complete transaction for each command; command 4
// carries the frequency word it runs at, and its output clock is word × (fs / 2) / 2^28,
// divided by 2^n.
//
// DEM word 14, read, is the converter's loading (iso.loading) as a signed 16-bit number in
// bits 0-15; the word's writes are the demodulator's.
#include <map>
#include <optional>
#include <vector>

#include "demod/sample_clock.h"
#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr uint32_t kTransaction = 1u << 0;
constexpr uint32_t kExponentShift = 8, kExponentMask = 0xF;
constexpr size_t kCommandBits = 8;
constexpr size_t kLongest = kCommandBits + 32;
constexpr uint32_t kFrequencyCommand = 4;

class IsoConverter : public DeviceModel {
 public:
  explicit IsoConverter(unsigned board_index) : DeviceModel("iso", board_index) {
    keys().AddSigned("iso.loading", &loading_, 0, -32768, 32767);
    OnWrite(Dem(64), [this](uint32_t value) { word_ = value; });
    OnWrite(Dem(65), [this](uint32_t value) { Control(value); });
    OnWrite(Dem(66), [this](uint32_t value) {
      if (open_ && bits_.size() <= kLongest) bits_.push_back(value & 1);
    });
    OnRead(Dem(14), [this](uint32_t, bool) { return uint32_t(uint16_t(int16_t(loading_))); });
  }

  bool Get(const std::string& key, std::string* value) const override {
    uint32_t command = 0;
    const bool reg = key.compare(0, 8, "iso.reg.") == 0 && ParseU32(key.substr(8), &command);
    if (key == "iso.word") *value = word_ ? FormatHex(*word_) : "none";
    else if (key == "iso.control") *value = control_ ? FormatHex(*control_) : "none";
    else if (key == "iso.exponent") *value = control_ ? FormatDecimal(Exponent()) : "none";
    else if (key == "iso.transactions") *value = FormatDecimal(transactions_);
    else if (key == "iso.frequency") *value = Frequency();
    else if (reg && command < 256)
      *value = registers_.count(command) ? FormatHex(registers_.at(command)) : "none";
    else return DeviceModel::Get(key, value);
    return true;
  }

 private:
  void ResetState() override {
    word_ = control_ = std::nullopt;
    open_ = false;
    bits_.clear();
    registers_.clear();
    transactions_ = 0;
  }

  uint32_t Exponent() const { return (control_.value_or(0) >> kExponentShift) & kExponentMask; }

  void Control(uint32_t value) {
    control_ = value;
    const bool open = (value & kTransaction) != 0;
    if (open && !open_) bits_.clear();
    if (!open && open_) Finish();
    open_ = open;
  }

  void Finish() {
    const size_t n = bits_.size();
    if (n != kCommandBits + 8 && n != kCommandBits + 24 && n != kCommandBits + 32) return;
    uint32_t command = 0, data = 0;
    for (size_t i = 0; i < kCommandBits; ++i) command = command << 1 | bits_[i];
    for (size_t i = kCommandBits; i < n; ++i) data = data << 1 | bits_[i];
    registers_[command] = data;
    ++transactions_;
  }

  std::string Frequency() const {
    auto it = registers_.find(kFrequencyCommand);
    if (it == registers_.end()) return "none";
    std::string clock;
    const bool known = BoardKey("synth.s.frequency", &clock);
    const double fs = SampleClockFrom(known, clock);
    return FormatHz(it->second * (fs / 2) / 268435456.0 / double(1u << Exponent()));
  }

  int32_t loading_ = 0;
  std::optional<uint32_t> word_, control_;
  bool open_ = false;                     // control bit 0 up: a transaction is being sent
  std::vector<uint8_t> bits_;             // its bits so far, first sent first
  std::map<uint32_t, uint32_t> registers_;   // command → data of its last transaction
  uint64_t transactions_ = 0;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeIsoConverter(unsigned board_index) {
  return std::make_unique<IsoConverter>(board_index);
}

}  // namespace zsim
