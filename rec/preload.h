// Putting the recording IO library in front of the IO library inside one process: what the CLI's
// --record and the recorder's own test do before anything loads the IO library.
#pragma once

#include <string>

namespace zrec {

struct Preload {
  std::string target;   // the path to load for the target's own functions (zsim_*)
  std::string error;    // empty on success
};

// Makes this process's next load of the IO library by its plain name get the recorder at
// `recorder_path`, which forwards to `target` and writes `file` (`app`: the header's app line,
// may be empty). Must run before anything in the process has loaded the IO library. On
// success `target` is the path the caller must load for the virtual board's control functions,
// so that it shares the recorder's instance of the target.
Preload InstallRecorder(const std::string& recorder_path, const std::string& target,
                        const std::string& file, const std::string& app);

// The directory of the loaded module that contains `address` (for files beside a library);
// empty when unknown.
std::string ModuleDirectory(const void* address);

}  // namespace zrec
