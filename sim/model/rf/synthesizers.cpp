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
//      fraction in 2^-24, and register 5 takes a calibration sequence whose first word, 0x6110
//      or 0x6090, sets the output divider to 2 or 1: f = (Nint + Nfrac / 2^24) x 10 MHz /
//      divider.
// Which L chip is fitted follows the convertor (lconv.type). Peripheral word 0 is the RF control
// word: bit 2 there (written as 4) puts the FPGA into register mode, without which it cannot
// address the fractional-N chip's registers; the model leaves the word's storage (and the
// presence bit) alone.
//
// The chips are as particular as the real ones: a loop locks only on the words this board's
// chips run with. The S chip takes exactly reference 0x20000D and function 0x93120 and a counter
// with A not above B; the integer-N L chip function 0x90012 and a reference with R > 0; the
// fractional-N chip must have gone through its whole set-up, in register mode, word for word
// and in order (the table below, whose three words 2, 6 and 9 differ between the type-4 chip
// and the others), and every retune must be the calibration sequence followed by the integer
// and the fractional part. Any other word leaves the loop unlocked until the set-up (or retune)
// is sent again whole, as a chip in an unknown state stays on hardware.
//
// Timing follows the board's clock (BoardModel::NowUs): bit 31 rises ready_us after each word,
// bit 24 lock_us after the last word of a programmed loop, so a driver that reads either before
// the chip had its time reads it clear. Counted delays on top (ready_after, lock_after reads)
// and faults (never_ready, never_lock, lose_lock: the lock shows on one read, then is lost until
// the next word) inject what the hardware does wrong.
#include <array>
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

// The words the chips run with.
constexpr uint32_t kSReference = 0x20000D, kSFunction = 0x93120;
constexpr uint32_t kSCounterFixed = 1u << 22, kSCounterSpare = 0xA00080;   // bits 23, 21, 7 clear
constexpr uint32_t kLFunction = 0x90012;
constexpr uint32_t kLCounterSpare = 0xE00000;

// The fractional-N chip's set-up after register mode is selected: register, value for the
// type-4 chip, value for the others.
struct SetupWord {
  uint32_t reg, mode0, mode1;
};
constexpr std::array<SetupWord, 18> kSetup = {{{2, 1, 2},
                                               {6, 0x2003CA, 0x200B4A},
                                               {9, 0x3FFF, 0x5FFFFF},
                                               {5, 0xF88, 0xF88},
                                               {5, 0x6110, 0x6110},
                                               {5, 0x2818, 0x2818},
                                               {5, 0x60A0, 0x60A0},
                                               {5, 0x1628, 0x1628},
                                               {5, 0, 0},
                                               {3, 100, 100},
                                               {4, 0, 0},
                                               {1, 2, 2},
                                               {7, 333, 333},
                                               {8, 0xC1BEFF, 0xC1BEFF},
                                               {10, 0x2046, 0x2046},
                                               {11, 0x78061, 0x78061},
                                               {12, 0, 0},
                                               {15, 0x81, 0x81}}};
// A retune: the divider word, the rest of the calibration sequence, then registers 3 and 4.
constexpr uint32_t kDivideBy2 = 0x6110, kDivideBy1 = 0x6090;
constexpr std::array<uint32_t, 4> kCalibration = {0x2818, 0x60A0, 0x1628, 0};
constexpr size_t kRetuneWords = 1 + kCalibration.size() + 2;

enum Fault : uint32_t { kNone, kNeverReady, kNeverLock, kLoseLock };

// One loop's ready and lock lines, driven by its keys and the board's clock.
class LoopStatus {
 public:
  LoopStatus(KeySet* keys, const std::string& prefix, uint32_t lock_us) {
    keys->AddChoice((prefix + ".fault").c_str(), &fault_, kNone,
                    {"none", "never_ready", "never_lock", "lose_lock"});
    keys->AddNumber((prefix + ".ready_after").c_str(), &ready_after_, 0, 0, 1000000);
    keys->AddNumber((prefix + ".lock_after").c_str(), &lock_after_, 0, 0, 1000000);
    keys->AddNumber((prefix + ".ready_us").c_str(), &ready_us_, 500, 0, 1000000);
    keys->AddNumber((prefix + ".lock_us").c_str(), &lock_us_, lock_us, 0, 1000000);
  }

  void Reset() { ready_left_ = lock_left_ = 0, lost_ = false, written_us_ = 0; }
  void Written(uint64_t now) {
    ready_left_ = ready_after_, lock_left_ = lock_after_, lost_ = false, written_us_ = now;
  }

  bool Ready(uint64_t now) const {
    return fault_ != kNeverReady && ready_left_ == 0 && now - written_us_ >= ready_us_;
  }
  bool Locked(bool programmed, uint64_t now) const {
    return programmed && fault_ != kNeverLock && lock_left_ == 0 && !lost_ &&
           now - written_us_ >= lock_us_;
  }

  // The status bits a read returns; a read that is not an inspection moves the lines on.
  uint32_t Read(bool programmed, bool peek, uint64_t now) {
    const bool locked = Locked(programmed, now);
    const uint32_t bits = (Ready(now) ? kReady : 0) | (locked ? kLock : 0);
    if (peek) return bits;
    if (ready_left_ > 0) --ready_left_;
    if (lock_left_ > 0) --lock_left_;
    else if (locked && fault_ == kLoseLock) lost_ = true;
    return bits;
  }

 private:
  uint32_t fault_ = kNone, ready_after_ = 0, lock_after_ = 0, ready_us_ = 0, lock_us_ = 0;
  uint32_t ready_left_ = 0, lock_left_ = 0;
  uint64_t written_us_ = 0;
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
      : DeviceModel("synth", board_index),
        s_(&keys(), "synth.s", 3000),
        l_(&keys(), "synth.l", 3000) {
    OnWrite(Periph(0), [this](uint32_t value) { register_mode_ = (value & kRegisterMode) != 0; });
    OnWrite(Periph(1), [this](uint32_t value) { WriteS(value); });
    OnRead(Periph(1), [this](uint32_t, bool peek) {
      return s_.Read(SProgrammed(), peek, NowUs()) | (s_last_ & kWordBits);
    });
    OnWrite(Periph(2), [this](uint32_t value) { WriteL(value); });
    OnRead(Periph(2), [this](uint32_t, bool peek) {
      return l_.Read(LProgrammed(), peek, NowUs()) | (l_last_ & kWordBits);
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
    l_divider_ = pending_divider_ = 0;
    register_mode_ = false;
    setup_next_ = retune_next_ = 0;
    set_up_ = tuned_ = false;
  }

  // ---- S: the sampling clock --------------------------------------------------------------
  void WriteS(uint32_t value) {
    s_last_ = value;
    s_.Written(NowUs());
    switch (value & 3) {
      case 1: s_words_.reference = value; break;
      case 0: s_words_.function = value; break;
      case 2: s_words_.counter = value; break;
      default: break;   // no latch of this chip
    }
  }

  static uint32_t R(uint32_t reference) { return (reference >> 2) & 0x3FFF; }
  static uint32_t B(uint32_t counter) { return (counter >> 8) & 0x1FFF; }
  static uint32_t SA(uint32_t counter) { return (counter >> 2) & 0x1F; }

  bool SProgrammed() const {
    const Latches& w = s_words_;
    return w.reference == kSReference && w.function == kSFunction && w.counter != kUnset &&
           (w.counter & kSCounterFixed) != 0 && (w.counter & kSCounterSpare) == 0 &&
           SA(w.counter) <= B(w.counter);
  }
  uint32_t SN() const { return 8 * B(s_words_.counter) + SA(s_words_.counter); }

  bool GetS(const std::string& field, std::string* value) const {
    const bool known = s_words_.reference != kUnset && s_words_.counter != kUnset &&
                       R(s_words_.reference) != 0;
    if (field == "frequency")
      *value = known ? Hz(SN() * kReferenceHz / R(s_words_.reference) / 2) : "none";
    else if (field == "n") *value = s_words_.counter == kUnset ? "none" : FormatDecimal(SN());
    else if (field == "ready") *value = s_.Ready(NowUs()) ? "1" : "0";
    else if (field == "locked") *value = s_.Locked(SProgrammed(), NowUs()) ? "1" : "0";
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
  // The type-4 chip runs with set-up mode 0, the others with mode 1.
  bool ModeZero() const {
    std::string type;
    return BoardKey("lconv.type", &type) && type == "4";
  }

  void WriteL(uint32_t value) {
    l_last_ = value;
    l_.Written(NowUs());
    if (Fractional()) return WriteRegister(value >> 24, value & kWordBits);
    switch (value & 3) {
      case 0: l_words_.reference = value; break;
      case 2: l_words_.function = value; break;
      case 1: l_words_.counter = value; break;
      default: break;
    }
  }

  // One addressed write to the fractional-N chip, followed through its set-up and its retunes.
  void WriteRegister(uint32_t number, uint32_t data) {
    if (!register_mode_) {   // the FPGA shifts the word out unaddressed: the chip is scrambled
      set_up_ = tuned_ = false;
      setup_next_ = retune_next_ = 0;
      return;
    }
    l_registers_[number] = data;
    FollowSetup(number, data);
    if (number == 3 || number == 4 || number == 5) FollowRetune(number, data);
  }

  bool SetupStep(size_t i, uint32_t number, uint32_t data) const {
    return kSetup[i].reg == number && (ModeZero() ? kSetup[i].mode0 : kSetup[i].mode1) == data;
  }

  void FollowSetup(uint32_t number, uint32_t data) {
    if (setup_next_ < kSetup.size() && SetupStep(setup_next_, number, data)) {
      if (++setup_next_ == kSetup.size()) set_up_ = true;
      return;
    }
    if (SetupStep(0, number, data)) {   // a set-up starts over
      set_up_ = false;
      setup_next_ = 1;
      return;
    }
    // Once set up, the tuning registers take retunes; any other word unsettles the chip.
    if (set_up_ && (number == 3 || number == 4 || number == 5)) return;
    set_up_ = false;
    setup_next_ = 0;
  }

  void FollowRetune(uint32_t number, uint32_t data) {
    const bool divider = number == 5 && (data == kDivideBy2 || data == kDivideBy1);
    bool in_order = false;
    if (retune_next_ == 0) in_order = divider;
    else if (retune_next_ <= kCalibration.size())
      in_order = number == 5 && data == kCalibration[retune_next_ - 1];
    else if (retune_next_ == kCalibration.size() + 1) in_order = number == 3 && data != 0;
    else in_order = number == 4;
    if (!in_order) {   // a tuning word out of place: the loop loses its tuning
      tuned_ = false;
      retune_next_ = 0;
      if (!divider) return;
    }
    if (divider) {
      tuned_ = false;
      retune_next_ = 0;
      pending_divider_ = data == kDivideBy2 ? 2 : 1;
    }
    if (++retune_next_ == kRetuneWords) {
      tuned_ = true;
      l_divider_ = pending_divider_;
      retune_next_ = 0;
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
    if (!Ratio(&n)) return false;
    if (Fractional()) return register_mode_ && set_up_ && tuned_;
    return l_words_.function == kLFunction && (l_words_.counter & kLCounterSpare) == 0 &&
           LA() <= B(l_words_.counter);
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
      *value = l_.Ready(NowUs()) ? "1" : "0";
    } else if (field == "locked") {
      *value = l_.Locked(LProgrammed(), NowUs()) ? "1" : "0";
    } else if (field == "set_up") {
      *value = set_up_ ? "1" : "0";
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
  uint32_t l_divider_ = 0;                    // 0: no complete retune yet
  uint32_t pending_divider_ = 0;              // the divider of the retune under way
  bool register_mode_ = false;
  size_t setup_next_ = 0, retune_next_ = 0;   // words of each sequence received in order
  bool set_up_ = false, tuned_ = false;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeSynthesizers(unsigned board_index) {
  return std::make_unique<Synthesizers>(board_index);
}

}  // namespace zsim
