// The demodulator's carrier and timing loops in the DEM FPGA, and the set-up words around them.
//
// Written: DEM word 2 the carrier NCO word (a phase step in 2^-32 turns per sample), 4 the
// loop word (loop code in bits 0-7, timing bits 8-15, the symbol rate over the clock in units
// of 2^-17 in bits 16-31), 6 the oversampling code, 8 the nominal rate NCO word
// w = D·M·Rs·2^26/fs, 14 the second decimation (M − 1 in bits 0-11, log2 M in 16-19), 28 the
// timing mode, 34 the band-select flag, 40 the input switch (1 direct, 0 L-band).
// Read: DEM word 2 the timing loop's rate NCO (bits 0-25), 8 the lock levels (carrier in bits
// 31-24, timing in 23-16, signed; bits 15-8 are the ADC's), 11 the carrier NCO's frequency,
// 15 the carrier frequency error.
//
// The signal at the input is the test-signal simulator's while it runs, else the one the
// signal.* keys describe, seen through the convertor as the board would: below 200 MHz at the
// direct input, above through the L-band mixer (an LO loaded and locked), and the convertors
// with an input switch show only the input DEM word 40 selects. The loops lock on it when it
// lies within the capture ranges of what the library tuned; lock takes a number of reads of
// the level word, counted rather than timed so that tests stay deterministic, and every retune
// starts it over. Locked loops read back the signal's own rate and carrier offset, so the
// library's measurements come out as the signal's.
//
// The loops count in what the library programs and nothing else. M, the second decimation,
// comes from DEM word 14 (M - 1 in bits 0-11 and log2 M in bits 16-19, which must agree). The
// first decimation D has no register: the FPGA's first stage runs at its full 32 whenever the
// second one decimates, and otherwise at the power of two the oversampling code implies,
// 128 fs / (g Rs) with Rs/fs from the loop word's rate field. From D and M the rate NCO word
// gives the nominal rate, w fs / (2^26 D M); the timing loop locks only when that rate lies
// within the capture range of the signal's and the loop word's rate field and the oversampling
// code agree with it, so a word off by a factor of D or M, or a stale one, keeps it unlocked.
//
// A locked carrier loop leaves its NCO where the library tuned it (DEM word 11 reads the word
// of DEM word 2 back) and holds what remains of the carrier's offset in its frequency error
// (DEM word 15, signed, in 2^-32 of the nominal symbol rate), which the library's measurement
// of an L-band carrier adds to the tuned one; its measurement of a direct carrier reads the NCO
// only, and so gives the tuned carrier.
#include <cmath>
#include <cstdint>
#include <optional>

#include "demod/sample_clock.h"
#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr double kTwoTo26 = 67108864.0, kTwoTo32 = 4294967296.0;
constexpr double kRateFieldScale = 131072.0;
constexpr double kDirectLimit = 200e6;   // carriers below it come in at the direct input
constexpr uint32_t kRateNcoBits = 0x3FFFFFF;
constexpr uint32_t kLevelBits = 0xFFFF0000;   // bits 15-8 are the ADC's counter
constexpr uint32_t kLockedLevel = 64, kUnlockedLevel = 0x80;   // +64 and -128
constexpr uint32_t kSimOn = 1u << 28;
constexpr uint32_t kSimCarrierBits = 0x0FFFFFFF;
constexpr uint32_t kSecondDecimationBits = 0xFFF, kLog2MShift = 16, kLog2MBits = 0xF;
constexpr uint32_t kFullFirstDecimation = 32, kOversamplingMax = 255;
constexpr double kOversamplingScale = 128.0;

enum Fault : uint32_t { kNone, kNeverLock, kLoseLock };

// What reaches the demodulator: an invisible input has no frequency or rate, so that two of
// them compare equal.
struct Input {
  bool visible = false;
  double frequency = 0;   // digital, in [0, fs)
  double rate = 0;
  bool operator==(const Input& o) const {
    return visible == o.visible && frequency == o.frequency && rate == o.rate;
  }
};

double Reduce(double hz, double fs) {
  double r = std::fmod(hz, fs);
  if (r < 0) r += fs;
  return r >= fs ? r - fs : r;
}

double Wrap(double hz, double fs) {
  const double r = Reduce(hz, fs);
  return r > fs / 2 ? r - fs : r;
}

uint32_t Bump(uint32_t count) { return count == UINT32_MAX ? count : count + 1; }

std::string Decimal(const std::optional<uint32_t>& word, uint32_t shift = 0, uint32_t mask = ~0u) {
  return word ? FormatDecimal((*word >> shift) & mask) : "none";
}

class Demodulator : public DeviceModel {
 public:
  explicit Demodulator(unsigned board_index) : DeviceModel("demod", board_index) {
    keys().AddNumber("signal.present", &present_, 1, 0, 1);
    keys().AddReal("signal.carrier", &carrier_, 1200025000.0, 0, 1e11);
    keys().AddReal("signal.rate", &rate_, 10e6, 1, 1e10);
    keys().AddReal("signal.level", &level_, -40, -200, 50);
    keys().AddNumber("demod.carrier_capture", &carrier_capture_, 1000000, 0, 0xFFFFFFFF);
    keys().AddNumber("demod.rate_capture_ppm", &rate_capture_ppm_, 1000, 0, 1000000);
    keys().AddNumber("demod.timing_lock_reads", &timing_reads_, 2, 1, 1000000);
    keys().AddNumber("demod.carrier_lock_reads", &carrier_reads_, 3, 1, 1000000);
    keys().AddChoice("demod.fault", &fault_, kNone, {"none", "never_lock", "lose_lock"});
    keys().AddNumber("demod.lose_after", &lose_after_, 5, 0, 1000000);

    // A write to any of these retunes the loops. The RAM's data writes land on word 2 too;
    // the last write is what the NCO holds.
    Tuning(Dem(2), &nco_);
    Tuning(Dem(4), &loop_);
    Tuning(Dem(8), &rate_word_);
    Tuning(Dem(14), &control_);
    Tuning(Dem(40), &direct_);
    OnWrite(Periph(2), [this](uint32_t) { Retune(); });   // a word to the LO synthesizer
    Tuning(Dem(6), &oversampling_);
    OnWrite(Dem(28), [this](uint32_t value) { mode_ = value; });
    OnWrite(Dem(34), [this](uint32_t value) { band_ = value; });

    OnRead(Dem(2), [this](uint32_t, bool) { return RateNco(); });
    OnRead(Dem(8), [this](uint32_t, bool peek) {
      if (!peek) Advance();
      return (CarrierLocked() ? kLockedLevel : kUnlockedLevel) << 24 |
             (TimingLocked() ? kLockedLevel : kUnlockedLevel) << 16;
    }, kLevelBits);
    OnRead(Dem(11), [this](uint32_t, bool) { return CarrierNco(); });
    OnRead(Dem(15), [this](uint32_t, bool) { return FrequencyError(); });
  }

  // A new signal is a retune as far as the loops are concerned.
  KeyResult Set(const std::string& key, const std::string& value) override {
    const KeyResult result = DeviceModel::Set(key, value);
    if (result == KeyResult::kOk && key.compare(0, 7, "signal.") == 0) Retune();
    return result;
  }

  bool Get(const std::string& key, std::string* value) const override {
    if (key.compare(0, 6, "demod.") != 0) return DeviceModel::Get(key, value);
    const std::string field = key.substr(6);
    const double fs = Clock();
    const Input in = Observe(fs);
    const double offset = Wrap(in.frequency - NcoHz(fs), fs);
    uint32_t d = 0;
    double hz = 0;
    if (field == "nco") *value = FormatHex(nco_.value_or(0));
    else if (field == "nco.frequency") *value = FormatHz(NcoHz(fs));
    else if (field == "offset") *value = in.visible ? FormatHz(offset) : "none";
    else if (field == "carrier.locked") *value = CarrierLocked() ? "1" : "0";
    else if (field == "timing.locked") *value = TimingLocked() ? "1" : "0";
    else if (field == "rate") *value = NominalRate(fs, &hz) ? FormatHz(hz) : "none";
    else if (field == "decimation") *value = FirstDecimation(&d) ? FormatDecimal(d) : "none";
    else if (field == "m") *value = M(&d) ? FormatDecimal(d) : "none";
    else if (field == "loop_code") *value = Decimal(loop_, 0, 0xFF);
    else if (field == "timing_bits") *value = Decimal(loop_, 8, 0xFF);
    else if (field == "oversampling") *value = Decimal(oversampling_);
    else if (field == "mode") *value = mode_ ? FormatHex(*mode_) : "none";
    else if (field == "band") *value = Decimal(band_);
    else if (field == "direct") *value = Decimal(direct_);
    else if (field == "signal.frequency") *value = in.visible ? FormatHz(in.frequency) : "none";
    else if (field == "signal.rate") *value = in.visible ? FormatHz(in.rate) : "none";
    else return DeviceModel::Get(key, value);
    return true;
  }

 private:
  void ResetState() override {
    nco_ = loop_ = rate_word_ = control_ = direct_ = oversampling_ = mode_ = band_ = std::nullopt;
    seen_ = Input{};
    Retune();
  }

  void Tuning(uint32_t address, std::optional<uint32_t>* word) {
    OnWrite(address, [this, word](uint32_t value) {
      *word = value;
      Retune();
    });
  }

  void Retune() {
    timing_run_ = carrier_run_ = held_ = 0;
    lost_ = false;
  }

  // ---- what the board sees ----------------------------------------------------------------
  double Clock() const {
    std::string text;
    const bool known = BoardKey("synth.s.frequency", &text);
    return SampleClockFrom(known, text);
  }

  uint32_t BoardNumber(const char* key, uint32_t fallback) const {
    std::string text;
    uint32_t v = 0;
    return BoardKey(key, &text) && ParseU32(text, &v) ? v : fallback;
  }

  // The LO, when one is loaded and its loop holds.
  bool Lo(double* hz) const {
    std::string frequency, locked;
    return BoardKey("synth.l.frequency", &frequency) && ParseReal(frequency, hz) &&
           BoardKey("synth.l.locked", &locked) && locked == "1";
  }

  Input Observe(double fs) const {
    Input in;
    std::string on;
    if (BoardKey("sim.on", &on) && on == "1") {
      in.visible = true;
      // The simulator's phase word counts down from the clock: the library writes
      // (fs - f) / fs * 2^28 for a test signal at f.
      const double turns = (BoardNumber("sim.carrier", 0) & kSimCarrierBits) / 268435456.0;
      in.frequency = Reduce(fs - turns * fs, fs);
      in.rate = fs / (BoardNumber("sim.divider", 0) + 1.0);
      return in;
    }
    if (!present_) return in;
    const uint32_t type = BoardNumber("lconv.type", 3);
    const bool switched = type != 2 && type != 3;   // the others have an input switch
    const bool direct_selected = direct_ && (*direct_ & 1) != 0;
    double lo = 0;
    if (carrier_ < kDirectLimit) {
      in.visible = !switched || direct_selected;
      if (in.visible) in.frequency = Reduce(carrier_, fs);
    } else {
      in.visible = Lo(&lo) && (!switched || !direct_selected);
      if (in.visible) in.frequency = Reduce(carrier_ - lo, fs);
    }
    if (in.visible) in.rate = rate_;
    return in;
  }

  double NcoHz(double fs) const { return nco_.value_or(0) / kTwoTo32 * fs; }

  // M from DEM word 14, when its two fields agree on a power of two.
  bool M(uint32_t* m) const {
    if (!control_) return false;
    const uint32_t v = (*control_ & kSecondDecimationBits) + 1;
    if ((v & (v - 1)) != 0 || (*control_ >> kLog2MShift & kLog2MBits) != Log2(v)) return false;
    *m = v;
    return true;
  }
  static uint32_t Log2(uint32_t power) {
    uint32_t n = 0;
    while (power >>= 1) ++n;
    return n;
  }

  // The loop word's rate field, Rs/fs in units of 2^-17.
  uint32_t RateField() const { return loop_.value_or(0) >> 16; }

  bool FirstDecimation(uint32_t* d) const {
    uint32_t m = 0;
    if (!M(&m)) return false;
    if (m > 1) {
      *d = kFullFirstDecimation;
      return true;
    }
    const uint32_t g = oversampling_.value_or(0), field = RateField();
    if (g == 0 || field == 0) return false;
    const double d_estimate = kOversamplingScale * kRateFieldScale / (double(g) * field);
    const long power = std::lround(std::log2(d_estimate));
    *d = 1u << (power < 1 ? 1 : power > 5 ? 5 : power);
    return true;
  }

  // The rate the rate NCO word stands for, with D and M as decoded.
  bool NominalRate(double fs, double* hz) const {
    uint32_t d = 0, m = 0;
    if (!rate_word_ || *rate_word_ == 0 || !FirstDecimation(&d) || !M(&m)) return false;
    *hz = *rate_word_ * fs / (kTwoTo26 * d * m);
    return true;
  }

  // The loop word's rate field and the oversampling code say the same rate as the NCO word.
  bool Consistent(double fs) const {
    uint32_t d = 0, m = 0;
    double rate = 0;
    if (!NominalRate(fs, &rate) || !FirstDecimation(&d) || !M(&m)) return false;
    const double field = std::trunc(rate / fs * kRateFieldScale + 0.5);
    double g = std::trunc(fs * kOversamplingScale / (double(d) * rate * m));
    if (g > kOversamplingMax) g = kOversamplingMax;
    return std::fabs(field - RateField()) <= 1 && std::fabs(g - oversampling_.value_or(0)) <= 1;
  }

  bool InBand(const Input& in, double fs) const {
    return in.visible && std::fabs(Wrap(in.frequency - NcoHz(fs), fs)) <= carrier_capture_;
  }

  bool RateInRange(const Input& in, double fs) const {
    double nominal = 0;
    return in.visible && NominalRate(fs, &nominal) && Consistent(fs) &&
           std::fabs(in.rate / nominal - 1) <= rate_capture_ppm_ / 1e6;
  }

  // ---- the loops ----------------------------------------------------------------------------
  // One read of the lock levels: each loop's run of good reads grows or starts over.
  void Advance() {
    const double fs = Clock();
    const Input now = Observe(fs);
    if (!(now == seen_)) {   // the LO, the clock, the switch or the signal moved
      Retune();
      seen_ = now;
    }
    const bool in_band = InBand(now, fs);
    timing_run_ = in_band && RateInRange(now, fs) ? Bump(timing_run_) : 0;
    carrier_run_ = in_band && timing_run_ >= timing_reads_ ? Bump(carrier_run_) : 0;
    if (carrier_run_ < carrier_reads_ || timing_run_ < timing_reads_) held_ = 0;
    else if (fault_ == kLoseLock && !lost_ && held_++ >= lose_after_) lost_ = true;
  }

  // The loops hold only while the input is the one the last read saw: a change since shows
  // at once, before the next read starts them over.
  bool Holding() const { return fault_ != kNeverLock && !lost_ && Observe(Clock()) == seen_; }
  bool TimingLocked() const { return timing_run_ >= timing_reads_ && Holding(); }
  bool CarrierLocked() const { return carrier_run_ >= carrier_reads_ && TimingLocked(); }

  uint32_t RateNco() const {
    uint32_t d = 0, m = 0;
    if (!TimingLocked() || !FirstDecimation(&d) || !M(&m))
      return rate_word_.value_or(0) & kRateNcoBits;
    const double v = std::round(seen_.rate * d * m * kTwoTo26 / Clock());
    return uint32_t(uint64_t(v)) & kRateNcoBits;
  }

  uint32_t CarrierNco() const { return nco_.value_or(0); }

  // The offset the locked loop holds, in 2^-32 of the nominal symbol rate.
  uint32_t FrequencyError() const {
    const double fs = Clock();
    double rate = 0;
    if (!CarrierLocked() || !NominalRate(fs, &rate)) return 0;
    const double e = std::round(Wrap(seen_.frequency - NcoHz(fs), fs) / rate * kTwoTo32);
    const double held = e > 2147483647.0 ? 2147483647.0 : e < -2147483648.0 ? -2147483648.0 : e;
    return uint32_t(int32_t(held));
  }

  // keys
  uint32_t present_ = 1;
  double carrier_ = 0, rate_ = 0, level_ = 0;   // level_: kept for the gain model
  uint32_t carrier_capture_ = 0, rate_capture_ppm_ = 0, timing_reads_ = 0, carrier_reads_ = 0;
  uint32_t fault_ = kNone, lose_after_ = 0;
  // the words as last written
  std::optional<uint32_t> nco_, loop_, rate_word_, control_, direct_, oversampling_, mode_, band_;
  // the loops
  Input seen_;
  uint32_t timing_run_ = 0, carrier_run_ = 0;   // consecutive good reads
  uint32_t held_ = 0;                           // reads since both locked (lose_lock)
  bool lost_ = false;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeDemodulator(unsigned board_index) {
  return std::make_unique<Demodulator>(board_index);
}

}  // namespace zsim
