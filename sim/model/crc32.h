// CRC-32 (reflected, polynomial 0xEDB88320), one byte at a time: how the models fingerprint
// what a loader streamed, so a test can compare it with the CRC-32 of the file.
#pragma once

#include <cstdint>

namespace zsim {

inline uint32_t Crc32Update(uint32_t crc, uint8_t byte) {
  crc ^= byte;
  for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  return crc;
}

}  // namespace zsim
