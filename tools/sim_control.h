// The virtual board's control interface, found at run time. The CLI never links the IO
// library: it loads `zarimio` by its plain name, exactly as the driver library does, and so
// shares the one instance the library talks to. On hardware the vendor's zarimio has no
// zsim_* functions and every virtual-board option says so.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "zarimsim.h"

namespace tvx::cli {

class SimControl {
 public:
  // Loads the IO library and looks up the control functions. The library stays loaded for
  // the life of the process: the driver library holds the same instance. `path` names the
  // file to load instead (a recorded run: the recorder's target, see record.h).
  explicit SimControl(const std::string& path = "");
  SimControl(const SimControl&) = delete;
  SimControl& operator=(const SimControl&) = delete;

  bool available() const { return set_ && get_ && load_config_ && trace_ && trace_clear_; }
  // Why the virtual-board options cannot be used (meaningful when !available()).
  std::string WhyUnavailable() const;

  // 0 or the control interface's nonzero refusal.
  int Set(unsigned board, const std::string& key, const std::string& value) const;
  // Null for an unknown key (or no virtual board).
  const char* Get(unsigned board, const char* key) const;
  int LoadConfig(const std::string& path) const;
  // The number of boards the virtual board has; 0 when it cannot tell.
  unsigned BoardCount() const;

  size_t TraceCount(unsigned board) const;
  std::vector<zsim_access> Trace(unsigned board) const;
  void TraceClear(unsigned board) const;

 private:
  void* library_ = nullptr;
  decltype(&zsim_set) set_ = nullptr;
  decltype(&zsim_get) get_ = nullptr;
  decltype(&zsim_load_config) load_config_ = nullptr;
  decltype(&zsim_trace) trace_ = nullptr;
  decltype(&zsim_trace_clear) trace_clear_ = nullptr;
};

}  // namespace tvx::cli
