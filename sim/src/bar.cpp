// The register BAR: page-granular memory handed to the caller. In trap mode it has no access
// rights, so every load and store faults. A plain 32-bit move is decoded by the platform's trap
// handler and carried out by this file's trap client in that one fault; any other instruction
// is stepped: the client asks the model for a read's value (and puts it where the load will
// find it) and, once the instruction has executed under the single-step flag, hands a store's
// value to the model. In passive mode the BAR is plain memory, a snapshot of the model's
// registers that the model never sees again.
//
// Only aligned 32-bit words inside bar.size are modelled. Another access still completes
// (against the backing memory) but the model does not see it; a wider aligned access is seen
// as a 32-bit access at its address. Two threads touching the SAME page of a BAR at the same
// moment are not reliably modelled: while one thread's instruction runs with the page opened,
// the other's access to that page does not fault.
#include <atomic>
#include <cstdint>
#include <mutex>

#include "board.h"

namespace zsim {

namespace {

// Where each board's BAR is, readable without a lock: the trap client looks here from inside
// the platform's fault handler. A slot's base is published last when a BAR is mapped and
// cleared first when it is unmapped.
struct BarSlot {
  std::atomic<uintptr_t> base{0};
  std::atomic<size_t> size{0};
  std::atomic<Board*> board{nullptr};
};
BarSlot g_bars[kMaxBoards];

size_t RoundUp(size_t value, size_t unit) { return (value + unit - 1) / unit * unit; }
size_t RoundDown(size_t value, size_t unit) { return value / unit * unit; }


// The board whose BAR holds `a`, or null; read without a lock from inside the fault handler.
Board* BoardAt(uintptr_t a) {
  for (BarSlot& slot : g_bars) {
    const uintptr_t base = slot.base.load(std::memory_order_acquire);
    if (base != 0 && a - base < slot.size.load(std::memory_order_relaxed))
      return slot.board.load(std::memory_order_relaxed);
  }
  return nullptr;
}

// A faulting address inside a mapped BAR: its board, locked, and the offset in the BAR.
struct Target {
  Board* board = nullptr;
  uint32_t offset = 0;
  std::unique_lock<std::mutex> lock;
};

// False when the address lies in no BAR, or in one unmapped meanwhile by another thread: then
// the access is the caller's fault, not ours to hide.
bool Locate(void* address, Target* t) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(address);
  Board* board = BoardAt(a);
  if (board == nullptr) return false;
  t->lock = std::unique_lock<std::mutex>(board->mutex);
  const BarMapping& bar = board->bar;
  const uintptr_t base = reinterpret_cast<uintptr_t>(bar.base);
  if (!bar.mapped || a < base || a - base >= bar.allocated) return false;
  t->board = board;
  t->offset = uint32_t(a - base);
  return true;
}

class BarTrapClient final : public tvx::os::TrapClient {
 public:
  // One fault per access: the model answers the read or takes the write directly. Accesses
  // the model does not see (unaligned, beyond bar.size, passive mode) take the stepped path.
  bool Emulate(void* address, bool write, uint32_t* value) override {
    Target t;
    if (!Locate(address, &t) || t.board->model.passive()) return false;
    const BarMapping& bar = t.board->bar;
    if (t.offset % 4 != 0 || t.offset >= bar.size || bar.size - t.offset < 4) return false;
    if (write)
      t.board->model.Write(t.offset, *value);
    else
      *value = t.board->model.Read(t.offset);
    return true;
  }

  bool Fault(void* address, bool write, void** open_base, size_t* open_size) override {
    Target t;
    if (!Locate(address, &t)) return false;
    Board* board = t.board;
    const BarMapping& bar = board->bar;
    const size_t page = tvx::os::PageSize();
    const uint32_t offset = t.offset;
    const bool modelled = offset % 4 == 0 && offset < bar.size && bar.size - offset >= 4;
    board_ = board;
    base_ = bar.base;
    offset_ = offset;
    write_ = false;
    if (modelled && !board->model.passive()) {
      if (write) {
        write_ = true;
      } else {
        const uint32_t value = board->model.Read(offset);
        uint8_t* page_base = bar.base + RoundDown(offset, page);
        tvx::os::ProtectPages(page_base, page, true);
        *reinterpret_cast<volatile uint32_t*>(bar.base + offset) = value;
      }
    }
    size_t first;
    tvx::os::StepRange(offset, bar.allocated, &first, open_size);
    *open_base = bar.base + first;
    return true;
  }

  void Stepped() override {
    Board* board = board_;
    board_ = nullptr;
    if (board == nullptr) return;
    std::lock_guard<std::mutex> lock(board->mutex);
    BarMapping& bar = board->bar;
    if (!bar.mapped || bar.base != base_) return;
    const size_t page = tvx::os::PageSize();
    if (write_) {
      // The platform has closed the page again; open it for the moment it takes to read back
      // what the instruction stored.
      uint8_t* page_base = bar.base + RoundDown(offset_, page);
      tvx::os::ProtectPages(page_base, page, true);
      const uint32_t value = *reinterpret_cast<volatile uint32_t*>(bar.base + offset_);
      if (!board->model.passive()) tvx::os::ProtectPages(page_base, page, false);
      board->model.Write(offset_, value);
    }
    // mmio switched to passive while this access was under way: the platform's closing of
    // the range must not outlive the switch.
    if (board->model.passive()) tvx::os::ProtectPages(bar.base, bar.allocated, true);
  }

 private:
  // The one access between Fault and Stepped; the platform lets only one be under way.
  Board* board_ = nullptr;
  uint8_t* base_ = nullptr;
  uint32_t offset_ = 0;
  bool write_ = false;
};

BarTrapClient g_client;
std::mutex g_install_mutex;
bool g_installed = false;

// When the library is unloaded the handler must not outlive the code it calls.
struct TrapUninstaller {
  ~TrapUninstaller() {
    std::lock_guard<std::mutex> lock(g_install_mutex);
    if (g_installed) tvx::os::RemoveTrapClient(&g_client);
    g_installed = false;
  }
} g_uninstaller;

bool EnsureTrapClient() {
  std::lock_guard<std::mutex> lock(g_install_mutex);
  if (!g_installed) g_installed = tvx::os::InstallTrapClient(&g_client);
  return g_installed;
}

// Passive mode: the BAR shows the model's registers as they are now, without side effects.
void Snapshot(Board& board) {
  BarMapping& bar = board.bar;
  tvx::os::ProtectPages(bar.base, bar.allocated, true);
  auto* words = reinterpret_cast<volatile uint32_t*>(bar.base);
  for (uint32_t offset = 0; offset + 4 <= bar.size; offset += 4)
    words[offset / 4] = board.model.Peek(offset);
}

}  // namespace

uint32_t MapBar(Board& board) {
  if (board.bar.mapped) return kErrorBusy;
  if (!EnsureTrapClient()) return kErrorBusy;
  const uint32_t size = board.model.bar_size();
  const size_t allocated = RoundUp(size, tvx::os::PageSize());
  void* base = tvx::os::AllocatePages(allocated);
  if (base == nullptr) return kErrorNotEnoughMemory;
  BarMapping& bar = board.bar;
  bar.mapped = true;
  bar.base = static_cast<uint8_t*>(base);
  bar.size = size;
  bar.allocated = allocated;
  ApplyMmioMode(board);

  BarSlot& slot = g_bars[board.index];
  slot.board.store(&board, std::memory_order_relaxed);
  slot.size.store(allocated, std::memory_order_relaxed);
  slot.base.store(reinterpret_cast<uintptr_t>(base), std::memory_order_release);
  return 0;
}

void UnmapBar(Board& board) {
  BarMapping& bar = board.bar;
  if (!bar.mapped) return;
  g_bars[board.index].base.store(0, std::memory_order_release);
  tvx::os::FreePages(bar.base, bar.allocated);
  bar = BarMapping{};
}

void ApplyMmioMode(Board& board) {
  if (!board.bar.mapped) return;
  if (board.model.passive())
    Snapshot(board);
  else
    tvx::os::ProtectPages(board.bar.base, board.bar.allocated, false);
}

}  // namespace zsim
