// The tool's own I2C reads over the raw register exports.
#include "i2c_port.h"

#include <chrono>
#include <cstdio>

#include "report.h"
#include "text.h"

namespace tvx::cli {
namespace {

// Peripheral words of the I2C controller.
constexpr uint32_t kReceiveWord = 8;    // read: the received byte
constexpr uint32_t kStatusWord = 9;     // read: bit 0 busy, bit 7 not acknowledged
constexpr uint32_t kCommandWord = 11;
constexpr uint32_t kBusy = 1u << 0;
constexpr uint32_t kNoAck = 1u << 7;
constexpr uint32_t kStartCommand = 0x000, kSendCommand = 0x100, kReceiveCommand = 0x200,
                   kReceiveLastCommand = 0x2FF, kStopCommand = 0x300;

constexpr std::chrono::milliseconds kTimeout{100};

std::string Hex2(unsigned value) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%02X", value & 0xFFu);
  return text;
}

}  // namespace

I2cPort::I2cPort(DeviceId* id, uint32_t peripheral_base)
    : id_(id),
      receive_((peripheral_base + kReceiveWord) * 4),
      status_((peripheral_base + kStatusWord) * 4),
      command_((peripheral_base + kCommandWord) * 4) {}

std::string I2cPort::Write(uint32_t address, uint32_t value) {
  PortAccess access{address, value};
  const int32_t code = _devoutp(id_, &access);
  if (code == 0) return {};
  return "write " + Hex32(address) + ": error " + std::to_string(code) + " (" +
         PortResultMeaning(code) + ")";
}

std::string I2cPort::ReadWord(uint32_t address, uint32_t* value) {
  PortAccess access{address, 0};
  const int32_t code = _devinp(id_, &access);
  *value = access.Value;
  if (code == 0) return {};
  return "read " + Hex32(address) + ": error " + std::to_string(code) + " (" +
         PortResultMeaning(code) + ")";
}

std::string I2cPort::WaitIdle(bool* no_ack) {
  const auto start = std::chrono::steady_clock::now();
  for (;;) {
    uint32_t status = 0;
    if (std::string why = ReadWord(status_, &status); !why.empty()) return why;
    if ((status & kBusy) == 0) {
      *no_ack = (status & kNoAck) != 0;
      return {};
    }
    if (std::chrono::steady_clock::now() - start > kTimeout)
      return "the I2C controller stayed busy for 0.1 s";
  }
}

// The address is repeated until the device answers: an EEPROM in its write cycle ignores it.
std::string I2cPort::Start(uint8_t address_byte) {
  bool no_ack = false;
  if (std::string why = WaitIdle(&no_ack); !why.empty()) return why;
  const auto start = std::chrono::steady_clock::now();
  do {
    if (std::string why = Write(command_, kStartCommand + address_byte); !why.empty()) return why;
    if (std::string why = WaitIdle(&no_ack); !why.empty()) return why;
    if (!no_ack) return {};
  } while (std::chrono::steady_clock::now() - start <= kTimeout);
  Stop();
  return "device " + Hex2(address_byte & 0xFEu) + " did not acknowledge its address within 0.1 s";
}

std::string I2cPort::Send(uint8_t byte) {
  if (std::string why = Write(command_, kSendCommand + byte); !why.empty()) return why;
  bool no_ack = false;
  if (std::string why = WaitIdle(&no_ack); !why.empty()) return why;
  if (no_ack) return "the device did not acknowledge the byte " + Hex2(byte);
  return {};
}

std::string I2cPort::Receive(bool acknowledge, uint8_t* byte) {
  const uint32_t command = acknowledge ? kReceiveCommand : kReceiveLastCommand;
  if (std::string why = Write(command_, command); !why.empty()) return why;
  bool no_ack = false;
  if (std::string why = WaitIdle(&no_ack); !why.empty()) return why;
  uint32_t word = 0;
  if (std::string why = ReadWord(receive_, &word); !why.empty()) return why;
  *byte = static_cast<uint8_t>(word & 0xFFu);
  return {};
}

void I2cPort::Stop() { Write(command_, kStopCommand); }

std::string I2cPort::Read(const EepromChip& chip, uint32_t address, size_t count,
                          std::vector<uint8_t>* out) {
  out->clear();
  if (count == 0) return {};
  // Whatever fails after a start, the bus is released before the tool gives up.
  auto give_up = [this](const std::string& why) {
    Stop();
    return why;
  };
  if (std::string why = Start(chip.device); !why.empty()) return why;
  if (chip.address_bytes == 2)
    if (std::string why = Send(static_cast<uint8_t>(address >> 8)); !why.empty())
      return give_up(why);
  if (std::string why = Send(static_cast<uint8_t>(address)); !why.empty()) return give_up(why);
  Stop();
  if (std::string why = Start(static_cast<uint8_t>(chip.device | 1)); !why.empty()) return why;
  for (size_t i = 0; i < count; ++i) {
    uint8_t byte = 0;
    if (std::string why = Receive(i + 1 < count, &byte); !why.empty()) return give_up(why);
    out->push_back(byte);
  }
  Stop();
  return {};
}

std::string DumpLine(uint32_t address, const uint8_t* bytes, size_t count) {
  if (count > 16) count = 16;
  char text[96];
  int n = std::snprintf(text, sizeof text, "0x%04X ", static_cast<unsigned>(address));
  std::string line(text, static_cast<size_t>(n));
  std::string ascii;
  for (size_t i = 0; i < 16; ++i) {
    if (i == 8) line += ' ';
    if (i < count) {
      std::snprintf(text, sizeof text, " %02X", bytes[i]);
      line += text;
      ascii += (bytes[i] >= 0x20 && bytes[i] < 0x7F) ? static_cast<char>(bytes[i]) : '.';
    } else {
      line += "   ";
    }
  }
  return line + "  |" + ascii + "|";
}

std::string SerialText(const uint8_t* bytes) {
  const uint32_t value = uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 |
                         uint32_t{bytes[2]} << 8 | bytes[3];
  // Two's complement without an out-of-range conversion.
  const int32_t signed_value =
      value < 0x80000000u ? static_cast<int32_t>(value) : -static_cast<int32_t>(~value) - 1;
  char text[24];
  std::snprintf(text, sizeof text, "%.10d", static_cast<int>(signed_value));
  return text;
}

std::string VersionText(uint8_t byte) {
  char text[8];
  std::snprintf(text, sizeof text, "%.2d", byte);
  return text;
}

}  // namespace tvx::cli
