// The bus-master (DMA) module: hands out the IO library's buffer map, programs every buffer's
// bus address and each channel's geometry into the FPGA's DMA engine, runs and halts it, and
// reads the driver's per-channel progress record.
#pragma once

#include <cstdint>

#include "hw/common_module.h"
#include "torvixe.h"

namespace tvx {

class cMaster : public cCommonModule {
 public:
  using cCommonModule::cCommonModule;
  // 0, or 1 with the module's text (memory not mapped, or a map that is not the board's).
  virtual int32_t LoadBuffers(const BufferMap* map, uint32_t buffers_per_channel) = 0;

  int32_t StartDma(uint32_t parameter);
  int32_t StopDma();
  // 0 and the map copied out; -1 (nothing copied) while the memory is not mapped.
  int32_t GetBufferMap(BufferMap* out);
  // The hardware-access object's code; the record is copied out only on 0.
  int32_t ReadInterruptInfo(InterruptRecord* out);

  // The two start parameters the engine takes.
  static constexpr uint32_t kStartA = 0x40000000;
  static constexpr uint32_t kStartB = 0x80000000;

 private:
  uint32_t StartParameter = 0;
};

class cMasterE : public cMaster {
 public:
  using cMaster::cMaster;
  int32_t LoadBuffers(const BufferMap* map, uint32_t buffers_per_channel) override;
};

}  // namespace tvx
