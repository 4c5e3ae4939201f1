// Recording a run (--record FILE) and replaying a recording (`replay FILE`): the recorder
// zarimrec in front of the IO library, and the virtual board's replay (docs/recording.md).
#pragma once

#include <string>
#include <vector>

#include "commands.h"
#include "options.h"
#include "session.h"

namespace tvx::cli {

// Puts the recorder in front of the IO library for the rest of this process, writing
// inv.record; `args` is the command line (the recording's app line keeps it without --record).
// Must run before anything loads the IO library. Empty, or why not; *control gets the file
// the virtual board's control functions must be loaded from (the recorder's target).
std::string StartRecording(const Invocation& inv, const std::vector<std::string>& args,
                           std::string* control);

// The command a parsed line names, with its arguments and options checked: empty and
// *command set, or the usage error.
std::string CheckCommand(const Invocation& inv, const Command** command);

// `replay FILE`: runs the recorded command line against the board replaying FILE and says
// whether the library did exactly what the recording holds.
int RunReplay(Session& s);

}  // namespace tvx::cli
