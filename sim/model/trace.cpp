// The register trace as a bounded ring.
#include "trace.h"

#include <algorithm>

namespace zsim {

void Trace::Record(uint32_t address, uint32_t value, bool write) {
  ++count_;
  if (capacity_ == 0) return;
  const zsim_access entry{address, value, uint8_t(write ? 1 : 0)};
  if (entries_.size() < capacity_) {
    entries_.push_back(entry);
    return;
  }
  entries_[start_] = entry;
  start_ = (start_ + 1) % entries_.size();
}

void Trace::Clear() {
  entries_.clear();
  entries_.shrink_to_fit();
  start_ = 0;
  count_ = 0;
}

void Trace::SetCapacity(size_t capacity) {
  std::rotate(entries_.begin(), entries_.begin() + ptrdiff_t(start_), entries_.end());
  start_ = 0;
  if (entries_.size() > capacity)
    entries_.erase(entries_.begin(), entries_.begin() + ptrdiff_t(entries_.size() - capacity));
  capacity_ = capacity;
}

size_t Trace::Copy(zsim_access* out, size_t max) const {
  const size_t n = std::min(max, entries_.size());
  for (size_t i = 0; i < n; ++i) out[i] = entries_[(start_ + i) % entries_.size()];
  return n;
}

}  // namespace zsim
