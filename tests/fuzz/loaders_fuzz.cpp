// The binary loaders through their exports, on board 0 of the virtual board in passive
// mode (the BAR is plain memory, so each exec costs microseconds), on a virtual clock.
// Input: byte 0 picks the loader (bits 0-1; 3 with bit 5 set is the packing table) and the
// FPGA name (bits 2-4), bytes 1 and 2 what INT word 4 shows after the reset request and after
// the data (bit 7 set: what the library wrote stays), then for name 7 a NUL-terminated name of
// the input's own, then the file.
#include <strings.h>

#include <cstring>
#include <string>

#include "api/frame.h"
#include "demod/file_data.h"
#include "fuzz_util.h"
#include "hw/clock.h"
#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/regs/int.h"
#include "zarimsim.h"

namespace {

DeviceId board{0};
uint32_t Read(uint32_t address) {
  PortAccess access{address, 0};
  return _devinp(&board, &access) == 0 ? access.Value : 0xDEAD;
}
void Write(uint32_t address, uint32_t value) {
  PortAccess access{address, value};
  FUZZ_CHECK(_devoutp(&board, &access) == 0);
}

// The FPGA load's two pauses are where the device answers: its acknowledge, then its done bit.
// Every pause passes on the board's clock too, so the bring-up's settle times pass with it.
struct VirtualClock : tvx::ClockSource {
  int64_t now = 0;
  int sleeps = 0, preset[2] = {-1, -1};
  int64_t Counter() override { return now += 10000; }
  int64_t Frequency() override { return 1000000; }
  void SleepMs(uint32_t ms) override {
    now += int64_t(ms) * 1000;
    zsim_set(0, "clock.advance_us", std::to_string(ms * 1000).c_str());
    if (sleeps < 2 && preset[sleeps] >= 0) Write(tvx::Int(tvx::int_regs::kFpgaControl), preset[sleeps]);
    ++sleeps;
  }
} clock_source;

int32_t ExpectedFpga(const char* name, int ack_preset, int done_preset) {
  const struct { const char* name; uint32_t reset, done; } devices[] = {
      {"DEM", 1, 2}, {"DEC", 4, 8}, {"RS", 0xFFFFFFFF, 4}};
  for (const auto& d : devices) {
    if (strcasecmp(name, d.name) != 0) continue;
    const uint32_t status = ack_preset >= 0 ? uint32_t(ack_preset) : d.reset;
    if ((status & d.reset) == 0) return 3;
    return ((done_preset >= 0 ? uint32_t(done_preset) : status) & d.done) != 0 ? 0 : 3;
  }
  return 2;
}

}  // namespace

// The bring-up talks to the board's I2C devices, so it runs trapped, before libFuzzer installs
// its signal handlers (they pass register traps on to the virtual board's); the loads run passive.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tvx::InstallClock(&clock_source);
  zsim_set(0, "trace.max", "0");
  zsim_set(0, "clock", "manual");
  const int32_t up = CreateDeviceInstance(&board);
  if (up != 0) std::fprintf(stderr, "bring-up failed: %s\n", GetErrorMessage());
  FUZZ_CHECK(up == 0 && zsim_set(0, "mmio", "passive") == 0);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const char* const kNames[] = {"DEM", "DEC", "RS", "dem", "Dec", "rS", "DEMX", nullptr};
  if (size < 3) return -1;
  const uint8_t* file = data + 3;
  size_t length = size - 3;
  const char* const fixed = kNames[(data[0] >> 2) & 7];
  std::string name = fixed ? fixed : "";
  if (!fixed) {
    if (!std::memchr(file, 0, length)) return -1;
    name = reinterpret_cast<const char*>(file);
    length -= name.size() + 1;
    file += name.size() + 1;
  }
  const char* path = fuzz::WriteInput(file, length);
  for (int i : {0, 1}) clock_source.preset[i] = data[1 + i] & 0x80 ? -1 : data[1 + i];
  clock_source.sleeps = 0;
  tvx::LastErrorText[0] = '\0';
  const uint32_t sentinel = 0xA5A5A5A5, ram_address = tvx::Dem(tvx::dem::kRamAddress),
                 ram_data = tvx::Dem(tvx::dem::kRamData), pattern = tvx::Dem(tvx::dem::kSimPattern),
                 pack = tvx::Dem(tvx::dem::kPackTable);
  for (uint32_t address : {ram_address, ram_data, pattern, pack}) Write(address, sentinel);
  // The last 16-bit word of the first `words`, little-endian; an odd last byte is no word.
  auto last = [&](size_t words) { return uint32_t(file[2 * words - 2] | file[2 * words - 1] << 8); };

  const char* message = GetErrorMessage();
  if ((data[0] & 3) == 1) {
    FUZZ_CHECK(RAMLoad(&board, path, data[1]) == 0 && message[0] == '\0');
    const size_t words = length / 2;
    FUZZ_CHECK(Read(ram_address) == (words ? words - 1 : sentinel));
    FUZZ_CHECK(Read(ram_data) == (words ? last(words) : sentinel));
  } else if ((data[0] & 3) == 2) {
    FUZZ_CHECK(SimulatorLoad(&board, path) == 0 && message[0] == '\0');
    const uint32_t words = (length & 0xFFF) / 2;   // the length field holds 12 bits
    FUZZ_CHECK(Read(pattern) == (words ? (words - 1) << 16 | last(words) : sentinel));
  } else if ((data[0] & 3) == 3 && (data[0] & 0x20) != 0) {
    FUZZ_CHECK(LoadPackMode(&board, path) == 0 && message[0] == '\0');
    const size_t words = length / 4;
    FUZZ_CHECK(Read(pack) == (words ? uint32_t(file[4 * words - 4] | file[4 * words - 3] << 8 |
                                              file[4 * words - 2] << 16 | uint32_t(file[4 * words - 1]) << 24)
                                    : sentinel));
  } else {
    const int32_t result = FPGALoad(&board, name.c_str(), path);
    FUZZ_CHECK(result == ExpectedFpga(name.c_str(), clock_source.preset[0], clock_source.preset[1]));
    FUZZ_CHECK((result == 0) == (message[0] == '\0'));   // no exception text on success
    FUZZ_CHECK(result == 0 || std::strncmp(message, "FPGALoad [0]: ", 14) == 0);
  }
  FUZZ_CHECK(strnlen(message, 256) < 256);
  FUZZ_CHECK(tvx::file_data::OpenHolders() == 0 && tvx::file_data::LiveBuffers() == 0);
  return 0;
}
