#include "demod/demultiplexer.h"

#include <memory>

#include "demod/file_data.h"
#include "hw/regs.h"
#include "hw/regs/rs.h"
#include "hw/text.h"

namespace tvx {

// The table is filled from the top: 65 535 - size fill steps, then the bytes, so a table of
// `size` bytes ends at the top of the space. DataOffsetBase keeps that size: the control's data
// offset, 0x10000 - size = (65 535 - size) + 1, is then the step, counted from 1, at which the
// table's first byte was written, i.e. where the data starts (a full table: 1; before any load
// 0x10000, which the two bytes give as 0 and 0). A file longer than the space has no place in it
// and is refused before anything is written.
int32_t cDemultiplexer::LoadData(const char* fileName) {
  const char* shown = fileName != nullptr ? fileName : "(null)";
  std::unique_ptr<cFileData<unsigned char>> file(new cFileData<unsigned char>(fileName, "rb"));
  if (!file->is_open()) {
    Format(Text, "Ошибка открытия файла данных разуплотнителя %s", shown);
    return 1;
  }
  const uint64_t size = file->Size();
  if (size == kUnknownSize) {
    Format(Text, "Ошибка чтения файла данных разуплотнителя %s", shown);
    return 1;
  }
  if (size > rs::kDmpxSteps) {
    Format(Text, "Файл данных разуплотнителя %s длиннее таблицы (%u байт)", shown,
           unsigned(rs::kDmpxSteps));
    return 1;
  }
  LoadBuffer<unsigned char> buffer;
  if (!buffer.Allocate(size)) {
    Format(Text, "Ошибка выделения памяти для данных разуплотнителя %s", shown);
    return 1;
  }
  if (file->Read(buffer.data(), &size) != size) {
    Format(Text, "Ошибка чтения файла данных разуплотнителя %s", shown);
    return 1;
  }
  file.reset();
  Io->WritePort(Rs(rs::kDmpxLoadStart), 0);
  const uint32_t fill = rs::kDmpxSteps - uint32_t(size);
  for (uint32_t i = 0; i < fill; ++i) Io->WritePort(Rs(rs::kDmpxStep), 0);
  for (uint64_t i = 0; i < size; ++i) {
    Io->WritePort(Rs(rs::kDmpxData), buffer.data()[i]);
    Io->WritePort(Rs(rs::kDmpxDataDone), 0);
    Io->WritePort(Rs(rs::kDmpxStep), 0);
  }
  DataOffsetBase = uint32_t(size);
  return 0;
}

void cDemultiplexer::ApplyControl(const DmpxControl* control) {
  const uint32_t offset = 0x10000 - DataOffsetBase;
  Io->WritePort(Rs(rs::kDmpxOffsetLow), offset & 0xFF);
  Io->WritePort(Rs(rs::kDmpxOffsetHigh), (offset >> 8) & 0xFF);
  Io->WritePort(Rs(rs::kDmpxControl1), control->Control1);
  Io->WritePort(Rs(rs::kDmpxControl2), control->Control2);
  Io->WritePort(Rs(rs::kDmpxControl3), control->Control3 ^ rs::kDmpxControl3Inverted);
}

// A failed read keeps the bits last read.
uint32_t cDemultiplexer::ReadStatus() {
  uint32_t value = 0;
  if (Io->ReadPort(Rs(rs::kDmpxStatus), &value) == 0) StatusBits = value & rs::kDmpxStatusMask;
  return StatusBits;
}

}  // namespace tvx
