// Dynamic libraries and the last-error code on Windows.
#include <windows.h>

#include <cstdio>

#include "platform/os.h"

namespace tvx::os {

void* LoadDynamicLibrary(const char* base) {
  if (base == nullptr) return nullptr;
  char file[MAX_PATH];
  if (static_cast<size_t>(std::snprintf(file, sizeof file, "%s.dll", base)) >= sizeof file) {
    ::SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return nullptr;
  }
  // The ordinary search order: the application's directory first, as for the vendor's DLL.
  return reinterpret_cast<void*>(::LoadLibraryA(file));
}

void* FindSymbol(void* library, const char* name) {
  if (library == nullptr || name == nullptr) return nullptr;
  return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

void FreeDynamicLibrary(void* library) {
  if (library != nullptr) ::FreeLibrary(static_cast<HMODULE>(library));
}

const char* DynamicLibraryFileName(const char* base, char* out, size_t size) {
  if (out != nullptr && size > 0) std::snprintf(out, size, "%s.dll", base != nullptr ? base : "");
  return out;
}

void* LoadDynamicLibraryPath(const char* path) {
  if (path == nullptr || *path == '\0') {
    ::SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  // The directory of the library is searched first for its own dependencies.
  return reinterpret_cast<void*>(::LoadLibraryExA(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
}

bool ModulePath(const void* address, char* out, size_t size) {
  if (out == nullptr || size == 0) return false;
  out[0] = '\0';
  HMODULE module = nullptr;
  if (address == nullptr ||
      !::GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<LPCSTR>(address), &module))
    return false;
  const DWORD room = size > 0x7FFFFFFF ? 0x7FFFFFFF : DWORD(size);
  const DWORD length = ::GetModuleFileNameA(module, out, room);
  if (length == 0 || length >= room) {   // a truncated name is no path
    out[0] = '\0';
    return false;
  }
  return true;
}

bool LoaderMatchesFileName() { return true; }

uint32_t LastError() { return ::GetLastError(); }

void SetLastError(uint32_t code) { ::SetLastError(code); }

}  // namespace tvx::os
