// Page-granular memory for the virtual board on Windows.
#include <windows.h>

#include "platform/os.h"

namespace tvx::os {

size_t PageSize() {
  SYSTEM_INFO info;
  ::GetSystemInfo(&info);
  return info.dwPageSize;
}

void* AllocatePages(size_t size) {
  if (size == 0) return nullptr;
  // Committed pages come zeroed, which the board's memory relies on.
  return ::VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

void FreePages(void* base, size_t /*size*/) {
  // A release frees the whole reservation and must be given size 0.
  if (base != nullptr) ::VirtualFree(base, 0, MEM_RELEASE);
}

bool ProtectPages(void* base, size_t size, bool accessible) {
  if (base == nullptr) return false;
  DWORD previous = 0;
  return ::VirtualProtect(base, size, accessible ? PAGE_READWRITE : PAGE_NOACCESS, &previous) != FALSE;
}

}  // namespace tvx::os
