// 64-bit stream positions and terminal detection on POSIX.
#include "platform/stdio_ext.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace tvx::os {

static_assert(sizeof(off_t) == 8, "a 64-bit off_t is needed for files beyond 2 GiB");

std::FILE* OpenRegularFile(const char* name, bool /*text*/) {
  if (name == nullptr) return nullptr;
  // The type is looked at before the open, so a device is never opened at all, and again on the
  // open descriptor, so a name swapped in between cannot slip through. O_NONBLOCK keeps the open
  // of a FIFO from waiting for a writer; reads from a regular file never wait either way.
  struct stat st{};
  if (::stat(name, &st) != 0) return nullptr;
  if (!S_ISREG(st.st_mode)) {
    errno = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
    return nullptr;
  }
  const int fd = ::open(name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  std::FILE* file = nullptr;
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    file = ::fdopen(fd, "r");
  } else {
    errno = EINVAL;
  }
  if (file == nullptr) {
    const int saved = errno;
    ::close(fd);
    errno = saved;
  }
  return file;
}

bool SeekFile(std::FILE* file, int64_t offset, int origin) {
  return file != nullptr && ::fseeko(file, static_cast<off_t>(offset), origin) == 0;
}

int64_t TellFile(std::FILE* file) {
  if (file == nullptr) return -1;
  const off_t position = ::ftello(file);
  return position < 0 ? -1 : static_cast<int64_t>(position);
}

bool IsTerminal(std::FILE* file) { return file != nullptr && ::isatty(::fileno(file)) == 1; }

const char kPathSeparator = '/';

}  // namespace tvx::os
