// torvixe: the command-line tool. Parses the line, answers help and version, and runs one
// command of the table in commands.cpp inside a Session.
#include <unistd.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "demod.h"
#include "options.h"
#include "record.h"
#include "session.h"
#include "sim_control.h"

namespace {

using namespace tvx::cli;

void PrintGlobalHelp(std::FILE* out) {
  std::fprintf(out, "usage: torvixe [options] COMMAND [arguments]\n\nCommands:\n");
  for (const Command* c = kCommands; c->run != nullptr; ++c) {
    std::string head = std::string(c->syntax.name) + " " + c->syntax.usage;
    std::fprintf(out, "  %-24s  %s\n", head.c_str(), c->summary);
  }
  std::fprintf(out,
               "\nsignal, tune, rate, iso, status, gain, eq and dmpx chain: 'torvixe signal QPSK\n"
               "tune 1.2e9 rate 10e6 status' sets a receiver up and shows it in one run.\n"
               "\nOptions (before or after the command):\n%s\n"
               "Numbers are decimal or 0x-hexadecimal.\n"
               "Exit status: 0 success, 1 a library call failed, 2 usage error.\n"
               "'torvixe COMMAND --help' shows a command's details.\n",
               OptionsHelp(0).c_str());
}

void PrintCommandHelp(const Command& c) {
  std::printf("usage: torvixe %s%s%s [options]\n\n%s\n\nOptions:\n%s", c.syntax.name,
              *c.syntax.usage != '\0' ? " " : "", c.syntax.usage, c.details,
              OptionsHelp(c.syntax.options).c_str());
}

// With --json the document alone goes to stdout: while the command runs, what it prints there
// goes to stderr with its messages.
class StdoutAside {
 public:
  StdoutAside() {
    std::fflush(stdout);
    saved_ = dup(1);
    if (saved_ >= 0) dup2(2, 1);
  }
  ~StdoutAside() {
    std::fflush(stdout);
    if (saved_ < 0) return;
    dup2(saved_, 1);
    close(saved_);
  }
  StdoutAside(const StdoutAside&) = delete;
  StdoutAside& operator=(const StdoutAside&) = delete;

 private:
  int saved_ = -1;
};

int UsageError(const std::string& message) {
  PrintError(message);
  std::fprintf(stderr, "Try 'torvixe --help'.\n");
  return kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
  Invocation inv;
  std::string error = ParseCommandLine(std::vector<std::string>(argv + 1, argv + argc), &inv);
  if (!error.empty()) return UsageError(error);
  inv.program = argc > 0 ? argv[0] : "";
  if (inv.version) {
    std::printf("torvixe %s\n", TVX_CLI_VERSION);
    return kExitOk;
  }
  if (inv.command.empty()) {
    if (inv.help) {
      PrintGlobalHelp(stdout);
      return kExitOk;
    }
    PrintGlobalHelp(stderr);
    return kExitUsage;
  }
  const Command* command = nullptr;
  error = CheckCommand(inv, &command);
  if (!error.empty()) return UsageError(error);
  if (inv.help) {
    PrintCommandHelp(*command);
    return kExitOk;
  }

  // A recorded run: the recorder goes in front of the IO library before anything loads it.
  std::string control;
  if (!inv.record.empty()) {
    if (inv.command == "replay") return UsageError("--record: a replay is not recorded");
    error = StartRecording(inv, std::vector<std::string>(argv + 1, argv + argc), &control);
    if (!error.empty()) {
      PrintError("--record " + inv.record + ": " + error);
      return kExitFailed;
    }
  }
  SimControl sim(control);
  int status = kExitOk;
  std::vector<std::string> errors;
  Json document = Json::object();
  {
    std::optional<StdoutAside> aside;
    if (inv.json) {
      aside.emplace();
      CollectErrors(&errors);
    }
    Session session(inv, sim);
    session.json()["command"] = inv.command;
    session.json()["board"] = inv.board;
    status = session.PrepareVirtualBoard();
    if (status == kExitOk) {
      status = command->run(session);
      session.PrintTrace();
    }
    document = std::move(session.json());
  }  // the board is released here, before the IO library could go away
  if (inv.json) {
    CollectErrors(nullptr);
    document["exit_status"] = status;
    Json& list = document["errors"] = Json::array();
    for (const std::string& e : errors) list.emplace_back(e);
    std::fputs(Dump(document).c_str(), stdout);
  }
  std::fflush(stdout);
  return status;
}
