// The board configuration: channel count and DMA buffers per channel from the kernel driver's
// service key, read once when a board is created.
#pragma once

#include <cstdint>

namespace tvx {

class cMasterCfg {
 public:
  explicit cMasterCfg(const char* service_name);
  virtual ~cMasterCfg() = default;
  uint32_t GetBuffersPerCH() const { return BuffersPerCH; }
  uint32_t GetCHCount() const { return CHCount; }

 private:
  uint32_t BuffersPerCH;
  uint32_t CHCount;
};

}  // namespace tvx
