// The DEM FPGA's RAM of 16-bit words. A write to DEM word 0 latches the word address; the next
// write to DEM word 2 stores its low 16 bits there. DEM word 2 without a fresh address is
// some other register of the FPGA (the carrier NCO) and leaves the RAM alone; so does DEM
// word 0 while it carries DEM's configuration data, which is never followed by word 2.
// Addresses at or beyond `ram.size` words are dropped and counted.
#include <cstdio>
#include <vector>

#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr uint32_t kDefaultWords = 65536;
constexpr uint32_t kMaxWords = 16u << 20;

class Ram : public DeviceModel {
 public:
  explicit Ram(unsigned board_index) : DeviceModel("ram", board_index) {
    keys().AddNumber("ram.size", &size_, kDefaultWords, 1, kMaxWords);
    memory_.assign(size_, 0);
    OnWrite(Dem(0), [this](uint32_t value) {
      address_ = value;
      armed_ = true;
    });
    OnWrite(Dem(2), [this](uint32_t value) { Store(value); });
  }

  // ram.size clears the RAM to its new size.
  KeyResult Set(const std::string& key, const std::string& value) override {
    const KeyResult result = DeviceModel::Set(key, value);
    if (result == KeyResult::kOk && key == "ram.size") memory_.assign(size_, 0);
    return result;
  }

  // ram.writes, ram.dropped, and ram.ADDR: the word at that word address (decimal or 0x).
  bool Get(const std::string& key, std::string* value) const override {
    if (key == "ram.writes") {
      *value = FormatDecimal(writes_);
      return true;
    }
    if (key == "ram.dropped") {
      *value = FormatDecimal(dropped_);
      return true;
    }
    uint32_t address;
    if (key.compare(0, 4, "ram.") == 0 && ParseU32(key.substr(4), &address) && address < size_) {
      char text[8];
      std::snprintf(text, sizeof text, "0x%04X", unsigned(memory_[address]));
      *value = text;
      return true;
    }
    return DeviceModel::Get(key, value);
  }

 private:
  void ResetState() override {
    memory_.assign(size_, 0);
    address_ = 0;
    armed_ = false;
    writes_ = dropped_ = 0;
  }

  void Store(uint32_t value) {
    if (!armed_) return;
    armed_ = false;
    if (address_ >= size_) {
      ++dropped_;
      return;
    }
    memory_[address_] = uint16_t(value);
    ++writes_;
  }

  uint32_t size_ = kDefaultWords;
  std::vector<uint16_t> memory_;
  uint32_t address_ = 0;
  bool armed_ = false;
  uint64_t writes_ = 0, dropped_ = 0;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeRam(unsigned board_index) {
  return std::make_unique<Ram>(board_index);
}

}  // namespace zsim
