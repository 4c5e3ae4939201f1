// The frame every board export shares: find the board by the index in byte 0 of the caller's
// DeviceId, take the module(s) it needs, check the caller's pointers, call one module
// operation and turn its result into a return code and, on failure, a line in the process-wide
// error text.
#pragma once

#include <cstdint>

#include "api/board.h"
#include "hw/text.h"
#include "torvixe.h"

namespace tvx {

constexpr uint32_t kBoardCount = 128;
extern cBoard* BoardTable[kBoardCount];
extern char LastErrorText[256];

constexpr const char kNullText[] = "NULL-объект или NULL-параметр";

// Formats into LastErrorText, truncating to fit.
void SetLastErrorText(const char* format, ...) TVX_PRINTF(1, 2);

// How an export words its messages: "<name> [<index>]: <text>", with or without a line end.
struct ExportText {
  const char* name;
  bool null_line_end = true;   // the null message ends with "\n"
  bool fail_line_end = true;   // the failure message ends with "\n"
};

class ExportCall {
 public:
  // Reads nothing but byte 0 of `id`; a null `id` or an index beyond the table finds no
  // board and is never used to index anything.
  ExportCall(const DeviceId* id, const ExportText& text);

  cBoard* board() const { return board_; }
  template <class M>
  M* Module(Slot slot) const {
    return board_ ? board_->Get<M>(slot) : nullptr;
  }

  // The null path: "<name> [i]: <null text>" and `code`. Without a DeviceId the index is left
  // out ("<name>: <null text>").
  int32_t Null(int32_t code = -1, const char* text = kNullText) const;
  // The failure path: "<name> [i]: <text>" and `code`.
  int32_t Fail(int32_t code, const char* text) const;
  // "<name> [i]: " followed by a message of the export's own.
  int32_t Report(int32_t code, const char* format, ...) const TVX_PRINTF(3, 4);

  int index() const { return index_; }

 private:
  int32_t Message(int32_t code, const char* text, bool line_end) const;

  const ExportText& text_;
  bool has_id_ = false;
  int index_ = 0;
  cBoard* board_ = nullptr;
};

// Any pointer argument missing.
inline bool AnyNull() { return false; }
template <class P, class... Rest>
inline bool AnyNull(const P* p, const Rest*... rest) {
  return p == nullptr || AnyNull(rest...);
}

}  // namespace tvx
