// Unit tests of the I2C bus, the EEPROMs and the sensor: board 0 in process over the register
// model, with a virtual clock so that the 10 ms pauses and 0.1 s busy polls cost no wall time.
#pragma once

#include <string>
#include <vector>

#include "board/i2c_bus.h"
#include "board_fixture.h"
#include "hw/clock.h"

namespace tvx::test {

constexpr uint32_t kPrescalerReg = 0x4020, kStatusReg = 0x4024, kCommandReg = 0x402C;

class BoardSlots {
 public:
  // Gives `module` to an empty slot of `board`, which deletes it at release.
  static void Put(cBoard* board, Slot slot, cCommonModule* module) {
    board->Modules[size_t(slot)] = module;
  }
};

// Every counter reading advances 10 µs, so a 0.1 s poll ends after about 10000 readings. Each
// sleep is recorded with the number of register accesses made before it.
class VirtualClock : public ClockSource {
 public:
  explicit VirtualClock(const zsim::BoardModel* model) : model_(model) {}
  int64_t Counter() override { return now += 10; }
  int64_t Frequency() override { return 1000000; }
  void SleepMs(uint32_t ms) override {
    now += int64_t(ms) * 1000;
    sleeps.push_back({ms, model_->TraceCount()});
  }
  double seconds() const { return double(now) / 1e6; }

  struct Sleep {
    uint32_t ms;
    uint64_t after_accesses;
  };
  int64_t now = 0;
  std::vector<Sleep> sleeps;

 private:
  const zsim::BoardModel* model_;
};

class I2cTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    previous_clock_ = InstallClock(&clock);
    ClearI2cPrescalerFlagForTesting();
  }
  void TearDown() override {
    BoardTest::TearDown();
    InstallClock(previous_clock_);
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
  void Set(const std::string& key, const std::string& value) {
    ASSERT_EQ(model.Set(key, value), 0) << key << "=" << value;
  }
  std::string Get(const std::string& key) const {
    std::string value;
    return model.Get(key, &value) ? value : "<unknown>";
  }
  // The commands written to the controller since the trace was cleared, in order; with
  // `accesses`, only those among the first `accesses` register accesses.
  std::vector<uint32_t> Commands(uint64_t accesses = ~uint64_t{0}) const {
    std::vector<uint32_t> out;
    const std::vector<zsim_access> trace = model.Trace();
    for (size_t i = 0; i < trace.size() && i < accesses; ++i)
      if (trace[i].write && trace[i].addr == kCommandReg) out.push_back(trace[i].value);
    return out;
  }

  VirtualClock clock{&model};
  DeviceId id{0};

 private:
  ClockSource* previous_clock_ = nullptr;
};

}  // namespace tvx::test
