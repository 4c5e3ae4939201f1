// The serial EEPROMs on the board's I2C bus, behaving as such chips do: an address pointer set
// by the first byte(s) of a write, sequential reads that advance it and roll over at the end,
// page writes that are committed at the stop condition, and an internal write cycle during
// which the chip ignores its address (the master polls for its acknowledge).
//
// Three chips: the module EEPROM (0xA6, two-byte addressing), and one EEPROM on each family of
// L-band convertor at 0xA0, of which only the fitted convertor's is on the bus: two-byte
// addressing on the convertor that sets the presence bit, one-byte on the other (key prefixes
// eeprom.lconv and eeprom.lconv2).
#include <cstdio>

#include "i2c_target.h"
#include "platform/stdio_ext.h"

namespace zsim {
namespace {

constexpr uint8_t kErased = 0xFF;

void Put16(std::vector<uint8_t>* image, uint32_t address, uint32_t value) {
  (*image)[address] = uint8_t(value >> 8);
  (*image)[address + 1] = uint8_t(value);
}

void Put32(std::vector<uint8_t>* image, uint32_t address, uint32_t value) {
  Put16(image, address, value >> 16);
  Put16(image, address + 2, value & 0xFFFF);
}

// Default contents: a plausible, healthy board (docs/virtual-board.md lists them).
std::vector<uint8_t> ModuleDefaults() {
  std::vector<uint8_t> image(8192, kErased);
  image[0x0000] = 3;               // module version "03"
  Put16(&image, 0x0002, 2000);     // preselector 1 maximum, 20.00 V
  Put16(&image, 0x0004, 1950);     // preselector 2 maximum, 19.50 V
  Put16(&image, 0x0006, 50);       // preselector 1 minimum, 0.50 V
  Put16(&image, 0x0008, 40);       // preselector 2 minimum, 0.40 V
  image[0x0010] = 12;              // gain calibration +1.2 dB
  Put32(&image, 0x0100, 12345678); // serial number "0012345678"
  return image;
}

std::vector<uint8_t> LConvDefaults() {
  std::vector<uint8_t> image(8192, kErased);
  // 25 grid points, 2.000 V rising by 0.500 V to 14.000 V, one entry every four bytes.
  for (uint32_t e = 0; e < 25; ++e) Put16(&image, 4 * e, 2000 + 500 * e);
  Put32(&image, 0x0080, 200001);   // serial number "0000200001"
  image[0x0084] = 2;               // version "02"
  return image;
}

std::vector<uint8_t> PlainLConvDefaults() {
  std::vector<uint8_t> image(256, kErased);
  // 26 points for each of two preselectors, tenths of a volt: 2.0 V and 2.5 V rising by 0.5 V.
  for (uint32_t i = 0; i < 26; ++i) {
    image[4 * i + 0] = uint8_t(20 + 5 * i);
    image[4 * i + 1] = uint8_t(25 + 5 * i);
  }
  return image;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

class Eeprom : public I2cTarget {
 public:
  Eeprom(const char* prefix, uint8_t address, int address_bytes, uint32_t page,
         std::vector<uint8_t> defaults, KeySet* keys, const uint32_t* write_polls,
         std::function<bool()> attached)
      : I2cTarget(prefix, keys), address_(address), address_bytes_(address_bytes), page_(page),
        defaults_(std::move(defaults)), image_(defaults_), write_polls_(write_polls),
        attached_(std::move(attached)) {}

  uint8_t address() const override { return address_; }
  bool attached() const override { return !attached_ || attached_(); }

  bool Start(bool read) override {
    // A write that never saw its stop condition is dropped, as the chip drops it.
    pending_.clear();
    if (cycle_left_ > 0) {
      --cycle_left_;
      return false;
    }
    writing_ = !read;
    address_left_ = read ? 0 : address_bytes_;
    return true;
  }

  bool Write(uint8_t byte) override {
    if (!writing_) return false;
    if (address_left_ > 0) {
      --address_left_;
      if (address_bytes_ == 2 && address_left_ == 1) {
        high_ = byte;
      } else {
        const uint32_t high = address_bytes_ == 2 ? uint32_t(high_) << 8 : 0;
        pointer_ = (high | byte) % size();
      }
      return true;
    }
    // Data: buffered for the stop condition; the pointer wraps inside its page.
    pending_.emplace_back(pointer_, byte);
    pointer_ = (pointer_ & ~(page_ - 1)) | ((pointer_ + 1) & (page_ - 1));
    return true;
  }

  uint8_t Read() override {
    const uint8_t byte = image_[pointer_];
    pointer_ = (pointer_ + 1) % size();
    return byte;
  }

  void Stop() override {
    if (writing_ && !pending_.empty()) {
      for (auto [at, byte] : pending_) image_[at] = byte;
      cycle_left_ = *write_polls_;
    }
    pending_.clear();
    writing_ = false;
    address_left_ = 0;
  }

  KeyResult Set(const std::string& key, const std::string& value) override {
    if (key == prefix() + ".image") return SetImage(value);
    if (key == prefix() + ".file") return LoadFile(value);
    uint32_t at = 0;
    if (ByteKey(key, &at)) {
      uint32_t v = 0;
      if (!ParseU32(value, &v) || v > 0xFF) return KeyResult::kBadValue;
      image_[at] = uint8_t(v);
      return KeyResult::kOk;
    }
    return KeyResult::kUnknownKey;
  }

  bool Get(const std::string& key, std::string* value) const override {
    uint32_t at = 0;
    if (key == prefix() + ".image") {
      *value = ImageText();
    } else if (key == prefix() + ".file") {
      *value = file_;
    } else if (key == prefix() + ".pointer") {
      char text[8];
      std::snprintf(text, sizeof text, "0x%04X", unsigned(pointer_));
      *value = text;
    } else if (ByteKey(key, &at)) {
      char text[8];
      std::snprintf(text, sizeof text, "0x%02X", unsigned(image_[at]));
      *value = text;
    } else {
      return false;
    }
    return true;
  }

  void KeyNames(std::vector<std::string>* out) const override {
    out->push_back(prefix() + ".image");
    out->push_back(prefix() + ".file");
    out->push_back(prefix() + ".byte.0xADDR");
  }

  void Reset() override {
    image_ = defaults_;
    file_.clear();
    pending_.clear();
    pointer_ = 0;
    high_ = 0;
    cycle_left_ = 0;
    writing_ = false;
    address_left_ = 0;
  }

 private:
  uint32_t size() const { return uint32_t(image_.size()); }

  // "<prefix>.byte.ADDR" with ADDR inside the chip.
  bool ByteKey(const std::string& key, uint32_t* at) const {
    const std::string head = prefix() + ".byte.";
    if (key.compare(0, head.size(), head) != 0) return false;
    return ParseU32(key.substr(head.size()), at) && *at < size();
  }

  // Hex digit pairs, blanks between them allowed; the rest of the chip reads erased.
  // "default" restores the contents the board is built with.
  KeyResult SetImage(const std::string& value) {
    if (value == "default") {
      image_ = defaults_;
      file_.clear();
      return KeyResult::kOk;
    }
    std::vector<uint8_t> bytes;
    int high = -1;
    for (char c : value) {
      if (c == ' ' && high < 0) continue;
      const int digit = HexDigit(c);
      if (digit < 0) return KeyResult::kBadValue;
      if (high < 0) {
        high = digit;
      } else {
        bytes.push_back(uint8_t(high << 4 | digit));
        high = -1;
      }
    }
    if (high >= 0 || bytes.size() > size()) return KeyResult::kBadValue;
    bytes.resize(size(), kErased);
    image_ = std::move(bytes);
    file_.clear();
    return KeyResult::kOk;
  }

  // Only a regular file, and never more than the chip holds plus one byte (to see that it is
  // too long): a FIFO or a device named here must not hold up the board's configuration.
  KeyResult LoadFile(const std::string& path) {
    std::FILE* in = tvx::os::OpenRegularFile(path.c_str(), false);
    if (in == nullptr) return KeyResult::kBadValue;
    std::vector<uint8_t> bytes(size() + 1);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), in));
    const bool failed = std::ferror(in) != 0;
    std::fclose(in);
    if (failed || bytes.size() > size()) return KeyResult::kBadValue;
    bytes.resize(size(), kErased);
    image_ = std::move(bytes);
    file_ = path;
    return KeyResult::kOk;
  }

  // The image up to its last byte that is not erased, as hex.
  std::string ImageText() const {
    size_t end = image_.size();
    while (end > 0 && image_[end - 1] == kErased) --end;
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(end * 2);
    for (size_t i = 0; i < end; ++i) {
      text += kDigits[image_[i] >> 4];
      text += kDigits[image_[i] & 15];
    }
    return text;
  }

  const uint8_t address_;
  const int address_bytes_;
  const uint32_t page_;
  const std::vector<uint8_t> defaults_;
  std::vector<uint8_t> image_;
  const uint32_t* write_polls_;
  std::function<bool()> attached_;
  std::string file_;

  uint32_t pointer_ = 0;
  uint8_t high_ = 0;
  bool writing_ = false;
  int address_left_ = 0;
  uint32_t cycle_left_ = 0;
  std::vector<std::pair<uint32_t, uint8_t>> pending_;
};

}  // namespace

std::unique_ptr<I2cTarget> MakeModuleEeprom(KeySet* keys, const uint32_t* write_polls) {
  return std::make_unique<Eeprom>("eeprom.pcb", 0xA6, 2, 32, ModuleDefaults(), keys, write_polls,
                                  nullptr);
}

std::unique_ptr<I2cTarget> MakeLConvEeprom(KeySet* keys, const uint32_t* write_polls,
                                           std::function<bool()> lconv_present) {
  return std::make_unique<Eeprom>("eeprom.lconv", 0xA0, 2, 32, LConvDefaults(), keys, write_polls,
                                  std::move(lconv_present));
}

std::unique_ptr<I2cTarget> MakePlainLConvEeprom(KeySet* keys, const uint32_t* write_polls,
                                                std::function<bool()> lconv_present) {
  auto absent = [present = std::move(lconv_present)] { return !present(); };
  return std::make_unique<Eeprom>("eeprom.lconv2", 0xA0, 1, 16, PlainLConvDefaults(), keys,
                                  write_polls, absent);
}

}  // namespace zsim
