// Device enumeration on Windows through SetupAPI: the present devices exposing the driver's
// interface class, and the path CreateFile opens for each.
#include <windows.h>
#include <setupapi.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "platform/os.h"

namespace tvx::os {

namespace {

GUID ToGuid(const Guid& cls) {
  GUID guid;
  guid.Data1 = cls.data1;
  guid.Data2 = cls.data2;
  guid.Data3 = cls.data3;
  std::memcpy(guid.Data4, cls.data4, sizeof guid.Data4);
  return guid;
}

// The device-information set, destroyed on every way out.
class DeviceSet {
 public:
  explicit DeviceSet(const GUID& guid)
      : set_(::SetupDiGetClassDevsA(&guid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE)) {}
  ~DeviceSet() {
    if (valid()) ::SetupDiDestroyDeviceInfoList(set_);
  }
  DeviceSet(const DeviceSet&) = delete;
  DeviceSet& operator=(const DeviceSet&) = delete;
  bool valid() const { return set_ != INVALID_HANDLE_VALUE; }
  HDEVINFO get() const { return set_; }

 private:
  HDEVINFO set_;
};

}  // namespace

uint32_t CountDeviceInterfaces(const Guid& cls) {
  const GUID guid = ToGuid(cls);
  DeviceSet set(guid);
  if (!set.valid()) return 0;
  uint32_t count = 0;
  for (;;) {
    SP_DEVINFO_DATA info{};
    info.cbSize = sizeof info;
    if (!::SetupDiEnumDeviceInfo(set.get(), count, &info)) break;
    ++count;
  }
  return count;
}

bool DeviceInterfacePath(const Guid& cls, uint32_t index, char* out, size_t size) {
  if (out != nullptr && size > 0) out[0] = '\0';
  const GUID guid = ToGuid(cls);
  DeviceSet set(guid);
  if (!set.valid()) return false;
  SP_DEVICE_INTERFACE_DATA iface{};
  iface.cbSize = sizeof iface;
  if (!::SetupDiEnumDeviceInterfaces(set.get(), nullptr, &guid, index, &iface)) return false;
  // First call: how large the detail is; it fails with ERROR_INSUFFICIENT_BUFFER by design.
  DWORD required = 0;
  ::SetupDiGetDeviceInterfaceDetailA(set.get(), &iface, nullptr, 0, &required, nullptr);
  if (required < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A)) return false;
  // Not a std::vector: running out of memory here is a failure like any other, not a throw.
  std::unique_ptr<unsigned char[]> storage(new (std::nothrow) unsigned char[required]);
  if (!storage) return false;
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(storage.get());
  // cbSize is the size of the fixed part, not of the allocation.
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
  if (!::SetupDiGetDeviceInterfaceDetailA(set.get(), &iface, detail, required, nullptr, nullptr)) {
    return false;
  }
  // The path ends inside the allocation; never read past it even if it were unterminated.
  const size_t room = required - offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath);
  const size_t length = strnlen(detail->DevicePath, room);
  if (out == nullptr || length == room || length + 1 > size) {
    ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return false;
  }
  std::memcpy(out, detail->DevicePath, length);
  out[length] = '\0';
  return true;
}

}  // namespace tvx::os
