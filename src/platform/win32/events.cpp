// Named auto-reset events on Windows: kernel event objects shared by name.
#include <windows.h>

#include "platform/os.h"

namespace tvx::os {

Event CreateNamedEvent(const char* name) {
  // Only named events are shared; an anonymous one would silently pair with nobody.
  if (name == nullptr) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  // Auto-reset, non-signalled; an existing event of that name is opened as it is.
  return ::CreateEventA(nullptr, FALSE, FALSE, name);
}

Event OpenNamedEvent(const char* name) {
  if (name == nullptr) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return ::OpenEventA(SYNCHRONIZE, FALSE, name);
}

bool SignalEvent(Event event) {
  if (event == nullptr) {
    ::SetLastError(ERROR_INVALID_HANDLE);
    return false;
  }
  return ::SetEvent(event) != FALSE;
}

WaitResult WaitForEither(Event first, Event second, uint32_t timeout_ms) {
  if (first == nullptr || second == nullptr) {
    ::SetLastError(ERROR_INVALID_HANDLE);
    return WaitResult::kFailed;
  }
  // WaitForMultipleObjects reports the lowest signalled index, so the first wins.
  const HANDLE handles[2] = {first, second};
  switch (::WaitForMultipleObjects(2, handles, FALSE, timeout_ms)) {
    case WAIT_OBJECT_0:
      return WaitResult::kFirst;
    case WAIT_OBJECT_0 + 1:
      return WaitResult::kSecond;
    case WAIT_TIMEOUT:
      return WaitResult::kTimeout;
    default:
      return WaitResult::kFailed;
  }
}

void CloseEvent(Event event) {
  if (event != nullptr) ::CloseHandle(event);
}

}  // namespace tvx::os
