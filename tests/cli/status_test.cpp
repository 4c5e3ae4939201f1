// The status screen as laid out from what a board answered, fields the library refused
// included, and the equalizer's taps as read back. Compiled with the CP1251
// execution character set: expected UTF-8 is written u8"".
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "controls.h"
#include "status.h"

namespace tvx::cli {
namespace {

StatusSnapshot Healthy() {
  StatusSnapshot s;
  s.word = 0x53;   // both locks and both channel bits
  s.carrier = 1200025000.01;
  s.rate = 9999999.93;
  // In the record's order: attenuator, first and second codes around the reserved word (left
  // as a caller may have it: never shown), then attenuation, first level, total, second dB.
  s.gains[0] = GCValues{8, 300, 0xDEADBEEF, 7, 4, 0.5, 30, 3.5};
  s.gains[1] = GCValues{0, 0, 0xDEADBEEF, 65535, 0, 0, -27.1, -1.25};
  s.counters = CountersRecord{1, 2, 3, 4294967295u};
  s.pcb_celsius = 41.0f;
  s.fpga_celsius = 56.5f;
  return s;
}

TEST(StatusScreen, AHealthyBoard) {
  const std::vector<std::string> expected = {
      "carrier: locked, measured 1200025000.01 Hz",
      "timing: locked, measured 9999999.93 sym/s",
      "channel status: IQ 1, demodulated data 1 (bits 4 and 6 of status word 0x00000053)",
      "gains, channel 1: attenuator 8 (4.00 dB), first 300 (level 0.50), second 7 (3.50 dB), "
      "total 30.00 dB",
      "gains, channel 2: attenuator 0 (0.00 dB), first 0 (level 0.00), second 65535 (-1.25 dB), "
      "total -27.10 dB",
      "counters: IQ 1, demodulated data 2, ADC 3, INT 4294967295",
      u8"temperatures: PCB 41.00 °C, FPGA 56.50 °C",
  };
  EXPECT_EQ(StatusLines(Healthy()), expected);
}

// Each case changes the healthy board and names the line that must then read so.
TEST(StatusScreen, LocksBitsAndFieldsThatFailed) {
  const struct {
    const char* what;
    void (*change)(StatusSnapshot*);
    size_t line;
    std::string reads;
  } cases[] = {
      {"no locks", [](StatusSnapshot* s) { s->word = 0x50; }, 0,
       "carrier: NOT locked, measured 1200025000.01 Hz"},
      {"no threshold", [](StatusSnapshot* s) { s->timing_threshold = false; }, 1,
       "timing: no lock indication for this signal type, measured 9999999.93 sym/s"},
      {"word refused", [](StatusSnapshot* s) { s->word.reset(); }, 0,
       "carrier: lock unknown, measured 1200025000.01 Hz"},
      {"word refused", [](StatusSnapshot* s) { s->word.reset(); }, 2, "channel status: unknown"},
      {"channel 2 refused", [](StatusSnapshot* s) { s->gains[1].reset(); }, 4,
       "gains, channel 2: unavailable"},
      {"sensor refused", [](StatusSnapshot* s) { s->pcb_celsius.reset(); }, 6,
       u8"temperatures: PCB unavailable, FPGA 56.50 °C"},
  };
  for (const auto& c : cases) {
    StatusSnapshot snapshot = Healthy();
    c.change(&snapshot);
    const std::vector<std::string> lines = StatusLines(snapshot);
    ASSERT_EQ(lines.size(), 7u) << c.what << ": a refused field keeps its line";
    EXPECT_EQ(lines[c.line], c.reads) << c.what;
  }
}

TEST(EqualizerReadBack, TheCountAsReportedTheTapsAsFarAsTheArraysGo) {
  const uint16_t first[3] = {2048, 0, 4095}, second[3] = {0, 1, 0xFFFF};
  const std::vector<std::string> beyond = TapLines(14, first, second, 3);
  ASSERT_EQ(beyond.size(), 4u);
  EXPECT_EQ(beyond[0], "equalizer taps (count 14), the first 3 shown:");
  EXPECT_EQ(beyond[3], "  tap  2: first 4095, second 65535");
  EXPECT_EQ(TapLines(0, first, second, 3), std::vector<std::string>{"equalizer taps (count 0):"});
}

}  // namespace
}  // namespace tvx::cli
