// The ADC's three-wire serial port, as the DEM FPGA exposes it:
//   DEM word 38 (0x8098)  control: 4 reset request, 3 start of a transfer, 1 switch to
//                         reading, 0 end of transfer
//   DEM word 39 (0x809C)  data: each write sends bit 0 of the value; while reading, each
//                         write clocks the next bit out of the converter
//   DEM words 6 and 96    bit 14: the converter's data line, seen in the status words of
//   (0x8018, 0x8180)      channel 1 and channel 2; the words' other bits belong to others
//   DEM word 8 (0x8020)   bits 15-8: the converter's counter byte, from adc.counter; it moves
//                         while data flows, so stream/counters.cpp answers it
// A transfer is a 16-bit instruction, most significant bit first (bit 15 the read flag, the
// register address below), then one data byte: sent by the FPGA for a write, by the converter
// for a read, whose first bit is on the line as soon as the FPGA switches to reading.
//
// Registers: 0x01 identification (adc.id), 0x02 speed grade (adc.speed), 0x14 output mode,
// 0xFF update: writing bit 0 there takes the output mode written before into force (what
// adc.output_mode reports) and clears itself. Every other register keeps what is written.
// A reset request brings them all back to power-on. With adc.fault = absent nothing answers:
// the data line reads 0.
//
// The converter needs time, on the board's clock: after a reset request (the request and its
// release, 4 then 0) it ignores every transfer for adc.reset_us, and an update that follows
// the output-mode write by less than adc.update_us does not take the mode. A driver that does
// not wait for either finds the converter missing or its mode unchanged.
#include <array>
#include <cstdio>

#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr uint32_t kDataLine = 1u << 14;
constexpr uint32_t kReadFlag = 0x8000;
constexpr uint32_t kIdRegister = 0x01, kSpeedRegister = 0x02;
constexpr uint32_t kOutputModeRegister = 0x14, kUpdateRegister = 0xFF;

enum Control : uint32_t { kEnd = 0, kSwitchToRead = 1, kStart = 3, kReset = 4 };
enum class Phase { kIdle, kInstruction, kWriteData, kReadData };

class Adc : public DeviceModel {
 public:
  explicit Adc(unsigned board_index) : DeviceModel("adc", board_index) {
    keys().AddNumber("adc.id", &id_, 12, 0, 255, 1, false);
    keys().AddNumber("adc.speed", &speed_, 0x08, 0, 255, 1, false);
    keys().AddNumber("adc.counter", &counter_, 0, 0, 255);
    keys().AddChoice("adc.fault", &fault_, 0, {"none", "absent"});
    keys().AddNumber("adc.reset_us", &reset_us_, 5000, 0, 1000000);
    keys().AddNumber("adc.update_us", &update_us_, 5000, 0, 1000000);
    OnWrite(Dem(38), [this](uint32_t value) { Control(value); });
    OnWrite(Dem(39), [this](uint32_t value) { Clock(value & 1); });
    auto line = [this](uint32_t, bool) { return DataBit() ? kDataLine : 0; };
    OnRead(Dem(6), line, kDataLine);
    OnRead(Dem(96), line, kDataLine);
  }

  bool Get(const std::string& key, std::string* value) const override {
    if (key == "adc.output_mode") {
      char text[8];
      std::snprintf(text, sizeof text, "0x%02X", unsigned(output_mode_));
      *value = text;
    } else if (key == "adc.updates") {
      *value = FormatDecimal(updates_);
    } else {
      return DeviceModel::Get(key, value);
    }
    return true;
  }

 private:
  void ResetState() override {
    PowerOn();
    updates_ = 0;
    in_reset_ = false;
    last_control_ = kEnd;
  }

  void PowerOn() {
    registers_.fill(0);
    output_mode_ = 0;
    phase_ = Phase::kIdle;
    shift_ = bits_ = 0;
  }

  uint32_t RegisterValue(uint32_t address) const {
    if (address == kIdRegister) return id_;
    if (address == kSpeedRegister) return speed_;
    return address < registers_.size() ? registers_[address] : 0;
  }

  bool Settled(uint64_t since, uint32_t us) const { return NowUs() - since >= us; }

  void Control(uint32_t value) {
    if (value == kReset || (value == kEnd && last_control_ == kReset)) {
      reset_at_ = NowUs();
      in_reset_ = true;
    }
    last_control_ = value;
    switch (value) {
      case kReset: PowerOn(); return;
      case kStart:
        if (in_reset_ && !Settled(reset_at_, reset_us_)) {   // still coming out of reset
          phase_ = Phase::kIdle;
          return;
        }
        in_reset_ = false;
        phase_ = Phase::kInstruction, shift_ = bits_ = 0;
        return;
      case kSwitchToRead:
        // Only a whole read instruction makes the converter drive the line.
        if (phase_ == Phase::kInstruction && bits_ == 16 && (shift_ & kReadFlag) != 0) {
          read_value_ = RegisterValue(shift_ & ~kReadFlag);
          phase_ = Phase::kReadData, bits_ = 0;
        } else {
          phase_ = Phase::kIdle;
        }
        return;
      default: phase_ = Phase::kIdle; return;
    }
  }

  void Clock(uint32_t bit) {
    switch (phase_) {
      case Phase::kInstruction:
        if (bits_ == 16) return;   // a read instruction waits for the switch to reading
        shift_ = (shift_ << 1 | bit) & 0xFFFF;
        if (++bits_ == 16 && (shift_ & kReadFlag) == 0) {
          address_ = shift_;
          phase_ = Phase::kWriteData, shift_ = bits_ = 0;
        }
        return;
      case Phase::kWriteData:
        shift_ = shift_ << 1 | bit;
        if (++bits_ == 8) {
          Store(address_, shift_ & 0xFF);
          phase_ = Phase::kIdle;
        }
        return;
      case Phase::kReadData: ++bits_; return;
      case Phase::kIdle: return;
    }
  }

  void Store(uint32_t address, uint32_t value) {
    if (address == kUpdateRegister) {
      ++updates_;
      if ((value & 1) && Settled(mode_written_at_, update_us_))
        output_mode_ = registers_[kOutputModeRegister];
      return;
    }
    if (address == kOutputModeRegister) mode_written_at_ = NowUs();
    if (address < registers_.size() && address != kIdRegister && address != kSpeedRegister)
      registers_[address] = uint8_t(value);
  }

  // The converter drives the line only while a read's data byte is clocked out.
  bool DataBit() const {
    if (fault_ != 0 || phase_ != Phase::kReadData || bits_ >= 8) return false;
    return ((read_value_ >> (7 - bits_)) & 1) != 0;
  }

  uint32_t id_ = 12, speed_ = 0x08, counter_ = 0, fault_ = 0, reset_us_ = 0, update_us_ = 0;
  uint64_t reset_at_ = 0, mode_written_at_ = 0;
  bool in_reset_ = false;
  uint32_t last_control_ = kEnd;
  std::array<uint8_t, 256> registers_{};
  uint32_t output_mode_ = 0;
  uint64_t updates_ = 0;
  Phase phase_ = Phase::kIdle;
  uint32_t shift_ = 0, bits_ = 0, address_ = 0, read_value_ = 0;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeAdc(unsigned board_index) {
  return std::make_unique<Adc>(board_index);
}

}  // namespace zsim
