// The virtual board's configuration-file reader, through zsim_load_config: the input is the
// file. Every board goes back to its defaults after each input.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz_util.h"
#include "zarimsim.h"

namespace {
bool Contains(const uint8_t* data, size_t size, const std::string& word) {
  return std::search(data, data + size, word.begin(), word.end()) != data + size;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Up to 256 boards of 32 MiB RAM and a 16 MiB BAR each are within the keys' ranges and far
  // beyond any fuzzing memory budget: many boards, or large memories, but not both.
  if (Contains(data, size, "boards") && (Contains(data, size, "ram.size") || Contains(data, size, "bar.size")))
    return -1;
  const char* path = fuzz::WriteInput(data, size);
  const int result = zsim_load_config(path);
  // 0, or the number of the refused line; the file exists, so never -1.
  const long lines = std::count(data, data + size, '\n') + 1;
  FUZZ_CHECK(result >= 0 && result <= lines);
  zsim_reset();
  // Keys alone never open, map or create anything.
  const char* live = zsim_get(0, "live");
  FUZZ_CHECK(live && std::strcmp(live, "open=0 bar_mapped=0 memory_mapped=0 events=0") == 0);
  return 0;
}
