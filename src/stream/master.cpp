#include "stream/master.h"

#include <cstring>

#include "hw/regs.h"
#include "hw/regs/int.h"
#include "hw/text.h"
#include "hw/zarimio_abi.h"

namespace tvx {

static_assert(sizeof(BufferMap) == sizeof(zarimio::MemoryMapInfo));
static_assert(sizeof(InterruptRecord) == sizeof(zarimio::InterruptInfo));

int32_t cMaster::StartDma(uint32_t parameter) {
  StartParameter = parameter;
  Io->WritePort(Int(int_regs::kDmaControl), parameter | int_regs::kDmaRun);
  return 0;
}

int32_t cMaster::StopDma() {
  Io->WritePort(Int(int_regs::kDmaControl), 0);
  return 0;
}

int32_t cMaster::GetBufferMap(BufferMap* out) { return Io->GetMemoryMapInfo(out); }

int32_t cMaster::ReadInterruptInfo(InterruptRecord* out) { return Io->GetInterruptInfo(out); }

// The descriptors are read from the memory the IO library mapped, so the map must be the one it
// handed out: a map pointing anywhere else (or counting more descriptors than there are) would
// have the library read memory it does not own. A shorter count is the caller's to choose.
// Buffers per channel come from the board configuration, which never holds 0; the check
// stands because the division below must never meet one.
int32_t cMasterE::LoadBuffers(const BufferMap* map, uint32_t buffers_per_channel) {
  if (!Io->memory_mapped()) {
    CopyText(Text, sizeof Text, "Память не отображена в устройство");
    return 1;
  }
  BufferMap mapped{};
  Io->GetMemoryMapInfo(&mapped);
  if (map->Descriptors != mapped.Descriptors || map->DescriptorCount > mapped.DescriptorCount) {
    Format(Text, "Карта буферов не совпадает с отображённой памятью устройства (%u дескрипторов)",
           unsigned(mapped.DescriptorCount));
    return 1;
  }
  if (buffers_per_channel == 0) {
    CopyText(Text, sizeof Text, "Число буферов на канал равно 0");
    return 1;
  }
  const auto* descriptors = static_cast<const BufferDescriptor*>(map->Descriptors);
  const uint32_t last = buffers_per_channel - 1;
  for (uint32_t i = 0; i < map->DescriptorCount; ++i) {
    const uint32_t channel = i / buffers_per_channel, buffer = i % buffers_per_channel;
    const BufferDescriptor& d = descriptors[i];
    Io->WritePort(Int(int_regs::kDmaSelect), channel << int_regs::kDmaSelectChannelShift | buffer);
    Io->WritePort(Int(int_regs::kDmaBusAddress), d.BusAddress | int_regs::kDmaBusAddressValid);
    if (buffer == last) {
      Io->WritePort(Int(int_regs::kDmaChannelClear), 0);
      Io->WritePort(Int(int_regs::kDmaGeometry),
                    last << int_regs::kDmaBuffersShift | ((d.Size >> int_regs::kDmaBlocksShift) - 1));
    }
  }
  return 0;
}

}  // namespace tvx
