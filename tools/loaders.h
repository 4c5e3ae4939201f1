// The loading commands: FPGA configuration images, the on-board RAM, the signal simulator.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "session.h"

namespace tvx::cli {

int RunFpga(Session& session);
// Loads one FPGA (DEM, DEC or RS) from `file` and shows what was sent and, on the virtual
// board, what it received. False after saying what failed.
bool LoadFpga(Session& session, const std::string& device, const std::string& file);
int RunRam(Session& session);
int RunSim(Session& session);

// A finite decimal floating-point number ("1e6", "2500000.5"); nothing else on the line.
bool ParseNumber(std::string_view text, double* out);

// The key stem the virtual board uses for a device name the library accepts ("dem", "dec",
// "rs"), or "" for a name it does not.
std::string DeviceKey(std::string_view name);

// One progress line: "DEM: 123456 of 262146 words sent, 41.2 kwords/s" (total 0: unknown).
std::string ProgressText(const std::string& device, uint64_t words, uint64_t total, double seconds);

}  // namespace tvx::cli
