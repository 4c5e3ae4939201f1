// The virtual board's core: one Board per emulated device, the table that holds them, and the
// pieces of a device the kernel driver would own (handle, data events, DMA memory, register BAR
// mapping). The model itself (registers, keys, trace) is zsim::BoardModel.
//
// Locking: each board has one mutex around everything in it, taken by the exported functions,
// the control interface and the BAR trap handler. Code holding a board's mutex never touches
// that board's BAR through the protected mapping, so a trap can always take it.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "board_model.h"
#include "hw/driver_parameters.h"
#include "dma_ring.h"
#include "hw/zarimio_abi.h"
#include "platform/os.h"
#include "replay.h"

namespace zsim {

using tvx::zarimio::Handle;

// The system error codes the virtual board leaves (Windows values; on POSIX they land in errno
// as the same numbers, which is all the library does with them: print them).
constexpr uint32_t kErrorFileNotFound = 2;       // no board with that index
constexpr uint32_t kErrorInvalidHandle = 6;
constexpr uint32_t kErrorNotEnoughMemory = 8;
constexpr uint32_t kErrorNotReady = 21;          // DMA memory not mapped, BAR not mapped
constexpr uint32_t kErrorInvalidParameter = 87;  // null record, address outside the BAR, ...
constexpr uint32_t kErrorBusy = 170;             // already open / already mapped

// ZARIM_Open takes an 8-bit index, so no more boards than this can ever be reached.
constexpr unsigned kMaxBoards = 256;

struct DmaMemory {
  bool mapped = false;
  uint32_t channels = 0;
  uint32_t buffers_per_channel = 0;
  uint32_t buffer_size = 0;
  void* control = nullptr;   // descriptors, then the per-channel progress records
  size_t control_size = 0;
  void* buffers = nullptr;
  size_t buffers_size = 0;
  tvx::zarimio::BufferDescriptor* descriptors = nullptr;
  tvx::zarimio::ChannelProgress* progress = nullptr;
};

struct BarMapping {
  bool mapped = false;
  uint8_t* base = nullptr;
  uint32_t size = 0;       // as reported: bar.size when mapped
  size_t allocated = 0;    // whole pages
};

struct Board {
  explicit Board(unsigned i) : index(i), model(i) {}
  ~Board();

  const unsigned index;
  std::mutex mutex;
  BoardModel model;

  bool open = false;
  Handle handle = tvx::zarimio::kInvalidHandle;
  uint32_t generation = 0;   // makes every open's handle differ from the last one's
  tvx::DriverParameters params;   // read from the driver's service key when opened
  std::vector<tvx::os::Event> events;
  DmaMemory dma;
  BarMapping bar;
  Replay replay;   // armed by the key `replay`
};

// ---- the table (board_table.cpp) --------------------------------------------------------------
// Loads the file named by ZARIM_SIM_CONFIG, once, on the first call of any export. Only the
// exported entry points call it.
void Start();
unsigned BoardCount();
bool SetBoardCount(unsigned count);   // 0 to kMaxBoards
// The board with that index, created on first use; null at or beyond kMaxBoards. Boards past
// the configured count still exist (an open one stays usable until closed).
Board* GetBoard(unsigned index);
Board* ExistingBoard(unsigned index);   // as GetBoard, but null for a board never used
// The open board a handle names, locked; an unlocked lock and null for anything else.
std::unique_lock<std::mutex> LockHandle(Handle handle, Board** board);
Handle MakeHandle(unsigned index, uint32_t generation);

// ---- DMA memory and events (dma_memory.cpp) ---------------------------------------------------
uint32_t MapDmaMemory(Board& board);   // 0 or an error code
void UnmapDmaMemory(Board& board);
uint32_t CreateDataEvents(Board& board);
void CloseDataEvents(Board& board);

// ---- register BAR (bar.cpp) ------------------------------------------------------------------
uint32_t MapBar(Board& board);   // 0 or an error code
void UnmapBar(Board& board);
// Makes a mapped BAR follow the model's mmio setting (called after mmio changes or a reset).
void ApplyMmioMode(Board& board);

// ---- control (control.cpp) -------------------------------------------------------------------
// zsim_set without the start-up step, for the configuration file. Results as zsim_set.
constexpr int kSetUnknownKey = 1;
constexpr int kSetBadValue = 2;
constexpr int kSetNoBoard = 3;
constexpr int kSetBusy = 4;   // a key that cannot change while the BAR is mapped
int SetKey(unsigned board, const std::string& key, const std::string& value);

// ---- DMA engine (dma_engine.cpp) -------------------------------------------------------------
// Connects the board's bus master to its engine (at open; again is harmless).
void AttachDmaEngine(Board& board);
DmaRingView RingView(const Board& board);   // of its mapped memory
// Stops the board's engine and returns once it touches no buffer, record or event any more.
// Called with the board's lock held, before the memory is unmapped or the events closed.
void StopDmaEngine(Board& board);

// ---- replay (replay.cpp, control.cpp) --------------------------------------------------------
// Arms (or, with "" / "none", ends) the board's replay of a recording, under the board's lock.
// Empty, or why the file was refused.
std::string ArmReplay(Board& board, const std::string& path);

// ---- configuration file (config_file.cpp) ----------------------------------------------------
// 0; -1 when the file cannot be read; else the number of the first refused line.
int LoadConfigFile(const char* path);
// The whole of a regular file (never a FIFO or a device); false when it cannot be read.
bool ReadRegularFile(const char* path, std::string* text);

}  // namespace zsim
