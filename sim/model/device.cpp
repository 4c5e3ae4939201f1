// The common part of every emulated hardware block: its register claims and its keys.
#include "device.h"

#include "board_model.h"

namespace zsim {

DeviceModel::DeviceModel(const char* name, unsigned board_index)
    : name_(name), board_index_(board_index) {}

DeviceModel::~DeviceModel() = default;

KeyResult DeviceModel::Set(const std::string& key, const std::string& value) {
  return keys_.Set(key, value);
}

bool DeviceModel::Get(const std::string& key, std::string* value) const {
  return keys_.Get(key, value);
}

void DeviceModel::KeyNames(std::vector<std::string>* out) const { keys_.Names(out); }

void DeviceModel::Reset() {
  keys_.Reset();
  ResetState();
}

bool DeviceModel::BoardKey(const std::string& key, std::string* value) const {
  return board_ != nullptr && board_->Get(key, value);
}

bool DeviceModel::SetBoardKey(const std::string& key, const std::string& value) {
  return board_ != nullptr && board_->Set(key, value) == 0;
}

uint64_t DeviceModel::NowUs() const { return board_ != nullptr ? board_->NowUs() : 0; }

void DeviceModel::OnRead(uint32_t address, ReadFn fn, uint32_t bits) {
  registers_[address].read = std::move(fn);
  registers_[address].read_bits = bits;
}

void DeviceModel::OnWrite(uint32_t address, WriteFn fn) {
  registers_[address].write = std::move(fn);
}

}  // namespace zsim
