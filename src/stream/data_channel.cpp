#include "stream/data_channel.h"

#include <algorithm>
#include <cstring>

#include "api/frame.h"
#include "api/master_cfg.h"
#include "hw/text.h"
#include "hw/zarim.h"

namespace tvx {

namespace {

// The driver's completed count for a channel. The board (or the driver) stores it with release
// after the buffer it announces is written, so this load acquires: the copies that follow see
// the whole buffer.
const uint32_t* CompletedCount(const InterruptRecord& record, uint8_t channel) {
  return reinterpret_cast<const uint32_t*>(static_cast<const unsigned char*>(record.Channels) +
                                           size_t(channel) * sizeof(ChannelProgress) +
                                           offsetof(ChannelProgress, Completed));
}

uint32_t Acquire(const uint32_t* count) { return __atomic_load_n(count, __ATOMIC_ACQUIRE); }

}  // namespace

cDataChannel::~cDataChannel() { CloseEvents(); }

bool cDataChannel::IsOverrun(uint32_t current, uint32_t count) {
  return count - current >= Config->GetBuffersPerCH();
}

bool cDataChannel::IsWithinRing(uint32_t last, uint32_t count) {
  return count - last < Config->GetBuffersPerCH() - 1;
}

// The data event is the driver's: opened, never created. The terminate event is shared by this
// channel number on every board in the session.
bool cDataChannel::OpenEvents() {
  Format(EventName, "Global\\zarim%devnt%d", int(Io->GetSlotNumber()), int(Channel));
  DataEvent = os::OpenNamedEvent(EventName);
  Format(EventName, "TORVIX.TerminateEvent%d", int(Channel));
  TerminateEvent = os::CreateNamedEvent(EventName);
  if (DataEvent && TerminateEvent) return true;
  CloseEvents();
  return false;
}

void cDataChannel::CloseEvents() {
  os::CloseEvent(DataEvent);
  os::CloseEvent(TerminateEvent);
  DataEvent = TerminateEvent = nullptr;
  ReadCount = 0;
}

void cDataChannel::CannotRead(const char* what, uint32_t detail) {
  SetLastErrorText("%s [%d] ChannelID %d: %s (%u)", "ReadChannelData", int(Board), int(Channel),
                   what, unsigned(detail));
  CloseEvents();
}

int32_t cDataChannel::ReadData(uint8_t* destination, uint32_t size, uint32_t* copied,
                               uint32_t timeout) {
  if (ReadCount == 0 && !OpenEvents()) return kCannotRead;
  ++ReadCount;

  const uint32_t per_channel = Config->GetBuffersPerCH();
  DeviceId id{Board};
  BufferMap map{};
  InterruptRecord record{};
  *copied = 0;
  MasterGetBuffers(&id, &map);
  if (map.Descriptors == nullptr || uint64_t(Channel + 1) * per_channel > map.DescriptorCount) {
    CannotRead("нет дескрипторов буферов канала в карте памяти", map.DescriptorCount);
    return kCannotRead;
  }
  if (MasterGetInterruptInfo(&id, &record) != 0 || record.Channels == nullptr) {
    CloseEvents();
    return kCannotRead;
  }
  // The record is the driver's for as long as the memory is mapped: the count behind it is
  // read again at every data event, without asking the IO library again.
  const uint32_t* completed = CompletedCount(record, Channel);
  const auto* ring = static_cast<const BufferDescriptor*>(map.Descriptors) + size_t(Channel) * per_channel;
  const bool within_ring = IsWithinRing(LastPosition, Acquire(completed));
  uint32_t position = LastPosition;

  uint32_t done = 0;
  bool timed_out = false, overrun = false, failed = false;
  while (done < size && !timed_out && !overrun && !failed) {
    // The driver signals the event after it publishes the count, so a count that moved is an
    // event already given (or about to be): the read takes it without a system call. The
    // signal stays pending and wakes a later wait, which finds nothing new and waits on.
    uint32_t count = Acquire(completed);
    if (count == position) {
      const os::WaitResult wait = os::WaitForEither(DataEvent, TerminateEvent, timeout);
      if (wait == os::WaitResult::kSecond) break;
      if (wait == os::WaitResult::kTimeout) {
        timed_out = true;
        continue;
      }
      if (wait == os::WaitResult::kFailed) {
        CannotRead("ошибка ожидания события", os::LastError());
        failed = true;
        continue;
      }
      count = Acquire(completed);
    }
    if (IsOverrun(position, count)) {
      LastPosition = count;
      overrun = true;
      continue;
    }
    for (uint32_t j = position; j != count && done < size; ++j) {
      const BufferDescriptor& buffer = ring[j % per_channel];
      const uint32_t chunk = std::min(buffer.Size, size - done);
      std::memcpy(destination + done, buffer.Address, chunk);
      done += chunk;
    }
    // Buffers this event announced that no longer fit are dropped: the next read starts after
    // them.
    position = LastPosition = count;
  }
  *copied = done;
  if (timed_out) return kTimedOut;
  if (failed) return kCannotRead;
  if (!within_ring) return kBehind;
  if (overrun) return kOverrun;
  return kTerminatedOrDone;
}

}  // namespace tvx
