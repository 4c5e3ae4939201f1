// The operating-system interface shared by the library, the virtual board and the tools.
// Everything that differs between Windows and POSIX hides behind these declarations; the
// implementations live in win32/ and posix/ and exactly one of them is compiled in.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvx::os {

// ---- Dynamic libraries -------------------------------------------------------------------
// `base` is the plain name ("zarimio"); the platform turns it into its file name
// ("zarimio.dll" / "libzarimio.so") and searches the system's ordinary way (on POSIX the
// calling object's RUNPATH, which is $ORIGIN for our binaries).
void* LoadDynamicLibrary(const char* base);
void* FindSymbol(void* library, const char* name);
void FreeDynamicLibrary(void* library);
// The file name LoadDynamicLibrary("x") looks for, for messages and build tooling.
const char* DynamicLibraryFileName(const char* base, char* out, size_t size);
// Loads the library at `path` as given, without any search.
void* LoadDynamicLibraryPath(const char* path);
// The file of the loaded module (library or program) that holds `address`. False when there
// is none or the path plus its terminating zero does not fit.
bool ModulePath(const void* address, char* out, size_t size);
// Whether a later load by plain name gets an already-loaded module of the same FILE name
// (Windows) rather than one whose SONAME is that name (POSIX): what it takes to put one
// library in front of another.
bool LoaderMatchesFileName();

// ---- Process -------------------------------------------------------------------------------
// Environment variables as the OS keeps them for the process, so that every module sees the
// same value (on Windows a C runtime linked into a module keeps a copy of its own). Get: false
// when unset, empty, or longer than the room. Set: null or empty removes the variable.
bool GetEnvironment(const char* name, char* out, size_t size);
bool SetEnvironment(const char* name, const char* value);
uint32_t ProcessId();

// ---- Last error ----------------------------------------------------------------------------
uint32_t LastError();            // GetLastError / errno
void SetLastError(uint32_t code);

// ---- Registry ------------------------------------------------------------------------------
// A key under HKEY_LOCAL_MACHINE, opened for query only. Paths use backslashes
// ("SYSTEM\\CurrentControlSet\\Services\\zarim\\Parameters"). On POSIX the tree is the
// directory $TORVIXE_REGISTRY (default /etc/torvixe/registry) and a value is a file that
// holds the value's raw bytes.
struct RegistryKey;
RegistryKey* OpenRegistryKey(const char* path);   // null when the key cannot be opened
// Copies the value's raw bytes into `data`. In: *size is the room; out: the bytes stored.
// False when the value is missing, unreadable, or longer than the room.
bool QueryRegistryValue(RegistryKey* key, const char* name, void* data, uint32_t* size);
void CloseRegistryKey(RegistryKey* key);
// Test and tooling support: create the key path as needed and store raw bytes; remove a
// value (true when it is gone afterwards).
bool WriteRegistryValue(const char* path, const char* name, const void* data, uint32_t size);
bool DeleteRegistryValue(const char* path, const char* name);

// ---- Device enumeration --------------------------------------------------------------------
struct Guid {
  uint32_t data1;
  uint16_t data2;
  uint16_t data3;
  uint8_t data4[8];
};
// Present devices exposing an interface of `cls`. Windows: SetupAPI. POSIX: entries of
// $TORVIXE_DEVICES (default /sys/class/zarim) sorted by name, the class is not consulted.
uint32_t CountDeviceInterfaces(const Guid& cls);
// Writes the device path of interface `index` (Windows: the SetupAPI detail's path; POSIX:
// "/dev/" + entry name). False when there is none, anything fails, or the path plus its
// terminating zero does not fit into `size` bytes; `out` is then left empty when size > 0.
bool DeviceInterfacePath(const Guid& cls, uint32_t index, char* out, size_t size);

// ---- Named events --------------------------------------------------------------------------
// Auto-reset events shared by name between processes. POSIX keeps them as FIFOs in a per-user
// runtime directory and drops a "Global\\" prefix from the name.
using Event = void*;   // null = no event
Event CreateNamedEvent(const char* name);   // create, or open an existing one; non-signalled
Event OpenNamedEvent(const char* name);     // open an existing one (synchronise access only)
bool SignalEvent(Event event);
enum class WaitResult { kFirst, kSecond, kTimeout, kFailed };
constexpr uint32_t kInfinite = 0xFFFFFFFFu;
// Waits until one of the two is signalled (the first wins when both are) or the time-out in
// milliseconds runs out. A wake consumes the signal of the event it reports.
WaitResult WaitForEither(Event first, Event second, uint32_t timeout_ms);
void CloseEvent(Event event);

// ---- Time ----------------------------------------------------------------------------------
int64_t PerformanceCounter();
int64_t PerformanceFrequency();
void SleepMs(uint32_t ms);

// ---- Thread affinity -----------------------------------------------------------------------
// Sets the calling thread's processor-affinity mask and returns the previous one (0 when it
// could not be changed). POSIX does nothing and returns 0.
uint64_t SetThreadAffinity(uint64_t mask);

// ---- Memory for the virtual board ------------------------------------------------------------
// Page-granular memory; `Protect` switches between no access and read/write.
size_t PageSize();
void* AllocatePages(size_t size);            // zeroed, read/write; null on failure
void FreePages(void* base, size_t size);
bool ProtectPages(void* base, size_t size, bool accessible);

// ---- Access traps (the virtual board's BAR, the recorder's shadow of it) ---------------------
// A client owns memory it keeps inaccessible. On an access fault inside it, the platform calls
// `Fault` with the faulting address and direction. The client prepares the access (for a read
// it stores the value the access must see) and names the range to open; the platform opens
// it, lets the one instruction execute under the single-step flag, closes the range again and
// calls `Stepped`. Faults the client does not claim go on to the handler installed before.
// Each module that links the platform layer has its own client and handler; a callback may
// itself touch memory trapped by another module's client (the recorder's shadow forwarding to
// the virtual board's BAR). That nested fault reaches the other module's handler whichever was
// installed last: a fault raised inside a callback is never taken for the access in progress.
class TrapClient {
 public:
  virtual ~TrapClient() = default;
  virtual bool Fault(void* address, bool write, void** open_base, size_t* open_size) = 0;
  virtual void Stepped() = 0;
  // The faster path, tried first: when the faulting instruction is a plain 32-bit move between
  // a register (or an immediate) and memory, the platform asks the client to carry the access
  // out itself — a read returns in *value what the load must see, a write hands *value over —
  // and then skips the instruction. False sends the access down the Fault/Stepped path.
  virtual bool Emulate(void* address, bool write, uint32_t* value) {
    (void)address, (void)write, (void)value;
    return false;
  }
};
// The range a client opens in `Fault` to step one access at byte `offset` of its trapped
// memory of `allocated` bytes (whole pages): every page the faulting instruction may touch, as
// a vector access straddling a page boundary reaches 16 bytes around the address.
inline void StepRange(size_t offset, size_t allocated, size_t* first, size_t* size) {
  constexpr size_t kAccessReach = 16;
  const size_t page = PageSize();
  const size_t low = (offset > kAccessReach ? offset - kAccessReach : 0) / page * page;
  const size_t high = (offset + kAccessReach + page - 1) / page * page;
  *first = low;
  *size = (high < allocated ? high : allocated) - low;
}
bool InstallTrapClient(TrapClient* client);   // one client per process; idempotent
void RemoveTrapClient(TrapClient* client);

}  // namespace tvx::os
