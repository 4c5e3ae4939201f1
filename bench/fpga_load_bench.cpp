// What loading a 1 MiB FPGA image costs through the library: on the virtual board with every
// register access trapped into the model, and with the board in passive mode (the BAR as plain
// memory, so only the library's own work and its fixed 120 ms of pauses remain). "RS" is
// loaded, because in passive mode the all-ones reset mask it writes reads back as both its
// acknowledge and its done bit, so the load completes there too.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "time_reporter.h"
#include "torvixe.h"
#include "zarimsim.h"

namespace {

DeviceId board{0};
const char kImage[] = "fpga_load_bench_1mib.bin";
constexpr size_t kImageBytes = 1 << 20;
constexpr double kFixedPausesMs = 120;   // 100 ms before the wait, 10 + 10 ms after the data

void WriteImage() {
  std::vector<char> bytes(kImageBytes);
  uint32_t x = 1;
  for (char& b : bytes) b = char((x = x * 1103515245u + 12345u) >> 24 | 1);
  std::ofstream(kImage, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
}

void Load(benchmark::State& state, const char* mode) {
  zsim_set(0, "mmio", mode);
  zsim_set(0, "trace.max", "0");
  for (auto _ : state) {
    if (FPGALoad(&board, "RS", kImage) != 0) state.SkipWithError(GetErrorMessage());
  }
  state.counters["words/s"] = benchmark::Counter(double(kImageBytes / 4 + 2) * state.iterations(),
                                                 benchmark::Counter::kIsRate);
}

void BM_Load1MiBTrapped(benchmark::State& state) { Load(state, "trap"); }
void BM_Load1MiBPassive(benchmark::State& state) { Load(state, "passive"); }

BENCHMARK(BM_Load1MiBTrapped)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_Load1MiBPassive)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  WriteImage();
  if (CreateDeviceInstance(&board) != 0) {
    std::fprintf(stderr, "bring-up failed: %s\n", GetErrorMessage());
    return 1;
  }
  TimeReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  zsim_set(0, "mmio", "trap");
  ReleaseDeviceInstance(&board);
  std::remove(kImage);

  const double trap = reporter.time("BM_Load1MiBTrapped/iterations:3/real_time");
  const double passive = reporter.time("BM_Load1MiBPassive/iterations:5/real_time");
  if (trap > 0 && passive > 0)
    std::printf("\n1 MiB image: %.0f ms trapped, %.0f ms passive (of which %.0f ms are the fixed "
                "pauses): %.1f us per trapped data word\n",
                trap, passive, kFixedPausesMs, (trap - kFixedPausesMs) * 1000 / (kImageBytes / 4 + 2));
  return 0;
}
