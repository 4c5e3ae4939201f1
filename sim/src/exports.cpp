// The eleven functions of the IO library, as the torvixe library binds them by name. Each one
// starts the virtual board if needed, finds and locks the board its handle names, and reports
// failure the vendor's way: a nonzero result (all-ones for a handle) and the system's
// last-error code, set after every lock is released so that nothing can overwrite it.
#include <cstring>
#include <type_traits>

#include "board.h"

using tvx::zarimio::BarInfo;
using tvx::zarimio::Handle;
using tvx::zarimio::InterruptInfo;
using tvx::zarimio::kInvalidHandle;
using tvx::zarimio::MemoryMapInfo;
using tvx::zarimio::PortRequest;
using zsim::Board;
using Fault = zsim::BoardModel::Fault;

namespace {

// Runs `body` (which returns 0 or an error code) and turns its result into the export's.
template <typename Body>
int32_t Call(Body&& body) {
  zsim::Start();
  const uint32_t error = body();
  if (error == 0) return 0;
  tvx::os::SetLastError(error);
  return 1;
}

// Runs `body(board)` on the open board a handle names, under its lock.
template <typename Body>
int32_t OnBoard(Handle handle, Body&& body) {
  return Call([&]() -> uint32_t {
    Board* board;
    auto lock = zsim::LockHandle(handle, &board);
    if (board == nullptr) return zsim::kErrorInvalidHandle;
    return body(*board);
  });
}

// A replaying board checks each call against its recording; a call recorded as failed fails
// again with the recorded code (0: carry the call out). The data path's queries,
// ZARIM_GetSlotNumber and ZARIM_GetInterruptInfo, are no events of a replay (replay.cpp).
uint32_t Replayed(Board& board, const char* name) {
  return board.replay.Call(name, board.model.NowUs());
}

// ZARIM_Read / ZARIM_Write on a replaying board: answered and checked by the recording alone.
uint32_t ReplayPort(Board& board, bool write, PortRequest* request) {
  if (request == nullptr) {
    const uint32_t code = Replayed(board, write ? "ZARIM_Write" : "ZARIM_Read");
    return code != 0 ? code : zsim::kErrorInvalidParameter;
  }
  uint32_t value = request->value;
  const uint32_t code = board.replay.Port(write, request->address, &value, board.model.NowUs());
  if (code != 0) return code;
  board.model.TraceAccess(request->address, value, write);
  request->value = value;
  return 0;
}

// The word of a register request, when it lies inside the board's BAR.
bool ValidAddress(const Board& board, uint32_t address) {
  const uint32_t size = board.model.bar_size();
  return address % 4 == 0 && address < size && size - address >= 4;
}

}  // namespace

extern "C" {

ZSIM_EXPORT Handle ZARIM_Open(uint8_t index) {
  zsim::Start();
  uint32_t error = 0;
  Handle handle = kInvalidHandle;
  Board* board = index < zsim::BoardCount() ? zsim::GetBoard(index) : nullptr;
  if (board == nullptr) {
    error = zsim::kErrorFileNotFound;
  } else {
    std::lock_guard<std::mutex> lock(board->mutex);
    if (uint32_t code = Replayed(*board, "ZARIM_Open")) {
      error = code;
    } else if (uint32_t code = board->model.fault(Fault::kOpen)) {
      error = code;
    } else if (board->open) {
      error = zsim::kErrorBusy;
    } else {
      board->params = tvx::ReadDriverParameters(tvx::kDriverService);
      error = zsim::CreateDataEvents(*board);
      if (error == 0) {
        zsim::AttachDmaEngine(*board);
        board->open = true;
        board->handle = zsim::MakeHandle(index, ++board->generation);
        handle = board->handle;
      }
    }
  }
  if (error != 0) tvx::os::SetLastError(error);
  return handle;
}

ZSIM_EXPORT int32_t ZARIM_Close(Handle device) {
  return OnBoard(device, [](Board& board) -> uint32_t {
    if (uint32_t code = Replayed(board, "ZARIM_Close")) return code;
    zsim::StopDmaEngine(board);
    zsim::UnmapBar(board);
    zsim::UnmapDmaMemory(board);
    zsim::CloseDataEvents(board);
    board.open = false;
    board.handle = kInvalidHandle;
    return 0;
  });
}

ZSIM_EXPORT int32_t ZARIM_Read(Handle device, PortRequest* request) {
  return OnBoard(device, [&](Board& board) -> uint32_t {
    if (board.replay.armed()) return ReplayPort(board, false, request);
    if (uint32_t code = board.model.fault(Fault::kPort)) return code;
    if (request == nullptr || !ValidAddress(board, request->address))
      return zsim::kErrorInvalidParameter;
    request->value = board.model.Read(request->address);
    return 0;
  });
}

ZSIM_EXPORT int32_t ZARIM_Write(Handle device, PortRequest* request) {
  return OnBoard(device, [&](Board& board) -> uint32_t {
    if (board.replay.armed()) return ReplayPort(board, true, request);
    if (uint32_t code = board.model.fault(Fault::kPort)) return code;
    if (request == nullptr || !ValidAddress(board, request->address))
      return zsim::kErrorInvalidParameter;
    board.model.Write(request->address, request->value);
    return 0;
  });
}

ZSIM_EXPORT int32_t ZARIM_MemoryMap(Handle device, void* memory_map_info) {
  return OnBoard(device, [&](Board& board) -> uint32_t {
    if (uint32_t code = Replayed(board, "ZARIM_MemoryMap")) return code;
    if (uint32_t code = board.model.fault(Fault::kMemoryMap)) return code;
    if (memory_map_info == nullptr) return zsim::kErrorInvalidParameter;
    if (board.dma.mapped) return zsim::kErrorBusy;
    if (uint32_t code = zsim::MapDmaMemory(board)) return code;
    MemoryMapInfo info{};
    info.descriptor_count = board.dma.channels * board.dma.buffers_per_channel;
    info.descriptors = reinterpret_cast<uintptr_t>(board.dma.descriptors);
    std::memcpy(memory_map_info, &info, sizeof info);
    board.replay.StartData(board);
    return 0;
  });
}

ZSIM_EXPORT int32_t ZARIM_MemoryUnmap(Handle device, void* /*reserved*/) {
  return OnBoard(device, [](Board& board) -> uint32_t {
    if (uint32_t code = Replayed(board, "ZARIM_MemoryUnmap")) return code;
    if (uint32_t code = board.model.fault(Fault::kMemoryUnmap)) return code;
    if (!board.dma.mapped) return zsim::kErrorNotReady;
    zsim::StopDmaEngine(board);
    zsim::UnmapDmaMemory(board);
    return 0;
  });
}

ZSIM_EXPORT int32_t ZARIM_BARMap(Handle device, void* bar_info) {
  return OnBoard(device, [&](Board& board) -> uint32_t {
    if (uint32_t code = Replayed(board, "ZARIM_BARMap")) return code;
    if (uint32_t code = board.model.fault(Fault::kBarMap)) return code;
    if (bar_info == nullptr) return zsim::kErrorInvalidParameter;
    if (uint32_t code = zsim::MapBar(board)) return code;
    BarInfo info{};
    info.user_address = reinterpret_cast<uintptr_t>(board.bar.base);
    info.size = board.bar.size;
    info.marker = tvx::zarimio::kBarRecordMarker;
    std::memcpy(bar_info, &info, sizeof info);
    return 0;
  });
}

ZSIM_EXPORT int32_t ZARIM_BARUnmap(Handle device, void* bar_info) {
  return OnBoard(device, [&](Board& board) -> uint32_t {
    if (uint32_t code = Replayed(board, "ZARIM_BARUnmap")) return code;
    if (uint32_t code = board.model.fault(Fault::kBarUnmap)) return code;
    if (!board.bar.mapped) return zsim::kErrorNotReady;
    // The record must be the one BARMap filled: unmapping on the strength of a stale or
    // foreign record would hide a caller's bug.
    BarInfo info;
    if (bar_info == nullptr) return zsim::kErrorInvalidParameter;
    std::memcpy(&info, bar_info, sizeof info);
    if (info.user_address != reinterpret_cast<uintptr_t>(board.bar.base))
      return zsim::kErrorInvalidParameter;
    zsim::UnmapBar(board);
    return 0;
  });
}

ZSIM_EXPORT int32_t ZARIM_GetInterruptInfo(Handle device, void* interrupt_info) {
  return OnBoard(device, [&](Board& board) -> uint32_t {
    if (uint32_t code = board.model.fault(Fault::kInterruptInfo)) return code;
    if (interrupt_info == nullptr) return zsim::kErrorInvalidParameter;
    if (!board.dma.mapped) return zsim::kErrorNotReady;
    InterruptInfo info{};
    info.channels = reinterpret_cast<uintptr_t>(board.dma.progress);
    std::memcpy(interrupt_info, &info, sizeof info);
    return 0;
  });
}

ZSIM_EXPORT uint32_t DeviceSupportedCount() {
  zsim::Start();
  return zsim::BoardCount();
}

#ifndef ZSIM_INCOMPLETE
ZSIM_EXPORT uint32_t ZARIM_GetSlotNumber(Handle device) {
  zsim::Start();
  Board* board;
  uint32_t slot = 0;
  {
    auto lock = zsim::LockHandle(device, &board);
    if (board != nullptr) slot = board->model.slot();
  }
  if (board == nullptr) {
    tvx::os::SetLastError(zsim::kErrorInvalidHandle);
    return 0xFFFFFFFFu;
  }
  return slot;
}
#endif

}  // extern "C"

// The definitions above must keep the types the binding calls them through.
namespace abi = tvx::zarimio;
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
#ifndef ZSIM_INCOMPLETE
static_assert(std::is_same_v<decltype(&ZARIM_GetSlotNumber), abi::GetSlotNumberFn>);
#endif
