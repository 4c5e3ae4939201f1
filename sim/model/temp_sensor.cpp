// The two-channel temperature sensor on the board's I2C bus (0x98): a register pointer set by
// the first byte of a write, further bytes written to the register it points at, reads from
// that register. The temperatures come from keys; every other register keeps what was last
// written to it, and the registers the library sets up are reported (sensor.reg.0xNN).
#include <cstdio>

#include "i2c_target.h"

namespace zsim {
namespace {

constexpr uint8_t kLocal = 0x00;
constexpr uint8_t kRemote = 0x01;
constexpr uint8_t kRemoteFraction = 0x10;

class TemperatureSensor : public I2cTarget {
 public:
  explicit TemperatureSensor(KeySet* keys) : I2cTarget("sensor", keys) {
    keys->AddNumber("sensor.local", &local_, 41, 0, 255);
    keys->AddNumber("sensor.remote", &remote_, 56, 0, 255);
    keys->AddNumber("sensor.remote_fraction", &fraction_, 0x80, 0, 255, 1, true);
  }

  uint8_t address() const override { return 0x98; }

  bool Start(bool read) override {
    expect_pointer_ = !read;
    return true;
  }

  bool Write(uint8_t byte) override {
    if (expect_pointer_) {
      pointer_ = byte;
      expect_pointer_ = false;
    } else {
      regs_[pointer_] = byte;
      written_[pointer_] = true;
    }
    return true;
  }

  uint8_t Read() override {
    switch (pointer_) {
      case kLocal: return uint8_t(local_);
      case kRemote: return uint8_t(remote_);
      case kRemoteFraction: return uint8_t(fraction_);
      default: return regs_[pointer_];
    }
  }

  void Stop() override { expect_pointer_ = false; }

  // sensor.reg.0xNN: what was last written to register NN, "none" when nothing was.
  bool Get(const std::string& key, std::string* value) const override {
    const std::string head = "sensor.reg.";
    uint32_t reg = 0;
    if (key.compare(0, head.size(), head) != 0 || !ParseU32(key.substr(head.size()), &reg) ||
        reg > 0xFF)
      return false;
    if (!written_[reg]) {
      *value = "none";
      return true;
    }
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", unsigned(regs_[reg]));
    *value = text;
    return true;
  }

  void Reset() override {
    for (uint32_t i = 0; i < 256; ++i) regs_[i] = 0, written_[i] = false;
    pointer_ = 0;
    expect_pointer_ = false;
  }

 private:
  uint32_t local_ = 0, remote_ = 0, fraction_ = 0;
  uint8_t regs_[256] = {};
  bool written_[256] = {};
  uint8_t pointer_ = 0;
  bool expect_pointer_ = false;
};

}  // namespace

std::unique_ptr<I2cTarget> MakeTemperatureSensor(KeySet* keys) {
  return std::make_unique<TemperatureSensor>(keys);
}

}  // namespace zsim
