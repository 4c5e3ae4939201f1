// The table of emulated boards, their handles and the one-time start-up.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "board.h"

namespace zsim {

namespace {

// Handles carry a tag, the open's generation and the board index, so that a handle from an
// earlier open, of another board, or made up, is recognised as stale rather than reaching a
// board it does not belong to. The tag keeps every handle away from all-ones.
constexpr Handle kHandleTag = 0x5A53000000000000ull;
constexpr Handle kTagMask = 0xFFFF000000000000ull;

struct Table {
  std::mutex mutex;
  std::unique_ptr<Board> boards[kMaxBoards];
  std::atomic<unsigned> count{1};
};

Table& TheTable() {
  static Table table;
  return table;
}

}  // namespace

Board::~Board() {
  // Only reached when the library is unloaded or the process ends; give back what a caller
  // left behind so that an unload does not leak it. A running engine goes first: it writes
  // into the memory.
  StopDmaEngine(*this);
  UnmapBar(*this);
  UnmapDmaMemory(*this);
  CloseDataEvents(*this);
}

void Start() {
  static std::once_flag once;
  std::call_once(once, [] {
    const char* path = std::getenv("ZARIM_SIM_CONFIG");
    if (path == nullptr || *path == '\0') return;
    const int result = LoadConfigFile(path);
    // Nobody could see the failure otherwise: there is no call to return it from.
    if (result < 0)
      std::fprintf(stderr, "zarimio: ZARIM_SIM_CONFIG: cannot read %s\n", path);
    else if (result > 0)
      std::fprintf(stderr, "zarimio: ZARIM_SIM_CONFIG: %s:%d: line refused\n", path, result);
  });
}

unsigned BoardCount() { return TheTable().count.load(); }

bool SetBoardCount(unsigned count) {
  if (count > kMaxBoards) return false;
  TheTable().count.store(count);
  return true;
}

Board* GetBoard(unsigned index) {
  if (index >= kMaxBoards) return nullptr;
  Table& table = TheTable();
  std::lock_guard<std::mutex> lock(table.mutex);
  if (!table.boards[index]) table.boards[index] = std::make_unique<Board>(index);
  return table.boards[index].get();
}

Board* ExistingBoard(unsigned index) {
  if (index >= kMaxBoards) return nullptr;
  Table& table = TheTable();
  std::lock_guard<std::mutex> lock(table.mutex);
  return table.boards[index].get();
}

Handle MakeHandle(unsigned index, uint32_t generation) {
  return kHandleTag | Handle(generation) << 8 | Handle(index & 0xFF);
}

std::unique_lock<std::mutex> LockHandle(Handle handle, Board** board) {
  *board = nullptr;
  if ((handle & kTagMask) != kHandleTag) return {};
  Board* candidate = ExistingBoard(unsigned(handle & 0xFF));   // never opened: not created
  if (candidate == nullptr) return {};
  std::unique_lock<std::mutex> lock(candidate->mutex);
  if (!candidate->open || candidate->handle != handle) return {};
  *board = candidate;
  return lock;
}

}  // namespace zsim
