// gain, eq and dmpx: each step makes its call, says what it set, and reads back what the library
// reports; on the virtual board what the models received follows.
#include "controls.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <tuple>

#include "status.h"
#include "text.h"

namespace tvx::cli {
namespace {

// The demultiplexer's table space: a longer file has no place in it.
constexpr uintmax_t kDmpxTableBytes = 65535;

std::string FileSize(const std::string& path) {
  std::error_code error;
  const auto bytes = std::filesystem::file_size(path, error);
  return error ? "size unknown" : std::to_string(bytes) + " bytes";
}

// Both channels, as GetGCValues and GetGCValuesMulti read them back.
bool ShowGains(Session& s, const std::string& step) {
  GCValues values[2] = {};
  if (GetGCValues(s.id(), &values[0]) != 0) return StepFailed(step, "GetGCValues");
  if (GetGCValuesMulti(s.id(), &values[1]) != 0) return StepFailed(step, "GetGCValuesMulti");
  for (int channel = 0; channel < 2; ++channel)
    std::printf("gains, channel %d: %s\n", channel + 1, GainText(values[channel]).c_str());
  return true;
}

bool ShowTaps(Session& s, const std::string& step) {
  uint16_t first[kEqTaps] = {}, second[kEqTaps] = {};
  EqCoefficients block{};
  block.FirstValues = first;
  block.SecondValues = second;
  if (EQGetCoeff(s.id(), &block) != 0) return StepFailed(step, "EQGetCoeff");
  for (const std::string& line : TapLines(block.Count, first, second, kEqTaps))
    std::printf("%s\n", line.c_str());
  return true;
}

bool ShowDmpxStatus(Session& s, const std::string& step) {
  uint32_t status = 0;
  if (DMPXStatus(s.id(), &status) != 0) return StepFailed(step, "DMPXStatus");
  std::printf("%s\n", DmpxStatusText(status).c_str());
  return true;
}

void ShowSimKeys(const Session& s, const std::string& text) {
  if (s.sim().available()) std::printf("  virtual board: %s\n", text.c_str());
}

bool RunEqSet(Session& s, const DemodStep& step) {
  // The library reads as many pairs as the count says, at most the 13 taps; arrays never
  // shorter than that keep a library that reads all 13 inside them.
  const size_t size = std::max<size_t>(step.pairs.size(), kEqTaps);
  std::vector<uint16_t> first(size), second(size);
  for (size_t i = 0; i < step.pairs.size(); ++i) std::tie(first[i], second[i]) = step.pairs[i];
  EqCoefficients block{};
  block.Count = uint32_t(step.pairs.size());
  block.FirstValues = first.data();
  block.SecondValues = second.data();
  if (EQManualCoeffLoad(s.id(), &block) != 0) return StepFailed("eq set", "EQManualCoeffLoad");
  std::printf("equalizer coefficients loaded: %zu pair%s (count %zu)\n", step.pairs.size(),
              step.pairs.size() == 1 ? "" : "s", step.pairs.size());
  return ShowTaps(s, "eq set");
}

// DMPXLoad answers a file it cannot take with 1 and no text of its own, so the tool names the
// file and what it can see wrong with it.
bool RunDmpxLoad(Session& s, const DemodStep& step) {
  const int32_t result = DMPXLoad(s.id(), step.file.c_str());
  if (result == 1) {
    std::error_code error;
    const bool exists = std::filesystem::exists(step.file, error);
    const auto bytes = std::filesystem::file_size(step.file, error);
    const std::string why = !exists ? "no such file"
                            : !error && bytes > kDmpxTableBytes
                                ? std::to_string(bytes) + " bytes, longer than the table (" +
                                      std::to_string(kDmpxTableBytes) + " bytes)"
                                : "the file cannot be read";
    PrintError("dmpx load: DMPXLoad could not load " + step.file + " (result 1, no text from " +
               "the library): " + why);
    return false;
  }
  if (result != 0) return StepFailed("dmpx load", "DMPXLoad");
  std::printf("demultiplexer table loaded from %s (%s)\n", step.file.c_str(),
              FileSize(step.file).c_str());
  ShowSimKeys(s, SimValue(s, "dmpx.bytes") + " table bytes stored, CRC-32 " +
                     SimValue(s, "dmpx.crc") + ", the first at step " + SimValue(s, "dmpx.fill"));
  return true;
}

}  // namespace

ChannelControlWrite ChannelControl(const std::string& which) {
  return which == "iq" ? IQControl : which == "dmd" ? DMDControl : which == "dma3" ? DMA3CHControl
                                                                                  : nullptr;
}

std::string DmpxStatusText(uint32_t status) {
  char text[96];
  std::snprintf(text, sizeof text,
                "demultiplexer status 0x%08X: bit 0 %u, bit 1 %u, bit 2 %u, bit 3 %u",
                unsigned(status), status & 1u, (status >> 1) & 1u, (status >> 2) & 1u,
                (status >> 3) & 1u);
  return text;
}

std::vector<std::string> TapLines(uint32_t count, const uint16_t* first, const uint16_t* second,
                                  uint32_t capacity) {
  std::vector<std::string> lines{"equalizer taps (count " + std::to_string(count) + ")" +
                                 (count > capacity ? ", the first " + std::to_string(capacity) +
                                                         " shown:"
                                                   : ":")};
  for (uint32_t i = 0; i < std::min(count, capacity); ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "  tap %2u: first %u, second %u", unsigned(i),
                  unsigned(first[i]), unsigned(second[i]));
    lines.push_back(line);
  }
  return lines;
}

bool RunControlStep(Session& s, const DemodStep& step) {
  const std::vector<uint32_t>& w = step.words;
  switch (step.kind) {
    case DemodStep::kGainFirst:
      if (FirstGainControl(s.id(), &w[0]) != 0) return StepFailed("gain first", "FirstGainControl");
      std::printf("first gain code %u set\n", unsigned(w[0]));
      ShowSimKeys(s, "first stage control word " + SimValue(s, "gain.first.control"));
      return ShowGains(s, "gain first");
    case DemodStep::kGainSecond:
      if (SecondGainControl(s.id(), w.data()) != 0)
        return StepFailed("gain second", "SecondGainControl");
      std::printf("second gain words %s %s set\n", Hex32(w[0]).c_str(), Hex32(w[1]).c_str());
      ShowSimKeys(s, "second stage control words " + SimValue(s, "gain.second.control"));
      return ShowGains(s, "gain second");
    case DemodStep::kEqControl:
      if (EQControl(s.id(), &w[0]) != 0) return StepFailed("eq control", "EQControl");
      std::printf("equalizer control word %s set\n", Hex32(w[0]).c_str());
      ShowSimKeys(s, "equalizer control word " + SimValue(s, "eq.control"));
      return true;
    case DemodStep::kEqTable:
      if (EQErrorTblLoad(s.id(), step.file.c_str()) != 0)
        return StepFailed("eq table", "EQErrorTblLoad");
      std::printf("equalizer error table loaded from %s (%s)\n", step.file.c_str(),
                  FileSize(step.file).c_str());
      ShowSimKeys(s, SimValue(s, "eq.table.words") + " error-table words received, CRC-32 " +
                         SimValue(s, "eq.table.crc"));
      return true;
    case DemodStep::kEqTaps: return ShowTaps(s, "eq taps");
    case DemodStep::kEqSet: return RunEqSet(s, step);
    case DemodStep::kDmpxLoad: return RunDmpxLoad(s, step);
    case DemodStep::kDmpxControl: {
      const DmpxControl control{w[0], w[1], w[2]};
      if (DMPXControl(s.id(), &control) != 0) return StepFailed("dmpx control", "DMPXControl");
      std::printf("demultiplexer control words %s %s %s set\n", Hex32(w[0]).c_str(),
                  Hex32(w[1]).c_str(), Hex32(w[2]).c_str());
      ShowSimKeys(s, "control words " + SimValue(s, "dmpx.control.1") + " " +
                         SimValue(s, "dmpx.control.2") + " " + SimValue(s, "dmpx.control.3") +
                         " (the third as the library wrote it), data offset " +
                         SimValue(s, "dmpx.offset"));
      return ShowDmpxStatus(s, "dmpx control");
    }
    case DemodStep::kDmpxStatus: return ShowDmpxStatus(s, "dmpx status");
    default: return false;   // the chain runs the other steps itself
  }
}

}  // namespace tvx::cli
