// The status step: what one screen reads from the library and the virtual board, how it lays
// it out, and the watch loop that shows it again until told to stop.
#include "status.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

#include "demod.h"
#include "platform/stdio_ext.h"

namespace tvx::cli {
namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> interrupted{false};
extern "C" void OnWatchInterrupt(int) { interrupted = true; }

std::string Format(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// The field's value, or the failure recorded for it: the library's text, else the call's name.
template <typename T>
std::optional<T> Read(StatusSnapshot* snapshot, const char* field, const char* call,
                      int32_t result, const T& value) {
  if (result == 0) return value;
  const std::string text = LastLibraryText();
  snapshot->failures.push_back(std::string(field) + ": " +
                               (text.empty() ? std::string(call) + " failed" : text));
  return std::nullopt;
}

// Sleeps until `until`, or less when Ctrl-C comes. False when it came.
bool SleepUntil(Clock::time_point until) {
  constexpr auto kSlice = std::chrono::milliseconds(50);
  for (;;) {
    if (interrupted) return false;
    const auto now = Clock::now();
    if (now >= until) return true;
    std::this_thread::sleep_for(std::min<Clock::duration>(until - now, kSlice));
  }
}

}  // namespace

std::string GainText(const GCValues& v) {
  char text[192];
  std::snprintf(text, sizeof text,
                "attenuator %u (%.2f dB), first %u (level %.2f), second %u (%.2f dB), "
                "total %.2f dB",
                unsigned(v.attenuatorCode), double(v.attenuation), unsigned(v.firstGainCode),
                double(v.firstGainLevel), unsigned(v.secondGainCode), double(v.secondGainLevel),
                double(v.totalGain));
  return text;
}

StatusSnapshot ReadStatus(Session& s) {
  StatusSnapshot snap;
  uint32_t word = 0;   // the call changes only the bits it owns
  snap.word = Read(&snap, "status word", "GetBitStatus", GetBitStatus(s.id(), &word), word);
  // Without the signal type's thresholds the bits are shown as they are.
  SignalParameters parameters{};
  if (GetSignalParameters(s.id(), &parameters) == 0) {
    snap.carrier_threshold = uint32_t(parameters.CarrierLockThreshold) != kNotApplicable;
    snap.timing_threshold = parameters.TimingLockThreshold != kNotApplicable;
  }
  double value = 0;
  snap.carrier = Read(&snap, "carrier", "MeasureCarrier", MeasureCarrier(s.id(), 0, &value), value);
  snap.rate = Read(&snap, "timing", "MeasureTiming", MeasureTiming(s.id(), 0, &value), value);
  GCValues gains{};
  snap.gains[0] =
      Read(&snap, "gains, channel 1", "GetGCValues", GetGCValues(s.id(), &gains), gains);
  gains = GCValues{};
  snap.gains[1] =
      Read(&snap, "gains, channel 2", "GetGCValuesMulti", GetGCValuesMulti(s.id(), &gains), gains);
  CountersRecord counters{};
  snap.counters = Read(&snap, "counters", "Counters", Counters(s.id(), &counters), counters);
  float celsius = 0;
  snap.pcb_celsius = Read(&snap, "PCB temperature", "GetPCBTemperature",
                          GetPCBTemperature(s.id(), &celsius), celsius);
  snap.fpga_celsius = Read(&snap, "FPGA temperature", "GetFPGATemperature",
                           GetFPGATemperature(s.id(), &celsius), celsius);
  snap.virtual_board = s.sim().available();
  if (snap.virtual_board) {
    snap.signal_frequency = SimValue(s, "demod.signal.frequency");
    snap.signal_rate = SimValue(s, "demod.signal.rate");
    snap.signal_level = SimValue(s, "signal.level");
    snap.dmpx_status = SimValue(s, "dmpx.status");
  }
  return snap;
}

std::vector<std::string> StatusLines(const StatusSnapshot& snap) {
  std::vector<std::string> lines;
  const auto lock = [&snap](bool has_threshold, uint32_t bit) {
    return snap.word ? LockText(has_threshold, (*snap.word & bit) != 0) : "lock unknown";
  };
  lines.push_back("carrier: " + lock(snap.carrier_threshold, kCarrierLockBit) + ", " +
                  (snap.carrier ? Format("measured %.2f Hz", *snap.carrier) : "not measured"));
  lines.push_back("timing: " + lock(snap.timing_threshold, kTimingLockBit) + ", " +
                  (snap.rate ? Format("measured %.2f sym/s", *snap.rate) : "not measured"));
  if (snap.word) {
    char text[128];
    std::snprintf(text, sizeof text,
                  "channel status: IQ %u, demodulated data %u (bits 4 and 6 of status word 0x%08X)",
                  (*snap.word & kIqChannelBit) != 0 ? 1u : 0u,
                  (*snap.word & kDmdChannelBit) != 0 ? 1u : 0u, unsigned(*snap.word));
    lines.push_back(text);
  } else {
    lines.push_back("channel status: unknown");
  }
  for (int channel = 0; channel < 2; ++channel)
    lines.push_back("gains, channel " + std::to_string(channel + 1) + ": " +
                    (snap.gains[channel] ? GainText(*snap.gains[channel]) : "unavailable"));
  if (const auto& c = snap.counters)
    lines.push_back("counters: IQ " + std::to_string(c->IqCount) + ", demodulated data " +
                    std::to_string(c->DmdCount) + ", ADC " + std::to_string(c->AdcCount) +
                    ", INT " + std::to_string(c->IntCount));
  else
    lines.push_back("counters: unavailable");
  const auto celsius = [](const std::optional<float>& t) {
    return t ? Format("%.2f °C", double(*t)) : std::string("unavailable");
  };
  lines.push_back("temperatures: PCB " + celsius(snap.pcb_celsius) + ", FPGA " +
                  celsius(snap.fpga_celsius));
  if (snap.virtual_board) {
    const std::string signal =
        snap.signal_frequency == "none"
            ? "no signal reaches the demodulator"
            : "the demodulator sees the signal at " + snap.signal_frequency + " Hz, " +
                  snap.signal_rate + " sym/s";
    lines.push_back("  virtual board: " + signal + "; signal level " + snap.signal_level +
                    " dBm; demultiplexer status " + snap.dmpx_status);
  }
  return lines;
}

Json StatusJson(const StatusSnapshot& snap) {
  Json json = Json::object();
  const auto lock = [&snap](bool has_threshold, uint32_t bit) {
    return snap.word && has_threshold ? Json((*snap.word & bit) != 0) : Json();
  };
  const auto bit = [&snap](uint32_t mask) {
    return snap.word ? Json((*snap.word & mask) != 0 ? 1 : 0) : Json();
  };
  Json& carrier = json["carrier"];
  carrier["locked"] = lock(snap.carrier_threshold, kCarrierLockBit);
  carrier["measured_hz"] = snap.carrier;
  Json& timing = json["timing"];
  timing["locked"] = lock(snap.timing_threshold, kTimingLockBit);
  timing["measured_sps"] = snap.rate;
  json["status_word"] = snap.word;
  json["iq_channel"] = bit(kIqChannelBit);
  json["demodulated_data_channel"] = bit(kDmdChannelBit);
  // The library's records are packed and the writer binds a reference to what it is given:
  // each field is copied out first.
  Json& gains = json["gains"] = Json::array();
  for (const auto& g : snap.gains) {
    Json& channel = gains.emplace_back(Json());
    if (!g) continue;
    channel["attenuator_code"] = uint32_t{g->attenuatorCode};
    channel["attenuation_db"] = double{g->attenuation};
    channel["first_code"] = uint32_t{g->firstGainCode};
    channel["first_level"] = double{g->firstGainLevel};
    channel["second_code"] = uint32_t{g->secondGainCode};
    channel["second_db"] = double{g->secondGainLevel};
    channel["total_db"] = double{g->totalGain};
  }
  Json& counters = json["counters"];
  if (const auto& c = snap.counters) {
    counters["iq"] = uint32_t{c->IqCount};
    counters["demodulated_data"] = uint32_t{c->DmdCount};
    counters["adc"] = uint32_t{c->AdcCount};
    counters["int"] = uint32_t{c->IntCount};
  }
  Json& temperatures = json["temperatures"];
  temperatures["pcb_celsius"] = snap.pcb_celsius;
  temperatures["fpga_celsius"] = snap.fpga_celsius;
  Json& board = json["virtual_board"];
  if (snap.virtual_board) {
    board["signal_frequency_hz"] = NumberOrNull(snap.signal_frequency);
    board["signal_rate_sps"] = NumberOrNull(snap.signal_rate);
    board["signal_level_dbm"] = NumberOrNull(snap.signal_level);
    board["dmpx_status"] = NumberOrNull(snap.dmpx_status);
  }
  return json;
}

StatusOutcome RunStatusScreens(Session& s) {
  const Invocation& inv = s.inv();
  const bool watch = inv.watch > 0;
  // 0: until Ctrl-C.
  const uint32_t screens = !watch ? 1 : (inv.options_given & kOptCount) != 0 ? inv.count : 0;
  const bool in_place = watch && os::IsTerminal(stdout);
  const auto interval = std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(inv.watch));

  StatusOutcome outcome;
  interrupted = false;
  void (*previous)(int) = watch ? std::signal(SIGINT, OnWatchInterrupt) : nullptr;
  const Clock::time_point began = Clock::now();
  uint32_t shown = 0;
  for (;;) {
    const double elapsed = std::chrono::duration<double>(Clock::now() - began).count();
    const StatusSnapshot snap = ReadStatus(s);
    if (inv.json) s.json()["status"] = StatusJson(snap);
    ++shown;
    if (in_place) std::printf("\033[H\033[2J");   // cursor home, screen cleared
    else if (shown > 1) std::printf("\n");
    std::printf("board %u status", s.board());
    if (watch) {
      const std::string of = screens != 0 ? " of " + std::to_string(screens) : "";
      std::printf(", screen %u%s, %.2f s%s", shown, of.c_str(), elapsed,
                  screens == 0 ? " (Ctrl-C ends)" : "");
    }
    std::printf("\n");
    for (const std::string& line : StatusLines(snap)) std::printf("%s\n", line.c_str());
    std::fflush(stdout);
    for (const std::string& failure : snap.failures) PrintError("status: " + failure);
    outcome.failed = outcome.failed || !snap.failures.empty();
    if (screens != 0 && shown >= screens) break;
    if (!SleepUntil(began + interval * shown)) {
      outcome.interrupted = true;
      break;
    }
  }
  if (watch) std::signal(SIGINT, previous);
  if (outcome.interrupted)
    std::printf("interrupted after %u screen%s\n", shown, shown == 1 ? "" : "s");
  return outcome;
}

}  // namespace tvx::cli
