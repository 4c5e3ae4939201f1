// The frame around every command.
#include "session.h"

#include <cstdio>

#include "report.h"
#include "text.h"

namespace tvx::cli {
namespace {

std::vector<std::string>* error_sink = nullptr;

}  // namespace

void PrintError(const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "torvixe: %s\n", message.c_str());
  if (error_sink != nullptr) error_sink->push_back(message);
}

void CollectErrors(std::vector<std::string>* sink) { error_sink = sink; }

std::string LastLibraryText() { return LibraryText(GetErrorMessage()); }

Session::Session(const Invocation& inv, const SimControl& sim) : inv_(&inv), sim_(sim) {
  id_.Index = static_cast<uint8_t>(inv.board);
}

Session::~Session() {
  if (created_) ReleaseDeviceInstance(&id_);
}

int Session::PrepareVirtualBoard() {
  if (inv_->sim.empty() && inv_->sim_configs.empty() && !inv_->trace) return kExitOk;
  if (!sim_.available()) {
    PrintError("--sim, --sim-config, --trace: " + sim_.WhyUnavailable());
    return kExitUsage;
  }
  for (const auto& path : inv_->sim_configs) {
    if (const int code = sim_.LoadConfig(path); code != 0) {
      PrintError("--sim-config " + path + ": refused with code " + std::to_string(code) +
                 " (unreadable, or a line the virtual board does not accept; the lines before "
                 "it stay applied)");
      return kExitUsage;
    }
  }
  const unsigned boards = sim_.BoardCount();
  if (!inv_->sim.empty() && boards != 0 && board() >= boards) {
    PrintError("--sim: board " + std::to_string(board()) + " does not exist; the virtual " +
               "board has " + std::to_string(boards) + " (see the key 'boards')");
    return kExitUsage;
  }
  for (const auto& s : inv_->sim) {
    if (sim_.Set(board(), s.key, s.value) != 0) {
      const bool known = sim_.Get(board(), s.key.c_str()) != nullptr;
      PrintError("--sim " + s.key + "=" + s.value + ": " +
                 (known ? "value refused by the virtual board" : "unknown key"));
      return kExitUsage;
    }
  }
  if (inv_->trace) sim_.TraceClear(board());
  return kExitOk;
}

bool Session::BringUp(std::string* failure) {
  if (usable_) return true;
  created_ = true;
  const int32_t result = CreateDeviceInstance(&id_);
  if (inv_->trace) {
    // The command's own accesses are what the user asked to see; bring-up is counted only.
    bring_up_accesses_ = sim_.TraceCount(board());
    sim_.TraceClear(board());
  }
  usable_ = result == 0;
  if (usable_) return true;
  *failure = LastLibraryText();
  return false;
}

void Session::PrintTrace() const {
  if (!inv_->trace) return;
  const auto entries = sim_.Trace(board());
  std::printf("# trace of board %u: %zu register access%s", board(), entries.size(),
              entries.size() == 1 ? "" : "es");
  if (created_) std::printf(" (the bring-up's %zu not shown)", bring_up_accesses_);
  std::printf("\n");
  for (const auto& e : entries) std::printf("%s\n", TraceLine(e).c_str());
}

}  // namespace tvx::cli
