// 64-bit stream positions and console detection on Windows.
#include "platform/stdio_ext.h"

#include <io.h>
#include <stdio.h>

namespace tvx::os {

bool SeekFile(std::FILE* file, int64_t offset, int origin) {
  return file != nullptr && ::_fseeki64(file, offset, origin) == 0;
}

int64_t TellFile(std::FILE* file) {
  if (file == nullptr) return -1;
  const __int64 position = ::_ftelli64(file);
  return position < 0 ? -1 : static_cast<int64_t>(position);
}

bool IsTerminal(std::FILE* file) { return file != nullptr && ::_isatty(::_fileno(file)) != 0; }

}  // namespace tvx::os
