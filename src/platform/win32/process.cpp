// The process's environment and identity on Windows. The environment block of the process,
// not a C runtime's copy of it: every module then reads what another one set.
#include <windows.h>

#include <cstring>

#include "platform/os.h"

namespace tvx::os {

bool GetEnvironment(const char* name, char* out, size_t size) {
  if (name == nullptr || out == nullptr || size == 0) return false;
  out[0] = '\0';
  const DWORD room = size > 0x7FFFFFFF ? 0x7FFFFFFF : DWORD(size);
  const DWORD length = ::GetEnvironmentVariableA(name, out, room);
  // 0: unset or empty; length >= room: the room it would take, nothing stored.
  if (length == 0 || length >= room) {
    out[0] = '\0';
    return false;
  }
  return true;
}

bool SetEnvironment(const char* name, const char* value) {
  if (name == nullptr || *name == '\0' || std::strchr(name, '=') != nullptr) return false;
  if (value == nullptr || *value == '\0') {
    // Removing a variable that is not there is success too.
    return ::SetEnvironmentVariableA(name, nullptr) != 0 || ::GetLastError() == ERROR_ENVVAR_NOT_FOUND;
  }
  return ::SetEnvironmentVariableA(name, value) != 0;
}

uint32_t ProcessId() { return ::GetCurrentProcessId(); }

}  // namespace tvx::os
