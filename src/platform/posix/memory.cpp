// Page-granular memory for the virtual board on POSIX.
#include <sys/mman.h>
#include <unistd.h>

#include "platform/os.h"

namespace tvx::os {

size_t PageSize() {
  static const size_t size = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

void* AllocatePages(size_t size) {
  if (size == 0) return nullptr;
  // Anonymous mappings come zeroed, which the board's memory relies on.
  void* p = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : p;
}

void FreePages(void* base, size_t size) {
  if (base != nullptr) ::munmap(base, size);
}

bool ProtectPages(void* base, size_t size, bool accessible) {
  if (base == nullptr) return false;
  return ::mprotect(base, size, accessible ? PROT_READ | PROT_WRITE : PROT_NONE) == 0;
}

}  // namespace tvx::os
