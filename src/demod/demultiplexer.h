// The demultiplexer of the RS block: its byte table loaded from a file into a 65 535-step
// space (filled from the top), its data offset and three control words, its status bits.
#pragma once

#include <cstdint>

#include "hw/common_module.h"
#include "torvixe.h"

namespace tvx {

class cDemultiplexer : public cCommonModule {
 public:
  explicit cDemultiplexer(cZARIM* io) : cCommonModule(io) {}

  // 0, or 1 with the module's text (file that does not open or cannot be read, or longer than
  // the table).
  int32_t LoadData(const char* fileName);
  void ApplyControl(const DmpxControl* control);
  uint32_t ReadStatus();

  uint32_t data_offset_base() const { return DataOffsetBase; }

 private:
  uint32_t StatusBits = 0;
  // The length of the last table loaded, which places its start (see LoadData); 0 before any.
  uint32_t DataOffsetBase = 0;
};

}  // namespace tvx
