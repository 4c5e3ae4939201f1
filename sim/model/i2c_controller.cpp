// The FPGA's I2C controller and the devices on its bus. Peripheral words, as the board decodes
// them:
//   word 8   written: clock prescaler            read: the last byte received (bits 0-7)
//   word 9   written: control (bit 7 enables)    read: status: bit 0 busy, bit 7 no acknowledge
//   word 11  written: command: bits 8-9 the command, bits 0-7 its byte
//            0x000+addr start and address, 0x100+b send b, 0x200 receive and acknowledge,
//            0x2xx (xx nonzero) receive the last byte, 0x300 stop
// Each command keeps the controller busy for i2c.busy_polls status reads (counted, not timed,
// so that the model stays deterministic); the command's result is there once it is idle. A
// command written while a transfer is in progress, or while the controller is disabled, is
// lost.
//
// The controller comes up enabled (i2c.power_on): the FPGA's configuration starts it at its
// standard clock, so a board whose process has already programmed another board's controller
// still has a working bus. With i2c.power_on = disabled (which takes effect at once, as if the
// board had been powered up so) it works only once enabled through word 9; until then nothing
// on the bus acknowledges.
#include <cstdio>

#include "devices.h"
#include "i2c_target.h"
#include "regs.h"

namespace zsim {

I2cTarget::I2cTarget(std::string prefix, KeySet* keys) : prefix_(std::move(prefix)) {
  keys->AddChoice((prefix_ + ".fault").c_str(), &fault_, 0,
                  {"none", "no_address_ack", "no_data_ack", "stuck"});
  keys->AddNumber((prefix_ + ".fault_after").c_str(), &fault_after_, 0, 0, 0xFFFFFFFFu);
}

namespace {

constexpr uint32_t kBusy = 1u << 0;
constexpr uint32_t kNoAck = 1u << 7;
constexpr uint32_t kEnable = 0x80;

class I2cController : public DeviceModel {
 public:
  explicit I2cController(unsigned board_index) : DeviceModel("i2c", board_index) {
    keys().AddNumber("i2c.busy_polls", &busy_polls_, 1, 0, 1000000);
    keys().AddChoice("i2c.power_on", &power_on_, 0, {"enabled", "disabled"});
    keys().AddNumber("eeprom.write_polls", &write_polls_, 3, 0, 1000000);
    auto present = [this] {
      std::string value;
      return BoardKey("lconv.present", &value) && value == "1";
    };
    targets_.push_back(MakeModuleEeprom(&keys(), &write_polls_));
    targets_.push_back(MakeLConvEeprom(&keys(), &write_polls_, present));
    targets_.push_back(MakePlainLConvEeprom(&keys(), &write_polls_, present));
    targets_.push_back(MakeTemperatureSensor(&keys()));

    OnWrite(Periph(8), [this](uint32_t value) {
      prescaler_ = value;
      prescaler_written_ = true;
    });
    OnRead(Periph(8), [this](uint32_t, bool) { return receive_; });
    OnWrite(Periph(9), [this](uint32_t value) { enabled_ = (value & kEnable) != 0; });
    OnRead(Periph(9), [this](uint32_t, bool peek) { return Status(peek); });
    OnWrite(Periph(11), [this](uint32_t value) { Command(value); });
    ResetState();
  }

  KeyResult Set(const std::string& key, const std::string& value) override {
    const KeyResult own = DeviceModel::Set(key, value);
    // As if the board had just been powered up that way.
    if (own == KeyResult::kOk && key == "i2c.power_on") enabled_ = power_on_ == 0;
    if (own == KeyResult::kOk)
      for (auto& target : targets_)
        if (key == target->prefix() + ".fault" || key == target->prefix() + ".fault_after")
          target->RestartFaultCount();
    if (own != KeyResult::kUnknownKey) return own;
    for (auto& target : targets_) {
      const KeyResult result = target->Set(key, value);
      if (result != KeyResult::kUnknownKey) return result;
    }
    return KeyResult::kUnknownKey;
  }

  bool Get(const std::string& key, std::string* value) const override {
    if (DeviceModel::Get(key, value)) return true;
    if (key == "i2c.prescaler") {
      *value = prescaler_written_ ? FormatDecimal(prescaler_) : "none";
      return true;
    }
    if (key == "i2c.enabled") {
      *value = enabled_ ? "1" : "0";
      return true;
    }
    for (auto& target : targets_)
      if (target->Get(key, value)) return true;
    return false;
  }

  void KeyNames(std::vector<std::string>* out) const override {
    DeviceModel::KeyNames(out);
    for (auto& target : targets_) target->KeyNames(out);
  }

 private:
  void ResetState() override {
    for (auto& target : targets_) {
      target->Reset();
      target->RestartFaultCount();
    }
    enabled_ = power_on_ == 0;
    prescaler_ = 0;
    prescaler_written_ = false;
    receive_ = 0xFF;
    busy_left_ = 0;
    no_ack_ = false;
    current_ = nullptr;
    stuck_ = nullptr;
  }

  uint32_t Status(bool peek) {
    if (!enabled_) return kNoAck;
    if (stuck_ != nullptr) {
      if (stuck_->fault() == I2cFault::kStuck) return kBusy;
      // Released: the transfer it held is lost.
      if (peek) return kNoAck;
      stuck_ = nullptr;
      current_ = nullptr;
      busy_left_ = 0;
      no_ack_ = true;
    }
    if (busy_left_ > 0) {
      if (!peek) --busy_left_;
      return kBusy;
    }
    return no_ack_ ? kNoAck : 0;
  }

  void Command(uint32_t value) {
    if (!enabled_ || stuck_ != nullptr || busy_left_ > 0) return;
    busy_left_ = busy_polls_;
    const uint8_t byte = uint8_t(value & 0xFF);
    switch (value & 0x300) {
      case 0x000: StartCondition(byte); break;
      case 0x100: SendByte(byte); break;
      case 0x200: ReceiveByte(); break;
      default: StopCondition(); break;
    }
  }

  I2cTarget* Find(uint8_t address) const {
    for (auto& target : targets_)
      if (target->address() == address && target->attached()) return target.get();
    return nullptr;
  }

  // A start while a transfer is open is a repeated start: the new address takes the bus.
  void StartCondition(uint8_t byte) {
    current_ = nullptr;
    no_ack_ = true;
    I2cTarget* target = Find(uint8_t(byte & 0xFE));
    if (target == nullptr) return;
    const I2cFault fault = target->FaultNow();
    target->CountByte();
    if (fault == I2cFault::kNoAddressAck) return;
    if (fault == I2cFault::kStuck) {
      stuck_ = target;
      return;
    }
    const bool read = (byte & 1) != 0;
    if (!target->Start(read)) return;
    current_ = target;
    reading_ = read;
    no_ack_ = false;
  }

  void SendByte(uint8_t byte) {
    no_ack_ = true;
    if (current_ == nullptr || reading_) return;
    const I2cFault fault = current_->FaultNow();
    current_->CountByte();
    if (fault == I2cFault::kNoDataAck) return;
    if (fault == I2cFault::kStuck) {
      stuck_ = current_;
      return;
    }
    no_ack_ = !current_->Write(byte);
  }

  // With nobody sending, the bus reads all ones. A device told to hold the bus does so in the
  // middle of a read too; refusing data does not apply to bytes it sends.
  void ReceiveByte() {
    no_ack_ = false;
    receive_ = 0xFF;
    if (current_ == nullptr || !reading_) return;
    const I2cFault fault = current_->FaultNow();
    current_->CountByte();
    if (fault == I2cFault::kStuck) {
      stuck_ = current_;
      return;
    }
    receive_ = current_->Read();
  }

  void StopCondition() {
    if (current_ != nullptr) current_->Stop();
    current_ = nullptr;
    no_ack_ = false;
  }

  uint32_t busy_polls_ = 1, power_on_ = 0, write_polls_ = 3;
  std::vector<std::unique_ptr<I2cTarget>> targets_;

  bool enabled_ = true;
  uint32_t prescaler_ = 0;
  bool prescaler_written_ = false;
  uint32_t receive_ = 0xFF;
  uint32_t busy_left_ = 0;
  bool no_ack_ = false;
  I2cTarget* current_ = nullptr;
  bool reading_ = false;
  I2cTarget* stuck_ = nullptr;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeI2cController(unsigned board_index) {
  return std::make_unique<I2cController>(board_index);
}

}  // namespace zsim
