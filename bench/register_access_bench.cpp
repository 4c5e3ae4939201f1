// What one register access costs through the library: on the virtual board with every access
// trapped into the model, with the board in passive mode (the BAR as plain memory, so only the
// library's own cost remains), against a bare volatile load as the floor.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "time_reporter.h"
#include "torvixe.h"
#include "zarimsim.h"

namespace {

DeviceId board{0};
volatile uint32_t plain_word = 0;

void SetMode(const char* mode) {
  if (zsim_set(0, "mmio", mode) != 0) std::fprintf(stderr, "mmio=%s refused\n", mode);
  zsim_set(0, "trace.max", "1");
}

// One raw register access through the export, read (DEM word 0) or write (DEM word 22); the
// direction is a template argument so that the measured loop holds nothing but the call.
template <bool kWrite>
void Access(benchmark::State& state, const char* mode) {
  SetMode(mode);
  PortAccess access{kWrite ? 0x8058u : 0x8000u, 5};
  for (auto _ : state) {
    if constexpr (kWrite)
      benchmark::DoNotOptimize(_devoutp(&board, &access));
    else
      benchmark::DoNotOptimize(_devinp(&board, &access));
  }
}

void BM_ReadTrapped(benchmark::State& state) { Access<false>(state, "trap"); }
void BM_WriteTrapped(benchmark::State& state) { Access<true>(state, "trap"); }
void BM_ReadPassive(benchmark::State& state) { Access<false>(state, "passive"); }
void BM_WritePassive(benchmark::State& state) { Access<true>(state, "passive"); }

void BM_BareLoad(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(plain_word);
}

BENCHMARK(BM_ReadTrapped);
BENCHMARK(BM_WriteTrapped);
BENCHMARK(BM_ReadPassive);
BENCHMARK(BM_WritePassive);
BENCHMARK(BM_BareLoad);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (CreateDeviceInstance(&board) != 0) {
    std::fprintf(stderr, "bring-up failed: %s\n", GetErrorMessage());
    return 1;
  }
  TimeReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  SetMode("trap");
  ReleaseDeviceInstance(&board);

  double read_trap = reporter.time("BM_ReadTrapped"), read_passive = reporter.time("BM_ReadPassive");
  double write_trap = reporter.time("BM_WriteTrapped"), write_passive = reporter.time("BM_WritePassive");
  double bare = reporter.time("BM_BareLoad");
  if (read_passive > 0 && write_passive > 0 && bare > 0) {
    std::printf("\none trapped read:  %8.0f ns  (%.0fx a passive read)\n", read_trap, read_trap / read_passive);
    std::printf("one trapped write: %8.0f ns  (%.0fx a passive write)\n", write_trap, write_trap / write_passive);
    std::printf("one passive read:  %8.1f ns  (%.1fx a bare volatile load)\n", read_passive, read_passive / bare);
    std::printf("one passive write: %8.1f ns  (%.1fx a bare volatile load)\n", write_passive, write_passive / bare);
  }
  return 0;
}
