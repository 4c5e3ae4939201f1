// Access traps on Linux x86-64: a SIGSEGV handler catches loads and stores to the client's
// inaccessible pages, opens the range and returns with the trap flag set, so that the one
// faulting instruction executes and raises SIGTRAP; the SIGTRAP handler clears the flag, closes
// the range and tells the client. Faults that are not the client's go to whatever handler was
// installed before.
//
// Everything here runs inside signal handlers: no allocation, no locks that a normal thread
// could hold. Traps from different threads are serialised by a spin lock held from the fault
// to the single step, so the client sees one access at a time.
#include <atomic>
#include <csignal>
#include <cstdint>

#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/ucontext.h>
#include <unistd.h>

#include "platform/move_decode.h"
#include "platform/os.h"

namespace tvx::os {

namespace {

constexpr greg_t kTrapFlag = 0x100;
constexpr greg_t kPageFaultWrite = 0x2;   // bit 1 of the page-fault error code

std::atomic<TrapClient*> g_client{nullptr};
struct sigaction g_previous_segv;
struct sigaction g_previous_trap;

// The trap in progress: the thread that holds the lock (0 = free) and the range it opened.
std::atomic<long> g_owner{0};
void* g_open_base = nullptr;
size_t g_open_size = 0;

long ThreadId() { return ::syscall(SYS_gettid); }

void Lock(long self) {
  long expected = 0;
  while (!g_owner.compare_exchange_weak(expected, self, std::memory_order_acquire)) {
    expected = 0;
    ::sched_yield();
  }
}

void Unlock() { g_owner.store(0, std::memory_order_release); }

// Hands a signal we do not own to the handler installed before ours. A default or ignored
// disposition is put back in place of ours and the handler returns: a fault then repeats and
// takes its normal course (a core dump), a trap is taken once more by the default action.
void PassOn(const struct sigaction& previous, int sig, siginfo_t* info, void* context) {
  if (previous.sa_flags & SA_SIGINFO) {
    if (previous.sa_sigaction != nullptr) previous.sa_sigaction(sig, info, context);
    return;
  }
  if (previous.sa_handler == SIG_DFL || previous.sa_handler == SIG_IGN) {
    if (sig == SIGTRAP && previous.sa_handler == SIG_IGN) return;
    ::sigaction(sig, &previous, nullptr);
    if (sig == SIGTRAP) ::raise(SIGTRAP);   // the instruction that trapped will not repeat
    return;
  }
  previous.sa_handler(sig);
}

// Registers in the encoding order the decoder reports them in.
constexpr int kGreg[16] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                           REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};

// The faster path: a plain 32-bit move is carried out by the client and skipped, one fault
// instead of a fault and a single step.
bool Emulate(TrapClient* client, void* address, bool write, ucontext_t* uc) {
  greg_t* regs = uc->uc_mcontext.gregs;
  MoveAccess move;
  if (!DecodeMove32(reinterpret_cast<const uint8_t*>(regs[REG_RIP]), &move) || move.write != write)
    return false;
  uint32_t value = move.immediate ? move.imm : uint32_t(regs[kGreg[move.reg]]);
  if (!client->Emulate(address, write, &value)) return false;
  if (!write) regs[kGreg[move.reg]] = greg_t(value);   // a 32-bit load clears the upper half
  regs[REG_RIP] += move.length;
  return true;
}

void OnSegv(int sig, siginfo_t* info, void* context) {
  auto* uc = static_cast<ucontext_t*>(context);
  TrapClient* client = g_client.load(std::memory_order_acquire);
  const long self = ThreadId();
  if (client != nullptr && g_owner.load(std::memory_order_relaxed) == self) {
    // With no range open this thread is inside the client's Fault or Stepped, whose access
    // faulted in memory another module traps: that module's handler, further down, takes it.
    if (g_open_size != 0) {
      // The instruction being stepped faulted on something else as well: not an access we
      // can model. Abandon the step so that a handler that jumps away leaves nothing locked;
      // if the instruction runs again, it traps afresh.
      uc->uc_mcontext.gregs[REG_EFL] &= ~kTrapFlag;
      ::mprotect(g_open_base, g_open_size, PROT_NONE);
      g_open_base = nullptr;
      g_open_size = 0;
      Unlock();
    }
  } else if (client != nullptr) {
    const bool write = (uc->uc_mcontext.gregs[REG_ERR] & kPageFaultWrite) != 0;
    if (Emulate(client, info->si_addr, write, uc)) return;
    Lock(self);
    void* base = nullptr;
    size_t size = 0;
    if (client->Fault(info->si_addr, write, &base, &size)) {
      ::mprotect(base, size, PROT_READ | PROT_WRITE);
      g_open_base = base;
      g_open_size = size;
      uc->uc_mcontext.gregs[REG_EFL] |= kTrapFlag;
      return;
    }
    Unlock();
  }
  PassOn(g_previous_segv, sig, info, context);
}

void OnTrap(int sig, siginfo_t* info, void* context) {
  auto* uc = static_cast<ucontext_t*>(context);
  if (g_owner.load(std::memory_order_relaxed) == ThreadId() && g_open_size != 0) {
    uc->uc_mcontext.gregs[REG_EFL] &= ~kTrapFlag;
    ::mprotect(g_open_base, g_open_size, PROT_NONE);
    g_open_base = nullptr;
    g_open_size = 0;
    TrapClient* client = g_client.load(std::memory_order_acquire);
    if (client != nullptr) client->Stepped();
    Unlock();
    return;
  }
  PassOn(g_previous_trap, sig, info, context);
}

bool Install(int sig, void (*handler)(int, siginfo_t*, void*), struct sigaction* previous) {
  struct sigaction action = {};
  action.sa_sigaction = handler;
  // SA_NODEFER: a client's callback may fault (or be stepped) in memory another module traps
  // while this handler runs; that signal must be delivered, not kill the process as a blocked
  // synchronous signal does.
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  sigemptyset(&action.sa_mask);
  return ::sigaction(sig, &action, previous) == 0;
}

// Puts the previous handler back, unless somebody replaced ours meanwhile: then theirs stays.
void Restore(int sig, void (*handler)(int, siginfo_t*, void*), const struct sigaction& previous) {
  struct sigaction current;
  if (::sigaction(sig, nullptr, &current) != 0) return;
  if ((current.sa_flags & SA_SIGINFO) && current.sa_sigaction == handler)
    ::sigaction(sig, &previous, nullptr);
}

}  // namespace

bool InstallTrapClient(TrapClient* client) {
  if (client == nullptr) return false;
  TrapClient* expected = nullptr;
  if (!g_client.compare_exchange_strong(expected, client)) return expected == client;
  if (!Install(SIGTRAP, OnTrap, &g_previous_trap)) {
    g_client.store(nullptr);
    return false;
  }
  if (!Install(SIGSEGV, OnSegv, &g_previous_segv)) {
    Restore(SIGTRAP, OnTrap, g_previous_trap);
    g_client.store(nullptr);
    return false;
  }
  return true;
}

void RemoveTrapClient(TrapClient* client) {
  if (client == nullptr || g_client.load() != client) return;
  Restore(SIGSEGV, OnSegv, g_previous_segv);
  Restore(SIGTRAP, OnTrap, g_previous_trap);
  g_client.store(nullptr);
}

}  // namespace tvx::os
