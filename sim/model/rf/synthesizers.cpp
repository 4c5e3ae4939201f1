// The two phase-locked synthesizers behind the FPGA's peripheral words 1 (sampling clock, "S")
// and 2 (the L-band convertor's local oscillator, "L"). A word written there is shifted into the
// chip; a read returns bit 31 once the FPGA has sent it (ready), bit 24 while the loop is locked,
// and the last word's 24 bits below.
//
// The model decodes the words back into the frequency they program, so that a test or the CLI
// can check what the library sent against what it meant. Both chips divide by N = 8B + A with a
// dual-modulus prescaler of 8 from a 10 MHz reference; the two low bits of each word say which
// latch it loads:
//   S  01 reference (R in bits 15-2)   00 function   10 counter (A 6-2, B 20-8); the output
//      is half the loop frequency: f = N x 10 MHz / R / 2.
//   L, integer-N (convertor types 2 and 3): 00 reference (R in bits 15-2), 10 function,
//      01 counter (A 7-2, B 20-8); f = N x 10 MHz / R.
//   L, fractional-N (types 4 and 5): addressed 24-bit registers, the register number in bits
//      31-24 of the write; register 3 holds the integer part of the ratio, register 4 its
//      fraction in 2^-24, and register 5 takes several settings one after the other, of which
//      0x6110 and 0x6090 set the output divider to 2 and 1: f = (Nint + Nfrac / 2^24) x 10 MHz
//      / divider.
// Which L chip is fitted follows the convertor (lconv.type). Peripheral word 0 is the RF control
// word: bit 2 there (written as 4) puts the FPGA into register mode for the fractional-N chip;
// the model reports it and leaves the word's storage (and the presence bit) alone.
//
// Timing is counted in reads, not time, so that the model stays deterministic: after every
// word written, the first ready_after reads show bit 31 clear and the first lock_after reads
// show bit 24 clear (a loop relocks after every change). A loop whose words make no sense
// (no reference or counter word yet, R of 0, A above B) never locks. Faults: never_ready,
// never_lock, and lose_lock (the lock shows on one read, then is lost until the next word).
#include <cstdio>
#include <map>

#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr double kReferenceHz = 10e6;
constexpr uint32_t kReady = 1u << 31;
constexpr uint32_t kLock = 1u << 24;
constexpr uint32_t kWordBits = 0xFFFFFF;
constexpr uint32_t kRegisterMode = 1u << 2;
constexpr uint32_t kUnset = 0xFFFFFFFFu;   // a latch never written since power-on

enum Fault : uint32_t { kNone, kNeverReady, kNeverLock, kLoseLock };

// One loop's ready and lock lines, driven by its keys.
class LoopStatus {
 public:
  LoopStatus(KeySet* keys, const std::string& prefix) {
    keys->AddChoice((prefix + ".fault").c_str(), &fault_, kNone,
                    {"none", "never_ready", "never_lock", "lose_lock"});
    keys->AddNumber((prefix + ".ready_after").c_str(), &ready_after_, 0, 0, 1000000);
    keys->AddNumber((prefix + ".lock_after").c_str(), &lock_after_, 1, 0, 1000000);
  }

  void Reset() { ready_left_ = lock_left_ = 0, lost_ = false; }
  void Written() { ready_left_ = ready_after_, lock_left_ = lock_after_, lost_ = false; }

  bool Ready() const { return fault_ != kNeverReady && ready_left_ == 0; }
  bool Locked(bool programmed) const {
    return programmed && fault_ != kNeverLock && lock_left_ == 0 && !lost_;
  }

  // The status bits a read returns; a read that is not an inspection moves the lines on.
  uint32_t Read(bool programmed, bool peek) {
    const bool locked = Locked(programmed);
    const uint32_t bits = (Ready() ? kReady : 0) | (locked ? kLock : 0);
    if (peek) return bits;
    if (ready_left_ > 0) --ready_left_;
    if (lock_left_ > 0) --lock_left_;
    else if (locked && fault_ == kLoseLock) lost_ = true;
    return bits;
  }

 private:
  uint32_t fault_ = kNone, ready_after_ = 0, lock_after_ = 1;
  uint32_t ready_left_ = 0, lock_left_ = 0;
  bool lost_ = false;
};

// The three latches of an integer-N chip.
struct Latches {
  uint32_t reference = kUnset, function = kUnset, counter = kUnset;
};

std::string Hex(uint32_t word) { return word == kUnset ? "none" : FormatHex(word); }

std::string Hz(double hz) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", hz);
  return text;
}

class Synthesizers : public DeviceModel {
 public:
  explicit Synthesizers(unsigned board_index)
      : DeviceModel("synth", board_index), s_(&keys(), "synth.s"), l_(&keys(), "synth.l") {
    OnWrite(Periph(0), [this](uint32_t value) { register_mode_ = (value & kRegisterMode) != 0; });
    OnWrite(Periph(1), [this](uint32_t value) { WriteS(value); });
    OnRead(Periph(1), [this](uint32_t, bool peek) {
      return s_.Read(SProgrammed(), peek) | (s_last_ & kWordBits);
    });
    OnWrite(Periph(2), [this](uint32_t value) { WriteL(value); });
    OnRead(Periph(2), [this](uint32_t, bool peek) {
      return l_.Read(LProgrammed(), peek) | (l_last_ & kWordBits);
    });
  }

  bool Get(const std::string& key, std::string* value) const override {
    if (DeviceModel::Get(key, value)) return true;
    if (key.compare(0, 8, "synth.s.") == 0) return GetS(key.substr(8), value);
    if (key.compare(0, 8, "synth.l.") == 0) return GetL(key.substr(8), value);
    return false;
  }

 private:
  void ResetState() override {
    s_.Reset();
    l_.Reset();
    s_words_ = l_words_ = Latches{};
    s_last_ = l_last_ = 0;
    l_registers_.clear();
    l_divider_ = 0;
    register_mode_ = false;
  }

  // ---- S: the sampling clock --------------------------------------------------------------
  void WriteS(uint32_t value) {
    s_last_ = value;
    s_.Written();
    switch (value & 3) {
      case 1: s_words_.reference = value; break;
      case 0: s_words_.function = value; break;
      case 2: s_words_.counter = value; break;
      default: break;   // no latch of this chip
    }
  }

  static uint32_t R(uint32_t reference) { return (reference >> 2) & 0x3FFF; }
  static uint32_t B(uint32_t counter) { return (counter >> 8) & 0x1FFF; }

  bool SProgrammed() const {
    const Latches& w = s_words_;
    return w.reference != kUnset && w.counter != kUnset && R(w.reference) != 0 &&
           ((w.counter >> 2) & 0x1F) <= B(w.counter);
  }
  uint32_t SN() const { return 8 * B(s_words_.counter) + ((s_words_.counter >> 2) & 0x1F); }

  bool GetS(const std::string& field, std::string* value) const {
    const bool known = s_words_.reference != kUnset && s_words_.counter != kUnset &&
                       R(s_words_.reference) != 0;
    if (field == "frequency")
      *value = known ? Hz(SN() * kReferenceHz / R(s_words_.reference) / 2) : "none";
    else if (field == "n") *value = s_words_.counter == kUnset ? "none" : FormatDecimal(SN());
    else if (field == "ready") *value = s_.Ready() ? "1" : "0";
    else if (field == "locked") *value = s_.Locked(SProgrammed()) ? "1" : "0";
    else if (field == "ref") *value = Hex(s_words_.reference);
    else if (field == "function") *value = Hex(s_words_.function);
    else if (field == "counter") *value = Hex(s_words_.counter);
    else return false;
    return true;
  }

  // ---- L: the convertor's local oscillator ------------------------------------------------
  bool Fractional() const {
    std::string type;
    return BoardKey("lconv.type", &type) && (type == "4" || type == "5");
  }

  void WriteL(uint32_t value) {
    l_last_ = value;
    l_.Written();
    if (Fractional()) {
      const uint32_t number = value >> 24, data = value & kWordBits;
      l_registers_[number] = data;
      if (number == 5 && data == 0x6110) l_divider_ = 2;
      if (number == 5 && data == 0x6090) l_divider_ = 1;
      return;
    }
    switch (value & 3) {
      case 0: l_words_.reference = value; break;
      case 2: l_words_.function = value; break;
      case 1: l_words_.counter = value; break;
      default: break;
    }
  }

  uint32_t LA() const { return (l_words_.counter >> 2) & 0x3F; }
  uint32_t LN() const { return 8 * B(l_words_.counter) + LA(); }

  uint32_t Register(uint32_t number) const {
    auto it = l_registers_.find(number);
    return it == l_registers_.end() ? kUnset : it->second;
  }

  // The loop's division ratio, when the chip's words define one.
  bool Ratio(double* n) const {
    if (Fractional()) {
      const uint32_t integer = Register(3), fraction = Register(4);
      if (integer == kUnset || integer == 0 || l_divider_ == 0) return false;
      *n = integer + (fraction == kUnset ? 0 : fraction) / 16777216.0;
      return true;
    }
    const Latches& w = l_words_;
    if (w.reference == kUnset || w.counter == kUnset || R(w.reference) == 0) return false;
    *n = LN();
    return true;
  }

  bool LProgrammed() const {
    double n = 0;
    return Ratio(&n) && (Fractional() || LA() <= B(l_words_.counter));
  }

  bool GetL(const std::string& field, std::string* value) const {
    double n = 0;
    const bool known = Ratio(&n);
    const bool fractional = Fractional();
    if (field == "frequency") {
      const double per_step = fractional ? kReferenceHz / l_divider_
                                         : kReferenceHz / (known ? R(l_words_.reference) : 1);
      *value = known ? Hz(n * per_step) : "none";
    } else if (field == "n") {
      char text[32];
      std::snprintf(text, sizeof text, "%.9g", n);
      *value = known ? text : "none";
    } else if (field == "kind") {
      *value = fractional ? "fractional" : "integer";
    } else if (field == "ready") {
      *value = l_.Ready() ? "1" : "0";
    } else if (field == "locked") {
      *value = l_.Locked(LProgrammed()) ? "1" : "0";
    } else if (field == "register_mode") {
      *value = register_mode_ ? "1" : "0";
    } else if (field == "divider") {
      *value = l_divider_ == 0 ? "none" : FormatDecimal(l_divider_);
    } else if (field == "ref") {
      *value = Hex(l_words_.reference);
    } else if (field == "function") {
      *value = Hex(l_words_.function);
    } else if (field == "counter") {
      *value = Hex(l_words_.counter);
    } else if (field.compare(0, 4, "reg.") == 0) {
      uint32_t number = 0;
      if (!ParseU32(field.substr(4), &number) || number > 255) return false;
      *value = Hex(Register(number));
    } else {
      return false;
    }
    return true;
  }

  LoopStatus s_, l_;
  Latches s_words_, l_words_;
  uint32_t s_last_ = 0, l_last_ = 0;          // the last word written, echoed in reads
  std::map<uint32_t, uint32_t> l_registers_;  // the fractional-N chip's registers as written
  uint32_t l_divider_ = 0;                    // 0: no divider setting received yet
  bool register_mode_ = false;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeSynthesizers(unsigned board_index) {
  return std::make_unique<Synthesizers>(board_index);
}

}  // namespace zsim
