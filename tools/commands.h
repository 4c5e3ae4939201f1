// The command table of the CLI. A command is one entry: its name and arguments, the options it
// accepts beyond the global ones, its help, and the function that runs it in a Session.
#pragma once

#include <string>

#include "options.h"
#include "session.h"

namespace tvx::cli {

struct Command {
  CommandSyntax syntax;
  const char* summary;    // one line for the global help
  const char* details;    // the command's own help text
  int (*run)(Session& session);
};

// Every command, in the order the help lists them; ends with an entry whose run is null.
extern const Command kCommands[];

const Command* FindCommand(const std::string& name);

}  // namespace tvx::cli
