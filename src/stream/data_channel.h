// One data channel: a blocking read that follows the driver's completed-buffer count for the
// channel and copies whole buffers, in ring order, straight from the mapped DMA memory into
// the caller's memory.
//
// Decisions this file carries:
//  - Start position: a read starts where the last one stopped (the last position) whenever the
//    ring has not run ahead of it by BuffersPerCH - 1 or more, so consecutive reads join
//    without losing a buffer; the buffers that completed in between are copied at the first
//    data event. When the ring did run ahead, the read starts there too, and the overrun test
//    of that first event ends it with -2 and the position moved to the driver's count.
//  - The read cannot go on (result 3): the events cannot be set up (nothing written to
//    bytesRead, as before the read begins); the IO library gives no buffer map or no progress
//    record, the map has no descriptors for this channel, or a wait fails outright (neither
//    signalled nor timed out — waiting again would spin). In those cases bytesRead holds what
//    was copied and the events are closed, so the next read sets them up afresh; a failed
//    master call leaves its own text, the others put one into LastErrorText.
//  - Memory speed: a read whose buffers are already announced does not wait: it makes no
//    system call of its own and takes no lock. One IO-library call a read fetches the progress
//    record; the count behind it is loaded with acquire, at entry and at every data event (the
//    driver publishes it with release after the buffer). A count that moved since the
//    position is a data event already given (the driver signals after it publishes): the read
//    copies without waiting, and the signal left pending wakes a later wait, which finds
//    nothing new and waits on. Results, positions and precedence are those of a read that
//    waited for that event.
//  - Threads: one thread reads a channel at a time; reads of different channels write nothing
//    they share (the progress record is each read's own).
//  - No allocation and no intermediate buffer per read: the event name is a member buffer.
#pragma once

#include <cstdint>

#include "platform/os.h"
#include "torvixe.h"

namespace tvx {

class cMasterCfg;
class cZARIM;

class cDataChannel {
 public:
  cDataChannel(uint8_t board, uint8_t channel, cZARIM* io, const cMasterCfg* config)
      : Board(board), Channel(channel), Io(io), Config(config) {}
  virtual ~cDataChannel();
  cDataChannel(const cDataChannel&) = delete;
  cDataChannel& operator=(const cDataChannel&) = delete;

  // True when the driver completed a whole ring or more since `current`.
  virtual bool IsOverrun(uint32_t current, uint32_t count);
  // True when fewer than BuffersPerCH - 1 buffers completed since `last`.
  virtual bool IsWithinRing(uint32_t last, uint32_t count);
  // 0 (size bytes copied, or terminated), -1 overrun, -2 behind on entry, -4 a wait timed out,
  // 3 the read cannot go on (see above). `copied` gets the bytes copied except when the events
  // cannot be set up.
  virtual int32_t ReadData(uint8_t* destination, uint32_t size, uint32_t* copied, uint32_t timeout);

  static constexpr int32_t kTerminatedOrDone = 0, kOverrun = -1, kBehind = -2, kTimedOut = -4,
                           kCannotRead = 3;

  uint32_t last_position() const { return LastPosition; }
  uint32_t read_count() const { return ReadCount; }

 private:
  bool OpenEvents();
  void CloseEvents();
  void CannotRead(const char* what, uint32_t detail);

  uint8_t Board;
  uint8_t Channel;
  uint32_t LastPosition = 0;
  os::Event DataEvent = nullptr;
  os::Event TerminateEvent = nullptr;
  char EventName[128] = {};
  uint32_t ReadCount = 0;
  cZARIM* Io;
  const cMasterCfg* Config;
};

}  // namespace tvx
