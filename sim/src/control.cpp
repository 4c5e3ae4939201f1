// The control interface (zarimsim.h): keys, the register trace and reset. Keys of the model
// itself are BoardModel's; this file adds the global `boards` and `live`, the read-only state
// of the device the core keeps (open, mapped, DMA geometry) and what must happen at once when a
// key changes under a mapped BAR.
#include <string>
#include <vector>

#include "board.h"
#include "keys.h"

namespace zsim {

namespace {

// Text handed out by zsim_get; valid until the same thread's next call.
thread_local std::string t_text;

bool GlobalKey(const std::string& key) { return key == "boards"; }

// State of the device kept by the core, not by the model.
bool GetCoreKey(Board& board, const std::string& key, std::string* value) {
  auto flag = [](bool b) { return std::string(b ? "1" : "0"); };
  if (key == "open") {
    *value = flag(board.open);
  } else if (key == "memory_mapped") {
    *value = flag(board.dma.mapped);
  } else if (key == "bar_mapped") {
    *value = flag(board.bar.mapped);
  } else if (key == "dma.channels" || key == "dma.buffers_per_channel") {
    // The geometry in force while open; before that, what an open would read now.
    const tvx::DriverParameters params =
        board.open ? board.params : tvx::ReadDriverParameters("zarim");
    *value = std::to_string(key == "dma.channels" ? params.channel_count
                                                  : params.buffers_per_channel);
  } else if (key == "replay.state") {
    *value = board.replay.State();
  } else if (key == "replay.data") {
    *value = board.replay.DataState();
  } else if (key == "keys") {
    std::vector<std::string> names{"boards", "replay"};
    board.model.KeyNames(&names);
    value->clear();
    for (const std::string& name : names) *value += (value->empty() ? "" : " ") + name;
  } else {
    return false;
  }
  return true;
}

// What every board the process has used holds at this moment, for leak checks across many
// opens: a count that grows over create/release cycles is something left behind.
std::string LiveObjects() {
  size_t open = 0, bars = 0, memories = 0, events = 0;
  for (unsigned i = 0; i < kMaxBoards; ++i) {
    Board* board = ExistingBoard(i);
    if (board == nullptr) continue;
    std::lock_guard<std::mutex> lock(board->mutex);
    open += board->open;
    bars += board->bar.mapped;
    memories += board->dma.mapped;
    events += board->events.size();
  }
  return "open=" + std::to_string(open) + " bar_mapped=" + std::to_string(bars) +
         " memory_mapped=" + std::to_string(memories) + " events=" + std::to_string(events);
}

}  // namespace

int SetKey(unsigned index, const std::string& key, const std::string& value) {
  if (GlobalKey(key)) {
    uint32_t count;
    if (!ParseU32(value, &count) || !SetBoardCount(count)) return kSetBadValue;
    return 0;
  }
  Board* board = index < BoardCount() ? GetBoard(index) : nullptr;
  if (board == nullptr) return kSetNoBoard;
  std::lock_guard<std::mutex> lock(board->mutex);
  if (key == "bar.size" && board->bar.mapped) return kSetBusy;
  if (key == "replay") {
    // A replay follows the application from its ZARIM_Open: it cannot start half way.
    if (board->open) return kSetBusy;
    return ArmReplay(*board, value).empty() ? 0 : kSetBadValue;
  }
  const int result = board->model.Set(key, value);
  if (result == BoardModel::kUnknownKey) return kSetUnknownKey;
  if (result != 0) return kSetBadValue;
  if (key == "mmio") ApplyMmioMode(*board);
  return 0;
}

}  // namespace zsim

using zsim::Board;

extern "C" {

ZSIM_EXPORT int zsim_set(unsigned board, const char* key, const char* value) {
  zsim::Start();
  if (key == nullptr || value == nullptr) return zsim::kSetBadValue;
  return zsim::SetKey(board, key, value);
}

ZSIM_EXPORT const char* zsim_get(unsigned index, const char* key) {
  zsim::Start();
  if (key == nullptr) return nullptr;
  if (zsim::GlobalKey(key)) {
    zsim::t_text = std::to_string(zsim::BoardCount());
    return zsim::t_text.c_str();
  }
  if (std::string(key) == "live") {   // global and read-only: any board index will do
    zsim::t_text = zsim::LiveObjects();
    return zsim::t_text.c_str();
  }
  Board* board = index < zsim::BoardCount() ? zsim::GetBoard(index) : nullptr;
  if (board == nullptr) return nullptr;
  std::string value;
  {
    std::lock_guard<std::mutex> lock(board->mutex);
    if (!zsim::GetCoreKey(*board, key, &value) && !board->model.Get(key, &value)) return nullptr;
  }
  zsim::t_text = std::move(value);
  return zsim::t_text.c_str();
}

ZSIM_EXPORT int zsim_load_config(const char* path) {
  zsim::Start();
  if (path == nullptr) return -1;
  return zsim::LoadConfigFile(path);
}

ZSIM_EXPORT size_t zsim_trace(unsigned index, zsim_access* out, size_t max) {
  zsim::Start();
  Board* board = index < zsim::BoardCount() ? zsim::GetBoard(index) : nullptr;
  if (board == nullptr) return 0;
  std::lock_guard<std::mutex> lock(board->mutex);
  if (out != nullptr) board->model.CopyTrace(out, max);
  return size_t(board->model.TraceCount());
}

ZSIM_EXPORT void zsim_trace_clear(unsigned index) {
  zsim::Start();
  Board* board = index < zsim::BoardCount() ? zsim::GetBoard(index) : nullptr;
  if (board == nullptr) return;
  std::lock_guard<std::mutex> lock(board->mutex);
  board->model.ClearTrace();
}

ZSIM_EXPORT void zsim_reset(void) {
  zsim::Start();
  for (unsigned i = 0; i < zsim::kMaxBoards; ++i) {
    Board* board = zsim::ExistingBoard(i);
    if (board == nullptr) continue;
    std::lock_guard<std::mutex> lock(board->mutex);
    board->model.Reset();
    zsim::ArmReplay(*board, "");
    zsim::ApplyMmioMode(*board);
  }
  zsim::SetBoardCount(1);
}

}  // extern "C"
