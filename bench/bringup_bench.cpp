// What bringing a board up and releasing it costs (CreateDeviceInstance + ReleaseDeviceInstance)
// on the virtual board with the default convertor, set against the fixed waits bring-up is
// made of: for a type 3 convertor, the version read (30 ms), 25 control-voltage entries (80 ms
// each) and the sampling-clock load (1 ms after each of its three words, 4 ms before the lock
// check). Trapped, every register access goes through the model; passive, the BAR is plain
// memory, which no I2C transfer or synthesizer load survives: a bring-up that reads the
// convertor's EEPROM stops there, and the passive run then says so instead of a time.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "time_reporter.h"
#include "torvixe.h"
#include "zarimsim.h"

namespace {

DeviceId board{0};
constexpr double kType3WaitsMs = 30 + 25 * 80 + (3 * 1 + 4);
std::string passive_failure;

// The library's texts are Windows-1251; its Cyrillic letters as UTF-8, anything else unusual
// as '?', so that the reason reads on a terminal.
std::string Readable(const char* cp1251) {
  std::string out;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(cp1251); *p; ++p) {
    unsigned code = *p < 0x80 ? *p : *p >= 0xC0 ? 0x410 + (*p - 0xC0) : '?';
    if (*p == 0xA8) code = 0x401;
    if (*p == 0xB8) code = 0x451;
    if (code < 0x80) {
      out += char(code);
    } else {
      out += char(0xC0 | code >> 6);
      out += char(0x80 | (code & 0x3F));
    }
  }
  return out;
}

void BringUp(benchmark::State& state, const char* mode) {
  zsim_set(0, "mmio", mode);
  zsim_set(0, "trace.max", "0");
  for (auto _ : state) {
    const int32_t result = CreateDeviceInstance(&board);
    const std::string text = result != 0 ? Readable(GetErrorMessage()) : "";
    ReleaseDeviceInstance(&board);
    if (result != 0) {
      if (std::string(mode) == "passive") passive_failure = text;
      state.SkipWithError(text.c_str());
      break;
    }
  }
  zsim_set(0, "mmio", "trap");
}

void BM_BringUpTrapped(benchmark::State& state) { BringUp(state, "trap"); }
void BM_BringUpPassive(benchmark::State& state) { BringUp(state, "passive"); }

BENCHMARK(BM_BringUpTrapped)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_BringUpPassive)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  // One bring-up first: whether the library has its convertor and synthesizer steps (only
  // then are there waits to set the time against), and how many accesses one bring-up makes.
  zsim_trace_clear(0);
  if (CreateDeviceInstance(&board) != 0) {
    std::fprintf(stderr, "bring-up failed: %s\n", Readable(GetErrorMessage()).c_str());
    return 1;
  }
  uint8_t type = 0;
  const bool has_convertor = GetLConvertorType(&board, &type) == 0;
  ReleaseDeviceInstance(&board);
  const size_t accesses = zsim_trace(0, nullptr, 0);
  const double waits = has_convertor && type == 3 ? kType3WaitsMs : 0;

  TimeReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  const double trap = reporter.time("BM_BringUpTrapped/iterations:3/real_time");
  const double passive = reporter.time("BM_BringUpPassive/iterations:3/real_time");
  std::printf("\nbring-up and release, convertor type %s, %zu register accesses:\n",
              has_convertor ? std::to_string(type).c_str() : "unknown (no convertor object)",
              accesses);
  if (waits == 0) std::printf("  no fixed waits to compare with: the library's bring-up has no "
                              "convertor and synthesizer steps\n");
  else std::printf("  fixed waits %.0f ms\n", waits);
  auto line = [&](const char* mode, double ms) {
    if (waits > 0)
      std::printf("  %-7s %.0f ms, %.3f x the fixed waits (%.0f ms beyond them, %.1f us per "
                  "access)\n", mode, ms, ms / waits, ms - waits, (ms - waits) * 1000 / accesses);
    else
      std::printf("  %-7s %.1f ms\n", mode, ms);
  };
  if (trap > 0) line("trapped", trap);
  if (passive > 0) line("passive", passive);
  else if (!passive_failure.empty())
    std::printf("  passive: not measured, the bring-up needs the board's answers: %s",
                passive_failure.c_str());
  return 0;
}
