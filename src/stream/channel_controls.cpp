#include "stream/channel_controls.h"

#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"

namespace tvx {

int32_t cChannelControl::SetControl(const uint32_t* word) {
  if (word == nullptr) {
    CopyText(Text, sizeof Text, kDataPointerNotSet);
    return -1;
  }
  // A failed write leaves the module's text as it was: the hardware-access object keeps the
  // detail of the failure.
  return Io->WritePort(Dem(ControlWord), *word);
}

uint8_t cCountingChannel::GetCounter() {
  uint32_t word = 0;
  Io->ReadPort(Dem(dem::kChannelCounters), &word);
  return uint8_t(word >> CounterShift);
}

uint8_t cCountingChannel::GetStatusBit() {
  uint32_t word = 0;
  Io->ReadPort(Dem(dem::kChannelStatus), &word);
  return uint8_t(word >> StatusBit & 1u);
}

cIQCHCtrl::cIQCHCtrl(cZARIM* io)
    : cCountingChannel(io, dem::kIqChannelControl, dem::kIqChannelStatusBit, dem::kIqCounterShift) {}

cDMDCHCtrl::cDMDCHCtrl(cZARIM* io)
    : cCountingChannel(io, dem::kDmdChannelControl, dem::kDmdChannelStatusBit,
                       dem::kDmdCounterShift) {}

cDMA3CHCtrl::cDMA3CHCtrl(cZARIM* io) : cChannelControl(io, dem::kDma3ChannelControl) {}

}  // namespace tvx
