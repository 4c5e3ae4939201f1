// Texts and small derivations for command output.
#include "report.h"

#include "text.h"

namespace tvx::cli {

const char* PortResultMeaning(int32_t code) {
  switch (code) {
    case 1: return "no device object or null parameter";
    case 2: return "device not open, or its register BAR not mapped";
    case 3: return "kernel-mode access failed";
    case 4: return "bad access mode";
    case 5: return "address outside the register BAR or not 32-bit aligned";
    default: return "unknown code";
  }
}

std::string TraceLine(const zsim_access& access) {
  return std::string(access.write ? "W " : "R ") + Hex32(access.addr) +
         (access.write ? " <- " : " -> ") + Hex32(access.value);
}

uint8_t ConvertorCodeFromPresence(uint32_t peripheral_word0) {
  return (peripheral_word0 & 1u) != 0 ? 3 : 2;
}

}  // namespace tvx::cli
