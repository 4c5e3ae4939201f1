#include "board/fpga.h"

#include <cinttypes>
#include <memory>

#include "demod/file_data.h"
#include "hw/clock.h"
#include "hw/regs.h"
#include "hw/regs/dec.h"
#include "hw/regs/dem.h"
#include "hw/regs/int.h"
#include "hw/regs/rs.h"
#include "hw/text.h"

namespace tvx {
namespace {

uint32_t DemDataPort() { return Dem(dem::kFpgaConfigData); }
uint32_t DecDataPort() { return Dec(dec::kFpgaConfigData); }
uint32_t RsDataPort() { return Rs(rs::kFpgaConfigData); }

// This board's devices (board variant 2), in the order names are compared.
const FpgaDevice kDevices[] = {
    {"DEM", DemDataPort, int_regs::kDemResetMask, int_regs::kDemDoneMask},
    {"DEC", DecDataPort, int_regs::kDecResetMask, int_regs::kDecDoneMask},
    {"RS", RsDataPort, int_regs::kRsResetMask, int_regs::kRsDoneMask},
};

constexpr double kResetTimeoutSeconds = 1.0;
constexpr uint32_t kSettleBeforeWaitMs = 100;
constexpr uint32_t kSettleAfterDataMs = 10;
constexpr uint32_t kSettleAfterReleaseMs = 10;
// Zero words the device needs after its image to finish starting up.
constexpr int kTrailingZeroWords = 2;

// Only A-Z fold: the names are ASCII, and a locale's folding could make a non-ASCII byte match.
char FoldAscii(char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c; }

bool SameNameIgnoringAsciiCase(const char* a, const char* b) {
  for (; *a != '\0' && *b != '\0'; ++a, ++b)
    if (FoldAscii(*a) != FoldAscii(*b)) return false;
  return *a == *b;
}

// Word i of the image: file bytes 4i..4i+3, byte 4i lowest, whatever the host's byte order.
uint32_t LittleEndianWord(const unsigned char* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

const char* Shown(const char* text) { return text != nullptr ? text : "(null)"; }

}  // namespace

const FpgaDevice* FindFpgaDevice(const char* name) {
  if (name == nullptr) return nullptr;
  for (const FpgaDevice& device : kDevices)
    if (SameNameIgnoringAsciiCase(name, device.name)) return &device;
  return nullptr;
}

void cfpga::Select(const FpgaDevice& device) {
  DataPort = device.data_port();
  ResetMask = device.reset_mask;
  DoneMask = device.done_mask;
}

bool cfpga::WaitForReset(double timeout) {
  HiResTimer timer;
  timer.StartTimer();
  uint32_t value = 0;
  for (;;) {
    // A failed read leaves 0: not acknowledged.
    value = 0;
    Io->ReadPort(StatusRegister(), &value);
    const double elapsed = timer.ElapsedSeconds();
    if (InReset(value) || !(timeout > elapsed)) break;
  }
  return InReset(value);
}

uint32_t cfpgaE::StatusRegister() { return Int(int_regs::kFpgaControl); }

// Register writes are not checked: a write that does not arrive shows as a reset that is never
// acknowledged or a done bit that never rises, each with its own message.
int32_t cfpgaE::Load(const char* fileName) {
  std::unique_ptr<cFileData<unsigned char>> file(new cFileData<unsigned char>(fileName, "rb"));
  if (!file->is_open()) {
    Format(Text, "Ошибка открытия файла %s", Shown(fileName));
    return -3;
  }
  const uint64_t length = file->Size();
  if (length == kUnknownSize) {
    Format(Text, "Ошибка чтения файла %s", fileName);
    return -3;
  }
  // A last partial word keeps zeros in its missing high-order bytes.
  const uint64_t words = length / 4 + (length % 4 != 0 ? 1 : 0);
  LoadBuffer<uint32_t> buffer;
  if (!buffer.Allocate(words)) {
    // Printed in 64 bits: a file beyond 2 GiB is refused here and must read right.
    Format(Text, "Ошибка выделения %" PRIu64 " байт памяти", words * 4);
    return -4;
  }
  const auto bytes = reinterpret_cast<unsigned char*>(buffer.data());
  if (file->Read(bytes, &length) != length) {
    Format(Text, "Ошибка чтения файла %s", fileName);
    return -3;
  }
  file.reset();

  const uint32_t control = StatusRegister();
  Io->WritePort(control, ResetMask);
  Clock().SleepMs(kSettleBeforeWaitMs);
  if (!WaitForReset(kResetTimeoutSeconds)) {
    // The device stays in configuration reset: INT_0x04 keeps the reset mask.
    Format(Text, "ПЛИС не сбросилась. Превышен таймаут ожидания %5.0lf мс",
           kResetTimeoutSeconds * 1000.0);
    return -1;
  }
  for (uint64_t i = 0; i < words; ++i) Io->WritePort(DataPort, LittleEndianWord(bytes + 4 * i));
  buffer.Release();
  for (int i = 0; i < kTrailingZeroWords; ++i) Io->WritePort(DataPort, 0);
  Clock().SleepMs(kSettleAfterDataMs);

  uint32_t status = 0;
  Io->ReadPort(control, &status);
  if ((status & DoneMask) != 0) {
    Io->WritePort(control, 0);
    Clock().SleepMs(kSettleAfterReleaseMs);
    return 0;
  }
  Io->WritePort(control, ResetMask);
  Format(Text, "ПЛИС не загрузилась: INT_0x04 = 0x%.8X", status);
  return -2;
}

}  // namespace tvx
