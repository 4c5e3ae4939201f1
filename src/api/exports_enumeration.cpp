// Finding boards before they are created, and reaching a created board's registers directly.
#include <cstring>

#include "api/frame.h"
#include "hw/regs.h"
#include "platform/os.h"

using namespace tvx;

namespace {

// The device-interface class the kernel driver registers its boards under.
// {7C1E5A3D-2B94-4F6E-9A0D-5E8B3C71F24A}
constexpr os::Guid kDriverInterfaceClass = {
    0x7C1E5A3D, 0x2B94, 0x4F6E, {0x9A, 0x0D, 0x5E, 0x8B, 0x3C, 0x71, 0xF2, 0x4A}};

char DeviceName[260];

const ExportText kGetDeviceSlotID{"GetDeviceSlotID"};
const ExportText kGetFPGABaseAddress{"GetFPGABaseAddress"};
const ExportText kDevInp{"_devinp", false, false};
const ExportText kDevOutp{"_devoutp", false, false};

// The board's hardware-access object when the board exists and its binding is complete;
// an incomplete binding has no functions to call.
cZARIM* BoundIo(const ExportCall& call) {
  cBoard* board = call.board();
  return board && board->Io && board->Io->library_complete() ? board->Io : nullptr;
}

// Shared by _devinp and _devoutp: the checks before the port access. A binding that never
// opened a device (the IO library missing or incomplete, or the open refused) stops at the
// open check and calls nothing.
cZARIM* OpenIo(const ExportCall& call, const PortAccess* access, int32_t* refusal) {
  cZARIM* io = call.board() ? call.board()->Io : nullptr;
  if (!io || !access) {
    *refusal = call.Null(1);
    return nullptr;
  }
  if (!io->opened()) {
    *refusal = call.Report(2, "Не открыт доступ к устройству: %s", io->GetErrorText());
    return nullptr;
  }
  return io;
}

}  // namespace

extern "C" {

// Any failure, running out of memory included, counts no device.
TORVIXE_API uint32_t DeviceSupportedCount(void) {
  try {
    return os::CountDeviceInterfaces(kDriverInterfaceClass);
  } catch (...) {
    return 0;
  }
}

// Needs no created board: the index is the interface's enumeration index. Every call
// overwrites the one buffer; every failure is the empty string, running out of memory on the
// way (the enumeration allocates) included, so nothing is ever thrown out of this C function.
TORVIXE_API const char* GetFullDeviceName(DeviceId* id) {
  DeviceName[0] = '\0';
  try {
    if (id && !os::DeviceInterfacePath(kDriverInterfaceClass, id->Index, DeviceName, sizeof DeviceName))
      DeviceName[0] = '\0';
  } catch (...) {
    DeviceName[0] = '\0';
  }
  return DeviceName;
}

// No board, or a board whose binding is missing, answers the null path with 0xFFFFFFFF, the
// one value no slot number is.
TORVIXE_API uint32_t GetDeviceSlotID(DeviceId* id) {
  ExportCall call(id, kGetDeviceSlotID);
  cZARIM* io = BoundIo(call);
  if (!io) return uint32_t(call.Null());
  return io->GetSlotNumber();
}

// Needs no board of its own: the bases are process-wide and set by the first bring-up.
TORVIXE_API int32_t GetFPGABaseAddress(DeviceId* id, FpgaBaseAddresses* bases) {
  ExportCall call(id, kGetFPGABaseAddress);
  if (!bases) return call.Null();
  if (FpgaBases().Initialized == 0)
    return call.Report(-1, "Базовые адреса ПЛИС не инициализированы");
  std::memcpy(bases, &FpgaBases(), sizeof *bases);
  return 0;
}

// The port result is returned as it is, without a message: the detail stays in the
// hardware-access object's text.
TORVIXE_API int32_t _devinp(DeviceId* id, PortAccess* access) {
  ExportCall call(id, kDevInp);
  int32_t refusal = 0;
  cZARIM* io = OpenIo(call, access, &refusal);
  if (!io) return refusal;
  return io->ReadPort(access->Address, &access->Value);
}

TORVIXE_API int32_t _devoutp(DeviceId* id, PortAccess* access) {
  ExportCall call(id, kDevOutp);
  int32_t refusal = 0;
  cZARIM* io = OpenIo(call, access, &refusal);
  if (!io) return refusal;
  return io->WritePort(access->Address, access->Value);
}

}  // extern "C"
