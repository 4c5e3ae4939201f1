// The status screen and the gain, eq and dmpx steps of the built CLI on the virtual board (a
// receiver watched on it is the demodulator run's): what the steps set reaches the board's
// models and comes back through the library; failures say what failed and exit 1. Compiled
// with the CP1251 execution character set: expected UTF-8 is written u8"".
#include <gtest/gtest.h>

#include <string>

#include "cli_run.h"

namespace cli_e2e {
namespace {

// Every step of the three in one run: each shows what it set, what the model received and what
// the library reads back.
TEST(StatusOnVirtualBoard, GainEqualizerAndDemultiplexerRoundTrip) {
  const CliResult run = RunCli(
      "--sim dmpx.status=11 --sim atten.code=20 gain first 300 gain second 0x100 0x200 "
      "eq control 5 eq table samples/tables/epm_4.dat eq set 100:200,4095:1 dmpx load samples/dmpx/table.bin "
      "dmpx control 1 2 3");
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_EQ(run.err, "");
  for (const char* part : {
           // Bit 13 is the library's, for the type 3 convertor.
           "first gain code 300 set\n  virtual board: first stage control word 0x0000212C\n",
           "second gain words 0x00000100 0x00000200 set\n"
           "  virtual board: second stage control words 0x00000100 0x00000200\n",
           "equalizer control word 0x00000005 set\n"
           "  virtual board: equalizer control word 0x00000005\n",
           "epm_4.dat (272 bytes)\n  virtual board: 68 error-table words received, CRC-32 0x",
           "equalizer coefficients loaded: 2 pairs (count 2)\nequalizer taps (count 2):\n"
           "  tap  0: first 100, second 200\n  tap  1: first 4095, second 1\n",
           "table.bin (3001 bytes)\n  virtual board: 3001 table bytes stored, CRC-32 0x",
           "control words 0x00000001 0x00000002 0x0000000C (the third as the library wrote it)",
           "demultiplexer status 0x0000000B: bit 0 1, bit 1 1, bit 2 0, bit 3 1\n"})
    EXPECT_TRUE(Has(run.out, part)) << part << " not in " << run.out;
  // No signal reaches the stages: they read their bottom, behind the board's attenuator.
  EXPECT_EQ(Count(run.out, "gains, channel 1: attenuator 20 (10.00 dB), first 0 (level 0.00), "
                           "second 65535 (0.00 dB), total "),
            2u)
      << run.out;
  EXPECT_EQ(Count(run.out, "gains, channel 2: attenuator 20 "), 2u) << run.out;
}

// DMPXLoad leaves no text: the tool names the file. A refused field still leaves the screen
// whole, its text on stderr.
TEST(StatusOnVirtualBoard, FailuresSayWhatFailedAndExitOne) {
  const CliResult load = RunCli("dmpx load no_such_table.bin dmpx status");
  EXPECT_EQ(load.status, 1) << load.out << load.err;
  EXPECT_EQ(load.out, "") << "the line ends at the failure";
  EXPECT_EQ(load.err, "torvixe: dmpx load: DMPXLoad could not load no_such_table.bin (result 1, "
                      "no text from the library): no such file\n");

  const CliResult sensor = RunCli("--sim sensor.fault=no_address_ack status");
  EXPECT_EQ(sensor.status, 1) << sensor.out << sensor.err;
  EXPECT_TRUE(Has(sensor.out, "temperatures: PCB unavailable, FPGA unavailable\n")) << sensor.out;
  EXPECT_TRUE(Has(sensor.out, "\ncarrier: NOT locked, measured 0.00 Hz\n")) << sensor.out;
  EXPECT_TRUE(Has(sensor.out, "  virtual board: no signal reaches the demodulator; signal level "
                              "-40.00 dBm; demultiplexer status 0\n"))
      << sensor.out;
  EXPECT_TRUE(Has(sensor.err, u8"torvixe: status: PCB temperature: GetPCBTemperature [0]: "
                              u8"I2CStart: нет готовности шины I2C после записи\n"))
      << sensor.err;
}

}  // namespace
}  // namespace cli_e2e
