// The two tables the library streams into the DEM FPGA one word per write: the matched
// filter's coefficients (DEM word 10) and the packing table (DEM word 16).
//
// A coefficient write carries the tap's 14-bit two's-complement value in bits 0-13, the tap
// number in bits 16-23 and the shift code in bits 24-27, OR-ed together. The tap field is only
// eight bits wide, so a filter of more than 256 taps wraps it (and the higher tap numbers spill
// into the shift bits): a write with tap field 0 begins a new load unless the one before it
// had 255. The model keeps the current load's taps in the order they came, and the shift code
// of its first write, which no tap number has spilled into.
//
// The packing table has no structure the board checks; the model counts its words and keeps
// their CRC-32 (as little-endian bytes, the file's own byte order) so that a test can hold it
// against the file it came from.
#include <vector>

#include "crc32.h"
#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr uint32_t kTapValueBits = 0x3FFF;
constexpr uint32_t kTapFieldShift = 16, kTapFieldMask = 0xFF;
constexpr uint32_t kShiftShift = 24, kShiftMask = 0xF;
constexpr uint32_t kLastTapField = 255;

class DemodTables : public DeviceModel {
 public:
  explicit DemodTables(unsigned board_index) : DeviceModel("tables", board_index) {
    OnWrite(Dem(10), [this](uint32_t value) { Tap(value); });
    OnWrite(Dem(16), [this](uint32_t value) {
      for (int i = 0; i < 4; ++i) crc_ = Crc32Update(crc_, uint8_t(value >> 8 * i));
      ++pack_words_;
    });
  }

  KeyResult Set(const std::string& key, const std::string& value) override {
    if (key != "pack.clear") return DeviceModel::Set(key, value);
    if (value != "1") return KeyResult::kBadValue;
    ClearPack();
    return KeyResult::kOk;
  }

  bool Get(const std::string& key, std::string* value) const override {
    uint32_t k = 0;
    if (key == "filter.taps") *value = FormatDecimal(taps_.size());
    else if (key == "filter.shift") *value = loads_ ? FormatDecimal(shift_) : "none";
    else if (key == "filter.loads") *value = FormatDecimal(loads_);
    else if (key.compare(0, 11, "filter.tap.") == 0 && ParseU32(key.substr(11), &k))
      *value = k < taps_.size() ? std::to_string(Signed14(taps_[k])) : "none";
    else if (key == "pack.words") *value = FormatDecimal(pack_words_);
    else if (key == "pack.crc") *value = FormatHex(~crc_);
    else if (key == "pack.clear") *value = "0";
    else return DeviceModel::Get(key, value);
    return true;
  }

  void KeyNames(std::vector<std::string>* out) const override {
    DeviceModel::KeyNames(out);
    out->push_back("pack.clear");
  }

 private:
  void ResetState() override {
    taps_.clear();
    loads_ = 0;
    shift_ = 0;
    previous_field_ = 0;
    any_tap_ = false;
    ClearPack();
  }

  void ClearPack() {
    pack_words_ = 0;
    crc_ = 0xFFFFFFFFu;
  }

  static int32_t Signed14(uint32_t value) {
    return int32_t(value & kTapValueBits) - int32_t(value & 0x2000) * 2;
  }

  void Tap(uint32_t value) {
    const uint32_t field = (value >> kTapFieldShift) & kTapFieldMask;
    if (field == 0 && !(any_tap_ && previous_field_ == kLastTapField)) {
      taps_.clear();
      shift_ = (value >> kShiftShift) & kShiftMask;
      ++loads_;
    }
    taps_.push_back(value & kTapValueBits);
    previous_field_ = field;
    any_tap_ = true;
  }

  std::vector<uint32_t> taps_;   // the current load's 14-bit values, in arrival order
  uint64_t loads_ = 0;
  uint32_t shift_ = 0, previous_field_ = 0;
  bool any_tap_ = false;
  uint64_t pack_words_ = 0;
  uint32_t crc_ = 0xFFFFFFFFu;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeDemodTables(unsigned board_index) {
  return std::make_unique<DemodTables>(board_index);
}

}  // namespace zsim
