// The L-band down-convertor's presence line. The board reports whether a convertor is plugged
// in on bit 0 of peripheral word 0; the library reads it once at bring-up to choose the
// convertor family. The word's other bits behave as plain storage (the synthesizers' register
// mode, written there, reads back beside the presence bit).
//
// lconv.type chooses the fitted convertor as a whole: the presence bit, and for the family
// that sets it, the version byte its EEPROM carries, which is what tells types 3, 4 and 5
// apart. Read, it reports the type the library identifies from those two, so it stays true
// when either is changed on its own.
#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr const char* kVersionByteKey = "eeprom.lconv.byte.0x0084";

class LconvPresence : public DeviceModel {
 public:
  explicit LconvPresence(unsigned board_index) : DeviceModel("lconv", board_index) {
    keys().AddNumber("lconv.present", &present_, 1, 0, 1);
    OnRead(Periph(0), [this](uint32_t, bool) { return present_; }, 1u);
  }

  KeyResult Set(const std::string& key, const std::string& value) override {
    if (key != "lconv.type") return DeviceModel::Set(key, value);
    uint32_t type = 0;
    if (!ParseU32(value, &type) || type < 2 || type > 5) return KeyResult::kBadValue;
    // Version bytes 3 and 4 identify types 4 and 5; type 3 carries the board's own "02".
    if (type != 2 && !SetBoardKey(kVersionByteKey, type == 3 ? "2" : FormatDecimal(type - 1)))
      return KeyResult::kBadValue;
    present_ = type == 2 ? 0 : 1;
    return KeyResult::kOk;
  }

  bool Get(const std::string& key, std::string* value) const override {
    if (key != "lconv.type") return DeviceModel::Get(key, value);
    std::string version;
    uint32_t byte = 0;
    uint32_t type = 2;
    if (present_ != 0) {
      type = 3;
      if (BoardKey(kVersionByteKey, &version) && ParseU32(version, &byte) && (byte == 3 || byte == 4))
        type = byte + 1;
    }
    *value = FormatDecimal(type);
    return true;
  }

  void KeyNames(std::vector<std::string>* out) const override {
    DeviceModel::KeyNames(out);
    out->push_back("lconv.type");
  }

 private:
  uint32_t present_ = 1;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeLconvPresence(unsigned board_index) {
  return std::make_unique<LconvPresence>(board_index);
}

}  // namespace zsim
