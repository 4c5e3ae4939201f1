// Run-time lookup of the virtual board's control functions.
#include "sim_control.h"

#include <algorithm>

#include "platform/os.h"
#include "text.h"

namespace tvx::cli {
namespace {

template <typename Fn>
void Resolve(void* library, const char* name, Fn* out) {
  *out = reinterpret_cast<Fn>(os::FindSymbol(library, name));
}

}  // namespace

SimControl::SimControl(const std::string& path) {
  library_ = path.empty() ? os::LoadDynamicLibrary("zarimio") : os::LoadDynamicLibraryPath(path.c_str());
  if (library_ == nullptr) return;
  Resolve(library_, "zsim_set", &set_);
  Resolve(library_, "zsim_get", &get_);
  Resolve(library_, "zsim_load_config", &load_config_);
  Resolve(library_, "zsim_trace", &trace_);
  Resolve(library_, "zsim_trace_clear", &trace_clear_);
}

std::string SimControl::WhyUnavailable() const {
  char file[64];
  os::DynamicLibraryFileName("zarimio", file, sizeof file);
  if (library_ == nullptr)
    return std::string("not running on the virtual board (the IO library ") + file +
           " could not be loaded)";
  return std::string("not running on the virtual board (") + file +
         " has no virtual-board control functions)";
}

int SimControl::Set(unsigned board, const std::string& key, const std::string& value) const {
  return set_ != nullptr ? set_(board, key.c_str(), value.c_str()) : -1;
}

const char* SimControl::Get(unsigned board, const char* key) const {
  return get_ != nullptr ? get_(board, key) : nullptr;
}

int SimControl::LoadConfig(const std::string& path) const {
  return load_config_ != nullptr ? load_config_(path.c_str()) : -1;
}

unsigned SimControl::BoardCount() const {
  const char* text = Get(0, "boards");
  uint64_t count = 0;
  if (text == nullptr || !ParseUnsigned(text, 0xFFFFFFFFu, &count)) return 0;
  return static_cast<unsigned>(count);
}

size_t SimControl::TraceCount(unsigned board) const {
  return trace_ != nullptr ? trace_(board, nullptr, 0) : 0;
}

std::vector<zsim_access> SimControl::Trace(unsigned board) const {
  std::vector<zsim_access> entries(TraceCount(board));
  // Entries can only have been added since the count was taken; never read past the room.
  if (!entries.empty())
    entries.resize(std::min(trace_(board, entries.data(), entries.size()), entries.size()));
  return entries;
}

void SimControl::TraceClear(unsigned board) const {
  if (trace_clear_ != nullptr) trace_clear_(board);
}

}  // namespace tvx::cli
