// The clock the DEM FPGA's blocks run from: the sampling synthesizer's output as its words
// program it, or the board's usual clock while they define none (the library's unit tests
// and a test rig that never loads the synthesizer still see sensible frequencies).
#pragma once

#include <string>

#include "keys.h"

namespace zsim {

constexpr double kUsualSampleClock = 560e6 / 3;

// `known` and `text`: the synth.s.frequency key as the board reports it.
inline double SampleClockFrom(bool known, const std::string& text) {
  double hz = 0;
  return known && ParseReal(text, &hz) && hz > 0 ? hz : kUsualSampleClock;
}

}  // namespace zsim
