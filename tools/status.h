// The status screen: one view of a running board — its locks and channel-status bits, the
// carrier and rate measured, both channels' gains, the counters and temperatures, and on the
// virtual board what its models hold — shown once, or again and again with --watch.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "session.h"

namespace tvx::cli {

// What one screen shows. A field the library refused is empty, its text in `failures`.
struct StatusSnapshot {
  std::optional<uint32_t> word;   // GetBitStatus, cleared before the read
  bool carrier_threshold = true;  // false: the signal type shows no carrier lock
  bool timing_threshold = true;
  std::optional<double> carrier;  // MeasureCarrier, Hz
  std::optional<double> rate;     // MeasureTiming, symbols per second
  std::optional<GCValues> gains[2];
  std::optional<CountersRecord> counters;
  std::optional<float> pcb_celsius;
  std::optional<float> fpga_celsius;
  bool virtual_board = false;
  std::string signal_frequency, signal_rate, signal_level, dmpx_status;   // "?" when unknown
  std::vector<std::string> failures;   // "field: the library's text"
};

StatusSnapshot ReadStatus(Session& session);

// The screen's lines after its heading.
std::vector<std::string> StatusLines(const StatusSnapshot& snapshot);

// The same facts for --json: null for a field the library refused, a lock the signal type
// shows no indication of, and the virtual board's part elsewhere.
Json StatusJson(const StatusSnapshot& snapshot);

// One channel's gains as GetGCValues reports them: "attenuator 12 (6.00 dB), first 300 (level
// 0.50), second 7 (3.50 dB), total 30.00 dB". The reserved word is not shown: the library
// never writes it.
std::string GainText(const GCValues& values);

struct StatusOutcome {
  bool failed = false;        // a field could not be read, on some screen
  bool interrupted = false;   // Ctrl-C ended a watch
};

// The status step: one screen; with --watch S a screen every S seconds, in place on a terminal
// (cursor home and clear), else one after the other with a blank line between, until --count
// screens were shown or Ctrl-C.
StatusOutcome RunStatusScreens(Session& session);

}  // namespace tvx::cli
