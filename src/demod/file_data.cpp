// The file holder's positioning through the platform's 64-bit stream calls, and the counters
// and hook behind the loaders' buffers.
#include "demod/file_data.h"

#include <atomic>

#include "platform/stdio_ext.h"

namespace tvx {

namespace file_data {
namespace {
std::atomic<int> open_holders{0};
std::atomic<int> live_buffers{0};
std::atomic<AllocationHook> allocation_hook{nullptr};
}  // namespace

int OpenHolders() { return open_holders.load(); }
void CountOpen(int delta) { open_holders += delta; }
int LiveBuffers() { return live_buffers.load(); }
void CountBuffer(int delta) { live_buffers += delta; }

AllocationHook InstallAllocationHook(AllocationHook hook) { return allocation_hook.exchange(hook); }

bool AllocationAllowed(uint64_t bytes) {
  AllocationHook hook = allocation_hook.load();
  return hook == nullptr || hook(bytes);
}
}  // namespace file_data

template <class T>
bool cFileData<T>::SeekEnd() {
  return os::SeekFile(file_, 0, SEEK_END);
}

template <class T>
bool cFileData<T>::Rewind() {
  if (!os::SeekFile(file_, 0, SEEK_SET)) return false;
  std::clearerr(file_);
  return true;
}

template <class T>
int64_t cFileData<T>::Tell() {
  return os::TellFile(file_);
}

template class cFileData<unsigned char>;
template class cFileData<double>;

}  // namespace tvx
