// Helpers shared by the test programs: environment overrides, private temporary trees and
// unique names, all through portable interfaces so the same tests run on both targets.
#pragma once

#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "platform/os.h"

namespace tvx::test {

// Sets an environment variable for the scope and restores the previous value after. putenv
// exists in both C runtimes; an empty value counts as unset for the platform layer.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value) : name_(name) {
    const char* old = std::getenv(name);
    had_ = old != nullptr;
    if (had_) old_ = old;
    Put(value);
  }
  ~ScopedEnv() { Put(had_ ? old_ : std::string()); }
  ScopedEnv(const ScopedEnv&) = delete;

 private:
  void Put(const std::string& value) {
    static std::deque<std::string> keep;   // POSIX putenv keeps the pointer
    keep.push_back(name_ + "=" + value);
    putenv(&keep.back()[0]);
  }
  std::string name_, old_;
  bool had_ = false;
};

// The exports a module-definition file lists, one to a line indented by four blanks.
inline std::vector<std::string> ExportNames(const char* def_file) {
  std::ifstream def(def_file);
  std::vector<std::string> names;
  for (std::string line; std::getline(def, line);)
    if (line.size() > 4 && line.compare(0, 4, "    ") == 0 && line[4] != ' ')
      names.push_back(line.substr(4, line.find_last_not_of(" \r") - 3));
  return names;
}

inline std::string Nonce() {
  std::random_device rd;
  std::mt19937_64 gen((static_cast<uint64_t>(rd()) << 32) ^ rd());
  std::string s;
  for (uint64_t v = gen(); s.size() < 12; v >>= 4) s += "0123456789abcdef"[v & 15];
  return s;
}

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
 public:
  TempDir() : path_(std::filesystem::temp_directory_path() / ("tvx-test-" + Nonce())) {
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::string str() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

// Which implementation is compiled in, asked of the platform layer itself.
inline bool OnWindows() {
  char name[16];
  return std::string(os::DynamicLibraryFileName("x", name, sizeof name)) == "x.dll";
}

}  // namespace tvx::test
