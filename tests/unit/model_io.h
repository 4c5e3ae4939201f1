// An in-process stand-in for the hardware-access object: the library's own cZARIM code (flags,
// codes, texts) bound to scripted IO-library functions, with register accesses going to the
// virtual board's register model instead of a trapped BAR.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "board_model.h"
#include "hw/zarim.h"
#include "platform/os.h"

namespace tvx::test {

// The last-error codes the scripted calls fail with (0 = succeed), the calls seen in order,
// and the BAR that BARMap reports.
struct IoScript {
  uint32_t open = 0, memory_map = 0, bar_map = 0, memory_unmap = 0, bar_unmap = 0;
  std::vector<std::string> calls;
  void* bar = nullptr;
  uint32_t bar_size = 0;
  uint32_t bar_marker = zarimio::kBarRecordMarker;
  // What MemoryMap and GetInterruptInfo hand out; a nonzero interrupt_info fails the call.
  zarimio::MemoryMapInfo memory_map_info{};
  zarimio::InterruptInfo interrupt_record{};
  uint32_t interrupt_info = 0;
};

class ModelIo : public cZARIM {
 public:
  ModelIo(zsim::BoardModel* model, IoScript* script) : cZARIM(NoLibrary{}), model_(model) {
    current = script;
    hDevice = zarimio::kInvalidHandle;
    Opened = MemoryMapped = BarMapped = 0;
    pOpen = [](uint8_t index) {
      return Call("open", current->open) ? zarimio::kInvalidHandle : zarimio::Handle(index);
    };
    pClose = [](zarimio::Handle) { return int32_t(Call("close", 0)); };
    pMemoryMap = [](zarimio::Handle, void* info) {
      *static_cast<zarimio::MemoryMapInfo*>(info) = current->memory_map_info;
      return Call("memory_map", current->memory_map);
    };
    pGetInterruptInfo = [](zarimio::Handle, void* info) {
      *static_cast<zarimio::InterruptInfo*>(info) = current->interrupt_record;
      return current->interrupt_info == 0 ? 0 : Call("interrupt_info", current->interrupt_info);
    };
    pMemoryUnmap = [](zarimio::Handle, void*) { return Call("memory_unmap", current->memory_unmap); };
    pBarMap = [](zarimio::Handle, void* info) {
      if (Call("bar_map", current->bar_map)) return int32_t(1);
      auto* bar = static_cast<zarimio::BarInfo*>(info);
      bar->user_address = reinterpret_cast<uintptr_t>(current->bar);
      bar->size = current->bar_size;
      bar->marker = current->bar_marker;
      return int32_t(0);
    };
    pBarUnmap = [](zarimio::Handle, void*) { return Call("bar_unmap", current->bar_unmap); };
    pGetSlotNumber = [](zarimio::Handle) { return 3u; };
  }

  // Without a model, accesses take the real path through the BAR the script reports. With
  // one, whatever stops a real access stops this one with the real codes and texts, and an
  // access that would reach the BAR goes to the model.
  int32_t ReadPort(uint32_t address, uint32_t* value) override {
    if (!Reaches()) return cZARIM::ReadPort(address, value);
    *value = model_->Read(address);
    if (on_read) on_read(address, value);
    return 0;
  }
  int32_t WritePort(uint32_t address, uint32_t value) override {
    if (!Reaches()) return cZARIM::WritePort(address, value);
    model_->Write(address, value);
    return 0;
  }
  void set_bar_mapped(bool mapped) { BarMapped = mapped ? 1 : 0; }
  // Sees every read the model answers and may change the value (a status bit the model
  // cannot be told to drop for one word only).
  std::function<void(uint32_t address, uint32_t* value)> on_read;
  void set_memory_mapped(bool mapped) { MemoryMapped = mapped ? 1 : 0; }

  static inline IoScript* current = nullptr;

 private:
  bool Reaches() const {
    return model_ && hDevice != zarimio::kInvalidHandle && BarMapped != 0 && rwMode == 1;
  }
  // 1 when the call is to fail, its code left as the system's last error.
  static int32_t Call(const char* name, uint32_t fault) {
    current->calls.push_back(name);
    if (fault == 0) return 0;
    os::SetLastError(fault);
    return 1;
  }

  zsim::BoardModel* model_;
};

}  // namespace tvx::test
