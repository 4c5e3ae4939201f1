// The receiver's two gain stages and its attenuator, as the DEM FPGA shows them.
//
//   DEM word 0, written        the first stage's control word (also DEM's configuration port
//                              and the RAM's address register: see below)
//   DEM words 20 and 18        the second stage's two control words, in that order
//   DEM words 6 and 96, read   bits 27-16: the first stage's code, channels 1 and 2
//   DEM words 7 and 112, read  bits 15-0: the second stage's code, channels 1 and 2
//   DEM word 8, read           bits 7-0: the attenuator's code (`atten.code`; bit 7 reads 0)
//
// Both stages are AGCs that have settled on what reaches them: the signal the demodulator
// sees (the simulator's test signal while it runs, taken as kSimulatorDbm, else the external
// one at `signal.level`, when it gets through), less the attenuator's loss, and channel 2 a
// fixed kChannel2LossDb below channel 1 so that a channel mix-up shows. Over the stages'
// range, from kFloorDbm up kRangeDb, the first code climbs linearly to 4095, so its level
// (code >> 7) climbs with the signal; the second code falls from 65535 so that its level
// −20·log10(code / 65536) climbs linearly to kSecondRangeDb. No signal reads the bottom of
// both: code 0 and code 65535.
//
// The control words set where each AGC starts; since the model's stages settle at once, what
// they read never depends on them, and they are kept for the keys only. DEM word 0 aliases:
// words written while DEM is being configured are its image and leave the control alone, but
// the RAM's address writes land on the control as well (the last write is what it holds), as
// the carrier NCO shares DEM word 2 with the RAM's data.
#include <algorithm>
#include <cmath>
#include <optional>

#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr double kFloorDbm = -100, kRangeDb = 90;   // the AGCs' range at the stages' input
constexpr double kSecondRangeDb = 60;               // the second stage's level at the top
constexpr double kSimulatorDbm = -30;
constexpr double kChannel2LossDb = 2;
constexpr uint32_t kFirstCodeMax = 0xFFF, kSecondCodeMax = 0xFFFF;
constexpr uint32_t kFirstCodeBits = kFirstCodeMax << 16;
constexpr uint32_t kAttenuatorBits = 0xFF, kAttenuatorCode = 0x7F;

std::string HexOrNone(const std::optional<uint32_t>& word) {
  return word ? FormatHex(*word) : "none";
}

class Gain : public DeviceModel {
 public:
  explicit Gain(unsigned board_index) : DeviceModel("gain", board_index) {
    keys().AddNumber("atten.code", &attenuator_, 8, 0, kAttenuatorCode);
    OnWrite(Dem(0), [this](uint32_t value) {
      std::string state;
      if (!(BoardKey("fpga.dem.state", &state) && state == "configuring")) first_control_ = value;
    });
    OnWrite(Dem(20), [this](uint32_t value) { second_control_[0] = value; });
    OnWrite(Dem(18), [this](uint32_t value) { second_control_[1] = value; });
    OnRead(Dem(6), [this](uint32_t, bool) { return FirstCode(1) << 16; }, kFirstCodeBits);
    OnRead(Dem(96), [this](uint32_t, bool) { return FirstCode(2) << 16; }, kFirstCodeBits);
    OnRead(Dem(7), [this](uint32_t, bool) { return SecondCode(1); }, kSecondCodeMax);
    OnRead(Dem(112), [this](uint32_t, bool) { return SecondCode(2); }, kSecondCodeMax);
    OnRead(Dem(8), [this](uint32_t, bool) { return attenuator_; }, kAttenuatorBits);
  }

  bool Get(const std::string& key, std::string* value) const override {
    if (key == "gain.first.control") *value = HexOrNone(first_control_);
    else if (key == "gain.second.control")
      *value = second_control_[0] || second_control_[1]
                   ? HexOrNone(second_control_[0]) + " " + HexOrNone(second_control_[1])
                   : "none";
    else if (key == "gain.first.code.1") *value = FormatDecimal(FirstCode(1));
    else if (key == "gain.first.code.2") *value = FormatDecimal(FirstCode(2));
    else if (key == "gain.second.code.1") *value = FormatDecimal(SecondCode(1));
    else if (key == "gain.second.code.2") *value = FormatDecimal(SecondCode(2));
    else return DeviceModel::Get(key, value);
    return true;
  }

 private:
  void ResetState() override {
    first_control_ = second_control_[0] = second_control_[1] = std::nullopt;
  }

  // The attenuator's loss as the fitted convertor steps it: the two-preselector convertors
  // (types 1 and 2) take 5 bits in 2 dB steps, the others 7 bits in 0.5 dB steps.
  double AttenuatorDb() const {
    std::string type;
    const bool coarse = BoardKey("lconv.type", &type) && (type == "1" || type == "2");
    return coarse ? (attenuator_ & 0x1F) * 2.0 : attenuator_ * 0.5;
  }

  // Where channel `channel`'s level lies in the AGCs' range, from 0 (bottom, or no signal) to
  // 1 (top).
  double Position(int channel) const {
    std::string frequency, on, level;
    if (!BoardKey("demod.signal.frequency", &frequency) || frequency == "none") return 0;
    double dbm = kSimulatorDbm;
    if (!(BoardKey("sim.on", &on) && on == "1") &&
        !(BoardKey("signal.level", &level) && ParseReal(level, &dbm)))
      return 0;
    dbm -= AttenuatorDb() + (channel == 2 ? kChannel2LossDb : 0);
    return std::clamp((dbm - kFloorDbm) / kRangeDb, 0.0, 1.0);
  }

  uint32_t FirstCode(int channel) const {
    return uint32_t(std::lround(Position(channel) * kFirstCodeMax));
  }

  uint32_t SecondCode(int channel) const {
    const double db = Position(channel) * kSecondRangeDb;
    const long code = std::lround(65536.0 * std::pow(10.0, -db / 20));
    return uint32_t(std::clamp(code, 1L, long(kSecondCodeMax)));
  }

  uint32_t attenuator_ = 8;
  std::optional<uint32_t> first_control_, second_control_[2];
};

}  // namespace

std::unique_ptr<DeviceModel> MakeGain(unsigned board_index) {
  return std::make_unique<Gain>(board_index);
}

}  // namespace zsim
