// cFileData<double>::ReadValues over a text file: bytes 0-1 are the capacity, the rest is the
// file. The destination is exactly `capacity` doubles on the heap, so a store past it is an
// AddressSanitizer report; reading again must start over and give the same numbers.
#include <cstdint>
#include <cstring>
#include <memory>

#include "demod/file_data.h"
#include "fuzz_util.h"

using tvx::cFileData;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return -1;
  const uint32_t capacity = (data[0] | data[1] << 8) & 1023;
  const char* path = fuzz::WriteInput(data + 2, size - 2);
  {
    cFileData<double> file(path, "rt");
    FUZZ_CHECK(file.is_open());
    std::unique_ptr<double[]> values(new double[capacity]);
    const uint32_t count = file.ReadValues(values.get(), "%le", capacity);
    FUZZ_CHECK(count <= capacity);
    FUZZ_CHECK(!file.more_values() || count == capacity);
    const bool more = file.more_values();

    // A larger capacity sees the same numbers first, and one more exactly when `more` said so.
    const uint32_t larger = capacity + 1;
    std::unique_ptr<double[]> again(new double[larger]);
    const uint32_t count2 = file.ReadValues(again.get(), "%le", larger);
    FUZZ_CHECK(count2 == count + (more ? 1 : 0));
    FUZZ_CHECK(count == 0 || std::memcmp(values.get(), again.get(), count * sizeof(double)) == 0);
  }
  FUZZ_CHECK(tvx::file_data::OpenHolders() == 0);
  return 0;
}
