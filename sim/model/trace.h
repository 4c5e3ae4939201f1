// The register trace of one board: every access the model sees, in order. It holds at most
// `capacity` entries; past that it keeps counting and drops the OLDEST entries, so that the
// trace always ends with the most recent accesses (what one wants to see after a failure).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zarimsim.h"

namespace zsim {

class Trace {
 public:
  explicit Trace(size_t capacity) : capacity_(capacity) {}

  void Record(uint32_t address, uint32_t value, bool write);
  void Clear();
  // Keeps the newest `capacity` entries of what is held now.
  void SetCapacity(size_t capacity);

  uint64_t count() const { return count_; }   // recorded since the last clear, dropped ones too
  size_t held() const { return entries_.size(); }
  // Copies the oldest min(max, held()) held entries, oldest first; returns how many.
  size_t Copy(zsim_access* out, size_t max) const;

 private:
  size_t capacity_;
  std::vector<zsim_access> entries_;   // a ring once full: the oldest at `start_`
  size_t start_ = 0;
  uint64_t count_ = 0;
};

}  // namespace zsim
