// What one register access costs through the library: on the virtual board with every access
// trapped into the model, with the board in passive mode (the BAR as plain memory, so only the
// library's own cost remains), against a bare volatile load as the floor.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

#include "torvixe.h"
#include "zarimsim.h"

namespace {

DeviceId board{0};
volatile uint32_t plain_word = 0;

void SetMode(const char* mode) {
  if (zsim_set(0, "mmio", mode) != 0) std::fprintf(stderr, "mmio=%s refused\n", mode);
  zsim_set(0, "trace.max", "1");
}

void BM_ReadTrapped(benchmark::State& state) {
  SetMode("trap");
  PortAccess access{0x8000, 0};
  for (auto _ : state) benchmark::DoNotOptimize(_devinp(&board, &access));
}

void BM_WriteTrapped(benchmark::State& state) {
  SetMode("trap");
  PortAccess access{0x8058, 5};
  for (auto _ : state) benchmark::DoNotOptimize(_devoutp(&board, &access));
}

void BM_ReadPassive(benchmark::State& state) {
  SetMode("passive");
  PortAccess access{0x8000, 0};
  for (auto _ : state) benchmark::DoNotOptimize(_devinp(&board, &access));
}

void BM_WritePassive(benchmark::State& state) {
  SetMode("passive");
  PortAccess access{0x8058, 5};
  for (auto _ : state) benchmark::DoNotOptimize(_devoutp(&board, &access));
}

void BM_BareLoad(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(plain_word);
}

BENCHMARK(BM_ReadTrapped);
BENCHMARK(BM_WriteTrapped);
BENCHMARK(BM_ReadPassive);
BENCHMARK(BM_WritePassive);
BENCHMARK(BM_BareLoad);

// Keeps each benchmark's time per iteration so the ratios come from this run.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) ns_[run.benchmark_name()] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }
  double ns(const std::string& name) const {
    auto it = ns_.find(name);
    return it == ns_.end() ? 0 : it->second;
  }

 private:
  std::map<std::string, double> ns_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (CreateDeviceInstance(&board) != 0) {
    std::fprintf(stderr, "bring-up failed: %s\n", GetErrorMessage());
    return 1;
  }
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  SetMode("trap");
  ReleaseDeviceInstance(&board);

  double read_trap = reporter.ns("BM_ReadTrapped"), read_passive = reporter.ns("BM_ReadPassive");
  double write_trap = reporter.ns("BM_WriteTrapped"), write_passive = reporter.ns("BM_WritePassive");
  double bare = reporter.ns("BM_BareLoad");
  if (read_passive > 0 && write_passive > 0 && bare > 0) {
    std::printf("\none trapped read:  %8.0f ns  (%.0fx a passive read)\n", read_trap, read_trap / read_passive);
    std::printf("one trapped write: %8.0f ns  (%.0fx a passive write)\n", write_trap, write_trap / write_passive);
    std::printf("one passive read:  %8.1f ns  (%.1fx a bare volatile load)\n", read_passive, read_passive / bare);
    std::printf("one passive write: %8.1f ns  (%.1fx a bare volatile load)\n", write_passive, write_passive / bare);
  }
  return 0;
}
