#include "board/ram.h"

#include <cinttypes>
#include <memory>

#include "demod/file_data.h"
#include "hw/regs.h"
#include "hw/regs/dem.h"
#include "hw/text.h"

namespace tvx {

// Register writes are not checked: the RAM gives no status to check them against.
void cRAM::WriteWords(const unsigned char* bytes, uint64_t length) {
  if (bytes == nullptr) return;
  const uint32_t address_register = BlockAddress(BlockBase, dem::kRamAddress);
  const uint32_t data_register = BlockAddress(BlockBase, dem::kRamData);
  for (uint64_t i = 0; i < length / 2; ++i) {
    Io->WritePort(address_register, uint32_t(i));
    Io->WritePort(data_register, uint32_t(bytes[2 * i]) | uint32_t(bytes[2 * i + 1]) << 8);
  }
}

int32_t cRAM::LoadFile(const char* fileName) {
  std::unique_ptr<cFileData<unsigned char>> file(new cFileData<unsigned char>(fileName, "rb"));
  if (!file->is_open()) {
    Format(Text, "Ошибка открытия файла %s", fileName != nullptr ? fileName : "(null)");
    return 2;
  }
  const uint64_t length = file->Size();
  if (length == kUnknownSize) {
    Format(Text, "Ошибка чтения файла %s", fileName);
    return 2;
  }
  LoadBuffer<unsigned char> buffer;
  if (!buffer.Allocate(length)) {
    // Printed in 64 bits: a file beyond 2 GiB is refused here and must read right.
    Format(Text, "Ошибка выделения %" PRIu64 " байт памяти", length);
    return 3;
  }
  if (file->Read(buffer.data(), &length) != length) {
    Format(Text, "Ошибка чтения файла %s", fileName);
    return 2;
  }
  file.reset();
  WriteWords(buffer.data(), length);
  return 0;
}

}  // namespace tvx
