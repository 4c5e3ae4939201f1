#include "demod/word_stream.h"

#include <cinttypes>
#include <memory>

#include "demod/file_data.h"
#include "hw/text.h"

namespace tvx {

int32_t StreamWordFile(cZARIM* io, uint32_t address, const char* fileName,
                       const WordTableTexts& texts, char* text, size_t text_size) {
  const char* shown = fileName != nullptr ? fileName : "(null)";
  std::unique_ptr<cFileData<unsigned char>> file(new cFileData<unsigned char>(fileName, "rb"));
  if (!file->is_open()) {
    FormatInto(text, text_size, texts.open_failed, shown);
    return 1;
  }
  const uint64_t size = file->Size();
  if (size == kUnknownSize) {
    FormatInto(text, text_size, texts.read_failed, shown);
    return 1;
  }
  const uint64_t words = size / 4, bytes = words * 4;
  LoadBuffer<unsigned char> buffer;
  if (!buffer.Allocate(bytes)) {
    FormatInto(text, text_size, "Ошибка выделения %" PRIu64 " байт памяти", bytes);
    return 2;
  }
  if (file->Read(buffer.data(), &bytes) != bytes) {
    FormatInto(text, text_size, texts.read_failed, shown);
    return 1;
  }
  file.reset();
  const unsigned char* p = buffer.data();
  for (uint64_t i = 0; i < words; ++i, p += 4)
    io->WritePort(address, uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 |
                               uint32_t(p[3]) << 24);
  return 0;
}

}  // namespace tvx
