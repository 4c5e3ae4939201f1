// Device enumeration on POSIX: one entry per board in $TORVIXE_DEVICES (default
// /sys/class/zarim), ordered by name so that an index names the same board on every call;
// the device node is /dev/ + the entry's name. The interface class is not consulted: the
// directory is the class.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>

#include "platform/os.h"
#include "platform/posix/files.h"

namespace tvx::os {

namespace {

std::vector<std::string> DeviceNames() {
  std::vector<std::string> names;
  const std::string root = posix::EnvOr("TORVIXE_DEVICES", "/sys/class/zarim");
  DIR* dir = ::opendir(root.c_str());
  if (dir == nullptr) return names;
  while (const dirent* entry = ::readdir(dir)) {
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    names.emplace_back(entry->d_name);
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

uint32_t CountDeviceInterfaces(const Guid& /*cls*/) {
  return static_cast<uint32_t>(DeviceNames().size());
}

bool DeviceInterfacePath(const Guid& /*cls*/, uint32_t index, char* out, size_t size) {
  if (out != nullptr && size > 0) out[0] = '\0';
  const std::vector<std::string> names = DeviceNames();
  if (index >= names.size()) {
    errno = ENODEV;
    return false;
  }
  const std::string path = "/dev/" + names[index];
  // A cut-off path would name another device node: refuse rather than truncate.
  if (out == nullptr || path.size() + 1 > size) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(out, path.c_str(), path.size() + 1);
  return true;
}

}  // namespace tvx::os
