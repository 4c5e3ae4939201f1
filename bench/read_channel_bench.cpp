// What ReadChannelData costs beyond the copy, and how fast the virtual board can stream.
//
// 1. The bench plays the driver itself: with the engine stopped it completes BuffersPerCH - 1
//    buffers of channel 0 (one count update, one signal of the channel's data event) and reads
//    them with ReadChannelData, against a plain memcpy of the same buffers into the same
//    destination. The ratio of the two throughputs is the library's whole overhead per read:
//    the event wait, the two master calls and the loop around the copies.
// 2. Then the virtual board's engine runs all 17 channels at rising rates, a reader thread per
//    channel verifying every buffer, and the highest rate with nothing lost is reported.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/os.h"
#include "time_reporter.h"
#include "torvixe.h"
#include "zarimsim.h"
#include "zarimsim_payload.h"

namespace {

DeviceId board{0};
BufferMap map{};
uint32_t per_channel = 4;
std::vector<uint8_t> destination;

const BufferDescriptor& Descriptor(uint32_t i) {
  return static_cast<const BufferDescriptor*>(map.Descriptors)[i];
}

bool BringUp();

// The benchmarks run at the DMA buffer size of their argument: the board is brought up again
// when it changes (the virtual board sizes its buffers at mapping).
bool UseBufferSize(benchmark::State& state) {
  const std::string size = std::to_string(state.range(0));
  if (map.Descriptors != nullptr && Descriptor(0).Size == uint32_t(state.range(0))) return true;
  ReleaseDeviceInstance(&board);
  zsim_set(0, "dma.buffer_size", size.c_str());
  if (BringUp()) return true;
  state.SkipWithError("bring-up failed");
  return false;
}

void BM_ReadChannelData(benchmark::State& state) {
  if (!UseBufferSize(state)) return;
  InterruptRecord record{};
  MasterGetInterruptInfo(&board, &record);
  auto* completed = reinterpret_cast<volatile uint32_t*>(static_cast<uint8_t*>(record.Channels) + 4);
  char name[64];
  std::snprintf(name, sizeof name, "Global\\zarim%uevnt0", GetDeviceSlotID(&board));
  tvx::os::Event event = tvx::os::OpenNamedEvent(name);
  // BuffersPerCH - 2 a read: with BuffersPerCH - 1 waiting on entry a read reports -2.
  const uint32_t count = per_channel > 2 ? per_channel - 2 : 1;
  const uint32_t size = count * Descriptor(0).Size;
  uint64_t bytes = 0;
  for (auto _ : state) {
    *completed = *completed + count;
    tvx::os::SignalEvent(event);
    uint32_t got = 0;
    if (ReadChannelData(&board, 0, destination.data(), size, &got, 1000) != 0 || got != size) {
      state.SkipWithError("ReadChannelData did not deliver");
      break;
    }
    bytes += got;
  }
  state.SetBytesProcessed(int64_t(bytes));
  tvx::os::CloseEvent(event);
}

void BM_Memcpy(benchmark::State& state) {
  if (!UseBufferSize(state)) return;
  uint64_t bytes = 0;
  for (auto _ : state) {
    uint32_t at = 0;
    for (uint32_t i = 0; i < (per_channel > 2 ? per_channel - 2 : 1); ++i) {
      std::memcpy(destination.data() + at, Descriptor(i).Address, Descriptor(i).Size);
      at += Descriptor(i).Size;
    }
    benchmark::DoNotOptimize(destination.data());
    bytes += at;
  }
  state.SetBytesProcessed(int64_t(bytes));
}

// 64 KiB, the default, and 1 MiB: the fixed cost of a read against a short and a long copy.
BENCHMARK(BM_ReadChannelData)->Arg(65536)->MinTime(1.0);
BENCHMARK(BM_Memcpy)->Arg(65536)->MinTime(1.0);
BENCHMARK(BM_ReadChannelData)->Arg(1 << 20)->MinTime(1.0);
BENCHMARK(BM_Memcpy)->Arg(1 << 20)->MinTime(1.0);

// All channels at `rate` buffers per second for `seconds`, every buffer verified; the buffers
// lost over all channels (gaps in the sequence, overruns, payload errors).
// A board just brought up with the engine programmed: its channels start from position 0, as
// the engine's counts do at every start.
bool BringUp() {
  if (CreateDeviceInstance(&board) != 0) {
    std::fprintf(stderr, "bring-up failed: %s\n", GetErrorMessage());
    return false;
  }
  MasterGetBuffers(&board, &map);
  per_channel = map.DescriptorCount / 17;
  destination.resize(size_t(per_channel) * Descriptor(0).Size);
  return MasterLoad(&board, &map) == 0;
}

uint64_t Stream(uint32_t channels, const std::string& rate, double seconds, double* mbps) {
  ReleaseDeviceInstance(&board);
  if (!BringUp()) return ~uint64_t{0};
  zsim_set(0, "dma.rate", rate.c_str());
  const uint32_t start = 0x40000000;
  MasterStart(&board, &start);
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> lost{0}, bytes{0};
  std::vector<std::thread> readers;
  for (uint32_t c = 0; c < channels; ++c) {
    readers.emplace_back([&, c] {
      const uint32_t size = Descriptor(0).Size;
      std::vector<uint8_t> data(size_t(per_channel - 1) * size);
      uint64_t next = 0;
      while (!stop) {
        uint32_t got = 0;
        const int32_t result = ReadChannelData(&board, c, data.data(), uint32_t(data.size()), &got, 100);
        if (result == -1) ++lost;   // an overrun while waiting: the event's buffers are gone
        for (uint32_t at = 0; at < got; at += size) {
          uint64_t sequence = 0;
          if (!zsim_payload_sequence(data.data() + at, size, &sequence) ||
              zsim_payload_check(data.data() + at, size, c, sequence) != ZSIM_PAYLOAD_OK)
            ++lost;
          if (sequence > next) lost += sequence - next;
          next = sequence + 1;
        }
        bytes += got;
      }
    });
  }
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  stop = true;
  MasterStop(&board);
  for (uint32_t c = 0; c < channels; ++c) {
    char name[64];
    std::snprintf(name, sizeof name, "TORVIX.TerminateEvent%u", c);
    tvx::os::Event terminate = tvx::os::CreateNamedEvent(name);
    tvx::os::SignalEvent(terminate);
    tvx::os::CloseEvent(terminate);
  }
  for (auto& t : readers) t.join();
  *mbps = double(bytes) / 1e6 / seconds;
  return lost;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (!BringUp()) return 1;

  TimeReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\n");
  for (const char* size : {"65536", "1048576"}) {
    const double read = reporter.time(std::string("BM_ReadChannelData/") + size + "/min_time:1.000");
    const double copy = reporter.time(std::string("BM_Memcpy/") + size + "/min_time:1.000");
    if (read > 0 && copy > 0)
      std::printf("ReadChannelData throughput with %7s-byte buffers: %.2f of memcpy of the same buffers "
                  "(%u buffers a read)\n", size, copy / read, per_channel > 2 ? per_channel - 2 : 1);
  }
  ReleaseDeviceInstance(&board);
  zsim_set(0, "dma.buffer_size", "65536");
  if (!BringUp()) return 1;

  // Rising rates until a buffer is lost; every channel at the same rate.
  std::printf("\nall 17 channels read and verified, %u-byte buffers:\n", Descriptor(0).Size);
  uint32_t best = 0;
  double best_mbps = 0;
  for (uint32_t rate = 50; rate <= 100000; rate += rate / 2) {
    double mbps = 0;
    const uint64_t lost = Stream(17, std::to_string(rate), 2.0, &mbps);
    std::printf("  %6u buffers/s per channel: %8.1f MB/s in all, %llu lost\n", rate, mbps,
                static_cast<unsigned long long>(lost));
    if (lost != 0) break;
    best = rate;
    best_mbps = mbps;
  }
  std::printf("highest sustained rate with nothing lost: %u buffers/s per channel, %.1f MB/s in all\n",
              best, best_mbps);
  ReleaseDeviceInstance(&board);
  return 0;
}
