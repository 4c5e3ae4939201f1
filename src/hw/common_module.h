// The base of every module: the board's hardware-access object (shared, never owned) and the
// module's own message text, which the export frame copies into the process-wide error text.
#pragma once

#include <cstdint>

#include "hw/zarim.h"

namespace tvx {

constexpr const char kDataPointerNotSet[] = "Указатель данных не задан";

class cCommonModule {
 public:
  explicit cCommonModule(cZARIM* io) : Io(io) {}
  virtual const char* GetErrorText() { return Text; }
  virtual ~cCommonModule() = default;
  cCommonModule(const cCommonModule&) = delete;
  cCommonModule& operator=(const cCommonModule&) = delete;

 protected:
  cZARIM* Io;
  char Text[256] = {};
};

}  // namespace tvx
