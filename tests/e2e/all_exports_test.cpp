// Every export of the library on a healthy virtual board, in the order an application follows:
// bring-up, identity, FPGAs, signal type and its tables, carrier, rate, filter, gains,
// equalizer, demultiplexer, the data path, status, release. None may take its null path.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "test_env.h"
#include "torvixe.h"
#include "zarimsim.h"

namespace {

std::set<std::string> called;

// Calls an export that answers a code and expects 0, with the library's text if not.
#define OK(name, ...)                                                           \
  do {                                                                         \
    called.insert(#name);                                                      \
    const int32_t r = name(__VA_ARGS__);                                       \
    EXPECT_EQ(r, 0) << #name << ": " << GetErrorMessage();                     \
  } while (0)
#define NOTE(name) called.insert(#name)

std::vector<std::string> Listed() { return tvx::test::ExportNames(TVX_EXPORT_LIST); }

std::string Write(const tvx::test::TempDir& dir, const char* name, size_t size) {
  const std::string path = (dir.path() / name).string();
  std::vector<char> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = char(i * 7 + 1);
  std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(size));
  return path;
}

TEST(AllExports, AnApplicationsWholeDayOnAHealthyBoard) {
  zsim_reset();
  ASSERT_EQ(zsim_set(0, "dma.rate", "20"), 0);
  tvx::test::TempDir dir;
  DeviceId id{0};

  // Enumeration asks the system, not the board: what it finds depends on the machine.
  NOTE(DeviceSupportedCount);
  DeviceSupportedCount();
  NOTE(GetFullDeviceName);
  EXPECT_NE(GetFullDeviceName(&id), nullptr);
  OK(CreateDeviceInstance, &id);
  NOTE(GetDeviceSlotID);
  EXPECT_NE(GetDeviceSlotID(&id), 0xFFFFFFFFu);
  FpgaBaseAddresses bases{};
  OK(GetFPGABaseAddress, &id, &bases);
  // The record as a caller reads it: five bases, then the initialised flag as a whole word.
  EXPECT_EQ(std::vector<uint32_t>({bases.IntBase, bases.DemBase, bases.PeripheralBase,
                                   bases.DecBase, bases.RsBase}),
            std::vector<uint32_t>({0, 0x2000, 0x1000, 0x2800, 0x2880}));
  const uint8_t* raw = reinterpret_cast<const uint8_t*>(&bases);
  EXPECT_EQ(std::vector<uint8_t>(raw + 20, raw + 24), (std::vector<uint8_t>{1, 0, 0, 0}));
  uint8_t byte = 0;
  char text[16] = {};
  float celsius = 0;
  OK(GetInterfaceVersion, &id, &byte);
  OK(GetModuleSerialNumber, &id, text);
  OK(GetModuleVersion, &id, text);
  OK(GetLConvertorSerialNumber, &id, text);
  OK(GetLConvertorVersion, &id, text);
  OK(GetLConvertorType, &id, &byte);
  OK(InitLConvertorVList, &id);
  OK(GetPCBTemperature, &id, &celsius);
  OK(GetFPGATemperature, &id, &celsius);
  const double clock = 560e6 / 3;
  OK(sSynthLoad, &id, &clock);
  OK(ADCLoad, &id);
  OK(ADCLoadMulti, &id);
  const uint32_t zero = 0, one = 1;
  OK(PLLControl, &id, &zero);
  OK(CircuitReset, &id, &zero);

  for (const char* fpga : {"dem", "dec", "rs"})
    OK(FPGALoad, &id, fpga, (std::string("samples/") + fpga + ".bin").c_str());
  OK(RAMLoad, &id, Write(dir, "ram.bin", 64).c_str(), 0);

  const uint8_t qpsk = 1, code_rate = 0, coding = 0, shape = 3;
  OK(SetSignalType, &id, &qpsk, &code_rate, &coding);
  SignalParameters signal{};
  OK(GetSignalParameters, &id, &signal);
  OK(LoadPackMode, &id, (std::string("samples/tables/") + signal.TableFileM).c_str());
  OK(EQErrorTblLoad, &id, (std::string("samples/tables/") + signal.TableFileE).c_str());
  OK(DMPXLoad, &id, Write(dir, "dmpx.bin", 1000).c_str());
  const DmpxControl dmpx{1, 2, 3};
  OK(DMPXControl, &id, &dmpx);
  uint32_t word = 0;
  OK(DMPXStatus, &id, &word);

  const double carrier = 1.2e9, rate = 10e6;
  OK(SetCarrierMulti, &id, &carrier);
  OK(SetCarrier, &id, &carrier);
  OK(SetTiming, &id, &rate);
  TimingControl timing{};
  OK(GetTimingControl, &id, &timing);
  OK(SetTimingMode, &id, &zero);
  OK(FilterLoad, &id, "samples/filters", &shape, &shape);
  const float factor = 1.0f;
  OK(ISOCVRTSetTiming, &id, &factor, &factor);
  OK(ISOCVRTGetLoading, &id, &word);

  const uint32_t gain = 0x100, second[2] = {1, 2};
  OK(FirstGainControl, &id, &gain);
  OK(SecondGainControl, &id, second);
  GCValues gains{};
  OK(GetGCValues, &id, &gains);
  OK(GetGCValuesMulti, &id, &gains);
  uint16_t first_values[13] = {}, second_values[13] = {};
  EqCoefficients eq{13, first_values, second_values};
  OK(EQControl, &id, &one);
  OK(EQManualCoeffLoad, &id, &eq);
  OK(EQGetCoeff, &id, &eq);

  const double sim_carrier = 30e6;
  OK(SimulatorLoad, &id, Write(dir, "pattern.bin", 64).c_str());
  OK(SimulatorSetCarrier, &id, &sim_carrier);
  OK(SimulatorSetTiming, &id, &rate);
  OK(SimulatorControl, &id, &zero);

  OK(IQControl, &id, &zero);
  OK(DMDControl, &id, &zero);
  OK(DMA3CHControl, &id, &zero);
  BufferMap map{};
  OK(MasterGetBuffers, &id, &map);
  OK(MasterLoad, &id, &map);
  const uint32_t start = 0x40000000;
  OK(MasterStart, &id, &start);
  const uint32_t size = static_cast<const BufferDescriptor*>(map.Descriptors)[0].Size;
  std::vector<uint8_t> data(size);
  uint32_t got = 0;
  OK(ReadChannelData, &id, 0, data.data(), size, &got, 5000);
  EXPECT_EQ(got, size);
  InterruptRecord interrupts{};
  OK(MasterGetInterruptInfo, &id, &interrupts);
  CountersRecord counters{};
  OK(Counters, &id, &counters);
  OK(GetBitStatus, &id, &word);
  double measured = 0;
  OK(MeasureCarrier, &id, 0, &measured);
  OK(MeasureTiming, &id, 0, &measured);
  OK(MasterStop, &id);

  PortAccess access{bases.DemBase * 4 + 4 * 28, 5};
  OK(_devoutp, &id, &access);
  OK(_devinp, &id, &access);
  NOTE(GetErrorMessage);
  EXPECT_EQ(std::string(GetErrorMessage()).find("NULL-"), std::string::npos) << GetErrorMessage();
  NOTE(ReleaseDeviceInstance);
  ReleaseDeviceInstance(&id);
  zsim_reset();

  const std::vector<std::string> listed = Listed();
  EXPECT_EQ(listed.size(), 64u);
  for (const std::string& export_name : listed)
    EXPECT_EQ(called.count(export_name), 1u) << export_name << " was not called";
}

}  // namespace
