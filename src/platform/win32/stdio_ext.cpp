// 64-bit stream positions and console detection on Windows.
#include "platform/stdio_ext.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <stdio.h>

namespace tvx::os {

std::FILE* OpenRegularFile(const char* name, bool text) {
  if (name == nullptr) return nullptr;
  // A directory is refused by CreateFile itself (it needs backup semantics); a pipe, a console
  // or another device opens without waiting and is refused by its type.
  HANDLE handle = ::CreateFileA(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return nullptr;
  BY_HANDLE_FILE_INFORMATION info;
  if (::GetFileType(handle) != FILE_TYPE_DISK || !::GetFileInformationByHandle(handle, &info) ||
      (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    ::CloseHandle(handle);
    ::SetLastError(ERROR_INVALID_FUNCTION);
    return nullptr;
  }
  const int fd = ::_open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_RDONLY | (text ? _O_TEXT : _O_BINARY));
  if (fd < 0) {
    ::CloseHandle(handle);
    return nullptr;
  }
  std::FILE* file = ::_fdopen(fd, text ? "rt" : "rb");
  if (file == nullptr) ::_close(fd);   // closes the handle too
  return file;
}

bool SeekFile(std::FILE* file, int64_t offset, int origin) {
  return file != nullptr && ::_fseeki64(file, offset, origin) == 0;
}

int64_t TellFile(std::FILE* file) {
  if (file == nullptr) return -1;
  const __int64 position = ::_ftelli64(file);
  return position < 0 ? -1 : static_cast<int64_t>(position);
}

bool IsTerminal(std::FILE* file) { return file != nullptr && ::_isatty(::_fileno(file)) != 0; }

const char kPathSeparator = '\\';

}  // namespace tvx::os
