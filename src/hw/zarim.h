// The hardware-access object of a board: the NTRF interface and its implementation over the
// IO library `zarimio`, loaded at run time. Every register access of the library goes through
// ReadPort/WritePort of the board's one object; in BAR mode that is a single volatile 32-bit
// load or store through the mapped register BAR.
#pragma once

#include <atomic>
#include <cstdint>

#include "hw/zarimio_abi.h"

namespace tvx {

class NTRF {
 public:
  virtual int32_t Open(uint8_t index) = 0;
  virtual int32_t Close() = 0;
  virtual int32_t ReadPort(uint32_t address, uint32_t* value) = 0;
  virtual int32_t WritePort(uint32_t address, uint32_t value) = 0;
  virtual int32_t MemoryMap() = 0;
  virtual int32_t MemoryUnmap() = 0;
  virtual int32_t BARMap() = 0;
  virtual int32_t BARUnmap() = 0;

 protected:
  ~NTRF() = default;
};

// Result codes of ReadPort / WritePort.
enum PortResult : int32_t {
  kPortOk = 0,
  kPortNoDevice = 1,
  kPortBarNotMapped = 2,
  kPortKernelFailed = 3,
  kPortBadMode = 4,
  // The IO library told us the BAR's size and the address lies outside it or is not aligned;
  // refused before any memory is touched.
  kPortOutsideBar = 5,
};

class cZARIM : public NTRF {
 public:
  cZARIM();
  virtual ~cZARIM();
  cZARIM(const cZARIM&) = delete;
  cZARIM& operator=(const cZARIM&) = delete;

  int32_t Open(uint8_t index) override;
  int32_t Close() override;
  int32_t ReadPort(uint32_t address, uint32_t* value) override;
  int32_t WritePort(uint32_t address, uint32_t value) override;
  int32_t MemoryMap() override;
  int32_t MemoryUnmap() override;
  int32_t BARMap() override;
  int32_t BARUnmap() override;
  virtual int32_t GetInterruptInfo(void* record);
  virtual uint32_t GetSlotNumber();
  virtual const char* GetErrorText();

  int32_t GetMemoryMapInfo(void* record);
  void SetRwMode(uint32_t mode) { rwMode = mode; }

  bool library_complete() const { return LibraryComplete == 1; }
  bool opened() const { return Opened == 1; }
  bool memory_mapped() const { return MemoryMapped == 1; }
  bool bar_mapped() const { return BarMapped == 1; }

 protected:
  // For stand-ins that reach a board some other way (the unit tests' in-process model): no
  // library is loaded and the object behaves as an opened, mapped device.
  struct NoLibrary {};
  explicit cZARIM(NoLibrary);

  void* hLibrary = nullptr;
  zarimio::OpenFn pOpen = nullptr;
  zarimio::CloseFn pClose = nullptr;
  zarimio::ReadFn pRead = nullptr;
  zarimio::WriteFn pWrite = nullptr;
  zarimio::MemoryMapFn pMemoryMap = nullptr;
  zarimio::MemoryUnmapFn pMemoryUnmap = nullptr;
  zarimio::BarMapFn pBarMap = nullptr;
  zarimio::BarUnmapFn pBarUnmap = nullptr;
  zarimio::GetInterruptInfoFn pGetInterruptInfo = nullptr;
  zarimio::DeviceSupportedCountFn pDeviceSupportedCount = nullptr;
  zarimio::GetSlotNumberFn pGetSlotNumber = nullptr;
  zarimio::Handle hDevice = zarimio::kInvalidHandle;
  // The last slot number asked for; the first read of every channel asks, from its own thread.
  std::atomic<uint32_t> SlotNumber{0};
  zarimio::MemoryMapInfo MemoryMapInfo{};
  uint32_t Opened = 0;
  uint32_t MemoryMapped = 0;
  zarimio::BarInfo BarInfo{};
  uint32_t rwMode = 1;
  uint32_t BarMapped = 0;
  uint32_t LibraryComplete = 0;
  char ErrorText[256] = {};

 private:
  int32_t CheckBarAddress(const char* op, uint32_t address);
  int32_t PortFailure(const char* op, int32_t code, const char* text);
  int32_t CallFailure(const char* op, int32_t code, const char* text);
  // The BAR size our IO library reported in its marked record (0 for any other record);
  // addresses beyond it are refused so that raw access can never reach memory outside the board.
  uint32_t bar_size_ = 0;
};

}  // namespace tvx
