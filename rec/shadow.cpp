// The shadow of a mapped register BAR: pages without access rights handed to the application
// in place of the real mapping. Every load and store there faults; this file's trap client
// carries the access out on the real mapping and records it.
//
// A plain 32-bit move (what the library's register access compiles to) is decoded by the
// platform and done here in that one fault. Any other instruction on an aligned 32-bit word
// inside the BAR is stepped: Fault reads the real word into the shadow's own memory for the
// instruction to load, Stepped takes what the instruction stored there to the real mapping. An
// access at another alignment, or beyond the BAR's size, is stepped against the shadow's own
// memory only: it neither reaches the board nor is recorded (as the virtual board, too, lets
// such accesses complete without its model seeing them).
//
// The real access is itself a plain `mov`, written out so that no compiler may make it
// anything else: when the target is our virtual board its BAR is trapped as well, and its
// handler carries out a plain move in one fault, even nested inside this one.
#include <atomic>
#include <cstdio>

#include "platform/os.h"
#include "recorder.h"

namespace zrec {

namespace {

uint32_t Load32(uintptr_t address) {
  uint32_t value;
  asm volatile("movl (%1), %0" : "=r"(value) : "r"(address) : "memory");
  return value;
}

void Store32(uintptr_t address, uint32_t value) {
  asm volatile("movl %0, (%1)" : : "r"(value), "r"(address) : "memory");
}

// A slot is published by storing its base last and retired by clearing the base first, so the
// fault handler can look without a lock.
struct Shadow {
  std::atomic<uintptr_t> base{0};
  size_t allocated = 0;
  uint32_t size = 0;
  uintptr_t real = 0;
  int board = kNoBoard;
};
constexpr size_t kMaxShadows = 16;
Shadow g_shadows[kMaxShadows];
std::mutex g_shadows_mutex;


Shadow* Find(uintptr_t a, uint32_t* offset) {
  for (Shadow& s : g_shadows) {
    const uintptr_t base = s.base.load(std::memory_order_acquire);
    if (base != 0 && a - base < s.allocated) {
      *offset = uint32_t(a - base);
      return &s;
    }
  }
  return nullptr;
}

bool Recorded(const Shadow& s, uint32_t offset) {
  return offset % 4 == 0 && offset < s.size && s.size - offset >= 4;
}

void Record(const Shadow& s, bool write, uint32_t offset, uint32_t value) {
  char text[48];
  std::snprintf(text, sizeof text, "%c 0x%08X 0x%08X", write ? 'W' : 'R', unsigned(offset),
                unsigned(value));
  TheRecording().EventLocked(s.board, text);
}

// The real access and its line under the recording's lock, so that the file has the accesses
// of all threads in the order the board saw them.
uint32_t Access(const Shadow& s, bool write, uint32_t offset, uint32_t value) {
  std::lock_guard<std::mutex> lock(TheRecording().mutex());
  if (write)
    Store32(s.real + offset, value);
  else
    value = Load32(s.real + offset);
  Record(s, write, offset, value);
  return value;
}

class ShadowClient final : public tvx::os::TrapClient {
 public:
  bool Emulate(void* address, bool write, uint32_t* value) override {
    uint32_t offset;
    Shadow* s = Find(reinterpret_cast<uintptr_t>(address), &offset);
    if (s == nullptr || !Recorded(*s, offset)) return false;
    *value = Access(*s, write, offset, *value);
    return true;
  }

  bool Fault(void* address, bool write, void** open_base, size_t* open_size) override {
    uint32_t offset;
    Shadow* s = Find(reinterpret_cast<uintptr_t>(address), &offset);
    if (s == nullptr) return false;
    const size_t page = tvx::os::PageSize();
    const uintptr_t base = s->base.load(std::memory_order_relaxed);
    shadow_ = nullptr;
    if (Recorded(*s, offset)) {
      if (write) {
        shadow_ = s;
        base_ = base;
        offset_ = offset;
      } else {
        const uint32_t value = Access(*s, false, offset, 0);
        void* page_base = reinterpret_cast<void*>(base + offset / page * page);
        tvx::os::ProtectPages(page_base, page, true);
        *reinterpret_cast<volatile uint32_t*>(base + offset) = value;
      }
    }
    size_t first;
    tvx::os::StepRange(offset, s->allocated, &first, open_size);
    *open_base = reinterpret_cast<void*>(base + first);
    return true;
  }

  // A store: the platform has closed the range again; the word is read back from the
  // shadow's memory for the moment it takes and goes to the real mapping.
  void Stepped() override {
    Shadow* s = shadow_;
    shadow_ = nullptr;
    if (s == nullptr || s->base.load(std::memory_order_acquire) != base_) return;
    const size_t page = tvx::os::PageSize();
    void* page_base = reinterpret_cast<void*>(base_ + offset_ / page * page);
    tvx::os::ProtectPages(page_base, page, true);
    const uint32_t value = *reinterpret_cast<volatile uint32_t*>(base_ + offset_);
    tvx::os::ProtectPages(page_base, page, false);
    Access(*s, true, offset_, value);
  }

 private:
  // The one stepped store between Fault and Stepped; the platform lets one be under way.
  Shadow* shadow_ = nullptr;
  uintptr_t base_ = 0;
  uint32_t offset_ = 0;
};

ShadowClient g_client;
bool g_installed = false;

// The handler must not outlive the code it calls.
struct Uninstaller {
  ~Uninstaller() {
    std::lock_guard<std::mutex> lock(g_shadows_mutex);
    if (g_installed) tvx::os::RemoveTrapClient(&g_client);
    g_installed = false;
  }
} g_uninstaller;

}  // namespace

void* MakeShadow(int board, uintptr_t real, uint32_t size) {
  std::lock_guard<std::mutex> lock(g_shadows_mutex);
  if (!g_installed) g_installed = tvx::os::InstallTrapClient(&g_client);
  if (!g_installed || real == 0 || size == 0) return nullptr;
  Shadow* slot = nullptr;
  for (Shadow& s : g_shadows)
    if (s.base.load(std::memory_order_relaxed) == 0) {
      slot = &s;
      break;
    }
  if (slot == nullptr) return nullptr;
  const size_t page = tvx::os::PageSize();
  const size_t allocated = (size_t(size) + page - 1) / page * page;
  void* base = tvx::os::AllocatePages(allocated);
  if (base == nullptr) return nullptr;
  if (!tvx::os::ProtectPages(base, allocated, false)) {
    tvx::os::FreePages(base, allocated);
    return nullptr;
  }
  slot->allocated = allocated;
  slot->size = size;
  slot->real = real;
  slot->board = board;
  slot->base.store(reinterpret_cast<uintptr_t>(base), std::memory_order_release);
  return base;
}

uintptr_t ShadowReal(uintptr_t shadow) {
  std::lock_guard<std::mutex> lock(g_shadows_mutex);
  for (Shadow& s : g_shadows)
    if (shadow != 0 && s.base.load(std::memory_order_relaxed) == shadow) return s.real;
  return 0;
}

namespace {
void Retire(Shadow& s) {
  const uintptr_t base = s.base.exchange(0, std::memory_order_acq_rel);
  if (base != 0) tvx::os::FreePages(reinterpret_cast<void*>(base), s.allocated);
}
}  // namespace

void FreeShadow(uintptr_t shadow) {
  std::lock_guard<std::mutex> lock(g_shadows_mutex);
  for (Shadow& s : g_shadows)
    if (shadow != 0 && s.base.load(std::memory_order_relaxed) == shadow) Retire(s);
}

void FreeBoardShadows(int board) {
  std::lock_guard<std::mutex> lock(g_shadows_mutex);
  for (Shadow& s : g_shadows)
    if (s.base.load(std::memory_order_relaxed) != 0 && s.board == board) Retire(s);
}

}  // namespace zrec
