// The eleven functions of the IO library: each starts the recorder if needed, forwards to the
// target, records the call once it returned and hands the target's last-error code back to
// the caller (the recording's own work may have changed it).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <type_traits>

#include "hw/driver_parameters.h"
#include "hw/zarimio_abi.h"
#include "platform/os.h"
#include "recorder.h"

namespace abi = tvx::zarimio;
using abi::Handle;
using abi::kInvalidHandle;

namespace zrec {
namespace {

struct Target {
  abi::OpenFn open;
  abi::CloseFn close;
  abi::ReadFn read;
  abi::WriteFn write;
  abi::MemoryMapFn memory_map;
  abi::MemoryUnmapFn memory_unmap;
  abi::BarMapFn bar_map;
  abi::BarUnmapFn bar_unmap;
  abi::GetInterruptInfoFn interrupt_info;
  abi::DeviceSupportedCountFn supported_count;
  abi::GetSlotNumberFn slot_number;
};
static_assert(sizeof(Target) == 11 * sizeof(void*), "one pointer per name, in the names' order");

Target g_target;
std::once_flag g_once;
uint32_t g_start_error = 0;   // 0 once the target and the recording are there

uint32_t ErrorOr(uint32_t fallback) {
  const uint32_t code = tvx::os::LastError();
  return code != 0 ? code : fallback;
}

// Loads the target, resolves every name and creates the recording; the first failure's
// system error code stays for every later call.
void Start() {
  constexpr uint32_t kNotFound = 2;   // "file not found" on both systems
  char target[4096], file[4096], app[4096];
  if (!tvx::os::GetEnvironment("ZARIMREC_TARGET", target, sizeof target)) {
    g_start_error = kNotFound;
    return;
  }
  tvx::os::SetLastError(0);
  void* library = tvx::os::LoadDynamicLibraryPath(target);
  if (library == nullptr) {
    g_start_error = ErrorOr(kNotFound);
    return;
  }
  void* found[11];
  for (int i = 0; i < 11; ++i) {
    tvx::os::SetLastError(0);
    found[i] = tvx::os::FindSymbol(library, abi::kFunctionNames[i]);
    if (found[i] == nullptr) {
      g_start_error = ErrorOr(kNotFound);
      tvx::os::FreeDynamicLibrary(library);
      return;
    }
  }
  std::memcpy(&g_target, found, sizeof g_target);
  if (!tvx::os::GetEnvironment("ZARIMREC_FILE", file, sizeof file))
    std::snprintf(file, sizeof file, "zarimrec-%u.txt", unsigned(tvx::os::ProcessId()));
  if (!tvx::os::GetEnvironment("ZARIMREC_APP", app, sizeof app)) app[0] = '\0';
  uint32_t error = 0;
  if (!TheRecording().Open(file, target, app, &error)) g_start_error = error;
}

bool Started() {
  std::call_once(g_once, Start);
  if (g_start_error == 0) return true;
  tvx::os::SetLastError(g_start_error);
  return false;
}

// Handles back to the index they were opened with; memory mapped or not, for the watcher.
struct OpenBoard {
  Handle handle = kInvalidHandle;
  int index = kNoBoard;
  bool memory_mapped = false;
};
constexpr size_t kMaxOpen = 32;
OpenBoard g_open[kMaxOpen];
std::mutex g_open_mutex;

OpenBoard* FindLocked(Handle handle) {
  for (OpenBoard& b : g_open)
    if (b.index != kNoBoard && b.handle == handle) return &b;
  return nullptr;
}

int BoardOf(Handle handle) {
  std::lock_guard<std::mutex> lock(g_open_mutex);
  const OpenBoard* b = FindLocked(handle);
  return b != nullptr ? b->index : kNoBoard;
}

// Records a call: `failed` decides whether the error code is the target's last error.
void Record(int board, const char* name, unsigned long long result, bool failed, uint32_t error,
            const char* extra = "") {
  char text[160];
  std::snprintf(text, sizeof text, "call %s %llu %u%s%s", name, result,
                unsigned(failed ? error : 0), *extra != '\0' ? " " : "", extra);
  TheRecording().Event(board, text);
}

// The target's last error after it returned, and set again after the recording's own work.
struct Outcome {
  bool failed;
  uint32_t error;
  explicit Outcome(bool f) : failed(f), error(f ? tvx::os::LastError() : 0) {}
  void Restore() const {
    if (failed) tvx::os::SetLastError(error);
  }
};

uint32_t BarSize(const uint8_t* record) {
  abi::BarInfo info;
  std::memcpy(&info, record, sizeof info);
  if (info.marker == abi::kBarRecordMarker && info.size != 0) return info.size;
  char text[32];
  if (tvx::os::GetEnvironment("ZARIMREC_BAR_SIZE", text, sizeof text)) {
    char* end = nullptr;
    const unsigned long long size = std::strtoull(text, &end, 0);
    if (end != text && *end == '\0' && size > 0 && size <= 0xFFFFFFFFull) return uint32_t(size);
  }
  return 65536;
}

}  // namespace
}  // namespace zrec

using namespace zrec;

extern "C" {

ZREC_EXPORT Handle ZARIM_Open(uint8_t index) {
  if (!Started()) return kInvalidHandle;
  const Handle handle = g_target.open(index);
  const Outcome out(handle == kInvalidHandle);
  if (!out.failed) {
    std::lock_guard<std::mutex> lock(g_open_mutex);
    OpenBoard* slot = FindLocked(handle);
    for (OpenBoard& b : g_open)
      if (slot == nullptr && b.index == kNoBoard) slot = &b;
    if (slot != nullptr) *slot = OpenBoard{handle, index, false};
  }
  Record(index, "ZARIM_Open", out.failed ? 1 : 0, out.failed, out.error);
  out.Restore();
  return handle;
}

ZREC_EXPORT int32_t ZARIM_Close(Handle device) {
  if (!Started()) return 1;
  const int board = BoardOf(device);
  StopWatcher(board);
  const int32_t result = g_target.close(device);
  const Outcome out(result != 0);
  if (!out.failed && board != kNoBoard) {
    // Whatever the application did not unmap went with the board.
    FreeBoardShadows(board);
    std::lock_guard<std::mutex> lock(g_open_mutex);
    if (OpenBoard* b = FindLocked(device)) *b = OpenBoard{};
  }
  Record(board, "ZARIM_Close", uint32_t(result), out.failed, out.error);
  TheRecording().Flush();
  out.Restore();
  return result;
}

// Forwarded under the recording's lock, like an access through the BAR: the file has the
// register accesses of all threads in the order the board saw them.
static int32_t Port(const char* name, abi::ReadFn forward, Handle device, abi::PortRequest* request) {
  const int board = BoardOf(device);
  Recording& recording = TheRecording();
  std::lock_guard<std::mutex> lock(recording.mutex());
  const int32_t result = forward(device, request);
  const Outcome out(result != 0);
  char text[160];
  int n = std::snprintf(text, sizeof text, "call %s %u %u", name, unsigned(result), unsigned(out.error));
  if (request != nullptr)
    std::snprintf(text + n, sizeof text - n, " addr=0x%08X value=0x%08X", unsigned(request->address),
                  unsigned(request->value));
  recording.EventLocked(board, text);
  out.Restore();
  return result;
}

ZREC_EXPORT int32_t ZARIM_Read(Handle device, abi::PortRequest* request) {
  if (!Started()) return 1;
  return Port("ZARIM_Read", g_target.read, device, request);
}

ZREC_EXPORT int32_t ZARIM_Write(Handle device, abi::PortRequest* request) {
  if (!Started()) return 1;
  return Port("ZARIM_Write", g_target.write, device, request);
}

ZREC_EXPORT int32_t ZARIM_MemoryMap(Handle device, void* memory_map_info) {
  if (!Started()) return 1;
  const int32_t result = g_target.memory_map(device, memory_map_info);
  const Outcome out(result != 0);
  char extra[32] = "";
  if (!out.failed) {
    {
      std::lock_guard<std::mutex> lock(g_open_mutex);
      if (OpenBoard* b = FindLocked(device)) b->memory_mapped = true;
    }
    if (memory_map_info != nullptr) {
      abi::MemoryMapInfo info;
      std::memcpy(&info, memory_map_info, sizeof info);
      std::snprintf(extra, sizeof extra, "descriptors=%u", unsigned(info.descriptor_count));
    }
  }
  Record(BoardOf(device), "ZARIM_MemoryMap", uint32_t(result), out.failed, out.error, extra);
  out.Restore();
  return result;
}

ZREC_EXPORT int32_t ZARIM_MemoryUnmap(Handle device, void* reserved) {
  if (!Started()) return 1;
  const int board = BoardOf(device);
  StopWatcher(board);
  const int32_t result = g_target.memory_unmap(device, reserved);
  const Outcome out(result != 0);
  if (!out.failed) {
    std::lock_guard<std::mutex> lock(g_open_mutex);
    if (OpenBoard* b = FindLocked(device)) b->memory_mapped = false;
  }
  Record(board, "ZARIM_MemoryUnmap", uint32_t(result), out.failed, out.error);
  out.Restore();
  return result;
}

// The application gets the real record with the shadow's address in place of the mapping's.
ZREC_EXPORT int32_t ZARIM_BARMap(Handle device, void* bar_info) {
  if (!Started()) return 1;
  const int board = BoardOf(device);
  const int32_t result = g_target.bar_map(device, bar_info);
  const Outcome out(result != 0);
  char extra[32] = "";
  if (!out.failed && bar_info != nullptr) {
    auto* record = static_cast<uint8_t*>(bar_info);
    uint64_t real;
    std::memcpy(&real, record, sizeof real);
    const uint32_t size = BarSize(record);
    if (void* shadow = MakeShadow(board, uintptr_t(real), size)) {
      const uint64_t address = reinterpret_cast<uintptr_t>(shadow);
      std::memcpy(record, &address, sizeof address);
    }
    std::snprintf(extra, sizeof extra, "size=0x%08X", unsigned(size));
  }
  Record(board, "ZARIM_BARMap", uint32_t(result), out.failed, out.error, extra);
  out.Restore();
  return result;
}

// The shadow's record goes to the target as the real one; the shadow is freed only once the
// real mapping is gone. Any other record is the target's to judge.
ZREC_EXPORT int32_t ZARIM_BARUnmap(Handle device, void* bar_info) {
  if (!Started()) return 1;
  uint64_t shadow = 0, real = 0;
  if (bar_info != nullptr) {
    std::memcpy(&shadow, bar_info, sizeof shadow);
    real = ShadowReal(uintptr_t(shadow));
    if (real != 0) std::memcpy(bar_info, &real, sizeof real);
  }
  const int32_t result = g_target.bar_unmap(device, bar_info);
  const Outcome out(result != 0);
  if (real != 0) {
    if (out.failed)
      std::memcpy(bar_info, &shadow, sizeof shadow);   // still the application's mapping
    else
      FreeShadow(uintptr_t(shadow));
  }
  Record(BoardOf(device), "ZARIM_BARUnmap", uint32_t(result), out.failed, out.error);
  out.Restore();
  return result;
}

// The progress records exist while the memory is mapped: only then is a watcher started.
ZREC_EXPORT int32_t ZARIM_GetInterruptInfo(Handle device, void* interrupt_info) {
  if (!Started()) return 1;
  const int32_t result = g_target.interrupt_info(device, interrupt_info);
  const Outcome out(result != 0);
  const int board = BoardOf(device);
  if (!out.failed && interrupt_info != nullptr) {
    abi::InterruptInfo info;
    std::memcpy(&info, interrupt_info, sizeof info);
    bool mapped;
    {
      std::lock_guard<std::mutex> lock(g_open_mutex);
      const OpenBoard* b = FindLocked(device);
      mapped = b != nullptr && b->memory_mapped;
    }
    if (mapped)
      StartWatcher(board, uintptr_t(info.channels),
                   tvx::ReadDriverParameters(tvx::kDriverService).channel_count);
  }
  Record(board, "ZARIM_GetInterruptInfo", uint32_t(result), out.failed, out.error);
  out.Restore();
  return result;
}

ZREC_EXPORT uint32_t DeviceSupportedCount() {
  if (!Started()) return 0;
  const uint32_t count = g_target.supported_count();
  Record(kNoBoard, "DeviceSupportedCount", count, false, 0);
  return count;
}

ZREC_EXPORT uint32_t ZARIM_GetSlotNumber(Handle device) {
  if (!Started()) return 0xFFFFFFFFu;
  const uint32_t slot = g_target.slot_number(device);
  const Outcome out(slot == 0xFFFFFFFFu);
  Record(BoardOf(device), "ZARIM_GetSlotNumber", slot, out.failed, out.error);
  out.Restore();
  return slot;
}

}  // extern "C"

// The definitions above must keep the types the binding calls them through.
static_assert(std::is_same_v<decltype(&ZARIM_Open), abi::OpenFn>);
static_assert(std::is_same_v<decltype(&ZARIM_Close), abi::CloseFn>);
static_assert(std::is_same_v<decltype(&ZARIM_Read), abi::ReadFn>);
static_assert(std::is_same_v<decltype(&ZARIM_Write), abi::WriteFn>);
static_assert(std::is_same_v<decltype(&ZARIM_MemoryMap), abi::MemoryMapFn>);
static_assert(std::is_same_v<decltype(&ZARIM_MemoryUnmap), abi::MemoryUnmapFn>);
static_assert(std::is_same_v<decltype(&ZARIM_BARMap), abi::BarMapFn>);
static_assert(std::is_same_v<decltype(&ZARIM_BARUnmap), abi::BarUnmapFn>);
static_assert(std::is_same_v<decltype(&ZARIM_GetInterruptInfo), abi::GetInterruptInfoFn>);
static_assert(std::is_same_v<decltype(&DeviceSupportedCount), abi::DeviceSupportedCountFn>);
static_assert(std::is_same_v<decltype(&ZARIM_GetSlotNumber), abi::GetSlotNumberFn>);
