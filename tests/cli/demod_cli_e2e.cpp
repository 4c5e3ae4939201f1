// The demodulator chain of the built CLI on the virtual board: a whole receiver set up in one
// run locks onto the board's signal, measures it and shows it on a watched status screen; a
// board that never locks fails such a run; the library's refusals stop the line with its text.
// Compiled with the CP1251 execution character set: expected UTF-8 is written u8"".
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "cli_run.h"

namespace cli_e2e {
namespace {

// The number after `label` on the line that starts with `prefix`; NaN when there is none.
double NumberAfter(const std::string& text, const std::string& prefix, const std::string& label) {
  const std::string line = LineStarting(text, prefix);
  const size_t at = line.find(label);
  if (at == std::string::npos) return std::nan("");
  return std::strtod(line.c_str() + at + label.size(), nullptr);
}

// The board's signal lies 25 kHz off the 1.2 GHz tuned: the measured carrier shows the loop
// pulled in. Filter and packing table come from the samples the build writes. The status screen
// comes after the steps and after their locks had the time to come, and stands for the summary;
// a watch that is not on a terminal prints its screens one after the other.
TEST(DemodOnVirtualBoard, AWholeChainLocksAndAWatchShowsItOnEveryScreen) {
  const CliResult run = RunCli("signal QPSK tune 1.2e9 rate 10e6 --filters samples/filters "
                               "--filter 3 --tables samples/tables iso 1 1 status --watch 0.1 "
                               "--count 2");
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_EQ(run.err, "");
  for (const char* part : {"signal type QPSK (1), code rate 0, coding 0 set",
                           "  table files: M mpm_4.dat, X N/A, E epm_4.dat, O opm_4.dat\n",
                           "  level code 158; lock thresholds: carrier 8, timing 4\n",
                           "mpm_4.dat (268 bytes)\n  virtual board: 67 packing words received\n",
                           "first decimation D 16, second decimation M 1,",
                           "  virtual board: decimation 16, M 1, 128 filter taps\n"})
    EXPECT_TRUE(Has(run.out, part)) << part << " not in " << run.out;
  // Two bits a symbol at 10 Msym/s, both factors 1.
  EXPECT_NEAR(NumberAfter(run.out, "  virtual board: iso", "clock "), 20e6, 1.0) << run.out;
  EXPECT_LT(run.out.find("channel filter n20d_16.dat (shape 3) loaded from samples/filters\n"),
            run.out.find("board 0 status, screen 1 of 2"))
      << run.out;
  EXPECT_TRUE(Has(run.out, "\n\nboard 0 status, screen 2 of 2, ")) << run.out;
  for (const char* part :
       {"carrier: locked, measured 12000250", "timing: locked, measured 99999",
        "channel status: IQ 0, demodulated data 0 (bits 4 and 6 of status word 0x00000003)\n",
        // The defaults' signal, -40 dBm less the attenuator's 4 dB, as the AGCs settle on it.
        "gains, channel 1: attenuator 8 (4.00 dB), first 2548 (level 19.00), second 891 "
        "(37.33 dB), total ",
        "gains, channel 2: attenuator 8 (4.00 dB), first 2457 ",
        "counters: IQ 0, demodulated data 0, ADC 0, INT 0\n",
        u8"temperatures: PCB 41.00 °C, FPGA 56.50 °C\n",
        "  virtual board: the demodulator sees the signal at 46691666.67 Hz, 10000000.00 sym/s; "
        "signal level -40.00 dBm; demultiplexer status 0\n"})
    EXPECT_EQ(Count(run.out, part), 2u) << part << " not twice in " << run.out;
  EXPECT_FALSE(Has(run.out, "(after the convertor")) << "the screen stands for the summary";
}

TEST(DemodOnVirtualBoard, NoLockFailsTheRunAfterABoundedWait) {
  const CliResult run = RunCli("--sim demod.fault=never_lock tune 1.2e9 rate 10e6");
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  EXPECT_TRUE(Has(run.out, "carrier: NOT locked, measured ")) << run.out;
  EXPECT_TRUE(Has(run.out, "timing: NOT locked, measured ")) << run.out;
  EXPECT_TRUE(Has(run.err, "carrier and timing not locked after 50 status reads")) << run.err;
  // Half a receiver reports its lock and succeeds: the rate may be one an earlier run set.
  const CliResult half = RunCli("tune 1.2e9");
  EXPECT_EQ(half.status, 0) << half.out << half.err;
  EXPECT_TRUE(Has(half.out, "carrier: NOT locked, measured ")) << half.out;
  EXPECT_TRUE(Has(half.out, "(after the convertor and the sampling), 10000000.00 sym/s, "
                            "25000.00 Hz off its NCO\n"))
      << half.out;
  EXPECT_EQ(half.err, "");
}

// A type without lock thresholds has no lock to wait for; its placeholder table name is skipped;
// the converter's loading is a signed field.
TEST(DemodOnVirtualBoard, TypesWithoutLocksOrTables) {
  const CliResult run =
      RunCli("--sim iso.loading=-5 signal dec --tables samples/tables rate 10e6 iso 1 1");
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  for (const char* part : {"level code n/a; lock thresholds: carrier n/a, timing n/a\n",
                           "packing table: skipped, \"-DEC-\" names no file\n", "; loading -5\n",
                           "carrier: no lock indication for this signal type, measured ",
                           "timing: no lock indication for this signal type, measured "})
    EXPECT_TRUE(Has(run.out, part)) << part << " not in " << run.out;
}

// The library's refusal ends the line where it happened, with its text.
TEST(DemodOnVirtualBoard, LibraryRefusalsStopTheLine) {
  const struct {
    const char* args;
    const char* out_starts;   // what ran before the refusal
    const char* err;
  } cases[] = {
      {"signal 22 tune 1.2e9", "",
       u8"torvixe: signal: SetSignalType [0]: Неподдерживаемый вид модуляции, индекс #22\n"},
      {"rate 10e6 --filters no_such_dir tune 1.2e9", "symbol rate set to 10000000.00 sym/s",
       u8"torvixe: rate --filters: FilterLoad [0]: Ошибка открытия файла коэффициентов фильтра "
       u8"no_such_dir"},
  };
  for (const auto& c : cases) {
    const CliResult run = RunCli(c.args);
    EXPECT_EQ(run.status, 1) << c.args;
    EXPECT_EQ(run.out.compare(0, std::strlen(c.out_starts), c.out_starts), 0) << run.out;
    EXPECT_FALSE(Has(run.out, "carrier tuned") || Has(run.out, "carrier:")) << run.out;
    EXPECT_TRUE(Has(run.err, c.err)) << c.args << " said: " << run.err;
  }
}

}  // namespace
}  // namespace cli_e2e
