// The sampling clock in `info` and the `synth` command. The library exports no reading of its
// sampling clock: the tool says what bring-up sets for the convertor type, and on the virtual
// board what the synthesizer really received, decoded from its words.
#include "rf.h"

#include <cstdio>

#include "loaders.h"
#include "text.h"

namespace tvx::cli {
namespace {

std::string SimValue(const Session& s, const char* key) {
  const char* value = s.sim().available() ? s.sim().Get(s.board(), key) : nullptr;
  return value != nullptr ? value : "?";
}

// "186666666.67 Hz (N 112), locked" from the virtual board's S synthesizer.
std::string SynthesizerView(const Session& s) {
  const std::string hz = SimValue(s, "synth.s.frequency");
  if (hz == "none") return "nothing it could tune to received";
  return hz + " Hz (N " + SimValue(s, "synth.s.n") + "), " +
         (SimValue(s, "synth.s.locked") == "1" ? "locked" : "NOT locked");
}

}  // namespace

double LibrarySampleClock(uint8_t convertor_type) {
  return convertor_type == 5 ? 280e6 : 560e6 / 3;
}

void ShowSampleClock(Session& s, uint8_t type) {
  if (type != 0)
    std::printf("sampling clock: %.2f Hz, set by the library for convertor type %u\n",
                LibrarySampleClock(type), type);
  else
    std::printf("sampling clock: %.2f Hz as the library sets it, or %.2f Hz with a type 5 "
                "convertor (the library has no convertor type to tell)\n",
                LibrarySampleClock(3), LibrarySampleClock(5));
  Json& facts = s.json()["sampling_clock"] = Json::object();
  facts["hz"] = type != 0 ? Json(LibrarySampleClock(type)) : Json();
  facts["virtual_board"] = nullptr;
  if (s.sim().available()) {
    std::printf("  virtual board's sampling synthesizer: %s\n", SynthesizerView(s).c_str());
    Json& synth = facts["virtual_board"] = Json::object();
    synth["hz"] = NumberOrNull(SimValue(s, "synth.s.frequency"));
    synth["n"] = NumberOrNull(SimValue(s, "synth.s.n"));
    synth["locked"] = SimValue(s, "synth.s.locked") == "1";
  }
}

int RunSynth(Session& s) {
  const auto& args = s.inv().args;
  double hz = 0;
  if (args[0] != "s") {
    PrintError("synth: unknown synthesizer '" + args[0] + "' (s: the sampling clock); see "
               "'torvixe synth --help'");
    return kExitUsage;
  }
  if (!ParseNumber(args[1], &hz)) {
    PrintError("synth s: invalid frequency '" + args[1] + "' (a decimal number, e.g. 186.7e6)");
    return kExitUsage;
  }
  // Bring-up loads the same synthesizer, so its failure is shown the same way.
  std::string failure;
  int status = kExitOk;
  if (!s.BringUp(&failure)) {
    PrintError("board " + std::to_string(s.board()) + ": bring-up failed: " + failure);
    status = kExitFailed;
  } else if (sSynthLoad(s.id(), &hz) != 0) {
    PrintError("synth s: " + LastLibraryText());
    status = kExitFailed;
  } else {
    std::printf("sampling synthesizer loaded for %.2f Hz\n", hz);
  }
  // Shown after a failure too: which word went unanswered, or a loop that did not lock.
  if (s.sim().available())
    std::printf("  virtual board: words reference %s, function %s, counter %s: %s\n",
                SimValue(s, "synth.s.ref").c_str(), SimValue(s, "synth.s.function").c_str(),
                SimValue(s, "synth.s.counter").c_str(), SynthesizerView(s).c_str());
  return status;
}

}  // namespace tvx::cli
