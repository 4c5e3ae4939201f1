// 64-bit stream positions and terminal detection on POSIX.
#include "platform/stdio_ext.h"

#include <sys/types.h>
#include <unistd.h>

namespace tvx::os {

static_assert(sizeof(off_t) == 8, "a 64-bit off_t is needed for files beyond 2 GiB");

bool SeekFile(std::FILE* file, int64_t offset, int origin) {
  return file != nullptr && ::fseeko(file, static_cast<off_t>(offset), origin) == 0;
}

int64_t TellFile(std::FILE* file) {
  if (file == nullptr) return -1;
  const off_t position = ::ftello(file);
  return position < 0 ? -1 : static_cast<int64_t>(position);
}

bool IsTerminal(std::FILE* file) { return file != nullptr && ::isatty(::fileno(file)) == 1; }

}  // namespace tvx::os
