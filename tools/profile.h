// `run PROFILE`: what an application does with a board, named in one INI file — the FPGA
// images, the receiver, the channel controls, the capture, and the virtual board's keys — and
// run in that order on one bring-up by the same steps the single commands use.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "demod.h"
#include "options.h"
#include "session.h"

namespace tvx::cli {

struct ProfileSimKey {
  std::string key;
  std::string value;
  int line = 0;
};

struct Profile {
  std::string samples;                     // the directory "$samples" stands for
  std::vector<ProfileSimKey> sim;          // [virtual-board], in file order
  std::vector<std::pair<std::string, std::string>> fpga;   // device and file, DEM DEC RS order
  std::vector<DemodStep> receiver;         // signal, tune, rate, gain, eq, dmpx steps in run order
  Invocation options;                      // the step options, as a command line gives them
  std::vector<std::pair<std::string, uint32_t>> controls;  // iq, dmd, dma3, in that order
  bool capture = false;                    // the profile has a [capture] section
};

// Parses a profile's text. Relative paths resolve against `dir`, the profile's directory; a
// path that starts with "$samples" against the `samples` key, `default_samples` unless given.
// Empty result: success; otherwise "LINE: what is wrong".
std::string ParseProfile(const std::string& text, const std::string& dir,
                         const std::string& default_samples, Profile* out);

// The samples directory the build writes beside the program: <its directory>/samples.
std::string DefaultSamplesDir(const std::string& program);

// run PROFILE
int RunProfile(Session& session);

}  // namespace tvx::cli
