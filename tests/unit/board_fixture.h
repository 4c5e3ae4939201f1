// A board brought up in process: the exports over the scripted binding and the register model,
// on a virtual clock.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "api/board.h"
#include "api/frame.h"
#include "board_model.h"
#include "hw/clock.h"
#include "model_io.h"

// Found by argument-dependent lookup from inside the standard algorithms.
[[maybe_unused]] static bool operator==(const zsim_access& a, const zsim_access& b) {
  return a.addr == b.addr && a.value == b.value && a.write == b.write;
}
[[maybe_unused]] static std::ostream& operator<<(std::ostream& out, const zsim_access& a) {
  char text[48];
  std::snprintf(text, sizeof text, "%c 0x%08X 0x%08X", a.write ? 'W' : 'R', unsigned(a.addr),
                unsigned(a.value));
  return out << text;
}

namespace tvx::test {

inline zsim_access W(uint32_t addr, uint32_t value) { return {addr, value, 1}; }
inline zsim_access R(uint32_t addr, uint32_t value) { return {addr, value, 0}; }

// Pauses and bounded polls cost no wall time: every counter reading advances `step` µs, and
// each sleep is recorded with the number of register accesses made before it. A sleep can be
// made to throw.
class TestClock : public ClockSource {
 public:
  explicit TestClock(const zsim::BoardModel* model) : model_(model) {}
  int64_t Counter() override { return now += step; }
  int64_t Frequency() override { return 1000000; }
  void SleepMs(uint32_t ms) override {
    now += int64_t(ms) * 1000;
    sleeps.push_back({ms, model_->TraceCount()});
    if (throw_std) throw std::runtime_error("clock stopped");
    if (throw_other) throw 7;
  }
  double seconds() const { return double(now) / 1e6; }
  std::vector<uint32_t> ms() const {
    std::vector<uint32_t> out;
    for (const Sleep& s : sleeps) out.push_back(s.ms);
    return out;
  }
  struct Sleep {
    uint32_t ms;
    uint64_t after_accesses;
  };
  int64_t now = 0, step = 10;
  std::vector<Sleep> sleeps;
  bool throw_std = false, throw_other = false;

 private:
  const zsim::BoardModel* model_;
};

class BoardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    self = this;
    previous_ = InstallIoFactory(&BoardTest::MakeIo);
    previous_clock_ = InstallClock(&clock);
    model.SetTimeSource([this] { return uint64_t(clock.now); });   // the model's settle times too
    LastErrorText[0] = '\0';
  }
  void TearDown() override {
    for (uint8_t i : {0, 1, 3}) {
      DeviceId id{i};
      ReleaseDeviceInstance(&id);
    }
    InstallClock(previous_clock_);
    InstallIoFactory(previous_);
  }
  ModelIo* io() const { return io_; }
  cBoard* board(uint8_t index = 0) const { return BoardTable[index]; }
  void Set(const std::string& key, const std::string& value) {
    ASSERT_EQ(model.Set(key, value), 0) << key << "=" << value;
  }
  std::string Get(const std::string& key) const {
    std::string value;
    return model.Get(key, &value) ? value : "(unknown key)";
  }
  // The values written to `address` since the trace was cleared.
  std::vector<uint32_t> Written(uint32_t address) const {
    std::vector<uint32_t> out;
    for (const zsim_access& a : model.Trace())
      if (a.write && a.addr == address) out.push_back(a.value);
    return out;
  }

  zsim::BoardModel model{0};
  TestClock clock{&model};
  IoScript script;
  int builds = 0;
  bool throw_on_build = false;

 private:
  static cZARIM* MakeIo() {
    ++self->builds;
    if (self->throw_on_build) throw std::runtime_error("no binding today");
    return self->io_ = new ModelIo(&self->model, &self->script);
  }
  static inline BoardTest* self = nullptr;
  IoFactory previous_ = nullptr;
  ClockSource* previous_clock_ = nullptr;
  ModelIo* io_ = nullptr;
};

}  // namespace tvx::test
