// Registry values under HKEY_LOCAL_MACHINE on Windows. Reads open the key for query only, so
// that a user without administrative rights can read the driver's parameters.
#include <windows.h>

#include "platform/os.h"

namespace tvx::os {

struct RegistryKey {
  HKEY handle;
};

namespace {

// The registry calls return their error instead of setting the thread's; keep it where
// LastError() looks.
bool Succeeded(LONG status) {
  if (status == ERROR_SUCCESS) return true;
  ::SetLastError(static_cast<DWORD>(status));
  return false;
}

}  // namespace

RegistryKey* OpenRegistryKey(const char* path) {
  if (path == nullptr) return nullptr;
  HKEY handle = nullptr;
  if (!Succeeded(::RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_QUERY_VALUE, &handle))) {
    return nullptr;
  }
  return new RegistryKey{handle};
}

bool QueryRegistryValue(RegistryKey* key, const char* name, void* data, uint32_t* size) {
  if (key == nullptr || size == nullptr) return false;
  // The type is not asked for: values are raw bytes to the caller, as on POSIX.
  DWORD bytes = *size;
  if (!Succeeded(::RegQueryValueExA(key->handle, name, nullptr, nullptr,
                                    static_cast<BYTE*>(data), &bytes))) {
    return false;   // ERROR_MORE_DATA when it does not fit
  }
  // Without a buffer the call only reports the size; that is no read.
  if (bytes > *size || (data == nullptr && bytes > 0)) {
    ::SetLastError(ERROR_MORE_DATA);
    return false;
  }
  *size = bytes;
  return true;
}

void CloseRegistryKey(RegistryKey* key) {
  if (key == nullptr) return;
  ::RegCloseKey(key->handle);
  delete key;
}

bool WriteRegistryValue(const char* path, const char* name, const void* data, uint32_t size) {
  if (path == nullptr || (data == nullptr && size > 0)) return false;
  HKEY handle = nullptr;
  if (!Succeeded(::RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                   KEY_SET_VALUE, nullptr, &handle, nullptr))) {
    return false;
  }
  const bool ok = Succeeded(::RegSetValueExA(handle, name, 0, REG_BINARY,
                                             static_cast<const BYTE*>(data), size));
  ::RegCloseKey(handle);
  return ok;
}

bool DeleteRegistryValue(const char* path, const char* name) {
  if (path == nullptr) return false;
  HKEY handle = nullptr;
  const LONG opened = ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_SET_VALUE, &handle);
  if (opened == ERROR_FILE_NOT_FOUND) return true;   // no key, no value
  if (!Succeeded(opened)) return false;
  const LONG deleted = ::RegDeleteValueA(handle, name);
  ::RegCloseKey(handle);
  return deleted == ERROR_FILE_NOT_FOUND || Succeeded(deleted);
}

}  // namespace tvx::os
