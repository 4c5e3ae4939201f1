// Unit tests of the I2C bus, the EEPROMs and the sensor: board 0 in process over the register
// model; the clock advances 10 µs a reading, so a 0.1 s busy poll is about 10000 readings.
#pragma once

#include <string>
#include <vector>

#include "board/i2c_bus.h"
#include "board_fixture.h"

namespace tvx::test {

constexpr uint32_t kPrescalerReg = 0x4020, kStatusReg = 0x4024, kCommandReg = 0x402C;

class I2cTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    ClearI2cPrescalerFlagForTesting();
  }
  // Board 0 up; trace and sleeps start afresh.
  void Open() {
    ASSERT_EQ(CreateDeviceInstance(&id), 0) << GetErrorMessage();
    Restart();
  }
  void Restart() {
    model.ClearTrace();
    clock.sleeps.clear();
  }
  // The commands written to the controller since the trace was cleared; with `accesses`, only
  // those among the first `accesses` register accesses.
  std::vector<uint32_t> Commands(uint64_t accesses = ~uint64_t{0}) const {
    std::vector<uint32_t> out;
    const std::vector<zsim_access> trace = model.Trace();
    for (size_t i = 0; i < trace.size() && i < accesses; ++i)
      if (trace[i].write && trace[i].addr == kCommandReg) out.push_back(trace[i].value);
    return out;
  }
  // Since `before`, `seconds` of polling went by and not a pause more: each wait that runs out
  // is 0.1 s.
  void ExpectWaited(double before, double seconds) const {
    EXPECT_GE(clock.seconds() - before, seconds);
    EXPECT_LT(clock.seconds() - before, seconds + 0.01);
  }

  DeviceId id{0};
};

}  // namespace tvx::test
