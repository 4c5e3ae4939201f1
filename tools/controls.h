// The gain, eq and dmpx steps of a chain: the two gain stages, the equalizer and the
// demultiplexer, each set as told and then read back, since a board's state lasts only the run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "demod.h"
#include "session.h"

namespace tvx::cli {

// The equalizer's taps: what EQGetCoeff's arrays are sized for.
constexpr uint32_t kEqTaps = 13;

// The export that writes a channel control word: IQControl, DMDControl or DMA3CHControl for
// "iq", "dmd" or "dma3"; null for any other name.
using ChannelControlWrite = int32_t (*)(DeviceId*, const uint32_t*);
ChannelControlWrite ChannelControl(const std::string& which);

// Runs one gain, eq or dmpx step. False after saying what failed.
bool RunControlStep(Session& session, const DemodStep& step);

// "demultiplexer status 0x0000000B: bit 0 1, bit 1 1, bit 2 0, bit 3 1" (bits 0-3 carry it).
std::string DmpxStatusText(uint32_t status);

// The taps EQGetCoeff reported, a heading and one line a tap. Arrays hold `capacity` taps; a
// count beyond them is shown, the taps only as far as the arrays go.
std::vector<std::string> TapLines(uint32_t count, const uint16_t* first, const uint16_t* second,
                                  uint32_t capacity);

}  // namespace tvx::cli
