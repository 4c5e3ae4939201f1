// Board lifecycle, the error text and the small board controls.
#include <exception>
#include <memory>

#include "api/controls.h"
#include "api/frame.h"

using namespace tvx;

namespace {
const ExportText kCreate{"CreateDeviceInstance"};
const ExportText kGetInterfaceVersion{"GetInterfaceVersion"};
const ExportText kCircuitReset{"CircuitReset"};
const ExportText kPLLControl{"PLLControl"};
}  // namespace

extern "C" {

TORVIXE_API int32_t CreateDeviceInstance(DeviceId* id) {
  ExportCall call(id, kCreate);
  // Indices beyond the table and a missing DeviceId have no entry to build into.
  if (!id || uint32_t(call.index()) >= kBoardCount) return call.Null(1);
  cBoard*& entry = BoardTable[call.index()];
  try {
    // A board already in the table is reused as it is, failed or not: a new bring-up is tried
    // only after ReleaseDeviceInstance.
    if (!entry) {
      std::unique_ptr<cBoard> board(new cBoard(uint8_t(call.index())));
      board->BringUp();
      entry = board.release();
    }
  } catch (const std::exception& e) {
    // The half-built board was torn down on the way out; the index stays empty.
    SetLastErrorText("CreateDeviceInstance exception: %s", e.what());
    return 1;
  }
  if (entry->Status != 0) {
    SetLastErrorText("%s", entry->Text);
    return 1;
  }
  return 0;
}

TORVIXE_API void ReleaseDeviceInstance(DeviceId* id) {
  if (!id || id->Index >= kBoardCount) return;
  cBoard*& entry = BoardTable[id->Index];
  std::unique_ptr<cBoard> board(entry);
  entry = nullptr;
  if (!board) return;
  // The tear-down runs outside the destructor so that what it throws reaches the caller's
  // text; it releases everything before passing the exception on.
  try {
    board->TearDown();
  } catch (const std::exception& e) {
    SetLastErrorText("ReleaseDeviceInstance exception: %s", e.what());
  } catch (...) {
  }
}

TORVIXE_API const char* GetErrorMessage(void) { return LastErrorText; }

TORVIXE_API int32_t GetInterfaceVersion(DeviceId* id, uint8_t* version) {
  ExportCall call(id, kGetInterfaceVersion);
  cInterfaceE* interface = call.Module<cInterfaceE>(Slot::Interface);
  if (!interface || !version) return call.Null();
  *version = interface->GetVersion();
  return 0;
}

TORVIXE_API int32_t CircuitReset(DeviceId* id, const uint32_t* value) {
  ExportCall call(id, kCircuitReset);
  cCircuitResetE* reset = call.Module<cCircuitResetE>(Slot::CircuitReset);
  if (!reset || !value) return call.Null();
  return reset->WriteResetWord(value);
}

TORVIXE_API int32_t PLLControl(DeviceId* id, const uint32_t* value) {
  ExportCall call(id, kPLLControl);
  cPLL* pll = call.Module<cPLL>(Slot::Pll);
  if (!pll || !value) return call.Null();
  if (pll->Control(*value) != 0) return call.Fail(2, pll->GetErrorText());
  return 0;
}

}  // extern "C"
