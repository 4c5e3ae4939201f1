// Dynamic libraries and the last-error code on POSIX.
#include <cerrno>
#include <cstdio>
#include <string>

#include <dlfcn.h>

#include "platform/os.h"

namespace tvx::os {

void* LoadDynamicLibrary(const char* base) {
  if (base == nullptr) return nullptr;
  char file[256];
  if (static_cast<size_t>(std::snprintf(file, sizeof file, "lib%s.so", base)) >= sizeof file) {
    errno = ENAMETOOLONG;
    return nullptr;
  }
  // dlopen searches the RUNPATH of the object this call sits in; ours is $ORIGIN, so the IO
  // library beside libtorvixe.so is found without any search path of the application.
  // RTLD_LOCAL keeps its symbols from resolving anybody else's.
  return ::dlopen(file, RTLD_NOW | RTLD_LOCAL);
}

void* FindSymbol(void* library, const char* name) {
  if (library == nullptr || name == nullptr) return nullptr;
  return ::dlsym(library, name);
}

void FreeDynamicLibrary(void* library) {
  if (library != nullptr) ::dlclose(library);
}

const char* DynamicLibraryFileName(const char* base, char* out, size_t size) {
  if (out != nullptr && size > 0) std::snprintf(out, size, "lib%s.so", base != nullptr ? base : "");
  return out;
}

uint32_t LastError() { return static_cast<uint32_t>(errno); }

void SetLastError(uint32_t code) { errno = static_cast<int>(code); }

}  // namespace tvx::os
