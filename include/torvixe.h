/* torvixe.h: the torvixe driver library for the satellite-demodulator board.
 *
 * 64 exported functions with plain C linkage. Every board function takes a DeviceId pointer
 * first; only its first byte, the board index (0 to 127), is read. Functions return 0 for
 * success; on failure GetErrorMessage() returns the text of the last failure (Windows-1251).
 * Records that cross the boundary are packed and little-endian; their sizes and field
 * offsets are checked below. Compiles as C99 and as C++. */
#ifndef TORVIXE_H
#define TORVIXE_H

#include <stddef.h>
#include <stdint.h>

#ifndef TORVIXE_API
#define TORVIXE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Compile-time layout checks that work in C99 and C++. */
#define TVX_LAYOUT_CAT2(a, b) a##b
#define TVX_LAYOUT_CAT(a, b) TVX_LAYOUT_CAT2(a, b)
#define TVX_LAYOUT_CHECK(cond) \
  typedef char TVX_LAYOUT_CAT(tvx_layout_check_, __LINE__)[(cond) ? 1 : -1]

#pragma pack(push, 1)

/* The caller's board identifier: byte 0 is the board index; the rest is the caller's. */
typedef struct DeviceId {
  uint8_t Index;
} DeviceId;

/* MasterGetBuffers / MasterLoad: the IO library's map of the DMA buffers. */
typedef struct BufferMap {
  uint32_t DescriptorCount;
  void* Descriptors;          /* 52-byte descriptors, channel after channel */
  uint8_t Reserved[8];
} BufferMap;

/* One DMA buffer descriptor of a BufferMap. */
typedef struct BufferDescriptor {
  uint32_t Size;              /* bytes, a multiple of 128 */
  void* Address;              /* the buffer in this process */
  uint8_t Reserved1[8];
  uint32_t BusAddress;        /* as the DMA engine sees it */
  uint8_t Reserved2[28];
} BufferDescriptor;

/* MasterGetInterruptInfo: the driver's progress record. */
typedef struct InterruptRecord {
  uint32_t Reserved0;
  void* Channels;             /* array of ChannelProgress, indexed by channel */
  uint8_t Reserved[8];
} InterruptRecord;

typedef struct ChannelProgress {
  uint32_t Reserved0;
  uint32_t Completed;         /* buffers completed since the engine was started */
  uint8_t Reserved[16];
} ChannelProgress;

/* GetGCValues / GetGCValuesMulti. */
typedef struct GCValues {
  uint32_t attenuatorCode;
  uint32_t firstGainCode;
  uint32_t reserved;          /* never written by the library */
  uint32_t secondGainCode;
  double attenuation;
  double firstGainLevel;
  double totalGain;
  double secondGainLevel;
} GCValues;

/* GetSignalParameters. */
typedef struct SignalParameters {
  uint8_t Modulation;
  uint8_t CodeRate;
  uint8_t Reserved;
  char TableFileM[32];
  char TableFileX[32];
  char TableFileE[32];
  char TableFileO[32];
  uint32_t LevelCode;
  int32_t CarrierLockThreshold;
  uint32_t TimingLockThreshold;
  uint8_t BitsPerSymbol;
  uint8_t ModeCode;
} SignalParameters;

/* GetTimingControl. */
typedef struct TimingControl {
  uint32_t FirstDecimation;
  uint32_t ControlWord;
  uint32_t LoopCode;
  uint32_t AuxCode;
} TimingControl;

/* EQGetCoeff / EQManualCoeffLoad. */
typedef struct EqCoefficients {
  uint32_t Count;
  uint16_t* FirstValues;
  uint16_t* SecondValues;
} EqCoefficients;

/* DMPXControl. */
typedef struct DmpxControl {
  uint32_t Control1;
  uint32_t Control2;
  uint32_t Control3;
} DmpxControl;

/* Counters. */
typedef struct CountersRecord {
  uint32_t IqCount;
  uint32_t DmdCount;
  uint32_t AdcCount;
  uint32_t IntCount;
} CountersRecord;

/* GetFPGABaseAddress: register-block bases as 32-bit word offsets into the register BAR. */
typedef struct FpgaBaseAddresses {
  uint32_t IntBase;
  uint32_t DemBase;
  uint32_t PeripheralBase;
  uint32_t DecBase;
  uint32_t RsBase;
  uint8_t Initialized;
  uint8_t Reserved[3];
} FpgaBaseAddresses;

/* _devinp / _devoutp: an absolute byte address in the register BAR and its value. */
typedef struct PortAccess {
  uint32_t Address;
  uint32_t Value;
} PortAccess;

#pragma pack(pop)

TVX_LAYOUT_CHECK(sizeof(DeviceId) == 1);
TVX_LAYOUT_CHECK(sizeof(BufferMap) == 20);
TVX_LAYOUT_CHECK(offsetof(BufferMap, Descriptors) == 4);
TVX_LAYOUT_CHECK(sizeof(BufferDescriptor) == 52);
TVX_LAYOUT_CHECK(offsetof(BufferDescriptor, Address) == 4);
TVX_LAYOUT_CHECK(offsetof(BufferDescriptor, BusAddress) == 20);
TVX_LAYOUT_CHECK(sizeof(InterruptRecord) == 20);
TVX_LAYOUT_CHECK(offsetof(InterruptRecord, Channels) == 4);
TVX_LAYOUT_CHECK(sizeof(ChannelProgress) == 24);
TVX_LAYOUT_CHECK(offsetof(ChannelProgress, Completed) == 4);
TVX_LAYOUT_CHECK(sizeof(GCValues) == 48);
TVX_LAYOUT_CHECK(offsetof(GCValues, secondGainCode) == 12);
TVX_LAYOUT_CHECK(offsetof(GCValues, attenuation) == 16);
TVX_LAYOUT_CHECK(offsetof(GCValues, secondGainLevel) == 40);
TVX_LAYOUT_CHECK(sizeof(SignalParameters) == 145);
TVX_LAYOUT_CHECK(offsetof(SignalParameters, TableFileM) == 3);
TVX_LAYOUT_CHECK(offsetof(SignalParameters, TableFileX) == 35);
TVX_LAYOUT_CHECK(offsetof(SignalParameters, TableFileE) == 67);
TVX_LAYOUT_CHECK(offsetof(SignalParameters, TableFileO) == 99);
TVX_LAYOUT_CHECK(offsetof(SignalParameters, LevelCode) == 131);
TVX_LAYOUT_CHECK(offsetof(SignalParameters, CarrierLockThreshold) == 135);
TVX_LAYOUT_CHECK(offsetof(SignalParameters, TimingLockThreshold) == 139);
TVX_LAYOUT_CHECK(offsetof(SignalParameters, BitsPerSymbol) == 143);
TVX_LAYOUT_CHECK(offsetof(SignalParameters, ModeCode) == 144);
TVX_LAYOUT_CHECK(sizeof(TimingControl) == 16);
TVX_LAYOUT_CHECK(sizeof(EqCoefficients) == 20);
TVX_LAYOUT_CHECK(offsetof(EqCoefficients, FirstValues) == 4);
TVX_LAYOUT_CHECK(offsetof(EqCoefficients, SecondValues) == 12);
TVX_LAYOUT_CHECK(sizeof(DmpxControl) == 12);
TVX_LAYOUT_CHECK(sizeof(CountersRecord) == 16);
TVX_LAYOUT_CHECK(offsetof(CountersRecord, IntCount) == 12);
TVX_LAYOUT_CHECK(sizeof(FpgaBaseAddresses) == 24);
TVX_LAYOUT_CHECK(offsetof(FpgaBaseAddresses, RsBase) == 16);
TVX_LAYOUT_CHECK(offsetof(FpgaBaseAddresses, Initialized) == 20);
TVX_LAYOUT_CHECK(sizeof(PortAccess) == 8);

/* ---- Board lifecycle and errors ---------------------------------------------------------- */
TORVIXE_API int32_t CreateDeviceInstance(DeviceId* id);
TORVIXE_API void ReleaseDeviceInstance(DeviceId* id);
TORVIXE_API const char* GetErrorMessage(void);

/* ---- Enumeration and raw register access --------------------------------------------------- */
TORVIXE_API uint32_t DeviceSupportedCount(void);
TORVIXE_API const char* GetFullDeviceName(DeviceId* id);
TORVIXE_API uint32_t GetDeviceSlotID(DeviceId* id);
TORVIXE_API int32_t GetFPGABaseAddress(DeviceId* id, FpgaBaseAddresses* bases);
TORVIXE_API int32_t _devinp(DeviceId* id, PortAccess* access);
TORVIXE_API int32_t _devoutp(DeviceId* id, PortAccess* access);

/* ---- Small controls and counters ------------------------------------------------------------ */
TORVIXE_API int32_t GetInterfaceVersion(DeviceId* id, uint8_t* version);
TORVIXE_API int32_t CircuitReset(DeviceId* id, const uint32_t* value);
TORVIXE_API int32_t PLLControl(DeviceId* id, const uint32_t* value);
TORVIXE_API int32_t Counters(DeviceId* id, CountersRecord* counters);

/* ---- FPGA, EEPROMs, temperatures, RAM, simulator --------------------------------------------- */
TORVIXE_API int32_t FPGALoad(DeviceId* id, const char* fpga_name, const char* file_name);
/* The identity texts: at most 12 bytes are written to `text` for a serial number and 4 for a
 * version, terminator included. Temperatures are in degrees Celsius. */
TORVIXE_API int32_t GetModuleSerialNumber(DeviceId* id, char* text);
TORVIXE_API int32_t GetModuleVersion(DeviceId* id, char* text);
TORVIXE_API int32_t GetLConvertorSerialNumber(DeviceId* id, char* text);
TORVIXE_API int32_t GetLConvertorVersion(DeviceId* id, char* text);
TORVIXE_API int32_t GetPCBTemperature(DeviceId* id, float* celsius);
TORVIXE_API int32_t GetFPGATemperature(DeviceId* id, float* celsius);
TORVIXE_API int32_t RAMLoad(DeviceId* id, const char* file_name, uint8_t mode);
TORVIXE_API int32_t SimulatorLoad(DeviceId* id, const char* file_name);
TORVIXE_API int32_t SimulatorControl(DeviceId* id, const uint32_t* control);
TORVIXE_API int32_t SimulatorSetCarrier(DeviceId* id, const double* hz);
TORVIXE_API int32_t SimulatorSetTiming(DeviceId* id, const double* sps);

/* ---- DMA master, data channels, channel controls, iso converter ------------------------------ */
TORVIXE_API int32_t MasterGetBuffers(DeviceId* id, BufferMap* map);
TORVIXE_API int32_t MasterLoad(DeviceId* id, const BufferMap* map);
TORVIXE_API int32_t MasterStart(DeviceId* id, const uint32_t* parameter);
TORVIXE_API int32_t MasterStop(DeviceId* id);
TORVIXE_API int32_t MasterGetInterruptInfo(DeviceId* id, InterruptRecord* record);
TORVIXE_API int32_t ReadChannelData(DeviceId* id, uint32_t channel, uint8_t* buffer, uint32_t size,
                                    uint32_t* bytes_read, uint32_t timeout_ms);
TORVIXE_API int32_t IQControl(DeviceId* id, const uint32_t* control);
TORVIXE_API int32_t DMDControl(DeviceId* id, const uint32_t* control);
TORVIXE_API int32_t DMA3CHControl(DeviceId* id, const uint32_t* control);
TORVIXE_API int32_t ISOCVRTSetTiming(DeviceId* id, const float* first, const float* second);
TORVIXE_API int32_t ISOCVRTGetLoading(DeviceId* id, uint32_t* loading);

/* ---- RF front end ---------------------------------------------------------------------------- */
TORVIXE_API int32_t GetLConvertorType(DeviceId* id, uint8_t* type);
TORVIXE_API int32_t InitLConvertorVList(DeviceId* id);
TORVIXE_API int32_t sSynthLoad(DeviceId* id, const double* hz);
TORVIXE_API int32_t FirstGainControl(DeviceId* id, const uint32_t* code);
TORVIXE_API int32_t SecondGainControl(DeviceId* id, const uint32_t* words);
TORVIXE_API int32_t GetGCValues(DeviceId* id, GCValues* values);
TORVIXE_API int32_t GetGCValuesMulti(DeviceId* id, GCValues* values);
TORVIXE_API int32_t ADCLoad(DeviceId* id);
TORVIXE_API int32_t ADCLoadMulti(DeviceId* id);

/* ---- Demodulator chain ----------------------------------------------------------------------- */
TORVIXE_API int32_t SetCarrier(DeviceId* id, const double* hz);
TORVIXE_API int32_t SetCarrierMulti(DeviceId* id, const double* hz);
TORVIXE_API int32_t MeasureCarrier(DeviceId* id, uint64_t unused, double* hz);
TORVIXE_API int32_t SetTiming(DeviceId* id, const double* sps);
TORVIXE_API int32_t GetTimingControl(DeviceId* id, TimingControl* control);
TORVIXE_API int32_t MeasureTiming(DeviceId* id, uint64_t unused, double* sps);
TORVIXE_API int32_t SetTimingMode(DeviceId* id, const uint32_t* mode);
TORVIXE_API int32_t FilterLoad(DeviceId* id, const char* directory, const uint8_t* shape,
                               const void* reserved);
TORVIXE_API int32_t EQControl(DeviceId* id, const uint32_t* control);
TORVIXE_API int32_t EQErrorTblLoad(DeviceId* id, const char* file_name);
TORVIXE_API int32_t EQGetCoeff(DeviceId* id, EqCoefficients* coefficients);
TORVIXE_API int32_t EQManualCoeffLoad(DeviceId* id, const EqCoefficients* coefficients);
TORVIXE_API int32_t SetSignalType(DeviceId* id, const uint8_t* modulation, const uint8_t* code_rate,
                                  const uint8_t* coding);
TORVIXE_API int32_t GetSignalParameters(DeviceId* id, SignalParameters* parameters);
TORVIXE_API int32_t LoadPackMode(DeviceId* id, const char* file_name);
TORVIXE_API int32_t DMPXLoad(DeviceId* id, const char* file_name);
TORVIXE_API int32_t DMPXControl(DeviceId* id, const DmpxControl* control);
TORVIXE_API int32_t DMPXStatus(DeviceId* id, uint32_t* status);
TORVIXE_API int32_t GetBitStatus(DeviceId* id, uint32_t* status);

#ifdef __cplusplus
}
#endif

#endif /* TORVIXE_H */
