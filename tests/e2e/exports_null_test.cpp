// Every export on its null path, through the real export table: an index with no board, an
// index beyond the table and a missing DeviceId each give the export's own null message and
// result, and nothing is written through the caller's pointers.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "torvixe.h"

namespace {

// Room for whatever an export might wrongly write.
struct Scratch {
  uint8_t bytes[512];
  Scratch() { std::memset(bytes, 0xCC, sizeof bytes); }
  bool Untouched() const {
    for (uint8_t b : bytes)
      if (b != 0xCC) return false;
    return true;
  }
  template <class T>
  T* as() { return reinterpret_cast<T*>(bytes); }
};

struct NullCase {
  const char* name;      // the name its messages carry
  bool line_end;
  std::function<int32_t(DeviceId*, Scratch&)> call;
  int32_t result = -1;
  const char* text = "NULL-объект или NULL-параметр";
};

std::vector<NullCase> Cases() {
  using S = Scratch;
  return {
      {"ADCLoad", true, [](DeviceId* d, S&) { return ADCLoad(d); }},
      {"ADCLoadMulti", true, [](DeviceId* d, S&) { return ADCLoadMulti(d); }},
      {"GetBitStatus", true, [](DeviceId* d, S& s) { return GetBitStatus(d, s.as<uint32_t>()); }},
      {"MeasureCarrier", false, [](DeviceId* d, S& s) { return MeasureCarrier(d, 0, s.as<double>()); }},
      {"SetCarrier", true, [](DeviceId* d, S& s) { return SetCarrier(d, s.as<double>()); }},
      {"SetCarrierMulti", true, [](DeviceId* d, S& s) { return SetCarrierMulti(d, s.as<double>()); }},
      {"GetLConvertorType", true, [](DeviceId* d, S& s) { return GetLConvertorType(d, s.as<uint8_t>()); }},
      {"InitLConvertorVList", true, [](DeviceId* d, S&) { return InitLConvertorVList(d); }},
      {"EQControl", true, [](DeviceId* d, S& s) { return EQControl(d, s.as<uint32_t>()); }},
      {"EQErrorTblLoad", true, [](DeviceId* d, S&) { return EQErrorTblLoad(d, "eq.tbl"); }},
      {"EQGetCoeff", true, [](DeviceId* d, S& s) { return EQGetCoeff(d, s.as<EqCoefficients>()); }},
      {"EQManualCoeffLoad", true,
       [](DeviceId* d, S& s) { return EQManualCoeffLoad(d, s.as<EqCoefficients>()); }},
      {"DMPXControl", true, [](DeviceId* d, S& s) { return DMPXControl(d, s.as<DmpxControl>()); }},
      {"DMPXLoad", true, [](DeviceId* d, S&) { return DMPXLoad(d, "dmpx.bin"); }},
      {"DMPXStatus", true, [](DeviceId* d, S& s) { return DMPXStatus(d, s.as<uint32_t>()); }},
      {"DMA3CHControl", true, [](DeviceId* d, S& s) { return DMA3CHControl(d, s.as<uint32_t>()); }},
      {"DMDControl", true, [](DeviceId* d, S& s) { return DMDControl(d, s.as<uint32_t>()); }},
      {"GetLConvertorSerialNumber", true,
       [](DeviceId* d, S& s) { return GetLConvertorSerialNumber(d, s.as<char>()); }},
      {"GetLConvertorVersion", true,
       [](DeviceId* d, S& s) { return GetLConvertorVersion(d, s.as<char>()); }},
      {"GetModuleSerialNumber", true,
       [](DeviceId* d, S& s) { return GetModuleSerialNumber(d, s.as<char>()); }},
      {"GetModuleVersion", true, [](DeviceId* d, S& s) { return GetModuleVersion(d, s.as<char>()); }},
      {"FilterLoad", true,
       [](DeviceId* d, S& s) { return FilterLoad(d, ".", s.as<uint8_t>(), s.bytes + 8); }},
      {"FPGALoad", true, [](DeviceId* d, S&) { return FPGALoad(d, "DEM", "dem.bin"); }},
      {"FirstGainCtrl", true, [](DeviceId* d, S& s) { return FirstGainControl(d, s.as<uint32_t>()); }},
      {"SecondGainCtrl", true, [](DeviceId* d, S& s) { return SecondGainControl(d, s.as<uint32_t>()); }},
      {"GetGCValues", true, [](DeviceId* d, S& s) { return GetGCValues(d, s.as<GCValues>()); }},
      {"GetGCValuesMulti", true, [](DeviceId* d, S& s) { return GetGCValuesMulti(d, s.as<GCValues>()); }},
      {"GetInterfaceVersion", true,
       [](DeviceId* d, S& s) { return GetInterfaceVersion(d, s.as<uint8_t>()); }},
      {"IQControl", true, [](DeviceId* d, S& s) { return IQControl(d, s.as<uint32_t>()); }},
      {"ISOCVRTGetLoading", true, [](DeviceId* d, S& s) { return ISOCVRTGetLoading(d, s.as<uint32_t>()); }},
      {"ISOCVRTSetTiming", true,
       [](DeviceId* d, S& s) { return ISOCVRTSetTiming(d, s.as<float>(), s.as<float>() + 1); }},
      {"MasterGetBuffers", true, [](DeviceId* d, S& s) { return MasterGetBuffers(d, s.as<BufferMap>()); }},
      {"MasterGetInterruptInfo", true,
       [](DeviceId* d, S& s) { return MasterGetInterruptInfo(d, s.as<InterruptRecord>()); }},
      {"MasterLoad", true, [](DeviceId* d, S& s) { return MasterLoad(d, s.as<BufferMap>()); }},
      {"MasterStart", true, [](DeviceId* d, S& s) { return MasterStart(d, s.as<uint32_t>()); }},
      {"MasterStop", true, [](DeviceId* d, S&) { return MasterStop(d); }},
      {"GetSignalParameters", true,
       [](DeviceId* d, S& s) { return GetSignalParameters(d, s.as<SignalParameters>()); }},
      {"LoadPackMode", true, [](DeviceId* d, S&) { return LoadPackMode(d, "pack.dat"); }},
      {"SetSignalType", true,
       [](DeviceId* d, S& s) { return SetSignalType(d, s.bytes, s.bytes + 1, s.bytes + 2); }},
      {"CircuitReset", true, [](DeviceId* d, S& s) { return CircuitReset(d, s.as<uint32_t>()); }},
      {"GetFPGABaseAddress", true,
       [](DeviceId* d, S&) { return GetFPGABaseAddress(d, nullptr); }},
      {"_devinp", false, [](DeviceId* d, S& s) { return _devinp(d, s.as<PortAccess>()); }, 1},
      {"_devoutp", false, [](DeviceId* d, S& s) { return _devoutp(d, s.as<PortAccess>()); }, 1},
      {"Counters", true, [](DeviceId* d, S& s) { return Counters(d, s.as<CountersRecord>()); }},
      {"PLLControl", true, [](DeviceId* d, S& s) { return PLLControl(d, s.as<uint32_t>()); }},
      {"RAMLoad", true, [](DeviceId* d, S&) { return RAMLoad(d, "ram.bin", 0); }, -1, "NULL-объект"},
      {"GetFPGATemperature", true, [](DeviceId* d, S& s) { return GetFPGATemperature(d, s.as<float>()); }},
      {"GetPCBTemperature", true, [](DeviceId* d, S& s) { return GetPCBTemperature(d, s.as<float>()); }},
      {"SimulatorControl", true, [](DeviceId* d, S& s) { return SimulatorControl(d, s.as<uint32_t>()); }},
      {"SimulatorLoad", true, [](DeviceId* d, S&) { return SimulatorLoad(d, "pattern.bin"); }},
      {"SimulatorSetCarrier", true,
       [](DeviceId* d, S& s) { return SimulatorSetCarrier(d, s.as<double>()); }},
      {"SimulatorSetTiming", true, [](DeviceId* d, S& s) { return SimulatorSetTiming(d, s.as<double>()); }},
      {"sSynthLoad", true, [](DeviceId* d, S& s) { return sSynthLoad(d, s.as<double>()); }},
      {"GetTimingControl", true,
       [](DeviceId* d, S& s) { return GetTimingControl(d, s.as<TimingControl>()); }},
      {"MeasureTiming", true, [](DeviceId* d, S& s) { return MeasureTiming(d, 0, s.as<double>()); }},
      {"SetTiming", true, [](DeviceId* d, S& s) { return SetTiming(d, s.as<double>()); }},
      {"SetTimingMode", true, [](DeviceId* d, S& s) { return SetTimingMode(d, s.as<uint32_t>()); }},
  };
}

std::string Expected(const NullCase& c, const char* index) {
  std::string s = c.name;
  if (index) s += std::string(" [") + index + "]";
  s += std::string(": ") + c.text;
  if (c.line_end) s += "\n";
  return s;
}

TEST(NullPath, EveryExportOnABoardlessIndexAnswersItsNullMessage) {
  for (const char* index : {"5", "127", "128", "255"}) {
    DeviceId id{uint8_t(std::stoi(index))};
    for (const NullCase& c : Cases()) {
      Scratch scratch;
      EXPECT_EQ(c.call(&id, scratch), c.result) << c.name << " on " << index;
      EXPECT_EQ(std::string(GetErrorMessage()), Expected(c, index)) << c.name;
      EXPECT_TRUE(scratch.Untouched()) << c.name << " wrote through a pointer";
    }
  }
}

TEST(NullPath, AMissingDeviceIdIsNeverRead) {
  for (const NullCase& c : Cases()) {
    Scratch scratch;
    EXPECT_EQ(c.call(nullptr, scratch), c.result) << c.name;
    EXPECT_EQ(std::string(GetErrorMessage()), Expected(c, nullptr)) << c.name;
    EXPECT_TRUE(scratch.Untouched()) << c.name;
  }
}

TEST(NullPath, ReadChannelDataNamesTheChannelAndAnswersOne) {
  DeviceId id{9};
  uint8_t buffer[16];
  uint32_t got = 0xAAAA;
  EXPECT_EQ(ReadChannelData(&id, 4, buffer, sizeof buffer, &got, 10), 1);
  EXPECT_STREQ(GetErrorMessage(), "ReadChannelData [9] ChannelID 4: NULL-объект или NULL-параметр");
  EXPECT_EQ(got, 0xAAAAu);
  EXPECT_EQ(ReadChannelData(nullptr, 4, buffer, sizeof buffer, &got, 10), 1);
}

TEST(NullPath, ExportsWithoutACodeStayQuiet) {
  DeviceId id{200};
  EXPECT_EQ(GetDeviceSlotID(&id), 0xFFFFFFFFu);
  EXPECT_STREQ(GetErrorMessage(), "GetDeviceSlotID [200]: NULL-объект или NULL-параметр\n");
  ReleaseDeviceInstance(&id);
  ReleaseDeviceInstance(nullptr);
  EXPECT_STREQ(GetFullDeviceName(nullptr), "");
  EXPECT_STREQ(GetErrorMessage(), "GetDeviceSlotID [200]: NULL-объект или NULL-параметр\n");
}

TEST(NullPath, OnlyByteZeroOfTheDeviceIdCounts) {
  struct { uint8_t index; uint8_t rest[7]; } a{6, {1, 2, 3}}, b{6, {9, 9, 9, 9}};
  uint32_t v = 0;
  PLLControl(reinterpret_cast<DeviceId*>(&a), &v);
  std::string first = GetErrorMessage();
  PLLControl(reinterpret_cast<DeviceId*>(&b), &v);
  EXPECT_EQ(first, GetErrorMessage());
  EXPECT_EQ(first, "PLLControl [6]: NULL-объект или NULL-параметр\n");
}

}  // namespace
