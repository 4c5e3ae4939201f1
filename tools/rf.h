// The RF front end as the CLI shows it: the sampling clock the library sets, what the virtual
// board's synthesizer decoded from the words it received, and the `synth` command.
#pragma once

#include <cstdint>
#include <string>

#include "session.h"

namespace tvx::cli {

// The sampling clock the library's bring-up sets for a convertor type, in Hz: 280 MHz with the
// type 5 convertor, 560 MHz / 3 with every other.
double LibrarySampleClock(uint8_t convertor_type);

// The `info` lines about the sampling clock. `type` is the library's convertor type, or 0 when
// the library has no convertor to ask (then its synthesizer was never loaded either).
void ShowSampleClock(Session& session, uint8_t type);

// synth s HZ
int RunSynth(Session& session);

}  // namespace tvx::cli
