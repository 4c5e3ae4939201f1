// Bad input at the export boundary, for every export the library's export list names: a missing
// DeviceId, board indices at both ends of the table and beyond it, before and after boards
// exist, and each pointer argument missing in turn. Every call has to come back, take its null
// path where there is no board or argument to work with, leave the caller's memory alone on
// that path, and keep the error text terminated inside its 256 bytes. DeviceIds are single
// bytes, so a build with AddressSanitizer also catches a read past byte 0.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "test_env.h"
#include "torvixe.h"
#include "zarimsim.h"

namespace {

constexpr char kNull[] = "NULL-объект или NULL-параметр";
constexpr int64_t kAny = INT64_MIN;   // depends on the machine, not on the input

// Everything a call may point into, in one block, so that one snapshot shows any write.
struct Args {
  uint32_t words[4], bytes_read;
  double reals[2];
  float singles[2];
  uint8_t bytes[4], data[256];
  char text[64];
  PortAccess port;   // its address lies far beyond any BAR
  FpgaBaseAddresses bases;
  BufferMap map;
  InterruptRecord interrupts;
  EqCoefficients eq;
  uint16_t eq_values[2][64];
  GCValues gains;
  SignalParameters signal;
  TimingControl timing;
  DmpxControl dmpx;
  CountersRecord counters;
  const char* file;

  Args() {
    std::memset(static_cast<void*>(this), 0xCC, sizeof *this);
    // Records that carry pointers are filled as a careful caller fills them, so that a landed
    // export following them on a created board stays inside this block.
    map = BufferMap{0, data, {}};
    eq = EqCoefficients{13, eq_values[0], eq_values[1]};
    // Longer than any message can hold: a loader's failure text gets cut.
    static const std::string long_name = "no-such-dir/" + std::string(300, 'x') + ".bin";
    file = long_name.c_str();
  }
};

// Hands out pointer argument `k`, or null when `k` is the one left out.
struct Nulls {
  int which;
  template <class T>
  T* operator()(int k, T* p) const { return k == which ? nullptr : p; }
};

// The length of a text, or -1 when it is null or not terminated within `room`.
int64_t Length(const char* s, size_t room) {
  const void* end = s ? std::memchr(s, 0, room) : nullptr;
  return end ? static_cast<const char*>(end) - s : -1;
}

std::string ErrorText() {
  const int64_t length = Length(GetErrorMessage(), 256);
  return length < 0 ? "(unterminated)" : std::string(GetErrorMessage(), size_t(length));
}

enum class Kind {
  Frame,       // no board, no DeviceId or a missing pointer: the null path
  BoardFree,   // needs no board of its own: only a missing pointer takes the null path
  Quiet,       // never writes the error text
};

using Call = int64_t (*)(DeviceId*, Args&, Nulls);
#define CALL(expr)                                       \
  [](DeviceId* d, Args& a, Nulls n) -> int64_t {         \
    (void)d, (void)a, (void)n;                           \
    return expr;                                         \
  }

struct Row {
  const char* name;
  int pointers;   // after the DeviceId
  Call call;
  int64_t null_result = -1;
  Kind kind = Kind::Frame;
  bool line_end = true;
  const char* wording = nullptr;   // the message's name part, %s taking " [index]"
  const char* null_text = kNull;
};

const std::vector<Row>& Table() {
  constexpr Kind F = Kind::Frame, Q = Kind::Quiet;
  static const std::vector<Row> rows = {
      {"ADCLoad", 0, CALL(ADCLoad(d))},
      {"ADCLoadMulti", 0, CALL(ADCLoadMulti(d))},
      {"CircuitReset", 1, CALL(CircuitReset(d, n(0, a.words)))},
      {"Counters", 1, CALL(Counters(d, n(0, &a.counters)))},
      {"CreateDeviceInstance", 0, CALL(CreateDeviceInstance(d)), 1},
      {"DMA3CHControl", 1, CALL(DMA3CHControl(d, n(0, a.words)))},
      {"DMDControl", 1, CALL(DMDControl(d, n(0, a.words)))},
      {"DMPXControl", 1, CALL(DMPXControl(d, n(0, &a.dmpx)))},
      {"DMPXLoad", 1, CALL(DMPXLoad(d, n(0, a.file)))},
      {"DMPXStatus", 1, CALL(DMPXStatus(d, n(0, a.words)))},
      {"DeviceSupportedCount", 0, CALL(DeviceSupportedCount()), kAny, Q},
      {"EQControl", 1, CALL(EQControl(d, n(0, a.words)))},
      {"EQErrorTblLoad", 1, CALL(EQErrorTblLoad(d, n(0, a.file)))},
      {"EQGetCoeff", 1, CALL(EQGetCoeff(d, n(0, &a.eq)))},
      {"EQManualCoeffLoad", 1, CALL(EQManualCoeffLoad(d, n(0, &a.eq)))},
      {"FPGALoad", 2, CALL(FPGALoad(d, n(0, "DEM"), n(1, a.file)))},
      {"FilterLoad", 3, CALL(FilterLoad(d, n(0, "."), n(1, a.bytes), n(2, a.data)))},
      {"FirstGainControl", 1, CALL(FirstGainControl(d, n(0, a.words))), -1, F, true,
       "FirstGainCtrl%s"},
      {"GetBitStatus", 1, CALL(GetBitStatus(d, n(0, a.words)))},
      {"GetDeviceSlotID", 0, CALL(GetDeviceSlotID(d)), 0xFFFFFFFF},
      {"GetErrorMessage", 0, CALL(Length(GetErrorMessage(), 256)), kAny, Q},
      {"GetFPGABaseAddress", 1, CALL(GetFPGABaseAddress(d, n(0, &a.bases))), -1,
       Kind::BoardFree},
      {"GetFPGATemperature", 1, CALL(GetFPGATemperature(d, n(0, a.singles)))},
      {"GetFullDeviceName", 0, CALL(Length(GetFullDeviceName(d), 260)), 0, Q},
      {"GetGCValues", 1, CALL(GetGCValues(d, n(0, &a.gains)))},
      {"GetGCValuesMulti", 1, CALL(GetGCValuesMulti(d, n(0, &a.gains)))},
      {"GetInterfaceVersion", 1, CALL(GetInterfaceVersion(d, n(0, a.bytes)))},
      {"GetLConvertorSerialNumber", 1, CALL(GetLConvertorSerialNumber(d, n(0, a.text)))},
      {"GetLConvertorType", 1, CALL(GetLConvertorType(d, n(0, a.bytes)))},
      {"GetLConvertorVersion", 1, CALL(GetLConvertorVersion(d, n(0, a.text)))},
      {"GetModuleSerialNumber", 1, CALL(GetModuleSerialNumber(d, n(0, a.text)))},
      {"GetModuleVersion", 1, CALL(GetModuleVersion(d, n(0, a.text)))},
      {"GetPCBTemperature", 1, CALL(GetPCBTemperature(d, n(0, a.singles)))},
      {"GetSignalParameters", 1, CALL(GetSignalParameters(d, n(0, &a.signal)))},
      {"GetTimingControl", 1, CALL(GetTimingControl(d, n(0, &a.timing)))},
      {"IQControl", 1, CALL(IQControl(d, n(0, a.words)))},
      {"ISOCVRTGetLoading", 1, CALL(ISOCVRTGetLoading(d, n(0, a.words)))},
      {"ISOCVRTSetTiming", 2, CALL(ISOCVRTSetTiming(d, n(0, a.singles), n(1, a.singles + 1)))},
      {"InitLConvertorVList", 0, CALL(InitLConvertorVList(d))},
      {"LoadPackMode", 1, CALL(LoadPackMode(d, n(0, a.file)))},
      {"MasterGetBuffers", 1, CALL(MasterGetBuffers(d, n(0, &a.map)))},
      {"MasterGetInterruptInfo", 1, CALL(MasterGetInterruptInfo(d, n(0, &a.interrupts)))},
      {"MasterLoad", 1, CALL(MasterLoad(d, n(0, &a.map)))},
      {"MasterStart", 1, CALL(MasterStart(d, n(0, a.words)))},
      {"MasterStop", 0, CALL(MasterStop(d))},
      {"MeasureCarrier", 1, CALL(MeasureCarrier(d, 0, n(0, a.reals))), -1, F, false},
      {"MeasureTiming", 1, CALL(MeasureTiming(d, 0, n(0, a.reals)))},
      {"PLLControl", 1, CALL(PLLControl(d, n(0, a.words)))},
      {"RAMLoad", 1, CALL(RAMLoad(d, n(0, a.file), 0)), -1, F, true, nullptr, "NULL-объект"},
      {"ReadChannelData", 2,
       CALL(ReadChannelData(d, 3, n(0, a.data), 256, n(1, &a.bytes_read), 10)), 1, F, false,
       "ReadChannelData%s ChannelID 3"},
      {"ReleaseDeviceInstance", 0, CALL((ReleaseDeviceInstance(d), 0)), 0, Q},
      {"SecondGainControl", 1, CALL(SecondGainControl(d, n(0, a.words))), -1, F, true,
       "SecondGainCtrl%s"},
      {"SetCarrier", 1, CALL(SetCarrier(d, n(0, a.reals)))},
      {"SetCarrierMulti", 1, CALL(SetCarrierMulti(d, n(0, a.reals)))},
      {"SetSignalType", 3,
       CALL(SetSignalType(d, n(0, a.bytes), n(1, a.bytes + 1), n(2, a.bytes + 2)))},
      {"SetTiming", 1, CALL(SetTiming(d, n(0, a.reals)))},
      {"SetTimingMode", 1, CALL(SetTimingMode(d, n(0, a.words)))},
      {"SimulatorControl", 1, CALL(SimulatorControl(d, n(0, a.words)))},
      {"SimulatorLoad", 1, CALL(SimulatorLoad(d, n(0, a.file)))},
      {"SimulatorSetCarrier", 1, CALL(SimulatorSetCarrier(d, n(0, a.reals)))},
      {"SimulatorSetTiming", 1, CALL(SimulatorSetTiming(d, n(0, a.reals)))},
      {"_devinp", 1, CALL(_devinp(d, n(0, &a.port))), 1, F, false},
      {"_devoutp", 1, CALL(_devoutp(d, n(0, &a.port))), 1, F, false},
      {"sSynthLoad", 1, CALL(sSynthLoad(d, n(0, a.reals)))},
  };
  return rows;
}

const Row* Find(const std::string& name) {
  for (const Row& row : Table())
    if (name == row.name) return &row;
  return nullptr;
}

std::vector<std::string> Listed() { return tvx::test::ExportNames(TVX_EXPORT_LIST); }

std::string Expected(const Row& row, int index) {
  std::string message = row.wording ? row.wording : std::string(row.name) + "%s";
  message.replace(message.find("%s"), 2, index < 0 ? "" : " [" + std::to_string(index) + "]");
  return message + ": " + row.null_text + (row.line_end ? "\n" : "");
}

// One export on one index (-1: no DeviceId), with every pointer present and then each missing.
void Check(const Row& row, int index, bool board) {
  DeviceId storage{uint8_t(index)};
  DeviceId* id = index < 0 ? nullptr : &storage;
  for (int missing = -1; missing < row.pointers; ++missing) {
    const std::string label = row.name + (index < 0 ? std::string(" without DeviceId")
                                                    : " on [" + std::to_string(index) + "]") +
                              (missing < 0 ? "" : ", pointer " + std::to_string(missing) + " null");
    Args args;
    std::vector<unsigned char> before(sizeof args);
    std::memcpy(before.data(), &args, sizeof args);
    const std::string text_before = ErrorText();
    const int64_t result = row.call(id, args, Nulls{missing});
    const std::string text = ErrorText();
    ASSERT_NE(text, "(unterminated)") << label;
    if (row.kind == Kind::Quiet) {
      EXPECT_EQ(text, text_before) << label << " wrote the error text";
    }
    const bool null_path = missing >= 0 || (row.kind == Kind::Frame && !board) ||
                           (row.kind == Kind::Quiet && index < 0 && row.null_result != kAny);
    if (!null_path) continue;
    EXPECT_EQ(result, row.null_result) << label;
    if (row.kind != Kind::Quiet) {
      EXPECT_EQ(text, Expected(row, index)) << label;
    }
    EXPECT_EQ(std::memcmp(before.data(), &args, sizeof args), 0)
        << label << " wrote through a pointer";
  }
}

TEST(BadInput, EveryExportInTheListHasARowAndEveryRowAnExport) {
  const std::vector<std::string> listed = Listed();
  ASSERT_FALSE(listed.empty()) << "no exports read from " << TVX_EXPORT_LIST;
  for (const std::string& name : listed)
    EXPECT_NE(Find(name), nullptr) << TVX_EXPORT_LIST << " lists " << name
                                   << ", which has no row in the bad-input table: add one";
  const std::set<std::string> names(listed.begin(), listed.end());
  for (const Row& row : Table())
    EXPECT_EQ(names.count(row.name), 1u) << row.name << " is not listed";
}

// Boards 0 and 127 are brought up once, between the two walks; the virtual board has boards
// 128 and 255 too, which the library must never open.
TEST(BadInput, EveryExportOnEveryIndexBeforeAndAfterBringUp) {
  zsim_reset();
  ASSERT_EQ(zsim_set(0, "boards", "256"), 0);
  for (bool boards : {false, true}) {
    for (uint8_t index : {0, 127}) {
      DeviceId id{index};
      ASSERT_TRUE(!boards || CreateDeviceInstance(&id) == 0) << GetErrorMessage();
    }
    for (int index : {-1, 0, 127, 128, 255}) {
      const bool in_table = index >= 0 && index < 128;
      // Inside the table, creating happens between the walks and releasing after them.
      const std::string skip =
          !in_table ? "" : boards ? "ReleaseDeviceInstance" : "CreateDeviceInstance";
      for (const std::string& name : Listed())
        if (Find(name) && name != skip) Check(*Find(name), index, boards && in_table);
    }
  }
  DeviceId board0{0}, board127{127};
  EXPECT_EQ(FPGALoad(&board0, "DEM", Args().file), 3);
  EXPECT_EQ(Length(GetErrorMessage(), 256), 255) << "a long message is cut to fit";
  EXPECT_STREQ(zsim_get(128, "open"), "0") << "a board beyond the table was opened";
  EXPECT_STREQ(zsim_get(255, "open"), "0");
  ReleaseDeviceInstance(&board0);
  ReleaseDeviceInstance(&board127);
  EXPECT_STREQ(zsim_get(0, "live"), "open=0 bar_mapped=0 memory_mapped=0 events=0");
  zsim_reset();
}
}  // namespace
