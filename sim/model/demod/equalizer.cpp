// The demodulator's 13-tap equalizer in the DEM FPGA.
//
//   DEM word 12, written          one word of the error table per write
//   DEM word 13, written          the control word
//   DEM words 96-108, written     tap i's two 12-bit coefficients: the first in bits 25-14,
//                                 the second in bits 11-0
//   DEM words 16-28, read         tap i's coefficients as the equalizer holds them: the first in
//                                 bits 31-20, the second in bits 15-4, the rest 0
//
// Each of these words means something else in the other direction (DEM word 16 written is the
// packing table, DEM words 18 and 20 the second gain stage's controls, DEM word 112 read the
// second gain stage's channel 2 code), so only the directions above are the equalizer's.
// The taps read back what was loaded: the model does not adapt them, so a test sees its load
// in the other layout. After a reset every tap is 0, as the FPGA's registers come up.
//
// The error table has no structure the board checks: the model counts its words and keeps
// their CRC-32 as little-endian bytes, the file's own byte order.
#include <array>
#include <cstdio>

#include "crc32.h"
#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr uint32_t kTaps = 13;
constexpr uint32_t kTapsRead = 16, kTapsWrite = 96;
constexpr uint32_t kValueMask = 0xFFF;
constexpr uint32_t kWriteFirstShift = 14, kReadFirstShift = 20, kReadSecondShift = 4;

class Equalizer : public DeviceModel {
 public:
  explicit Equalizer(unsigned board_index) : DeviceModel("equalizer", board_index) {
    OnWrite(Dem(12), [this](uint32_t value) {
      for (int i = 0; i < 4; ++i) crc_ = Crc32Update(crc_, uint8_t(value >> 8 * i));
      ++table_words_;
    });
    OnWrite(Dem(13), [this](uint32_t value) { control_ = value, control_written_ = true; });
    for (uint32_t i = 0; i < kTaps; ++i) {
      OnWrite(Dem(kTapsWrite + i), [this, i](uint32_t value) {
        taps_[i] = {(value >> kWriteFirstShift) & kValueMask, value & kValueMask};
      });
      OnRead(Dem(kTapsRead + i), [this, i](uint32_t, bool) {
        return taps_[i].first << kReadFirstShift | taps_[i].second << kReadSecondShift;
      });
    }
  }

  KeyResult Set(const std::string& key, const std::string& value) override {
    if (key != "eq.table.clear") return DeviceModel::Set(key, value);
    if (value != "1") return KeyResult::kBadValue;
    ClearTable();
    return KeyResult::kOk;
  }

  bool Get(const std::string& key, std::string* value) const override {
    uint32_t i = 0;
    if (key == "eq.table.words") *value = FormatDecimal(table_words_);
    else if (key == "eq.table.crc") *value = FormatHex(~crc_);
    else if (key == "eq.table.clear") *value = "0";
    else if (key == "eq.control") *value = control_written_ ? FormatHex(control_) : "none";
    else if (key.compare(0, 7, "eq.tap.") == 0 && ParseU32(key.substr(7), &i) && i < kTaps) {
      char text[16];
      std::snprintf(text, sizeof text, "0x%03X 0x%03X", unsigned(taps_[i].first),
                    unsigned(taps_[i].second));
      *value = text;
    } else {
      return DeviceModel::Get(key, value);
    }
    return true;
  }

  void KeyNames(std::vector<std::string>* out) const override {
    DeviceModel::KeyNames(out);
    out->push_back("eq.table.clear");
  }

 private:
  struct Tap {
    uint32_t first = 0, second = 0;
  };

  void ResetState() override {
    taps_.fill(Tap{});
    control_ = 0;
    control_written_ = false;
    ClearTable();
  }

  void ClearTable() {
    table_words_ = 0;
    crc_ = 0xFFFFFFFFu;
  }

  std::array<Tap, kTaps> taps_{};
  uint32_t control_ = 0;
  bool control_written_ = false;
  uint64_t table_words_ = 0;
  uint32_t crc_ = 0xFFFFFFFFu;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeEqualizer(unsigned board_index) {
  return std::make_unique<Equalizer>(board_index);
}

}  // namespace zsim
