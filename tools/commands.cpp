// The commands: enumeration, board information and raw register access.
#include "commands.h"
#include "record.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "hw/driver_parameters.h"
#include "capture.h"
#include "controls.h"
#include "demod.h"
#include "loaders.h"
#include "i2c_port.h"
#include "profile.h"
#include "report.h"
#include "rf.h"
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
  Json& devices = s.json()["devices"] = Json::array();
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
      Json& device = devices.emplace_back(Json::object());
      device["index"] = i;
      device["path"] = path.empty() ? Json() : Json(path);
    }
  }
  s.json()["virtual_boards"] = nullptr;
  if (s.sim().available()) {
    const unsigned boards = s.sim().BoardCount();
    s.json()["virtual_boards"] = boards;
    std::printf("virtual board: %u board%s, reached by index (-b 0 to %u)\n", boards,
                boards == 1 ? "" : "s", boards == 0 ? 0 : boards - 1);
  }
  return kExitOk;
}

// The peripheral block's base (a 32-bit word offset) as the library set it.
bool PeripheralBase(Session& s, uint32_t* base, std::string* why) {
  FpgaBaseAddresses bases{};
  if (GetFPGABaseAddress(s.id(), &bases) != 0) {
    *why = LastLibraryText();
    return false;
  }
  *base = bases.PeripheralBase;
  return true;
}

// The L-convertor EEPROM as the fitted convertor carries it: two address bytes when the
// presence bit (bit 0 of peripheral word 0) is set, one otherwise.
bool LConvChip(Session& s, uint32_t peripheral_base, EepromChip* chip, std::string* why) {
  PortAccess word{peripheral_base * 4, 0};
  if (const int32_t code = _devinp(s.id(), &word); code != 0) {
    *why = "reading peripheral word 0: error " + std::to_string(code) + " (" +
           PortResultMeaning(code) + ")";
    return false;
  }
  *chip = (word.Value & 1u) != 0 ? kLConvEeprom : kPlainLConvEeprom;
  return true;
}

// Module identity and temperatures straight from the library.
using FieldFailed = std::function<void(const std::string& field, const std::string& text)>;

void ShowIdentity(Session& s, const FieldFailed& failed) {
  char text[32] = {};
  Json& module = s.json()["module"] = Json::object();
  AddNulls(module, {"serial_number", "version"});
  if (GetModuleSerialNumber(s.id(), text) == 0) {
    std::printf("module serial number: %s\n", text);
    module["serial_number"] = LibraryText(text);
  } else {
    failed("module serial number", LastLibraryText());
  }
  if (GetModuleVersion(s.id(), text) == 0) {
    std::printf("module version: %s\n", text);
    module["version"] = LibraryText(text);
  } else {
    failed("module version", LastLibraryText());
  }
}

// The L-convertor's serial number and version. When the library has no convertor object to
// ask (it answers its null message), the tool reads the same bytes over the I2C bus itself and
// says so; a convertor that keeps no identity is reported, not counted as a failure.
void ShowLConvertorIdentity(Session& s, const FieldFailed& failed) {
  char serial[32] = {}, version[32] = {};
  const int32_t serial_code = GetLConvertorSerialNumber(s.id(), serial);
  const std::string serial_text = LastLibraryText();
  const int32_t version_code = GetLConvertorVersion(s.id(), version);
  const std::string version_text = LastLibraryText();
  // One source for both: the two calls ask the same convertor object.
  Json& facts = s.json()["lconvertor"] = Json::object();
  AddNulls(facts, {"serial_number", "version"});
  facts["source"] = serial_code == -2 ? "not supported" : serial_code == 0 ? "library" : Json();
  auto show = [&](const char* field, const char* key, int32_t code, const char* value,
                  const std::string& why) {
    if (code == 0) {
      std::printf("%s: %s\n", field, value);
      facts[key] = LibraryText(value);
    } else if (code == -2) {
      std::printf("%s: not supported (%s)\n", field, why.c_str());
    } else if (code != -1) {
      failed(field, why);
    }
  };
  show("L-convertor serial number", "serial_number", serial_code, serial, serial_text);
  show("L-convertor version", "version", version_code, version, version_text);
  if (serial_code != -1 && version_code != -1) return;

  std::string why;
  uint32_t base = 0;
  EepromChip chip{};
  if (!PeripheralBase(s, &base, &why) || !LConvChip(s, base, &chip, &why)) {
    failed("L-convertor identity", serial_text + "; " + why);
    return;
  }
  if (chip.address_bytes == 1) {
    facts["source"] = "none";
    // What the library answers once it has the convertor to ask: not supported.
    if (serial_code == -1)
      std::printf("L-convertor serial number: none (the type 2 convertor keeps no identity; %s)\n",
                  serial_text.c_str());
    if (version_code == -1)
      std::printf("L-convertor version: none (the type 2 convertor keeps no identity; %s)\n",
                  version_text.c_str());
    return;
  }
  std::vector<uint8_t> bytes;
  I2cPort port(s.id(), base);
  if (std::string failure = port.Read(chip, 0x0080, 5, &bytes); !failure.empty()) {
    failed("L-convertor identity", serial_text + "; reading its EEPROM: " + failure);
    return;
  }
  facts["source"] = "eeprom";
  if (serial_code == -1) {
    std::printf("L-convertor serial number: %s (read from its EEPROM by the tool; %s)\n",
                SerialText(bytes.data()).c_str(), serial_text.c_str());
    facts["serial_number"] = SerialText(bytes.data());
  }
  if (version_code == -1) {
    std::printf("L-convertor version: %s (read from its EEPROM by the tool; %s)\n",
                VersionText(bytes[4]).c_str(), version_text.c_str());
    facts["version"] = VersionText(bytes[4]);
  }
}

void ShowTemperatures(Session& s, const FieldFailed& failed) {
  float celsius = 0;
  Json& facts = s.json()["temperatures"] = Json::object();
  AddNulls(facts, {"pcb_celsius", "fpga_celsius"});
  if (GetPCBTemperature(s.id(), &celsius) == 0) {
    std::printf("PCB temperature: %.2f °C\n", static_cast<double>(celsius));
    facts["pcb_celsius"] = celsius;
  } else {
    failed("PCB temperature", LastLibraryText());
  }
  if (GetFPGATemperature(s.id(), &celsius) == 0) {
    std::printf("FPGA temperature: %.2f °C\n", static_cast<double>(celsius));
    facts["fpga_celsius"] = celsius;
  } else {
    failed("FPGA temperature", LastLibraryText());
  }
}

// The DMA geometry's two registry values as they stand and as the library takes them. A value
// the library cannot use gives way to its default without a word from the library, and if the
// driver sized its DMA memory by the value, every descriptor would land in the wrong channel:
// this is where a user looks, so the difference is spelt out and warned about.
void ShowDriverParameters(Session& s) {
  char path[256];
  ServiceKeyPath(kDriverService, path, sizeof path);
  const DriverParameters in_force = ReadDriverParameters(kDriverService);
  os::RegistryKey* key = os::OpenRegistryKey(path);
  std::printf("driver parameters (%s%s):\n", path, key ? "" : ", key absent");
  Json& facts = s.json()["driver_parameters"] = Json::object();
  facts["key"] = LibraryText(path);
  facts["key_present"] = key != nullptr;
  const struct {
    const char* name;
    uint32_t in_force;
    bool (*accepted)(uint32_t);
    const char* range;
  } values[] = {
      {kChannelCountValue, in_force.channel_count, ChannelCountAccepted, "0 to 255"},
      {kBuffersPerChannelValue, in_force.buffers_per_channel, BuffersPerChannelAccepted, "2 to 32"}};
  for (const auto& v : values) {
    uint8_t bytes[64];
    uint32_t size = sizeof bytes;
    const bool present = key && os::QueryRegistryValue(key, v.name, bytes, &size);
    uint32_t value = 0;
    std::string read = present ? std::to_string(size) + " bytes (not a 4-byte value)" : "not set";
    Json& fact = facts[v.name] = Json::object();
    AddNulls(fact, {"read", "value_bytes"});
    if (present) fact["value_bytes"] = size;
    if (key && ReadDword(key, v.name, &value)) {
      read = std::to_string(value);
      fact["read"] = value;
    }
    fact["in_force"] = v.in_force;
    std::printf("  %-13s read: %s, in force: %u\n", v.name, read.c_str(), v.in_force);
    if (present && (size != 4 || !v.accepted(value)))
      PrintError("warning: " + std::string(v.name) + ": the registry holds " + read +
                 ", which the library does not take (a 4-byte value from " + v.range +
                 "); it uses " + std::to_string(v.in_force) + " instead, so a driver that sized " +
                 "its DMA memory by the registry does not agree with it");
  }
  if (key) os::CloseRegistryKey(key);

  // What the IO library actually mapped: the library takes BuffersPerCH descriptors per
  // channel in order, so any other count puts buffers into the wrong channels.
  BufferMap map{};
  MasterGetBuffers(s.id(), &map);
  const uint64_t expected = uint64_t(in_force.channel_count) * in_force.buffers_per_channel;
  facts["descriptors_mapped"] = uint32_t{map.DescriptorCount};   // copied out of the packed record
  facts["descriptors_expected"] = expected;
  std::printf("  DMA descriptors mapped: %u (%u channels x %u buffers expected)\n",
              unsigned(map.DescriptorCount), in_force.channel_count, in_force.buffers_per_channel);
  if (map.DescriptorCount != expected)
    PrintError("warning: the IO library mapped " + std::to_string(map.DescriptorCount) +
               " DMA descriptors, but the library takes " + std::to_string(expected) +
               " (CHCount x BuffersPerCH): channels and buffers will not line up");
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
  Json& facts = s.json();
  facts["status"] = 0;
  facts["slot"] = slot == 0xFFFFFFFFu ? Json() : Json(slot);
  AddNulls(facts, {"register_blocks", "interface_version", "convertor_type",
                   "convertor_presence_code"});

  FpgaBaseAddresses bases{};
  if (GetFPGABaseAddress(s.id(), &bases) == 0) {
    const struct { const char* name; uint32_t base; } blocks[] = {
        {"INT", bases.IntBase}, {"DEM", bases.DemBase}, {"peripheral", bases.PeripheralBase},
        {"DEC", bases.DecBase}, {"RS", bases.RsBase}};
    std::printf("register blocks:  word offset  byte address\n");
    for (const auto& b : blocks) {
      std::printf("  %-12s   0x%04X       0x%08llX\n", b.name, b.base,
                  static_cast<unsigned long long>(BlockByteAddress(b.base)));
      Json& block = facts["register_blocks"][b.name];
      block["word_offset"] = b.base;
      block["byte_address"] = BlockByteAddress(b.base);
    }
  } else {
    field_failed("register blocks", LastLibraryText());
  }

  uint8_t version = 0;
  if (GetInterfaceVersion(s.id(), &version) == 0) {
    std::printf("interface version: %u\n", version);
    facts["interface_version"] = version;
  } else {
    field_failed("interface version", LastLibraryText());
  }

  uint8_t type = 0;
  if (GetLConvertorType(s.id(), &type) == 0) {
    std::printf("convertor type: %u\n", type);
    facts["convertor_type"] = type;
  } else {
    type = 0;
    // No convertor object to ask: the presence bit still tells which convertor is fitted.
    const std::string why = LastLibraryText();
    PortAccess word{kPeripheralWord0, 0};
    const int32_t code = _devinp(s.id(), &word);
    if (code == 0) {
      std::printf("convertor code: %u (the presence code: bit 0 of peripheral word 0 is %u; "
                  "GetLConvertorType: %s)\n",
                  ConvertorCodeFromPresence(word.Value), word.Value & 1u, why.c_str());
      facts["convertor_presence_code"] = ConvertorCodeFromPresence(word.Value);
    } else {
      field_failed("convertor", why + "; reading peripheral word 0: error " +
                                    std::to_string(code) + " (" + PortResultMeaning(code) + ")");
    }
  }
  ShowIdentity(s, field_failed);
  ShowLConvertorIdentity(s, field_failed);
  ShowSampleClock(s, type);
  ShowTemperatures(s, field_failed);
  ShowDriverParameters(s);
  return status;
}

int RunEeprom(Session& s) {
  const std::string& verb = s.inv().args[0];
  const std::string& which = s.inv().args[1];
  if (verb != "dump") {
    PrintError("eeprom: unknown action '" + verb + "' (dump)");
    return kExitUsage;
  }
  if (which != kModuleEeprom.name && which != kLConvEeprom.name) {
    PrintError("eeprom dump: unknown EEPROM '" + which + "' (pcb or lconv)");
    return kExitUsage;
  }
  BringUpForRawAccess(s);
  std::string why;
  uint32_t base = 0;
  EepromChip chip = kModuleEeprom;
  if (!PeripheralBase(s, &base, &why) ||
      (which == kLConvEeprom.name && !LConvChip(s, base, &chip, &why))) {
    PrintError("eeprom dump " + which + ": " + why);
    return kExitFailed;
  }
  const uint32_t length =
      s.inv().length != 0 ? s.inv().length : chip.address_bytes == 2 ? 512 : 256;
  std::vector<uint8_t> bytes;
  I2cPort port(s.id(), base);
  if (std::string failure = port.Read(chip, 0, length, &bytes); !failure.empty()) {
    PrintError("eeprom dump " + which + ": " + failure);
    return kExitFailed;
  }
  std::printf("%s at 0x%02X (%s addresses), %u bytes from 0x0000, read over the I2C bus:\n",
              chip.title, chip.device, chip.address_bytes == 2 ? "two-byte" : "one-byte", length);
  for (uint32_t at = 0; at < length; at += 16)
    std::printf("%s\n", DumpLine(at, bytes.data() + at, length - at).c_str());
  return kExitOk;
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

int RunControl(Session& s) {
  const std::string& which = s.inv().args[0];
  const ChannelControlWrite write = ChannelControl(which);
  if (write == nullptr) {
    PrintError("control: unknown channel control '" + which + "' (iq, dmd or dma3)");
    return kExitUsage;
  }
  uint32_t value = 0;
  if (!ParseWord("value", s.inv().args[1], &value)) return kExitUsage;
  std::string failure;
  if (!s.BringUp(&failure)) {
    PrintError("board " + std::to_string(s.board()) + ": bring-up failed: " + failure);
    return kExitFailed;
  }
  if (write(s.id(), &value) != 0) {
    PrintError("control " + which + ": " + LastLibraryText());
    return kExitFailed;
  }
  return kExitOk;
}

}  // namespace

// Every step's help ends with this.
#define TVX_CHAIN_HELP                                                                          \
  "\n\nsignal, tune, rate, iso, status, gain, eq and dmpx chain: one line runs several, in the\n" \
  "order given, on one bring-up (each run of the tool starts from a freshly built board), e.g.\n" \
  "  torvixe signal QPSK tune 1.2e9 rate 10e6 --filters DIR status\n"                          \
  "Each step at most once (for gain, eq and dmpx: each action); a step's options may stand\n"  \
  "anywhere on the line. After a line that tuned or set a rate, the tool waits for the locks\n" \
  "(GetBitStatus, up to 50 reads 10 ms apart) and shows each, locked or NOT locked, with the\n" \
  "carrier (MeasureCarrier) and the symbol rate (MeasureTiming) measured, at its end or on a\n" \
  "status screen after them; exit 1 when a lock the line asked for did not come."

const Command kCommands[] = {
    {{"list", "[--json]", 0, 0, kOptJson}, "count the boards and show their device paths",
     "Shows how many boards the system enumerates and each one's device path, by index.\n"
     "On Windows the driver's device interfaces are enumerated; on Linux the entries of\n"
     "$TORVIXE_DEVICES (default /sys/class/zarim), sorted by name. On the virtual board the\n"
     "number of emulated boards is shown too; they are reached by index whether enumerated\n"
     "or not. --json prints the same as one JSON document.",
     RunList},
    {{"info", "[--json]", 0, 0, kOptJson}, "bring a board up and show what it reports",
     "Brings the board up and shows its status, slot, register-block bases (32-bit word\n"
     "offsets and byte addresses), interface version and convertor type. When the convertor\n"
     "cannot be asked, the presence code from bit 0 of peripheral word 0 (byte address\n"
     "0x4000) is shown instead. Then the module and L-convertor serial numbers and versions\n"
     "and the PCB and FPGA temperatures; when the library has no convertor object to ask,\n"
     "the L-convertor's serial number and version are read from its EEPROM by the tool\n"
     "(marked so). The sampling clock is the one the library sets for the convertor type;\n"
     "on the virtual board, the frequency and lock its synthesizer received are shown too.\n"
     "A failed bring-up prints the library's text and exits 1; a later field that fails\n"
     "prints its text and the rest still follows (exit 1). --json prints the same as one JSON\n"
     "document.",
     RunInfo},
    {{"eeprom", "dump pcb|lconv [--len N]", 2, 2, kOptLen}, "dump a serial EEPROM",
     "Reads the module EEPROM (pcb, device 0xA6) or the L-convertor EEPROM (lconv, device\n"
     "0xA0) from address 0 and shows it as hex and ASCII, 16 bytes a line. The library has\n"
     "no export for this, so the tool drives the board's I2C controller itself through\n"
     "_devinp/_devoutp, with the sequence the library's reads use (address polling, memory\n"
     "address, stop, sequential read, stop; every wait bounded by 0.1 s). The L-convertor\n"
     "EEPROM takes two address bytes when the presence bit is set, else one. --len N reads\n"
     "N bytes (default 512; 256 with one-byte addresses); past the end of a chip the read\n"
     "wraps to its start. Works on hardware and on the virtual board alike. When the\n"
     "bring-up fails the read is tried anyway.",
     RunEeprom},
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
    {{"fpga", "load DEVICE FILE | load --all DIR", 1, 3, kOptAll}, "load FPGA configuration images",
     "Loads the FPGA DEVICE (DEM, DEC or RS, any case) from FILE with FPGALoad. With --all DIR,\n"
     "loads DEM, DEC and RS from DIR/dem.bin, DIR/dec.bin and DIR/rs.bin in that order; every\n"
     "device is tried and the status is 1 if any failed. Shows the words sent and the rate,\n"
     "and on the virtual board what the board received. A load that takes long shows its\n"
     "progress on a terminal. The build writes sample images to bin/samples.",
     RunFpga},
    {{"ram", "load FILE", 2, 2, 0}, "load the on-board RAM from a file",
     "Loads the demodulator FPGA's RAM from FILE (16-bit little-endian words, word i to\n"
     "address i; an odd last byte is ignored) with RAMLoad.",
     RunRam},
    {{"sim", "ACTION [ACTION...]", 1, 32, 0}, "drive the signal simulator",
     "Runs the simulator actions in order on one bring-up:\n"
     "  load FILE     load the pattern (16-bit little-endian words) with SimulatorLoad\n"
     "  on | off      switch the simulator on or off (SimulatorControl)\n"
     "  carrier HZ    set the carrier frequency (SimulatorSetCarrier)\n"
     "  rate SPS      set the symbol rate, which also switches it on (SimulatorSetTiming)\n"
     "The pattern length reaches the FPGA with the next on, off or rate. On the virtual board\n"
     "the simulator's registers are shown afterwards.",
     RunSim},
    {{"synth", "s HZ", 2, 2, 0}, "load the sampling-clock synthesizer",
     "Brings the board up and loads the sampling-clock synthesizer for HZ (a decimal number,\n"
     "e.g. 186.7e6) with sSynthLoad; the synthesizer realises the nearest multiple of\n"
     "1666666.67 Hz. The library's sampling clock, which bring-up set, stays as it was. On\n"
     "the virtual board the words the synthesizer received are shown with the frequency\n"
     "they program and whether it locked, after a failure too.",
     RunSynth},
    {{"capture", "[-c LIST] [--bytes N | --seconds S] [-o PREFIX] [--verify] [--rate R] [--json]",
      0, 0, kOptChannels | kOptBytes | kOptSeconds | kOptOutput | kOptVerify | kOptRate | kOptJson},
     "read data channels by DMA and account for every buffer",
     "Brings the board up, hands the DMA buffer map back to the engine (MasterGetBuffers,\n"
     "MasterLoad), reads the channels of -c (default 0) with ReadChannelData, a thread each,\n"
     "BuffersPerCH - 1 buffers a read, and starts the engine (MasterStart 0x40000000) once\n"
     "every reader waits, until --seconds (2) have passed, --bytes have arrived on every\n"
     "channel, or Ctrl-C. The reads are ended through the channels' terminate events and the\n"
     "engine is stopped. Progress is shown on a terminal. Each channel ends with a summary:\n"
     "bytes, MB/s, buffers, buffers lost (from the sequence number every virtual-board buffer\n"
     "carries), payload errors with --verify, and how often each ReadChannelData result came\n"
     "back (-4: a wait timed out, -1/-2: the ring overran); a last line sums the channels up\n"
     "and, on the virtual board, sets them against what its engine completed on them. -o\n"
     "PREFIX writes channel N's data to PREFIX.chN.bin. --rate R sets the virtual board's\n"
     "buffers per second per channel (or max) first. Exit status 1 when a buffer was lost,\n"
     "the ring overran, a payload was wrong or a channel could not be read. --json prints the\n"
     "summary as one JSON document.",
     RunCapture},
    {{"replay", "FILE", 1, 1, 0}, "run a recorded command against a board replaying it",
     "Runs the command line that FILE (made with --record) recorded, on the virtual board\n"
     "replaying FILE: every register read is answered from the recording, every write and\n"
     "IO-library call is checked against it in order, and the recorded data events come at\n"
     "their recorded times. Ends with the line 'replay: match: N events' (exit 0) or with the\n"
     "first difference, 'replay: differs at event N: expected ..., got ...' (exit 1). The\n"
     "command runs in its recorded directory when that exists. docs/recording.md has the\n"
     "format.",
     RunReplay},
    {{"run", "PROFILE [--json]", 1, 1, kOptJson}, "run the job a profile names, step by step",
     "Reads the INI profile PROFILE and runs what it names on one bring-up, in this order: the\n"
     "virtual board's keys ([virtual-board]), the FPGA images ([fpga]), the receiver ([signal],\n"
     "[tune], [rate], [gain], [eq], [dmpx]) followed by its status screen, the channel control\n"
     "words ([control]) and the capture ([capture]). Each step shows what the board read back,\n"
     "as the single commands do; the first that fails ends the run with the library's text\n"
     "(exit 1). The run ends with a line of the locks and the capture's totals. Relative paths\n"
     "are the profile's directory's; a path that starts with $samples is in the directory of\n"
     "the key samples (default: the samples beside the program). An unknown section or key or\n"
     "a bad value is a usage error naming its line (exit 2). --json prints the status screen,\n"
     "the capture's summary and the locks at the end as one JSON document.",
     RunProfile},
    {{"signal", "TYPE [--code-rate N] [--coding N] [--tables DIR]", 1, 1,
      kOptCodeRate | kOptCoding | kOptTables},
     "set the signal type and show its parameters",
     "Sets the signal type the demodulator is set up for (SetSignalType). TYPE is an index\n"
     "or a label, any case: BPSK QPSK OQPSK 8PSK 8QAM 16QAM 32QAM 64QAM BPSK_P2 QPSK_P4 DEC\n"
     "PRS IQ BPSK_135 16APSK 32APSK 128QAM 256QAM 8QAM_DS 8QAM_PD DVBS2 DVBS2X (0 to 21).\n"
     "Shows what the library then reports (GetSignalParameters): the four table files, level\n"
     "code, carrier and timing lock thresholds (n/a: the type has none, so its locks never\n"
     "show), bits per symbol and mode code. With --tables DIR, loads the packing table the\n"
     "type names (its M file) from DIR (LoadPackMode); a name in dashes names no file and is\n"
     "skipped."
     TVX_CHAIN_HELP,
     RunDemodChain},
    {{"tune", "HZ [--multi]", 1, 1, kOptMulti}, "tune the receiver to a carrier",
     "Tunes the receiver to the carrier at HZ (SetCarrier; a decimal number, e.g. 1.2e9).\n"
     "Below 200 MHz the demodulator's NCO takes it directly; from 200 MHz the L-band\n"
     "convertor's synthesizer first brings it to the intermediate frequency. --multi tunes\n"
     "with SetCarrierMulti, which does all of that but write the NCO word."
     TVX_CHAIN_HELP,
     RunDemodChain},
    {{"rate", "SPS [--filters DIR] [--filter N]", 1, 1, kOptFilters | kOptFilter},
     "set the symbol rate and load its channel filter",
     "Sets the symbol rate to SPS symbols per second (SetTiming; e.g. 10e6) and shows the\n"
     "timing control the library chose (GetTimingControl): first decimation D, second\n"
     "decimation M, loop code and aux code. With --filters DIR it then loads the channel\n"
     "filter for D (FilterLoad) from DIR/<shape>_<D>.dat; --filter N picks the shape, any\n"
     "index 0 to 21 (0 ibsd, 1 n10d, 2 n15d, 3 n20d, 4 n25d ... 21 wdew); the default is 3\n"
     "(n20d)."
     TVX_CHAIN_HELP,
     RunDemodChain},
    {{"iso", "A B", 2, 2, 0}, "set the iso converter's output clock",
     "Sets the iso converter's output clock (ISOCVRTSetTiming) from the signal type's bits per\n"
     "symbol, the symbol rate and the two factors A and B (decimal numbers), then shows the\n"
     "converter's loading (ISOCVRTGetLoading, signed). Put signal and rate before it on the\n"
     "same line."
     TVX_CHAIN_HELP,
     RunDemodChain},
    {{"status", "[--watch S [--count N]] [--json]", 0, 0, kOptWatch | kOptCount | kOptJson},
     "show the board's locks, measurements, gains, counters and temperatures",
     "Shows one screen of the running board: the carrier and timing locks and the IQ and\n"
     "demodulated-data channel status bits (GetBitStatus bits 0, 1, 4 and 6, the word cleared\n"
     "first), the carrier and symbol rate measured (MeasureCarrier, MeasureTiming), the gains of\n"
     "both channels (GetGCValues, GetGCValuesMulti: attenuator code and dB, first gain code and\n"
     "level, second gain code and dB, total gain), the counters (Counters) and the PCB and FPGA\n"
     "temperatures; on the virtual board also what its demodulator sees, the signal level and\n"
     "the demultiplexer status (? where it has no answer). After a tune or rate step on the\n"
     "line it first waits for their locks. --watch S shows the screen again every S seconds\n"
     "(in place on a terminal, else separated by a blank line) until Ctrl-C, which ends the\n"
     "line with exit 0, or until --count N screens were shown. A field the library refuses\n"
     "shows as unknown or unavailable and its text goes to stderr: exit 1 after the screens.\n"
     "--json prints the screen as one JSON document (the other steps' text goes to stderr)."
     TVX_CHAIN_HELP,
     RunDemodChain},
    {{"gain", "first CODE | second W1 W2", 2, 3, 0}, "set a gain stage and read both channels back",
     "gain first CODE sets the first gain stage (FirstGainControl) to CODE; gain second W1 W2\n"
     "gives the second stage its two words (SecondGainControl). Each then shows what it set and\n"
     "the gains of both channels read back (GetGCValues, GetGCValuesMulti): attenuator code and\n"
     "dB, first gain code and level, second gain code and dB, total gain in dB. Codes and words\n"
     "are decimal or 0x-hexadecimal, 0 to 0xFFFFFFFF, passed on unchanged."
     TVX_CHAIN_HELP,
     RunDemodChain},
    {{"eq", "control WORD | table FILE | taps | set F1:S1,F2:S2,...", 1, 2, 0},
     "set the equalizer up and read its taps",
     "eq control WORD writes the equalizer's control word (EQControl). eq table FILE loads its\n"
     "error table (EQErrorTblLoad; the E file a signal type names, e.g. epm_4.dat). eq taps\n"
     "shows the 13 taps' first and second values and the count (EQGetCoeff). eq set loads\n"
     "coefficients (EQManualCoeffLoad): FIRST:SECOND pairs separated by commas, each value 0 to\n"
     "0xFFFF, the count the number of pairs, and shows the taps read back. The library takes at\n"
     "most 13 pairs; more are passed on and the read-back shows what it made of them."
     TVX_CHAIN_HELP,
     RunDemodChain},
    {{"dmpx", "load FILE | control C1 C2 C3 | status", 1, 4, 0},
     "load and control the demultiplexer, show its status",
     "dmpx load FILE loads the demultiplexer's table from FILE (DMPXLoad; a refusal carries no\n"
     "text from the library, so the tool names the file). dmpx control C1 C2 C3 writes its three\n"
     "control words (DMPXControl) and shows the status; dmpx status shows its status bits 0-3\n"
     "(DMPXStatus). Words are decimal or 0x-hexadecimal, passed on unchanged."
     TVX_CHAIN_HELP,
     RunDemodChain},
    {{"control", "iq|dmd|dma3 VALUE", 2, 2, 0}, "write a channel control word",
     "Writes VALUE unchanged to the IQ (IQControl), demodulated-data (DMDControl) or DMA\n"
     "(DMA3CHControl) channel control register.",
     RunControl},
    {{nullptr, nullptr, 0, 0, 0}, nullptr, nullptr, nullptr},
};

const Command* FindCommand(const std::string& name) {
  for (const Command* c = kCommands; c->run != nullptr; ++c)
    if (name == c->syntax.name) return c;
  return nullptr;
}

}  // namespace tvx::cli
