// One run of a command: the selected board, the virtual board's options, bring-up on demand,
// the register trace and the release at the end. Commands reach the library through this.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "json.h"
#include "options.h"
#include "sim_control.h"
#include "torvixe.h"

namespace tvx::cli {

enum ExitStatus { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

// "torvixe: <message>" on stderr, after whatever stdout still holds, so that the two streams
// read in order on a terminal.
void PrintError(const std::string& message);

// From now on every message PrintError prints is also appended to `sink` (null: no longer):
// a --json document lists them.
void CollectErrors(std::vector<std::string>* sink);

// The library's last failure text as UTF-8.
std::string LastLibraryText();

class Session {
 public:
  Session(const Invocation& inv, const SimControl& sim);
  ~Session();   // releases the board if the command brought it up
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const Invocation& inv() const { return *inv_; }
  const SimControl& sim() const { return sim_; }
  unsigned board() const { return inv_->board; }
  DeviceId* id() { return &id_; }
  // The --json document the command fills.
  Json& json() { return json_; }

  // The steps that follow read their options from `inv` (which must outlive them) in place of
  // the command line's: `run` gives them the ones its profile names. The board stays as it is.
  void UseInvocation(const Invocation& inv) { inv_ = &inv; }

  // Applies --sim-config files, then --sim keys, to the selected board and starts the trace.
  // kExitOk, or kExitUsage after saying what was refused.
  int PrepareVirtualBoard();

  // CreateDeviceInstance on the selected board. False, with the library's text in *failure,
  // when the board is not usable; either way the board stays in the library's table (a failed
  // board may still answer raw access) until the session ends. Once the board is up, a later
  // call finds it up and does nothing.
  bool BringUp(std::string* failure);

  // With --trace: the register accesses since bring-up (or since the start), one a line.
  void PrintTrace() const;

 private:
  const Invocation* inv_;
  const SimControl& sim_;
  DeviceId id_{};
  Json json_;
  bool created_ = false;
  bool usable_ = false;
  size_t bring_up_accesses_ = 0;
};

}  // namespace tvx::cli
