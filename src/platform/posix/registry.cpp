// Registry values on POSIX: a directory tree under $TORVIXE_REGISTRY (default
// /etc/torvixe/registry). A key is a directory named by its path with '\' as '/'; a value is a
// file holding the value's raw bytes (a DWORD is 4 little-endian bytes).
#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/os.h"
#include "platform/posix/files.h"

namespace tvx::os {

struct RegistryKey {
  std::string directory;
};

namespace {

// Registry names are plain names, not paths: "." and ".." would step outside the tree, so a
// key path holding them as a component is refused rather than followed.
bool KeyDirectory(const char* path, std::string* out) {
  if (path == nullptr) return false;
  std::string dir = posix::EnvOr("TORVIXE_REGISTRY", "/etc/torvixe/registry");
  std::string component;
  for (const char* p = path;; ++p) {
    if (*p == '\\' || *p == '/' || *p == '\0') {
      if (component == "." || component == "..") return false;
      if (!component.empty()) dir += "/" + component;
      component.clear();
      if (*p == '\0') break;
    } else {
      component += *p;
    }
  }
  *out = dir;
  return true;
}

// A value file sits directly in its key's directory; a name that is not a plain file name
// (empty, "." or "..", or holding a '/') has no file and is treated as absent.
bool ValueFile(const std::string& directory, const char* name, std::string* out) {
  if (name == nullptr) return false;
  const std::string n(name);
  if (n.empty() || n == "." || n == ".." || n.find('/') != std::string::npos) {
    errno = ENOENT;
    return false;
  }
  *out = directory + "/" + n;
  return true;
}

bool WriteAll(int fd, const void* data, size_t size) {
  const auto* p = static_cast<const unsigned char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(fd, p, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

RegistryKey* OpenRegistryKey(const char* path) {
  std::string dir;
  if (!KeyDirectory(path, &dir)) {
    errno = ENOENT;
    return nullptr;
  }
  struct stat st{};
  if (::stat(dir.c_str(), &st) != 0) return nullptr;
  if (!S_ISDIR(st.st_mode)) {
    errno = ENOTDIR;
    return nullptr;
  }
  return new RegistryKey{dir};
}

bool QueryRegistryValue(RegistryKey* key, const char* name, void* data, uint32_t* size) {
  if (key == nullptr || size == nullptr) return false;
  std::string file;
  if (!ValueFile(key->directory, name, &file)) return false;
  // Without O_NONBLOCK a FIFO in the tree would hold the open (and the board's creation) until
  // some writer came; fstat then refuses everything that is not a plain file.
  const int fd = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat st{};
  bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  if (ok && static_cast<uint64_t>(st.st_size) > *size) {
    errno = EMSGSIZE;
    ok = false;
  }
  if (ok && st.st_size > 0 && data == nullptr) ok = false;
  // Read exactly what fstat reported: the file is the whole value, and a value that grows
  // while we read must not overrun the caller's room.
  size_t done = 0;
  const size_t want = ok ? static_cast<size_t>(st.st_size) : 0;
  while (ok && done < want) {
    const ssize_t n = ::read(fd, static_cast<unsigned char*>(data) + done, want - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;   // shrank meanwhile: report what is there
    done += static_cast<size_t>(n);
  }
  const int saved = errno;
  ::close(fd);
  errno = saved;
  if (ok) *size = static_cast<uint32_t>(done);
  return ok;
}

void CloseRegistryKey(RegistryKey* key) { delete key; }

bool WriteRegistryValue(const char* path, const char* name, const void* data, uint32_t size) {
  std::string dir;
  std::string file;
  if (!KeyDirectory(path, &dir) || !ValueFile(dir, name, &file)) return false;
  if (size > 0 && data == nullptr) return false;
  if (!posix::MakeDirectories(dir, 0755)) return false;
  // Write beside and rename over, so a reader in another process sees the old value or the
  // new one, never a half-written file.
  const std::string temp = file + ".tmp." + std::to_string(::getpid());
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  bool ok = WriteAll(fd, data, size);
  ok = (::close(fd) == 0) && ok;
  if (ok) ok = ::rename(temp.c_str(), file.c_str()) == 0;
  if (!ok) {
    const int saved = errno;
    ::unlink(temp.c_str());
    errno = saved;
  }
  return ok;
}

bool DeleteRegistryValue(const char* path, const char* name) {
  std::string dir;
  std::string file;
  if (!KeyDirectory(path, &dir)) return false;
  if (!ValueFile(dir, name, &file)) return name != nullptr;   // such a value cannot exist
  return ::unlink(file.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR;
}

}  // namespace tvx::os
