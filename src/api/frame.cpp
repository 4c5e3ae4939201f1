#include "api/frame.h"

#include <cstdarg>

namespace tvx {

cBoard* BoardTable[kBoardCount] = {};
char LastErrorText[256] = {};

void SetLastErrorText(const char* format, ...) {
  va_list args;
  va_start(args, format);
  FormatV(LastErrorText, sizeof LastErrorText, format, args);
  va_end(args);
}

ExportCall::ExportCall(const DeviceId* id, const ExportText& text) : text_(text) {
  if (!id) return;
  has_id_ = true;
  index_ = id->Index;
  if (uint32_t(index_) < kBoardCount) board_ = BoardTable[index_];
}

int32_t ExportCall::Message(int32_t code, const char* text, bool line_end) const {
  const char* end = line_end ? "\n" : "";
  if (has_id_)
    SetLastErrorText("%s [%d]: %s%s", text_.name, index_, text, end);
  else
    SetLastErrorText("%s: %s%s", text_.name, text, end);
  return code;
}

int32_t ExportCall::Null(int32_t code, const char* text) const {
  return Message(code, text, text_.null_line_end);
}

int32_t ExportCall::Fail(int32_t code, const char* text) const {
  return Message(code, text, text_.fail_line_end);
}

int32_t ExportCall::Report(int32_t code, const char* format, ...) const {
  char body[256];
  va_list args;
  va_start(args, format);
  FormatV(body, sizeof body, format, args);
  va_end(args);
  return Message(code, body, false);
}

}  // namespace tvx
