// The two sizing values of the kernel driver's service key, read the same way by the library's
// board configuration and by the virtual board, so that both agree on the DMA geometry.
#pragma once

#include <cstdint>
#include <cstdio>

#include "platform/os.h"

namespace tvx {

constexpr uint32_t kDefaultChannelCount = 17;
constexpr uint32_t kDefaultBuffersPerChannel = 4;
// Channel numbers are 8-bit; the buffer number within a channel has five bits in the
// descriptor-select word of the DMA engine. A ring of one buffer cannot be read (the reader
// would be on the buffer the engine fills: every read an overrun), so two is the least. Values
// outside these ranges are refused and the default is used instead, as for a value that
// cannot be read.
constexpr uint32_t kMaxChannelCount = 255;
constexpr uint32_t kMaxBuffersPerChannel = 32;

constexpr const char* kChannelCountValue = "CHCount";
constexpr const char* kBuffersPerChannelValue = "BuffersPerCH";
constexpr const char* kDriverService = "zarim";
inline bool ChannelCountAccepted(uint32_t v) { return v <= kMaxChannelCount; }
constexpr uint32_t kMinBuffersPerChannel = 2;
inline bool BuffersPerChannelAccepted(uint32_t v) {
  return v >= kMinBuffersPerChannel && v <= kMaxBuffersPerChannel;
}

struct DriverParameters {
  uint32_t buffers_per_channel = kDefaultBuffersPerChannel;
  uint32_t channel_count = kDefaultChannelCount;
};

inline void ServiceKeyPath(const char* service, char* out, size_t size) {
  std::snprintf(out, size, "SYSTEM\\CurrentControlSet\\Services\\%s\\Parameters", service);
}

// A value counts only when it holds exactly four bytes: longer data does not fit the field
// and shorter data would fill only part of it.
inline bool ReadDword(os::RegistryKey* key, const char* name, uint32_t* out) {
  uint8_t bytes[4];
  uint32_t size = sizeof bytes;
  if (!os::QueryRegistryValue(key, name, bytes, &size) || size != sizeof bytes) return false;
  *out = uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 |
         uint32_t(bytes[3]) << 24;
  return true;
}

inline DriverParameters ReadDriverParameters(const char* service) {
  DriverParameters p;
  char path[256];
  ServiceKeyPath(service, path, sizeof path);
  os::RegistryKey* key = os::OpenRegistryKey(path);
  if (!key) return p;
  uint32_t v;
  if (ReadDword(key, kChannelCountValue, &v) && ChannelCountAccepted(v)) p.channel_count = v;
  if (ReadDword(key, kBuffersPerChannelValue, &v) && BuffersPerChannelAccepted(v))
    p.buffers_per_channel = v;
  os::CloseRegistryKey(key);
  return p;
}

}  // namespace tvx
