// The emulated board: register blocks, configuration keys and the register trace. The same
// model serves the virtual board's trapped BAR and, in process, the library's unit tests.
//
// Register semantics, in order of precedence, for an aligned 32-bit word inside the BAR:
//   1. A value forced with the key reg.0xADDR: every read returns it, until the key is set to
//      "none" (or "") or the board is reset. Writes still happen underneath (they are stored and
//      reach the block that models the register), they just do not change what reads return.
//   2. A register that a hardware block models (device.h): its read and write callbacks.
//   3. Anything else is plain storage: a read returns the last value written, 0 after reset.
// Addresses are byte addresses; an unaligned address accesses the word that contains it. A read
// outside the BAR (bar.size) returns 0xFFFFFFFF and a write there is dropped, as on a bus with
// nothing behind the address. Every Read and Write is traced with the address as given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "zarimsim.h"

namespace zsim {

class DmaMaster;

class BoardModel {
 public:
  explicit BoardModel(unsigned index);
  ~BoardModel();
  BoardModel(const BoardModel&) = delete;
  BoardModel& operator=(const BoardModel&) = delete;

  // A 32-bit register access at a byte address of the register BAR, as the hardware sees it.
  // Both are recorded in the trace.
  uint32_t Read(uint32_t address);
  void Write(uint32_t address, uint32_t value);
  // What a read would return now, without side effects and without a trace entry.
  uint32_t Peek(uint32_t address) const;

  // While set, Read and Write go to `hook` instead of the blocks (a replaying board answers
  // from its recording): it returns a read's value and takes a write (its result unused).
  // Both are still traced. Null: back to the blocks.
  using AccessHook = std::function<uint32_t(bool write, uint32_t address, uint32_t value)>;
  void SetAccessHook(AccessHook hook);
  // A trace entry for an access served elsewhere (the replay's answer to ZARIM_Read).
  void TraceAccess(uint32_t address, uint32_t value, bool write);

  // Keys of docs/virtual-board.md. Set: 0, or nonzero for an unknown key (kUnknownKey) or a
  // bad value (kBadValue). Get: false for an unknown key.
  static constexpr int kUnknownKey = 1;
  static constexpr int kBadValue = 2;
  int Set(const std::string& key, const std::string& value);
  bool Get(const std::string& key, std::string* value) const;
  void KeyNames(std::vector<std::string>* out) const;   // every settable key ("reg.0xADDR" once)
  void Reset();   // defaults, as built

  std::vector<zsim_access> Trace() const;
  void ClearTrace();
  uint64_t TraceCount() const;   // recorded since the last clear, including dropped entries
  // Copies the oldest min(max, held) entries still held, oldest first; returns how many.
  size_t CopyTrace(zsim_access* out, size_t max) const;

  unsigned index() const;
  uint32_t bar_size() const;

  // The board's time in microseconds, which the blocks with settle times read (a synthesizer's
  // lock, the ADC's reset). By default the system's monotonic clock; with the key clock =
  // manual it moves only by clock.advance_us, for a program that runs the library's waits on a
  // virtual clock against the trapped board. A process that drives the model directly on a
  // virtual clock of its own installs that clock here (null: back to the keys).
  uint64_t NowUs() const;
  void SetTimeSource(std::function<uint64_t()> source);

  // Settings the virtual board's core acts on.
  enum class Fault { kOpen, kMemoryMap, kMemoryUnmap, kBarMap, kBarUnmap, kPort, kInterruptInfo };
  uint32_t fault(Fault which) const;   // 0: the call works; else the last-error code it leaves
  bool passive() const;                // mmio = passive
  uint32_t slot() const;
  uint32_t dma_buffer_size() const;
  // The bus master's block (stream/dma_master.h), whose engine the core runs.
  DmaMaster& dma_master();

  struct State;
 private:
  State* state_;
};

}  // namespace zsim
