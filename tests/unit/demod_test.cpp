// The demodulator chain over the register model: signal-type tables, the decimation choice and
// timing words, the carrier's split between synthesizer, preselectors and NCO, filter files and
// quantisation, the iso converter's serial set-up and the bit-status word.
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "demod/carrier.h"
#include "demod/timing.h"
#include "loader_fixture.h"
#include "rf/convertor.h"

namespace tvx::test {
namespace {

constexpr uint32_t kNco = 0x8008, kLoop = 0x8010, kOversampling = 0x8018, kRateNco = 0x8020,
                   kLevels = 0x8020, kTap = 0x8028, kNcoRead = 0x802C, kDecimation = 0x8038,
                   kError = 0x803C, kPack = 0x8040, kBand = 0x8088, kDirect = 0x80A0,
                   kIsoWord = 0x8100, kIsoControl = 0x8104, kIsoData = 0x8108,
                   kLSynth = 0x4008, kDac = 0x400C;
const double kNan = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

class DemodTest : public LoaderTest {
 protected:
  int32_t Signal(uint8_t m, uint8_t rate = 0, uint8_t coding = 0) {
    return SetSignalType(&id, &m, &rate, &coding);
  }
  int32_t Rate(double sps) { return SetTiming(&id, &sps); }
  int32_t Tune(double hz) { return SetCarrier(&id, &hz); }
  TimingControl Control() {
    TimingControl c{};
    EXPECT_EQ(GetTimingControl(&id, &c), 0);
    return c;
  }
  double Carrier() {
    double hz = -1;
    EXPECT_EQ(MeasureCarrier(&id, 0, &hz), 0);
    return hz;
  }
  int32_t Filter(uint8_t shape, const std::string& dir) {
    return FilterLoad(&id, dir.c_str(), &shape, &shape);
  }
  std::string Coefficients(const std::string& name, const std::vector<double>& values) {
    std::string text;
    for (double v : values) text += std::to_string(v) + "\n";
    std::ofstream(files.Path(name)) << text;
    return files.path().string();
  }
};

// Every field of the block for rows that differ in kind; the bytes after each terminator stay
// the caller's. Row 14 takes the code-rate digit (6 gives 7; 9 has none and keeps its X).
TEST_F(DemodTest, SignalParametersFollowTheTable) {
  const struct { uint8_t m, rate; const char *fm, *fx, *fe, *fo; uint32_t level; int32_t carrier;
                 uint32_t timing; uint8_t bits, mode; } rows[] = {
      {0, 0, "mpm_2.dat", "N/A", "epm_2.dat", "opm_2.dat", 158, 8, 6, 1, 31},
      {4, 0, "mqam_8.dat", "N/A", "eqam_8.dat", "oqam_8.dat", 81, -52, 3, 3, 9},
      {10, 0, "-DEC-", "N/A", "-DEC-", "-DEC-", 0xABCDEF, 0xABCDEF, 0xABCDEF, 1, 0},
      {14, 6, "m16apsk7.dat", "N/A", "e16apsk7.dat", "o16apsk7.dat", 120, 0, 3, 4, 7},
      {15, 9, "m32apskX.dat", "N/A", "e32apskX.dat", "o32apskX.dat", 97, -14, 3, 5, 5},
      {16, 2, "MQAM_128.DAT", "N/A", "-QAM128-", "-QAM128-", 146, -37, 3, 0xEF, 0xEF},
      {18, 0, "M8QAM_DS.DAT", "N/A", "-8QAM-", "O8QAM_DS.DAT", 142, -6, 3, 3, 9},
      {21, 0, "-NA-", "n_DVBS2X.DAT", "-NA-", "-NA-", 0, 0, 0, 0, 0}};
  for (const auto& r : rows) {
    ASSERT_EQ(Signal(r.m, r.rate, 17), 0);
    SignalParameters p;
    std::memset(&p, 0xAA, sizeof p);
    ASSERT_EQ(GetSignalParameters(&id, &p), 0);
    EXPECT_EQ(p.Modulation, r.m);
    EXPECT_EQ(p.CodeRate, r.rate);
    EXPECT_EQ(p.Reserved, 0xAA);
    for (const auto& [field, name] : {std::pair{p.TableFileM, r.fm}, {p.TableFileX, r.fx},
                                     {p.TableFileE, r.fe}, {p.TableFileO, r.fo}}) {
      EXPECT_STREQ(field, name) << int(r.m);
      EXPECT_EQ(uint8_t(field[std::strlen(name) + 1]), 0xAA) << name;
    }
    EXPECT_EQ(uint32_t{p.LevelCode}, r.level);
    EXPECT_EQ(int32_t{p.CarrierLockThreshold}, r.carrier);
    EXPECT_EQ(uint32_t{p.TimingLockThreshold}, r.timing);
    EXPECT_EQ(p.BitsPerSymbol, r.bits);
    EXPECT_EQ(p.ModeCode, r.mode);
  }
  EXPECT_TRUE(model.Trace().empty()) << "selecting a type writes nothing";
}

// Checked in order, each stored once it passes: a refusal keeps the fields before it.
TEST_F(DemodTest, SignalTypeRefusals) {
  ASSERT_EQ(Signal(3, 4, 5), 0);
  const struct { uint8_t m, rate, coding; const char* text; uint8_t kept_m, kept_rate; } rows[] = {
      {22, 0, 0, "Неподдерживаемый вид модуляции, индекс #22", 3, 4},
      {5, 10, 0, "Неподдерживаемый тип скорости кодирования, индекс #10", 5, 4},
      {6, 1, 18, "Неподдерживаемый тип кодирования сигнального созвездия, индекс #18", 6, 1}};
  for (const auto& r : rows) {
    EXPECT_EQ(Signal(r.m, r.rate, r.coding), 1);
    EXPECT_EQ(GetErrorMessage(), std::string("SetSignalType [0]: ") + r.text + "\n");
    SignalParameters p{};
    GetSignalParameters(&id, &p);
    EXPECT_EQ(p.Modulation, r.kept_m);
    EXPECT_EQ(p.CodeRate, r.kept_rate);
  }
}

// Whole little-endian words in file order; a trailing part-word is dropped.
TEST_F(DemodTest, PackTableStreamsWholeWords) {
  const std::string ten = files.Write("p.dat", Bytes({1, 2, 3, 4, 0xF5, 0xF6, 0xF7, 0xF8, 9, 10}));
  EXPECT_EQ(LoadPackMode(&id, ten.c_str()), 0);
  EXPECT_EQ(Written(kPack), (std::vector<uint32_t>{0x04030201, 0xF8F7F6F5}));
  model.ClearTrace();
  EXPECT_EQ(LoadPackMode(&id, files.Write("e.dat", {}).c_str()), 0);
  EXPECT_TRUE(model.Trace().empty());
  EXPECT_EQ(LoadPackMode(&id, files.Path("none.dat").c_str()), 1);
  EXPECT_EQ(GetErrorMessage(),
            "LoadPackMode [0]: Ошибка открытия файла таблицы упаковки " + files.Path("none.dat"));
}

// One rate per decimation row, the boundaries that belong to the row below (greater-than) or to
// the row itself (at or above), what the registers receive (the rate NCO word scaled by D and M,
// the oversampling code held to 255, M - 1) against what is reported, and the rate the board
// decodes from those words.
TEST_F(DemodTest, DecimationRows) {
  const double c = kDefaultSampleClock * 0.995;
  const struct { double rate; uint32_t d, m, loop, aux, nco, g; } rows[] = {
      {60e6, 2, 1, 15, 15, 43141413, 199},           {c / 4, 4, 1, 15, 15, 66773320, 128},
      {30e6, 4, 1, 15, 15, 43141413, 199},           {20e6, 8, 1, 14, 14, 57521883, 149},
      {10e6, 16, 1, 13, 12, 57521883, 149},          {5e6, 32, 1, 12, 8, 57521883, 149},
      {2e6, 32, 2, 11, 0, 46017507, 186},            {c / 16384, 32, 512, 3, 0, 66773320, 128},
      {c / 32768, 32, 512, 3, 0, 33386660, 255},     {1500, 32, 2048, 1, 0, 35341445, 243},
      {c / 131072, 32, 2048, 1, 0, 33386660, 255}};
  for (const auto& r : rows) {
    model.ClearTrace();
    ASSERT_EQ(Rate(r.rate), 0) << r.rate;
    const TimingControl t = Control();
    EXPECT_EQ(t.FirstDecimation, r.d) << r.rate;
    EXPECT_EQ(t.ControlWord, r.m | uint32_t(std::log2(r.m)) << 16) << r.rate;
    EXPECT_EQ(t.LoopCode, r.loop) << r.rate;
    EXPECT_EQ(t.AuxCode, r.aux) << r.rate;
    EXPECT_EQ(Written(kDecimation), std::vector<uint32_t>{t.ControlWord - 1}) << r.rate;
    EXPECT_EQ(Written(kRateNco), std::vector<uint32_t>{r.nco}) << r.rate;
    EXPECT_EQ(Written(kOversampling), std::vector<uint32_t>{r.g}) << r.rate;
    EXPECT_NEAR(std::stod(Get("demod.rate")), r.rate, r.rate * 1e-5) << r.rate;
  }
}

// The worked rate, in its register order, with the timing bits of the signal type (row 6 has
// table value 1).
TEST_F(DemodTest, TimingWordsInOrder) {
  ASSERT_EQ(Signal(6), 0);
  ASSERT_EQ(Rate(30e6), 0);
  EXPECT_EQ(model.Trace(), (std::vector<zsim_access>{W(kLoop, 15 | 21065u << 16 | 0x1100),
                                                     W(kRateNco, 43141413), W(kOversampling, 199),
                                                     W(kDecimation, 0)}));
}

// A refused rate is remembered but changes no decimation and writes nothing; so is NaN.
TEST_F(DemodTest, RefusedRates) {
  ASSERT_EQ(Rate(10e6), 0);
  model.ClearTrace();
  for (double rate : {60e6 + 1, kDefaultSampleClock * 0.995 / 131072 - 0.001, 0.0, -5.0, kNan, kInf}) {
    EXPECT_EQ(Rate(rate), 2);
    char text[160];
    std::snprintf(text, sizeof text,
                  "SetTiming [0]: Ошибка установки тактовой частоты, недопустимое значение: %5.3f\n",
                  rate);
    EXPECT_EQ(GetErrorMessage(), std::string(text));
    EXPECT_EQ(Control().FirstDecimation, 16u);
  }
  EXPECT_TRUE(model.Trace().empty());
  Reopen("5");
  EXPECT_EQ(Rate(100e6), 0);
  EXPECT_EQ(Control().FirstDecimation, 2u);
  EXPECT_EQ(Rate(100e6 + 1), 2);
}

// The loop's rate NCO is 26 bits; before any accepted rate there is nothing to divide by.
TEST_F(DemodTest, MeasuredRate) {
  double sps = -1;
  EXPECT_EQ(MeasureTiming(&id, 0, &sps), 0);
  EXPECT_EQ(sps, 0.0);
  ASSERT_EQ(Rate(2e6), 0);   // D 32, M 2
  Force(0x8008, 0xFC000000 | 1234567);
  EXPECT_EQ(MeasureTiming(&id, 0, &sps), 0);
  EXPECT_DOUBLE_EQ(sps, 1234567 * kDefaultSampleClock / 67108864.0 / 2 / 32);
}

// The split at 200 MHz, the LO grid and intermediate frequency per convertor type, the NCO
// word, the flags each type takes (band select only on type 2, from 1.6 GHz) and the order of
// the blocks written: the flags before the synthesizer, the NCO word last. A loaded LO locks.
TEST_F(DemodTest, CarrierSplit) {
  const struct { const char* type; double hz; const char* lo; uint32_t nco; std::vector<uint32_t> direct, band; const char* order; } rows[] = {
      {"3", 70e6, "none", 0x60000000, {}, {}, "nco"},
      {"3", 150e6, "none", 0xCDB6DB6E, {}, {}, "nco"},      // above fs/2: the word of its alias
      {"3", 190e6, "none", 0x04924925, {}, {}, "nco"},      // above fs: the alias's own word
      {"3", 1.2e9, "1340000000.00", 0x40000000, {}, {}, "synth dac nco"},
      {"4", 70e6, "none", 0x60000000, {1}, {}, "direct nco"},
      {"4", 1.2e9, "1340000000.00", 0x40000000, {0}, {}, "direct synth dac nco"},
      {"5", 1.2e9, "1550000000.00", 0xC0000001, {0}, {}, "direct synth dac nco"},
      {"2", 1599999999, "1740000000.00", 0x3FFFFFE9, {}, {0}, "band synth dac nco"},
      {"2", 1.6e9, "1740000000.00", 0x40000000, {}, {1}, "band synth dac nco"}};
  const std::pair<uint32_t, const char*> blocks[] = {
      {kBand, "band"}, {kDirect, "direct"}, {kLSynth, "synth"}, {kDac, "dac"}, {kNco, "nco"}};
  for (const auto& r : rows) {
    Reopen(r.type);
    ASSERT_EQ(Tune(r.hz), 0) << GetErrorMessage();
    EXPECT_EQ(Written(kNco), std::vector<uint32_t>{r.nco}) << r.type << " " << r.hz;
    EXPECT_EQ(Written(kDirect), r.direct) << r.type << " " << r.hz;
    EXPECT_EQ(Written(kBand), r.band) << r.type << " " << r.hz;
    EXPECT_EQ(Written(kLSynth).empty() ? "none" : Get("synth.l.frequency"), r.lo) << r.type << " " << r.hz;
    if (!Written(kLSynth).empty()) {
      EXPECT_EQ(Get("synth.l.locked"), "1") << r.type << " " << r.hz;
    }
    std::string order, last;
    for (const zsim_access& a : model.Trace())
      for (const auto& [address, name] : blocks)
        if (a.write && a.addr == address && last != name) order += (order.empty() ? "" : " ") + (last = name);
    EXPECT_EQ(order, r.order) << r.type << " " << r.hz;
  }
}

// Which requests load the synthesizer and the preselectors: 200 MHz exactly takes the L-band
// path without preselectors; a target that rounds to the same LO loads nothing; the multi
// variant leaves the NCO to the next SetCarrier.
TEST_F(DemodTest, SynthesizerAndPreselectorLoads) {
  const struct { double hz; bool multi; bool synth, dac, nco; } steps[] = {
      {199999999, false, false, false, true}, {200e6, false, true, false, true},
      {200000001, false, false, false, true}, {210e6, false, true, true, true},
      {1.2e9, true, true, true, false},       {1.2e9 + 4.9e6, false, false, false, true},
      {1.2e9 + 5e6, false, true, true, true}};
  for (const auto& s : steps) {
    model.ClearTrace();
    const int32_t r = s.multi ? SetCarrierMulti(&id, &s.hz) : Tune(s.hz);
    ASSERT_EQ(r, 0) << GetErrorMessage();
    EXPECT_EQ(!Written(kLSynth).empty(), s.synth) << s.hz;
    EXPECT_EQ(!Written(kDac).empty(), s.dac) << s.hz;
    EXPECT_EQ(!Written(kNco).empty(), s.nco) << s.hz;
  }
}

// Refusals and failures write no NCO word; a failed load leaves no LO remembered, so the same
// request retries it in full.
TEST_F(DemodTest, CarrierFailures) {
  cCarrier* carrier = board()->Get<cCarrier>(Slot::Carrier);
  EXPECT_EQ(Tune(2.15e9), 0);
  EXPECT_EQ(Tune(2.15e9 + 1), -1);
  EXPECT_EQ(std::string(GetErrorMessage()), "SetCarrier [0]: Недопустимая частота: 2150000001.000");
  EXPECT_EQ(carrier->frequency(), 2.15e9);
  model.ClearTrace();
  Set("synth.l.fault", "never_lock");
  EXPECT_EQ(Tune(1.2e9), int32_t(0xFFFFFFFC));
  EXPECT_EQ(carrier->synth_frequency(), 2.15e9 + 140e6);
  EXPECT_TRUE(Written(kNco).empty());
  Set("synth.l.fault", "none");
  EXPECT_EQ(Tune(1.2e9), 0);
  EXPECT_EQ(carrier->synth_frequency(), 1.34e9);
  Set("dac.fault", "never_ready");
  const double multi = 1.5e9;
  EXPECT_EQ(SetCarrierMulti(&id, &multi), 3);
  EXPECT_EQ(std::string(GetErrorMessage()).rfind("SetCarrierMulti [0]: DAC isn't ready", 0), 0u);
  EXPECT_EQ(carrier->synth_frequency(), 1.34e9);
  // NaN reaches the synthesizer, which refuses it; -inf is out of range like +inf.
  EXPECT_EQ(Tune(kNan), 1);
  model.ClearTrace();
  EXPECT_EQ(Tune(-kInf), -1);
  EXPECT_EQ(std::string(GetErrorMessage()), "SetCarrier [0]: Недопустимая частота:  -inf");
  EXPECT_TRUE(model.Trace().empty());
}

// An exception inside the preselector load is the carrier's code 3 with the LO in the text.
TEST_F(DemodTest, PreselectorExceptionIsCaught) {
  struct Throwing : cCarrierE {
    using cCarrierE::cCarrierE;
    int32_t LoadPreselectors(double) override { throw std::runtime_error("bad table"); }
  } carrier(board()->Io, kDefaultSampleClock, board()->Get<cConvertor>(Slot::Convertor));
  const double hz = 1.2e9;
  EXPECT_EQ(carrier.SetFrequency(&hz, true), 3);
  EXPECT_STREQ(carrier.GetErrorText(), "AV Ошибка загрузки преселекторов, частота: 1340000000.000");
  EXPECT_EQ(carrier.synth_frequency(), 0.0);
}

// The read-back of both paths, with the error term scaled by the current symbol rate.
TEST_F(DemodTest, MeasuredCarrier) {
  Force(kNcoRead, 0x60000000);
  EXPECT_DOUBLE_EQ(Carrier(), 70e6) << "before any tuning: the direct path";
  ASSERT_EQ(Rate(10e6), 0);
  ASSERT_EQ(Tune(1.2e9), 0);
  Force(kNcoRead, 0x40000000);
  Force(kError, 0x10000000);
  EXPECT_DOUBLE_EQ(Carrier(), 1200625000.0);
  Force(kError, 0xF0000000);
  EXPECT_DOUBLE_EQ(Carrier(), 1199375000.0);
  Reopen("5");
  ASSERT_EQ(Tune(1.2e9), 0);
  Force(kNcoRead, 0xC0000001);
  Force(kError, 0);
  EXPECT_NEAR(Carrier(), 1.2e9, 0.1);
  double* none = nullptr;
  EXPECT_EQ(MeasureCarrier(&id, 0, none), -1);
  EXPECT_EQ(std::string(GetErrorMessage()), "MeasureCarrier [0]: NULL-объект или NULL-параметр");
}

// The file of the current first decimation, half of it loaded, each value quantised to 14
// bits with the decimation's shift code.
TEST_F(DemodTest, FilterLoadsHalfTheFileOfTheDecimation) {
  ASSERT_EQ(Rate(10e6), 0);   // D 16: shift 2
  model.ClearTrace();
  const std::string dir = Coefficients("n20d_16.dat", {0.1, -0.1, -0.5, 1.0, 0.25, 0.0, 0.0, 0.0, 7});
  ASSERT_EQ(Filter(3, dir), 0) << GetErrorMessage();
  const uint32_t s = 2u << 24;
  EXPECT_EQ(Written(kTap), (std::vector<uint32_t>{0x0333 | s, 0x3CCE | 1u << 16 | s,
                                                  0x3001 | 2u << 16 | s, 0x2000 | 3u << 16 | s}));
  EXPECT_EQ(Get("filter.tap.1"), "-818") << "the board takes the 14-bit value as signed";
  ASSERT_EQ(Rate(5e6), 0);   // D 32: shift 3
  model.ClearTrace();
  Coefficients("nf40d_32.dat", {0.25, 0.5});
  ASSERT_EQ(Filter(8, dir), 0) << GetErrorMessage();
  EXPECT_EQ(Written(kTap), std::vector<uint32_t>{0x0800 | 3u << 24});
}

TEST_F(DemodTest, FilterRefusals) {
  const std::string sep(1, os::kPathSeparator);
  // Before any accepted rate the decimation is 0: room for no value at all.
  const std::string early = Coefficients("n20d_0.dat", {0.01});
  EXPECT_EQ(Filter(3, early), -2);
  EXPECT_EQ(std::string(GetErrorMessage()).rfind("FilterLoad [0]: Файл коэффициентов фильтра " + early + sep +
                                                 "n20d_0.dat содержит больше 0 значений", 0), 0u);
  ASSERT_EQ(Rate(30e6), 0);   // D 4: room for 256 values
  const std::string dir = Coefficients("n20d_4.dat", std::vector<double>(257, 0.01));
  model.ClearTrace();
  const struct { uint8_t shape; std::string dir, text; } rows[] = {
      {3, dir, "Файл коэффициентов фильтра " + dir + sep + "n20d_4.dat содержит больше 256 значений"},
      {2, dir, "Ошибка открытия файла коэффициентов фильтра " + dir + sep + "n15d_4.dat"},
      {22, dir, "Недопустимый индекс фильтра 22 (допустимо 0..21)"},
      {3, std::string(260, 'd'), "Слишком длинное имя каталога коэффициентов фильтра (260 символов, не более 259)"},
      {3, std::string(250, 'd'), "Слишком длинный путь к файлу коэффициентов фильтра ddd"}};
  for (const auto& r : rows) {
    EXPECT_EQ(Filter(r.shape, r.dir), -2);
    // The long path itself does not fit the 256-byte text.
    const std::string want = "FilterLoad [0]: " + r.text;
    EXPECT_EQ(std::string(GetErrorMessage()).substr(0, want.size()), want);
  }
  EXPECT_TRUE(Written(kTap).empty());
  uint8_t shape = 3;
  EXPECT_EQ(FilterLoad(&id, dir.c_str(), &shape, nullptr), -1);
}

// The worked output clock: the frequency word, both strobes with their pauses, three
// transactions of whole shifted words, most significant bit first, and the exponent at the end.
TEST_F(DemodTest, IsoConverterSetUp) {
  ASSERT_EQ(Signal(1), 0);
  ASSERT_EQ(Rate(1e7), 0);
  model.ClearTrace();
  clock.sleeps.clear();
  const float one = 1.0f;
  ASSERT_EQ(ISOCVRTSetTiming(&id, &one, &one), 0) << GetErrorMessage();
  std::vector<zsim_access> want{W(kIsoWord, 0x0DB6DB6E), W(kIsoControl, 2), W(kIsoControl, 0)};
  auto transaction = [&](uint32_t command, uint32_t data, int bits) {
    want.push_back(W(kIsoControl, 1));
    for (int i = 7; i >= 0; --i) want.push_back(W(kIsoData, command >> i));
    for (int j = bits - 1; j >= 0; --j) want.push_back(W(kIsoData, data >> j));
    want.push_back(W(kIsoControl, 0));
  };
  transaction(0x00, 0x22, 8);
  transaction(0x01, 0x900000, 24);
  transaction(0x04, 0x0DB6DB6E, 32);
  for (uint32_t v : {4u, 0u, 0x280u}) want.push_back(W(kIsoControl, v));
  EXPECT_EQ(model.Trace(), want);
  EXPECT_EQ(Get("iso.reg.1"), "0x00900000") << "the board decoded the serial transaction";
  EXPECT_EQ(clock.ms(), (std::vector<uint32_t>{10, 10}));
}

// The generator limit gives exponent 0; a clock that is zero, at or above twice the limit,
// negative or too low for a 32-bit divider is refused with nothing written.
TEST_F(DemodTest, IsoConverterLimits) {
  ASSERT_EQ(Signal(0), 0);   // 1 bit per symbol
  ASSERT_EQ(Rate(47e6), 0);
  const float two = 2.0f, zero = 0.0f, minus = -1.0f, tiny = 1e-9f;
  const struct { float a, b; int32_t result; } rows[] = {
      {1.0f, two, 0}, {zero, two, 1}, {two, two, 1}, {minus, two, 1}, {tiny, tiny, 1}};
  for (const auto& r : rows) {
    model.ClearTrace();
    EXPECT_EQ(ISOCVRTSetTiming(&id, &r.a, &r.b), r.result) << r.a << " " << r.b;
    if (r.result == 0) EXPECT_EQ(Written(kIsoControl).back(), 0x80u);
    else EXPECT_TRUE(model.Trace().empty());
  }
  EXPECT_EQ(std::string(GetErrorMessage()),
            "ISOCVRTSetTiming [0]: Ошибка установки выходной тактовой частоты, outFClk = 0.000000\n");
  Force(kDecimation, 0x1234FFFF);
  uint32_t loading = 0;
  EXPECT_EQ(ISOCVRTGetLoading(&id, &loading), 0);
  EXPECT_EQ(loading, 0xFFFFFFFFu);
}

// Only bits 0, 1, 4 and 6 change; the thresholds of the current type decide, signed, and the
// not-applicable marker never locks.
TEST_F(DemodTest, BitStatus) {
  const struct { uint8_t m; uint32_t levels, channels, bits; } rows[] = {
      {1, 0x08040000, 0, 0x03},               // QPSK: 8 and 4 reached
      {1, 0x07030000, 0, 0x00},
      {4, 0xCC030000, 1u << 28, 0x13},        // 8QAM: -52 reached; the IQ channel's bit
      {4, 0xCB020000, 1u << 29, 0x40},        // the demodulated-data channel's bit
      {10, 0x7F7F0000, 3u << 28, 0x50}};      // DEC never locks
  for (const auto& r : rows) {
    ASSERT_EQ(Signal(r.m), 0);
    Force(kLevels, r.levels);
    Force(kOversampling, r.channels);
    uint32_t word = 0xFFFFFFFF;
    ASSERT_EQ(GetBitStatus(&id, &word), 0);
    EXPECT_EQ(word, (0xFFFFFFFF & ~0x53u) | r.bits) << int(r.m) << " " << r.levels;
  }
}

}  // namespace
}  // namespace tvx::test
