// Small file-system helpers shared by the POSIX registry and event implementations.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <string>

#include <sys/stat.h>
#include <sys/types.h>

namespace tvx::os::posix {

// The value of an environment variable, or `fallback` when it is unset or empty. Read at each
// call: tests and tools point the platform at private trees after start-up.
inline std::string EnvOr(const char* name, const char* fallback) {
  const char* value = std::getenv(name);
  return (value != nullptr && *value != '\0') ? std::string(value) : std::string(fallback);
}

// mkdir -p: creates every missing component of `path` with `mode`. True when the whole path
// exists as a directory afterwards (also when another process created parts of it meanwhile).
inline bool MakeDirectories(const std::string& path, mode_t mode) {
  for (size_t pos = 1; pos <= path.size(); ++pos) {
    if (pos != path.size() && path[pos] != '/') continue;
    const std::string prefix = path.substr(0, pos);
    if (::mkdir(prefix.c_str(), mode) != 0 && errno != EEXIST) return false;
  }
  struct stat st{};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace tvx::os::posix
