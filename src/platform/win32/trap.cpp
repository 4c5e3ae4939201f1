// Access traps on Windows x64: a vectored exception handler, first in line, catches access
// violations on the client's inaccessible pages, opens the range and continues with the trap
// flag set, so that the one faulting instruction executes and raises a single-step exception;
// on that the handler closes the range and tells the client. Anything that is not ours is
// passed on to the next handler.
//
// Traps from different threads are serialised by a spin lock held from the access violation to
// the single step, so the client sees one access at a time.
#include <atomic>
#include <cstdint>

#include <windows.h>

#include "platform/move_decode.h"
#include "platform/os.h"

namespace tvx::os {

namespace {

constexpr DWORD kTrapFlag = 0x100;

std::atomic<TrapClient*> g_client{nullptr};
PVOID g_handler = nullptr;

std::atomic<DWORD> g_owner{0};   // thread holding the trap lock; 0 = free
void* g_open_base = nullptr;
size_t g_open_size = 0;

void Lock(DWORD self) {
  DWORD expected = 0;
  while (!g_owner.compare_exchange_weak(expected, self, std::memory_order_acquire)) {
    expected = 0;
    SwitchToThread();
  }
}

void Unlock() { g_owner.store(0, std::memory_order_release); }

void Close() {
  DWORD old;
  VirtualProtect(g_open_base, g_open_size, PAGE_NOACCESS, &old);
  g_open_base = nullptr;
  g_open_size = 0;
}

// The faster path: a plain 32-bit move is carried out by the client and skipped, one fault
// instead of a fault and a single step. Rax to R15 lie in the context in encoding order.
bool Emulate(TrapClient* client, void* address, bool write, CONTEXT* context) {
  DWORD64* regs = &context->Rax;
  MoveAccess move;
  if (!DecodeMove32(reinterpret_cast<const uint8_t*>(context->Rip), &move) || move.write != write)
    return false;
  uint32_t value = move.immediate ? move.imm : uint32_t(regs[move.reg]);
  if (!client->Emulate(address, write, &value)) return false;
  if (!write) regs[move.reg] = value;   // a 32-bit load clears the upper half
  context->Rip += move.length;
  return true;
}

LONG CALLBACK OnException(EXCEPTION_POINTERS* pointers) {
  const EXCEPTION_RECORD* record = pointers->ExceptionRecord;
  CONTEXT* context = pointers->ContextRecord;
  TrapClient* client = g_client.load(std::memory_order_acquire);
  if (client == nullptr) return EXCEPTION_CONTINUE_SEARCH;
  const DWORD self = GetCurrentThreadId();
  const bool mine = g_owner.load(std::memory_order_relaxed) == self;

  if (record->ExceptionCode == EXCEPTION_SINGLE_STEP && mine && g_open_size != 0) {
    context->EFlags &= ~kTrapFlag;
    Close();
    client->Stepped();
    Unlock();
    return EXCEPTION_CONTINUE_EXECUTION;
  }

  if (record->ExceptionCode != EXCEPTION_ACCESS_VIOLATION || record->NumberParameters < 2)
    return EXCEPTION_CONTINUE_SEARCH;
  if (mine) {
    // With no range open this thread is inside the client's Fault or Stepped, whose access
    // faulted in memory another module traps: that module's handler takes it.
    if (g_open_size == 0) return EXCEPTION_CONTINUE_SEARCH;
    // The instruction being stepped faulted on something else as well: abandon the step so
    // that whoever handles this leaves nothing locked; if it runs again, it traps afresh.
    context->EFlags &= ~kTrapFlag;
    Close();
    Unlock();
    return EXCEPTION_CONTINUE_SEARCH;
  }
  // ExceptionInformation[0]: 0 read, 1 write, 8 execute (never a register access).
  const ULONG_PTR kind = record->ExceptionInformation[0];
  if (kind != 0 && kind != 1) return EXCEPTION_CONTINUE_SEARCH;
  void* address = reinterpret_cast<void*>(record->ExceptionInformation[1]);
  if (Emulate(client, address, kind == 1, context)) return EXCEPTION_CONTINUE_EXECUTION;
  Lock(self);
  void* base = nullptr;
  size_t size = 0;
  if (!client->Fault(address, kind == 1, &base, &size)) {
    Unlock();
    return EXCEPTION_CONTINUE_SEARCH;
  }
  DWORD old;
  VirtualProtect(base, size, PAGE_READWRITE, &old);
  g_open_base = base;
  g_open_size = size;
  context->EFlags |= kTrapFlag;
  return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

bool InstallTrapClient(TrapClient* client) {
  if (client == nullptr) return false;
  TrapClient* expected = nullptr;
  if (!g_client.compare_exchange_strong(expected, client)) return expected == client;
  g_handler = AddVectoredExceptionHandler(1, OnException);
  if (g_handler == nullptr) {
    g_client.store(nullptr);
    return false;
  }
  return true;
}

void RemoveTrapClient(TrapClient* client) {
  if (client == nullptr || g_client.load() != client) return;
  RemoveVectoredExceptionHandler(g_handler);
  g_handler = nullptr;
  g_client.store(nullptr);
}

}  // namespace tvx::os
