#include "record.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "demod.h"
#include "json.h"
#include "platform/os.h"
#include "preload.h"
#include "text.h"

namespace tvx::cli {
namespace fs = std::filesystem;

namespace {

std::string LibraryFile(const std::string& dir, const char* base) {
  char name[64];
  return (fs::path(dir) / os::DynamicLibraryFileName(base, name, sizeof name)).string();
}

// The recording's app line: where the command ran and its words, --record taken out.
std::string AppLine(const std::vector<std::string>& args) {
  Json words = Json::array();
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--record") {
      ++i;
      continue;
    }
    if (args[i].compare(0, 9, "--record=") == 0) continue;
    words.push_back(args[i]);
  }
  std::error_code ec;
  Json app = Json::object();
  app["cwd"] = fs::current_path(ec).string();
  app["args"] = std::move(words);
  // ASCII only, one line, whatever bytes the arguments hold.
  return app.dump(-1, ' ', true, Json::error_handler_t::replace);
}

// The app line of a recording, or why there is none.
std::string ReadAppLine(const std::string& file, Json* app) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return "cannot read " + file;
  std::string line;
  if (!std::getline(in, line) || (line != "zarimrec 1" && line != "zarimrec 1\r"))
    return file + " is not a recording (its first line is not \"zarimrec 1\")";
  while (std::getline(in, line)) {
    if (line.compare(0, 4, "app ") == 0) {
      *app = Json::parse(line.substr(4), nullptr, false);
      if (app->is_object() && (*app)["args"].is_array() && (*app)["cwd"].is_string()) return "";
      return file + ": its app line is not {\"cwd\": ..., \"args\": [...]}";
    }
    if (!line.empty() && line[0] != '#' && line.compare(0, 7, "target ") != 0) break;
  }
  return file + " names no command to replay (no app line: it was not made by torvixe --record;"
                " replay it from the application with zsim_set(board, \"replay\", FILE))";
}

}  // namespace

std::string StartRecording(const Invocation& inv, const std::vector<std::string>& args,
                           std::string* control) {
  // Said here in the CLI's words: the recorder could only fail the board's open.
  std::FILE* probe = std::fopen(inv.record.c_str(), "ab");
  if (probe == nullptr) return "cannot write " + inv.record;
  std::fclose(probe);
  const std::string dir = zrec::ModuleDirectory(reinterpret_cast<const void*>(&CreateDeviceInstance));
  if (dir.empty()) return "cannot tell where the torvixe library is";
  const char* given = std::getenv("ZARIMREC_TARGET");
  const std::string target = given != nullptr && *given != '\0' ? given : LibraryFile(dir, "zarimio");
  const zrec::Preload preload =
      zrec::InstallRecorder(LibraryFile(dir, "zarimrec"), target, inv.record, AppLine(args));
  if (!preload.error.empty()) return preload.error;
  *control = preload.target;
  return "";
}

std::string CheckCommand(const Invocation& inv, const Command** command) {
  *command = FindCommand(inv.command);
  if (*command == nullptr) return "unknown command '" + inv.command + "'";
  return IsDemodStep(inv.command) ? ParseDemodChain(inv, nullptr)
                                  : CheckInvocation(inv, (*command)->syntax);
}

int RunReplay(Session& s) {
  const std::string given = s.inv().args.at(0);
  std::error_code ec;
  const std::string file = fs::absolute(given, ec).string();
  Json app;
  std::string error = ReadAppLine(file, &app);
  if (!error.empty()) {
    PrintError("replay: " + error);
    return kExitFailed;
  }
  std::vector<std::string> args;
  for (const Json& word : app["args"])
    if (word.is_string()) args.push_back(word.get<std::string>());
  Invocation recorded;
  const Command* command = nullptr;
  error = ParseCommandLine(args, &recorded);
  if (error.empty()) error = CheckCommand(recorded, &command);
  if (error.empty() && (recorded.command == "replay" || recorded.help || recorded.version))
    error = "'" + recorded.command + "' is not a command that drives a board";
  if (!error.empty()) {
    PrintError("replay: the recorded command line: " + error);
    return kExitUsage;
  }
  if (!s.sim().available()) {
    PrintError("replay: " + s.sim().WhyUnavailable());
    return kExitUsage;
  }
  // The recorded command's relative paths are its directory's, when that still exists here.
  fs::current_path(app["cwd"].get<std::string>(), ec);

  const unsigned board = recorded.board;
  if (s.sim().Set(board, "replay", file) != 0) {
    const char* state = s.sim().Get(board, "replay.state");
    PrintError("replay: board " + std::to_string(board) + ": " + (state ? state : "refused"));
    return kExitFailed;
  }
  std::printf("replaying %s on board %u: torvixe", given.c_str(), board);
  for (const std::string& word : args) std::printf(" %s", word.c_str());
  std::printf("\n");
  std::fflush(stdout);
  int status;
  {
    Session run(recorded, s.sim());
    status = run.PrepareVirtualBoard();
    if (status == kExitOk) status = command->run(run);
  }  // released: the recording ends with the board's close
  // Each text is valid only until the next Get.
  const char* state = s.sim().Get(board, "replay.state");
  const std::string text = state != nullptr ? state : "unknown";
  const char* data = s.sim().Get(board, "replay.data");
  std::printf("replay: %s (the command's exit status %d; data events %s)\n", text.c_str(), status,
              data != nullptr ? data : "unknown");
  s.json()["replay"] = Json::object();
  s.json()["replay"]["state"] = text;
  s.json()["replay"]["exit_status"] = status;
  return text.compare(0, 6, "match:") == 0 ? kExitOk : kExitFailed;
}

}  // namespace tvx::cli
