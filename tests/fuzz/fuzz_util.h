// Shared by the fuzz targets: a broken invariant aborts with its line (libFuzzer keeps the
// input), and the input goes to a file of its own, since every parser here reads a named file.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fuzz {

[[noreturn]] inline void Broken(const char* file, int line, const char* what) {
  std::fprintf(stderr, "%s:%d: invariant broken: %s\n", file, line, what);
  std::abort();
}
#define FUZZ_CHECK(cond) ((cond) ? void() : fuzz::Broken(__FILE__, __LINE__, #cond))

// One file per process, so that parallel runs never share it; removed at exit.
inline const char* WriteInput(const void* data, size_t size) {
  static const std::string path =
      (std::filesystem::temp_directory_path() / ("tvx-fuzz-" + std::to_string(getpid()))).string();
  static const int removal = std::atexit([] { std::remove(path.c_str()); });
  (void)removal;
  std::FILE* f = std::fopen(path.c_str(), "wb");
  FUZZ_CHECK(f != nullptr && (size == 0 || std::fwrite(data, 1, size, f) == size));
  std::fclose(f);
  return path.c_str();
}

}  // namespace fuzz
