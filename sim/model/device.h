// One emulated hardware block of the board (the convertor's presence line, later the FPGA
// loader, the I2C bus, the synthesizers, the DMA engine, ...). In the manner of a device
// emulator, a block is a small state object with read and write callbacks keyed by the byte
// address of each register it models, plus its own configuration keys. The board model
// routes every access to the block(s) that claimed the address; an address nobody claimed is
// plain storage. A block claims all of a register's read bits or only some of them (a status
// word whose bits report different blocks); no two blocks claim the same bit. Several may claim
// a register's writes (the board's registers alias), and each then sees every write, in the
// order of the table.
//
// To add a block: write one file with a DeviceModel subclass that claims its registers in the
// constructor (OnRead / OnWrite) and declares its keys (keys().Add...), add its factory to
// devices.h and one line to MakeDevices() in devices.cpp, and list its keys in
// docs/virtual-board.md.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "keys.h"

namespace zsim {

class BoardModel;

class DeviceModel {
 public:
  // What a read of the register returns. `stored` is the word's plain storage: the last value
  // written to that address (writes are always stored, whether or not a block claims them),
  // 0 after a reset. `peek` is true when the board is inspected rather than accessed
  // (zsim_get, the passive-mode snapshot): the callback must then leave its state unchanged.
  using ReadFn = std::function<uint32_t(uint32_t stored, bool peek)>;
  // What a write does beyond storing the value.
  using WriteFn = std::function<void(uint32_t value)>;

  struct Register {
    ReadFn read;     // empty: reads return plain storage
    WriteFn write;   // empty: writes only store
    uint32_t read_bits = 0xFFFFFFFFu;   // the bits of a read that `read` answers
  };

  DeviceModel(const char* name, unsigned board_index);
  virtual ~DeviceModel();
  DeviceModel(const DeviceModel&) = delete;
  DeviceModel& operator=(const DeviceModel&) = delete;

  const std::string& name() const { return name_; }
  unsigned board_index() const { return board_index_; }
  const std::map<uint32_t, Register>& registers() const { return registers_; }

  // Keys. The defaults serve keys declared through keys(); a block with keys of another shape
  // (a table, a file name) overrides them and calls the base for the rest.
  virtual KeyResult Set(const std::string& key, const std::string& value);
  virtual bool Get(const std::string& key, std::string* value) const;
  virtual void KeyNames(std::vector<std::string>* out) const;

  // Back to the state it had when built: keys to their defaults, then ResetState().
  void Reset();

 protected:
  virtual void ResetState() {}
  KeySet& keys() { return keys_; }
  // `bits`: the bits of the read this block answers; the others come from plain storage or
  // from the blocks that claim them.
  void OnRead(uint32_t address, ReadFn fn, uint32_t bits = 0xFFFFFFFFu);
  void OnWrite(uint32_t address, WriteFn fn);
  // A key of the board this block belongs to, as zsim_get reports it: how one block follows a
  // setting another block owns. False for an unknown key or before the block joins a board.
  bool BoardKey(const std::string& key, std::string* value) const;
  // Sets a key another block owns, as zsim_set would (a setting that spans blocks, such as
  // the convertor type). False when the board refuses it or before the block joins a board.
  bool SetBoardKey(const std::string& key, const std::string& value);
  // The board's time in microseconds (BoardModel::NowUs); 0 before the block joins a board.
  uint64_t NowUs() const;

 private:
  friend class BoardModel;   // introduces itself to each block it builds
  BoardModel* board_ = nullptr;
  std::string name_;
  unsigned board_index_;
  KeySet keys_;
  std::map<uint32_t, Register> registers_;
};

}  // namespace zsim
