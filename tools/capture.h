// The capture command: the main data job. Brings the board up, programs and starts the DMA
// engine, reads the chosen channels (a thread each) with ReadChannelData, and accounts for every
// buffer: bytes, rate, buffers lost, payload errors and the result codes seen.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "session.h"

namespace tvx::cli {

int RunCapture(Session& session);

// What a capture came to over all its channels, for a caller that sums it up.
struct CaptureTotals {
  size_t channels = 0;
  uint64_t bytes = 0;
  uint64_t lost = 0;
  uint64_t errors = 0;
  bool sequenced = true;   // every channel's data carried sequence numbers
};

// The capture with the options of session.inv(), adding to *totals (may be null). Its exit
// status, as RunCapture's.
int Capture(Session& session, CaptureTotals* totals);

// What one channel's reader saw; the pure parts are tested on their own.
struct ChannelTally {
  uint64_t bytes = 0;
  uint64_t buffers = 0;        // whole or cut buffers received
  uint64_t lost = 0;           // buffers the sequence numbers show missing
  uint64_t errors = 0;         // buffers whose payload is not what the engine wrote
  uint64_t next_sequence = 0;  // the buffer expected next
  bool sequenced = false;      // the data carries the virtual board's headers
  std::map<int32_t, uint64_t> results;   // ReadChannelData result -> times

  // Accounts for `size` bytes that arrived as one buffer of `buffer_size`. With `verify` the
  // whole payload is checked, else only its header (when there is one) for the sequence.
  void Account(const uint8_t* data, uint32_t size, unsigned channel, bool verify);
};

// "channel 3: 6553600 bytes, 3.28 MB/s, 100 buffers, 0 lost, 0 errors; results 0 x12 -4 x1"
std::string SummaryLine(unsigned channel, const ChannelTally& tally, double seconds, bool verify);

// "17 channels: 2210.40 MB/s, 0 lost, 0 errors; the engine completed 2213.12 MB/s there,
// verified 1.00 of it" — the engine part only when `engine_bytes` (what the virtual board's
// engine completed on the same channels) is known, i.e. not negative.
std::string TotalLine(const CaptureTotals& all, double seconds, bool verify, double engine_bytes);

// The same facts for --json: lost null without sequence numbers, errors null when not verified.
Json ChannelJson(unsigned channel, const ChannelTally& tally, double seconds, bool verify);

}  // namespace tvx::cli
