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

uint32_t LastError() { return ::GetLastError(); }

void SetLastError(uint32_t code) { ::SetLastError(code); }

}  // namespace tvx::os
