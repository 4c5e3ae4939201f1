// A board brought up in process: the exports over the scripted binding and the register model.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>

#include "api/board.h"
#include "api/frame.h"
#include "board_model.h"
#include "model_io.h"

namespace tvx::test {

class BoardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    self = this;
    previous_ = InstallIoFactory(&BoardTest::MakeIo);
    LastErrorText[0] = '\0';
  }
  void TearDown() override {
    for (uint8_t i : {0, 1, 3}) {
      DeviceId id{i};
      ReleaseDeviceInstance(&id);
    }
    InstallIoFactory(previous_);
  }
  ModelIo* io() const { return io_; }
  cBoard* board(uint8_t index = 0) const { return BoardTable[index]; }

  zsim::BoardModel model{0};
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
  ModelIo* io_ = nullptr;
};

}  // namespace tvx::test
