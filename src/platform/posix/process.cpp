// The process's environment and identity on POSIX.
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "platform/os.h"

namespace tvx::os {

bool GetEnvironment(const char* name, char* out, size_t size) {
  if (name == nullptr || out == nullptr || size == 0) return false;
  out[0] = '\0';
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return false;
  const size_t length = std::strlen(value);
  if (length + 1 > size) return false;
  std::memcpy(out, value, length + 1);
  return true;
}

bool SetEnvironment(const char* name, const char* value) {
  if (name == nullptr || *name == '\0' || std::strchr(name, '=') != nullptr) return false;
  if (value == nullptr || *value == '\0') return ::unsetenv(name) == 0;
  return ::setenv(name, value, 1) == 0;
}

uint32_t ProcessId() { return static_cast<uint32_t>(::getpid()); }

}  // namespace tvx::os
