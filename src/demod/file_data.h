// The file holder every loader reads its file through, and the buffer it reads into. Both live
// for one load call only: the loader opens the file, asks its size, reads it whole into a
// buffer, closes it and then works from memory.
//
// Decisions this file carries for every loader:
//  - Only a regular disk file opens. A FIFO, a device, a console or a directory is refused
//    without waiting for it (the loaders give their open-failure text), so no name a caller
//    passes can block a load.
//  - Size() answers kUnknownSize when the file has no size to go by; Read() answers the bytes
//    it really got. The loaders treat both as a failure to read the file (their file code and
//    a read-failure text): a buffer that the file did not fill must never reach the hardware.
//  - ReadValues() takes the caller's capacity and never stores past it.
//  - No loader buffer grows beyond kMaxLoadBytes; a larger file is answered with the loader's
//    allocation-failure text and code, as if memory had run out.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "platform/stdio_ext.h"

namespace tvx {

constexpr uint64_t kUnknownSize = ~uint64_t{0};
// The largest buffer a loader allocates: every image this board takes is a few megabytes, and
// the allocation-failure message has always counted its bytes in a signed 32-bit number.
constexpr uint64_t kMaxLoadBytes = 0x7FFFFFFF;

namespace file_data {
// Holders whose file is open right now, across all element types (tests check that no load
// leaves one behind).
int OpenHolders();
void CountOpen(int delta);

// Test support: decides whether a loader buffer of `bytes` may be allocated; null (the
// default) allows every one that fits kMaxLoadBytes. Returns the previous hook.
using AllocationHook = bool (*)(uint64_t bytes);
AllocationHook InstallAllocationHook(AllocationHook hook);
bool AllocationAllowed(uint64_t bytes);
// Loader buffers alive right now.
int LiveBuffers();
void CountBuffer(int delta);
}  // namespace file_data

// Owns one file opened with the runtime's buffered open (other readers and writers are not
// excluded). T is the element type: unsigned char for binary files, double for text files of
// numbers.
template <class T>
class cFileData {
 public:
  // `mode` is a read mode ("rb", or "rt" for text); the holder only ever reads.
  cFileData(const char* fileName, const char* mode) {
    if (fileName == nullptr || mode == nullptr || mode[0] != 'r' || std::strchr(mode, '+') != nullptr)
      return;
    file_ = os::OpenRegularFile(fileName, std::strchr(mode, 't') != nullptr);
    if (file_ == nullptr) return;
    IsOpen = 1;
    file_data::CountOpen(1);
  }
  virtual ~cFileData() { Close(); }
  cFileData(const cFileData&) = delete;
  cFileData& operator=(const cFileData&) = delete;

  int32_t is_open() const { return IsOpen; }

  // The file's length in bytes (the read position goes back to the start), or kUnknownSize.
  // A file that reports no length but has content (the files the kernel generates as they are
  // read) has no size to allocate by: unknown, like a stream without one.
  uint64_t Size() {
    if (!IsOpen) return 0;
    if (!SeekEnd()) return kUnknownSize;
    const int64_t end = Tell();
    if (!Rewind() || end < 0) return kUnknownSize;
    if (end == 0 && (std::fgetc(file_) != EOF || !Rewind())) return kUnknownSize;
    return static_cast<uint64_t>(end);
  }

  // Reads *byteCount bytes from the start of the file into `destination`, in one block.
  // Returns the bytes read: fewer at the end of the file or after a read error.
  uint64_t Read(T* destination, const uint64_t* byteCount) {
    if (!IsOpen || destination == nullptr || byteCount == nullptr || *byteCount == 0) return 0;
    if (!Rewind()) return 0;
    return std::fread(destination, 1, static_cast<size_t>(*byteCount), file_);
  }

  // Converts numbers one after another from the start of the file with the scan `format`
  // (one conversion that stores a T, e.g. "%le" for double) into destination[0..capacity-1].
  // Stops at the end of the file, at the first item that does not convert, or when the
  // capacity is full; returns how many were stored. more_values() then tells whether the file
  // held another number beyond the capacity.
  uint32_t ReadValues(T* destination, const char* format, uint32_t capacity) {
    more_values_ = false;
    // No room at all (a buffer of no elements may have no address) still reads the file, so
    // that a file with values in it is told apart from an empty one.
    if (!IsOpen || (destination == nullptr && capacity != 0) || format == nullptr || !Rewind())
      return 0;
    uint32_t count = 0;
    T value{};
    while (std::fscanf(file_, format, &value) == 1) {
      if (count == capacity) {
        more_values_ = true;
        break;
      }
      destination[count++] = value;
    }
    return count;
  }
  bool more_values() const { return more_values_; }

  // Closes the file now (the destructor would otherwise).
  void Close() {
    if (IsOpen) {
      std::fclose(file_);
      file_ = nullptr;
      IsOpen = 0;
      file_data::CountOpen(-1);
    }
  }

 private:
  bool SeekEnd();
  bool Rewind();
  int64_t Tell();

  std::FILE* file_ = nullptr;
  int32_t IsOpen = 0;
  bool more_values_ = false;
};

extern template class cFileData<unsigned char>;
extern template class cFileData<double>;

// A loader's buffer: zeroed room for `count` elements, freed when it goes out of scope (or
// earlier, by Release), so that no path out of a loader leaks it.
template <class T>
class LoadBuffer {
 public:
  LoadBuffer() = default;
  ~LoadBuffer() { Release(); }
  LoadBuffer(const LoadBuffer&) = delete;
  LoadBuffer& operator=(const LoadBuffer&) = delete;

  // False when the buffer cannot be had: beyond kMaxLoadBytes, refused by the test hook, or
  // out of memory. A count of 0 succeeds with no memory behind it.
  bool Allocate(uint64_t count) {
    Release();
    if (count > kMaxLoadBytes / sizeof(T)) return false;
    if (!file_data::AllocationAllowed(count * sizeof(T))) return false;
    if (count == 0) return true;
    data_ = new (std::nothrow) T[static_cast<size_t>(count)]();
    if (data_ == nullptr) return false;
    file_data::CountBuffer(1);
    return true;
  }
  void Release() {
    if (data_ != nullptr) {
      delete[] data_;
      data_ = nullptr;
      file_data::CountBuffer(-1);
    }
  }
  T* data() const { return data_; }

 private:
  T* data_ = nullptr;
};

}  // namespace tvx
