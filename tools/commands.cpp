// The commands: enumeration, board information and raw register access.
#include "commands.h"

#include <cstdio>
#include <cstdlib>

#include "report.h"
#include "text.h"

namespace tvx::cli {
namespace {

// Peripheral word 0 as a byte address; its bit 0 tells which convertor is fitted.
constexpr uint32_t kPeripheralWord0 = 0x4000;

// Parses a 32-bit command argument, or says why not.
bool ParseWord(const char* what, const std::string& text, uint32_t* out) {
  uint64_t value = 0;
  if (!ParseUnsigned(text, 0xFFFFFFFFu, &value)) {
    PrintError(std::string("invalid ") + what + " '" + text +
               "' (decimal or 0x-hexadecimal, 0 to 0xFFFFFFFF)");
    return false;
  }
  *out = static_cast<uint32_t>(value);
  return true;
}

// A failed _devinp/_devoutp. The library writes its text only on some of these paths, so the
// text is shown only when the call changed it.
void ReportPortFailure(const char* verb, uint32_t address, int32_t code,
                       const std::string& text_before) {
  std::string message = std::string(verb) + " " + Hex32(address) + ": error " +
                        std::to_string(code) + " (" + PortResultMeaning(code) + ")";
  const std::string text = LastLibraryText();
  if (text != text_before && !text.empty()) message += ": " + text;
  PrintError(message);
}

// Bring-up for raw access: a failed board may still have its device open, and looking at its
// registers is how one finds out why it failed, so the access is tried anyway.
void BringUpForRawAccess(Session& s) {
  std::string failure;
  if (!s.BringUp(&failure))
    PrintError("board " + std::to_string(s.board()) + ": bring-up failed: " + failure +
               " (trying the access anyway)");
}

int RunList(Session& s) {
  const uint32_t count = DeviceSupportedCount();
  if (count == 0) {
    std::printf("no devices found (Windows: the driver's device interfaces; Linux: the entries "
                "of $TORVIXE_DEVICES, default /sys/class/zarim)\n");
  } else {
    std::printf("%u device%s:\n", count, count == 1 ? "" : "s");
    // The library addresses a device by one index byte.
    for (uint32_t i = 0; i < count && i < 256; ++i) {
      DeviceId id{static_cast<uint8_t>(i)};
      const std::string path = LibraryText(GetFullDeviceName(&id));
      std::printf("  %3u  %s\n", i, path.empty() ? "(no device path)" : path.c_str());
    }
  }
  if (s.sim().available()) {
    const unsigned boards = s.sim().BoardCount();
    std::printf("virtual board: %u board%s, reached by index (-b 0 to %u)\n", boards,
                boards == 1 ? "" : "s", boards == 0 ? 0 : boards - 1);
  }
  return kExitOk;
}

int RunInfo(Session& s) {
  std::string failure;
  if (!s.BringUp(&failure)) {
    PrintError("board " + std::to_string(s.board()) + ": bring-up failed: " + failure);
    return kExitFailed;
  }
  int status = kExitOk;
  auto field_failed = [&status](const std::string& field, const std::string& text) {
    PrintError("info: " + field + ": " + text);
    status = kExitFailed;
  };
  std::printf("board %u\nstatus: 0 (board usable)\n", s.board());
  const uint32_t slot = GetDeviceSlotID(s.id());
  std::printf("slot: %u%s\n", slot, slot == 0xFFFFFFFFu ? " (none reported)" : "");

  FpgaBaseAddresses bases{};
  if (GetFPGABaseAddress(s.id(), &bases) == 0) {
    const struct { const char* name; uint32_t base; } blocks[] = {
        {"INT", bases.IntBase}, {"DEM", bases.DemBase}, {"peripheral", bases.PeripheralBase},
        {"DEC", bases.DecBase}, {"RS", bases.RsBase}};
    std::printf("register blocks:  word offset  byte address\n");
    for (const auto& b : blocks)
      std::printf("  %-12s   0x%04X       0x%08llX\n", b.name, b.base,
                  static_cast<unsigned long long>(BlockByteAddress(b.base)));
  } else {
    field_failed("register blocks", LastLibraryText());
  }

  uint8_t version = 0;
  if (GetInterfaceVersion(s.id(), &version) == 0) std::printf("interface version: %u\n", version);
  else field_failed("interface version", LastLibraryText());

  uint8_t type = 0;
  if (GetLConvertorType(s.id(), &type) == 0) {
    std::printf("convertor type: %u\n", type);
  } else {
    // No convertor object to ask: the presence bit still tells which convertor is fitted.
    const std::string why = LastLibraryText();
    PortAccess word{kPeripheralWord0, 0};
    const int32_t code = _devinp(s.id(), &word);
    if (code == 0) {
      std::printf("convertor code: %u (the presence code: bit 0 of peripheral word 0 is %u; "
                  "GetLConvertorType: %s)\n",
                  ConvertorCodeFromPresence(word.Value), word.Value & 1u, why.c_str());
    } else {
      field_failed("convertor", why + "; reading peripheral word 0: error " +
                                    std::to_string(code) + " (" + PortResultMeaning(code) + ")");
    }
  }
  return status;
}

int RunPeek(Session& s) {
  uint32_t address = 0;
  if (!ParseWord("address", s.inv().args[0], &address)) return kExitUsage;
  const uint64_t last = uint64_t{address} + (uint64_t{s.inv().count} - 1) * 4;
  if (last > 0xFFFFFFFFu) {
    PrintError("peek: --count " + std::to_string(s.inv().count) + " from " + Hex32(address) +
               " runs past 0xFFFFFFFF");
    return kExitUsage;
  }
  BringUpForRawAccess(s);
  for (uint32_t i = 0; i < s.inv().count; ++i) {
    PortAccess access{address + i * 4, 0};
    const std::string before = LastLibraryText();
    const int32_t code = _devinp(s.id(), &access);
    if (code != 0) {
      ReportPortFailure("read", access.Address, code, before);
      return kExitFailed;
    }
    std::printf("%s: %s\n", Hex32(access.Address).c_str(), Hex32(access.Value).c_str());
  }
  return kExitOk;
}

int RunPoke(Session& s) {
  uint32_t address = 0;
  uint32_t value = 0;
  if (!ParseWord("address", s.inv().args[0], &address) ||
      !ParseWord("value", s.inv().args[1], &value))
    return kExitUsage;
  BringUpForRawAccess(s);
  PortAccess access{address, value};
  const std::string before = LastLibraryText();
  const int32_t code = _devoutp(s.id(), &access);
  if (code != 0) {
    ReportPortFailure("write", address, code, before);
    return kExitFailed;
  }
  return kExitOk;
}

}  // namespace

const Command kCommands[] = {
    {{"list", "", 0, 0, 0}, "count the boards and show their device paths",
     "Shows how many boards the system enumerates and each one's device path, by index.\n"
     "On Windows the driver's device interfaces are enumerated; on Linux the entries of\n"
     "$TORVIXE_DEVICES (default /sys/class/zarim), sorted by name. On the virtual board the\n"
     "number of emulated boards is shown too; they are reached by index whether enumerated\n"
     "or not.",
     RunList},
    {{"info", "", 0, 0, 0}, "bring a board up and show what it reports",
     "Brings the board up and shows its status, slot, register-block bases (32-bit word\n"
     "offsets and byte addresses), interface version and convertor type. When the convertor\n"
     "cannot be asked, the presence code from bit 0 of peripheral word 0 (byte address\n"
     "0x4000) is shown instead. A failed bring-up prints the library's text and exits 1;\n"
     "a later field that fails prints its text and the rest still follows (exit 1).",
     RunInfo},
    {{"peek", "ADDR [--count K]", 1, 1, kOptCount}, "read 32-bit registers",
     "Reads K consecutive 32-bit words starting at byte address ADDR of the register BAR and\n"
     "prints address and value. Result codes: 1 no device or null parameter, 2 device not\n"
     "open (or BAR not mapped), 3 kernel-mode access failed, 4 bad access mode, 5 address\n"
     "outside the register BAR or misaligned. When the bring-up fails the read is tried anyway.",
     RunPeek},
    {{"poke", "ADDR VALUE", 2, 2, 0}, "write a 32-bit register",
     "Writes VALUE to the 32-bit register at byte address ADDR of the register BAR. Result\n"
     "codes as for peek. Prints nothing on success.",
     RunPoke},
    {{nullptr, nullptr, 0, 0, 0}, nullptr, nullptr, nullptr},
};

const Command* FindCommand(const std::string& name) {
  for (const Command* c = kCommands; c->run != nullptr; ++c)
    if (name == c->syntax.name) return c;
  return nullptr;
}

}  // namespace tvx::cli
