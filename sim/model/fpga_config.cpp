// Configuration of the board's three FPGAs, "DEM", "DEC" and "RS", through INT word 4 and
// their data ports (word 0 of the DEM, DEC and RS blocks).
//
// INT word 4, written: the reset lines. 0xFFFFFFFF requests the configuration of RS alone;
// any other word requests DEM's with bit 0 and DEC's with bit 2, and lets go of every device
// whose bit it does not carry (RS included). A request (re)starts the device's configuration
// each time it is written, also when its line was already up, so a failed load can be
// repeated at once.
//
// INT word 4, read: bit 0 DEM acknowledge, bit 1 DEM done, bit 2 DEC acknowledge and also RS
// done, bit 3 DEC done, bit 4 RS acknowledge; the other bits read 0. A device acknowledges
// its reset after `fpga.<dev>.ack_after` reads of the word (or never). Its done bit shows
// while it is being configured with an acceptable image, and stays up once it is loaded.
//
// The image is every word written to the device's data port since the request, as
// little-endian bytes, with its trailing zero bytes dropped (the loader pads the last word
// and follows the image with zero words; the board cannot tell those from zeros at the end of
// a file). It is acceptable when it is not empty, at least two all-zero words followed its
// last non-zero byte (the start-up clocks a device needs after its image), its length and
// CRC-32 match `fpga.<dev>.expect_bytes` and `fpga.<dev>.expect_crc` when those are set, and
// `fpga.<dev>.done` is not `never`. Letting go of the reset line loads a device whose image
// is acceptable; any other device is left unconfigured.
#include <array>

#include "crc32.h"
#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr uint32_t kRsOnlyRequest = 0xFFFFFFFF;
constexpr uint32_t kStartUpZeroWords = 2;

class FpgaConfig : public DeviceModel {
 public:
  explicit FpgaConfig(unsigned board_index) : DeviceModel("fpga", board_index) {
    for (Device& d : devices_) {
      keys().AddChoice(Key(d, "ack").c_str(), &d.ack_mode, 0, {"auto", "never"});
      keys().AddNumber(Key(d, "ack_after").c_str(), &d.ack_after, 2, 0, 0xFFFFFFFF);
      keys().AddChoice(Key(d, "done").c_str(), &d.done_mode, 0, {"auto", "never"});
      keys().AddNumber(Key(d, "expect_bytes").c_str(), &d.expect_bytes, 0, 0, 0xFFFFFFFF);
      OnWrite(d.port, [this, &d](uint32_t value) { Data(d, value); });
    }
    OnWrite(Int(4), [this](uint32_t value) { Control(value); });
    OnRead(Int(4), [this](uint32_t, bool peek) { return Status(peek); });
  }

  KeyResult Set(const std::string& key, const std::string& value) override {
    for (Device& d : devices_) {
      if (key != Key(d, "expect_crc")) continue;
      if (value == "none" || value.empty()) {
        d.expect_crc_set = false;
        return KeyResult::kOk;
      }
      uint32_t crc;
      if (!ParseU32(value, &crc)) return KeyResult::kBadValue;
      d.expect_crc = crc;
      d.expect_crc_set = true;
      return KeyResult::kOk;
    }
    return DeviceModel::Set(key, value);
  }

  bool Get(const std::string& key, std::string* value) const override {
    for (const Device& d : devices_) {
      if (key == Key(d, "expect_crc")) *value = d.expect_crc_set ? FormatHex(d.expect_crc) : "none";
      else if (key == Key(d, "state")) *value = kStateNames[d.state];
      else if (key == Key(d, "loaded")) *value = d.state == kLoaded ? "1" : "0";
      else if (key == Key(d, "words")) *value = FormatDecimal(d.words);
      else if (key == Key(d, "bytes")) *value = FormatDecimal(d.bytes);
      else if (key == Key(d, "crc")) *value = FormatHex(~d.crc);
      else continue;
      return true;
    }
    return DeviceModel::Get(key, value);
  }

  void KeyNames(std::vector<std::string>* out) const override {
    DeviceModel::KeyNames(out);
    for (const Device& d : devices_) out->push_back(Key(d, "expect_crc"));
  }

 private:
  enum State : uint32_t { kUnconfigured, kConfiguring, kLoaded };
  static constexpr const char* kStateNames[] = {"unconfigured", "configuring", "loaded"};

  struct Device {
    const char* name;
    uint32_t port;
    uint32_t ack_bit;
    uint32_t done_bit;
    // settings
    uint32_t ack_mode = 0, ack_after = 0, done_mode = 0, expect_bytes = 0;
    bool expect_crc_set = false;
    uint32_t expect_crc = 0;
    // state
    State state = kUnconfigured;
    uint32_t polls = 0;          // reads of INT word 4 since the request, up to ack_after
    bool fresh = false;          // requested, no data yet: the figures are the last image's
    uint64_t words = 0;          // words received
    uint64_t bytes = 0;          // image length, trailing zeros dropped
    uint64_t zero_bytes = 0;     // zero bytes since the last non-zero one
    uint64_t zero_words = 0;     // all-zero words since the last non-zero byte
    uint32_t crc = ~0u;          // running CRC-32 of the image
  };

  static std::string Key(const Device& d, const char* what) {
    return std::string("fpga.") + d.name + "." + what;
  }

  void ResetState() override {
    for (Device& d : devices_) {
      d.expect_crc_set = false;
      d.state = kUnconfigured;
      d.polls = 0;
      d.fresh = false;
      d.words = d.bytes = d.zero_bytes = d.zero_words = 0;
      d.crc = ~0u;
    }
  }

  void Start(Device& d) {
    d.state = kConfiguring;
    d.polls = 0;
    d.fresh = true;
  }

  void Line(Device& d, bool requested) {
    if (requested) Start(d);
    else if (d.state == kConfiguring) d.state = Acceptable(d) ? kLoaded : kUnconfigured;
  }

  void Control(uint32_t value) {
    Device& dem = devices_[0];
    Device& dec = devices_[1];
    Device& rs = devices_[2];
    if (value == kRsOnlyRequest) {
      Start(rs);
      return;
    }
    Line(dem, (value & 1u) != 0);
    Line(dec, (value & 4u) != 0);
    Line(rs, false);
  }

  void Data(Device& d, uint32_t word) {
    if (d.state != kConfiguring) return;   // the port means something else then
    if (d.fresh) {
      d.fresh = false;
      d.words = d.bytes = d.zero_bytes = d.zero_words = 0;
      d.crc = ~0u;
    }
    ++d.words;
    bool any = false;
    for (int i = 0; i < 4; ++i) {
      const uint8_t byte = uint8_t(word >> (8 * i));
      if (byte == 0) {
        ++d.zero_bytes;
        continue;
      }
      for (; d.zero_bytes != 0; --d.zero_bytes, ++d.bytes) d.crc = Crc32Update(d.crc, 0);
      d.crc = Crc32Update(d.crc, byte);
      ++d.bytes;
      any = true;
    }
    d.zero_words = any ? 0 : d.zero_words + 1;
  }

  bool Acceptable(const Device& d) const {
    return !d.fresh && d.bytes != 0 && d.zero_words >= kStartUpZeroWords &&
           (d.expect_bytes == 0 || d.bytes == d.expect_bytes) &&
           (!d.expect_crc_set || ~d.crc == d.expect_crc) && d.done_mode == 0;
  }

  uint32_t Status(bool peek) {
    uint32_t value = 0;
    for (Device& d : devices_) {
      if (d.state == kLoaded) value |= d.done_bit;
      if (d.state != kConfiguring) continue;
      if (Acceptable(d)) value |= d.done_bit;
      if (d.ack_mode != 0) continue;
      if (d.polls < d.ack_after) {
        if (!peek) ++d.polls;
        continue;
      }
      value |= d.ack_bit;
    }
    return value;
  }

  std::array<Device, 3> devices_{{{"dem", Dem(0), 1u << 0, 1u << 1},
                                  {"dec", Dec(0), 1u << 2, 1u << 3},
                                  {"rs", Rs(0), 1u << 4, 1u << 2}}};
};

}  // namespace

std::unique_ptr<DeviceModel> MakeFpgaConfig(unsigned board_index) {
  return std::make_unique<FpgaConfig>(board_index);
}

}  // namespace zsim
