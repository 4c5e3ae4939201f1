#include "hw/zarim.h"

#include <cstring>

#include "hw/text.h"
#include "platform/os.h"

namespace tvx {

cZARIM::cZARIM() {
  hLibrary = os::LoadDynamicLibrary(zarimio::kLibraryName);
  if (!hLibrary) return;
  // Every name is looked up, even after a missing one, so that the object's state says
  // exactly which functions the library offers.
  void* found[11];
  bool complete = true;
  for (int i = 0; i < 11; ++i) {
    found[i] = os::FindSymbol(hLibrary, zarimio::kFunctionNames[i]);
    complete = complete && found[i] != nullptr;
  }
  pOpen = reinterpret_cast<zarimio::OpenFn>(found[0]);
  pClose = reinterpret_cast<zarimio::CloseFn>(found[1]);
  pRead = reinterpret_cast<zarimio::ReadFn>(found[2]);
  pWrite = reinterpret_cast<zarimio::WriteFn>(found[3]);
  pMemoryMap = reinterpret_cast<zarimio::MemoryMapFn>(found[4]);
  pMemoryUnmap = reinterpret_cast<zarimio::MemoryUnmapFn>(found[5]);
  pBarMap = reinterpret_cast<zarimio::BarMapFn>(found[6]);
  pBarUnmap = reinterpret_cast<zarimio::BarUnmapFn>(found[7]);
  pGetInterruptInfo = reinterpret_cast<zarimio::GetInterruptInfoFn>(found[8]);
  pDeviceSupportedCount = reinterpret_cast<zarimio::DeviceSupportedCountFn>(found[9]);
  pGetSlotNumber = reinterpret_cast<zarimio::GetSlotNumberFn>(found[10]);
  LibraryComplete = complete ? 1 : 0;
}

cZARIM::cZARIM(NoLibrary)
    : hDevice(0), Opened(1), MemoryMapped(1), BarMapped(1), LibraryComplete(1) {}

cZARIM::~cZARIM() {
  if (hLibrary) os::FreeDynamicLibrary(hLibrary);
  hLibrary = nullptr;
}

int32_t cZARIM::CallFailure(const char* op, int32_t code, const char* text) {
  Format(ErrorText, "%s: %s; gle = 0x%.8X\n", op, text, unsigned(os::LastError()));
  return code;
}

int32_t cZARIM::PortFailure(const char* op, int32_t code, const char* text) {
  Format(ErrorText, "%s: %s\n", op, text);
  return code;
}

int32_t cZARIM::Open(uint8_t index) {
  hDevice = pOpen(index);
  if (hDevice == zarimio::kInvalidHandle) {
    Opened = 0;
    Format(ErrorText, "Could not open device %d; gle = %.4d\n", int(index), int(os::LastError()));
    return 1;
  }
  Opened = 1;
  return 0;
}

int32_t cZARIM::Close() {
  if (hDevice == zarimio::kInvalidHandle) return PortFailure("Close", 1, "invalid handle value");
  pClose(hDevice);
  // The handle keeps its value: the board never uses the object after closing it.
  Opened = 0;
  return 0;
}

int32_t cZARIM::CheckBarAddress(const char* op, uint32_t address) {
  Format(ErrorText, "%s: address 0x%.8X is outside the register BAR (0x%X bytes) or not aligned\n",
         op, unsigned(address), unsigned(bar_size_));
  return kPortOutsideBar;
}

int32_t cZARIM::ReadPort(uint32_t address, uint32_t* value) {
  if (hDevice == zarimio::kInvalidHandle)
    return PortFailure("ReadPort", kPortNoDevice, "invalid handle value specified");
  if (rwMode == 1) {
    if (BarMapped == 0) return PortFailure("ReadPort", kPortBarNotMapped, "BAR is not mapped in user mode");
    if (bar_size_ != 0 && ((address & 3) != 0 || uint64_t(address) + 4 > bar_size_))
      return CheckBarAddress("ReadPort", address);
    *value = *reinterpret_cast<volatile uint32_t*>(BarInfo.user_address + address);
    return kPortOk;
  }
  if (rwMode == 0) {
    zarimio::PortRequest request{address, 0};
    if (pRead(hDevice, &request) != 0)
      return CallFailure("ReadPort", kPortKernelFailed, "error reading in kernel mode");
    *value = request.value;
    return kPortOk;
  }
  return PortFailure("ReadPort", kPortBadMode, "rwMode is not specified");
}

int32_t cZARIM::WritePort(uint32_t address, uint32_t value) {
  if (hDevice == zarimio::kInvalidHandle)
    return PortFailure("WritePort", kPortNoDevice, "invalid handle value specified");
  if (rwMode == 1) {
    if (BarMapped == 0) return PortFailure("WritePort", kPortBarNotMapped, "BAR is not mapped in user mode");
    if (bar_size_ != 0 && ((address & 3) != 0 || uint64_t(address) + 4 > bar_size_))
      return CheckBarAddress("WritePort", address);
    *reinterpret_cast<volatile uint32_t*>(BarInfo.user_address + address) = value;
    return kPortOk;
  }
  if (rwMode == 0) {
    zarimio::PortRequest request{address, value};
    if (pWrite(hDevice, &request) != 0)
      return CallFailure("WritePort", kPortKernelFailed, "error writing in kernel mode");
    return kPortOk;
  }
  return PortFailure("WritePort", kPortBadMode, "rwMode is not specified");
}

int32_t cZARIM::MemoryMap() {
  if (hDevice == zarimio::kInvalidHandle) return PortFailure("MemoryMap", 1, "invalid handle specified");
  int32_t r = pMemoryMap(hDevice, &MemoryMapInfo);
  if (r != 0) {
    MemoryMapped = 0;
    return CallFailure("MemoryMap", r, "unable to map memory");
  }
  MemoryMapped = 1;
  return 0;
}

int32_t cZARIM::MemoryUnmap() {
  if (hDevice == zarimio::kInvalidHandle) return PortFailure("MemoryUnmap", -1, "invalid handle specified");
  if (MemoryMapped == 0) return PortFailure("MemoryUnmap", -2, "memory is not mapped");
  int32_t r = pMemoryUnmap(hDevice, nullptr);
  if (r != 0) return CallFailure("MemoryUnmap", r, "unable to unmap memory");
  MemoryMapped = 0;
  return 0;
}

int32_t cZARIM::BARMap() {
  if (hDevice == zarimio::kInvalidHandle) return PortFailure("BARMap", 1, "invalid handle specified");
  int32_t r = pBarMap(hDevice, &BarInfo);
  if (r != 0) {
    BarMapped = 0;
    return CallFailure("BARMap", r, "unable to map BAR memory");
  }
  // Another library's record has its own layout behind the pointer: without our marker no
  // size is known and addresses go to the mapped BAR unchecked, as they always have.
  bar_size_ = BarInfo.marker == zarimio::kBarRecordMarker ? BarInfo.size : 0;
  BarMapped = 1;
  return 0;
}

int32_t cZARIM::BARUnmap() {
  if (hDevice == zarimio::kInvalidHandle) return PortFailure("BARUnmap", 1, "invalid handle specified");
  int32_t r = pBarUnmap(hDevice, &BarInfo);
  if (r != 0) return CallFailure("BARUnmap", r, "unable to unmap BAR memory");
  BarMapped = 0;
  return 0;
}

int32_t cZARIM::GetInterruptInfo(void* record) {
  if (hDevice == zarimio::kInvalidHandle)
    return PortFailure("GetInterruptInfo", -1, "invalid handle specified");
  // A record of the call's own: threads reading different channels ask at the same time.
  zarimio::InterruptInfo info{};
  int32_t r = pGetInterruptInfo(hDevice, &info);
  if (r != 0) return CallFailure("GetInterruptInfo", r, "unable to get interrupt information");
  std::memcpy(record, &info, sizeof info);
  return 0;
}

uint32_t cZARIM::GetSlotNumber() {
  const uint32_t slot = pGetSlotNumber(hDevice);
  SlotNumber.store(slot, std::memory_order_relaxed);
  return slot;
}

const char* cZARIM::GetErrorText() { return ErrorText; }

int32_t cZARIM::GetMemoryMapInfo(void* record) {
  if (MemoryMapped != 1) return -1;
  std::memcpy(record, &MemoryMapInfo, sizeof MemoryMapInfo);
  return 0;
}

}  // namespace tvx
