// The emulated board: register blocks, configuration keys and the register trace. The same
// model serves the virtual board's trapped BAR and, in process, the library's unit tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zarimsim.h"

namespace zsim {

class BoardModel {
 public:
  explicit BoardModel(unsigned index);
  ~BoardModel();
  BoardModel(const BoardModel&) = delete;
  BoardModel& operator=(const BoardModel&) = delete;

  // A 32-bit register access at a byte address of the register BAR, as the hardware sees it.
  // Both are recorded in the trace.
  uint32_t Read(uint32_t address);
  void Write(uint32_t address, uint32_t value);

  // Keys of docs/virtual-board.md. Set: 0, or nonzero for an unknown key or a bad value.
  // Get: false for an unknown key.
  int Set(const std::string& key, const std::string& value);
  bool Get(const std::string& key, std::string* value) const;
  void Reset();   // defaults, as built

  std::vector<zsim_access> Trace() const;
  void ClearTrace();

  unsigned index() const;
  uint32_t bar_size() const;

  struct State;
 private:
  State* state_;
};

}  // namespace zsim
