// Dynamic libraries and the last-error code on POSIX.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <unistd.h>

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

void* LoadDynamicLibraryPath(const char* path) {
  if (path == nullptr || *path == '\0') {
    errno = ENOENT;
    return nullptr;
  }
  return ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

bool ModulePath(const void* address, char* out, size_t size) {
  if (out == nullptr || size == 0) return false;
  out[0] = '\0';
  Dl_info info{};
  if (address == nullptr || ::dladdr(address, &info) == 0) return false;
  // Libraries are named by the path they were found at; the program by the name it was
  // started with (possibly relative, or empty), so it is asked of the kernel instead.
  char resolved[PATH_MAX];
  const char* file = info.dli_fname;
  const bool named = file != nullptr && std::strchr(file, '/') != nullptr;
  if (named) {
    if (::realpath(file, resolved) == nullptr) return false;
  } else {
    const ssize_t n = ::readlink("/proc/self/exe", resolved, sizeof resolved - 1);
    if (n <= 0) return false;
    resolved[n] = '\0';
  }
  const size_t length = std::strlen(resolved);
  if (length + 1 > size) return false;
  std::memcpy(out, resolved, length + 1);
  return true;
}

bool LoaderMatchesFileName() { return false; }

uint32_t LastError() { return static_cast<uint32_t>(errno); }

void SetLastError(uint32_t code) { errno = static_cast<int>(code); }

}  // namespace tvx::os
