// The demultiplexer in the RS FPGA: a byte table loaded step by step into a space of 65 535
// steps, its data offset and three control words, and four status bits.
//
//   RS word 2, written     a load begins: back to step 0, the table forgotten
//   RS word 3, written     one step of the table address
//   RS word 0, written     the byte (bits 7-0) for the current step, latched
//   RS word 1, written     stores the latched byte at the current step
//   RS word 0, read        status in bits 3-0 (`dmpx.status`), 0 above
//   RS words 21, 22        the data offset's low and high byte (8-bit registers)
//   RS words 23, 24, 25    the three control words
//
// A byte counts once RS word 1 stores it, so a loader that leaves out that strobe loads
// nothing. RS word 0 is also the RS FPGA's configuration port: a word written there while RS
// is being configured is image data and latches no byte.
//
// The model keeps how many steps the load took, where its first byte landed, and the bytes'
// count and CRC-32, so that a test sees a table filled from the top (its first byte at step
// 65 535 − size, its last at the top) carrying the file's bytes in order.
#include <optional>

#include "crc32.h"
#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

constexpr uint32_t kStatusBits = 0xF;

std::string HexOrNone(const std::optional<uint32_t>& word) {
  return word ? FormatHex(*word) : "none";
}

class Demultiplexer : public DeviceModel {
 public:
  explicit Demultiplexer(unsigned board_index) : DeviceModel("dmpx", board_index) {
    keys().AddNumber("dmpx.status", &status_, 0, 0, kStatusBits);
    OnWrite(Rs(2), [this](uint32_t) { Begin(); });
    OnWrite(Rs(3), [this](uint32_t) { ++steps_; });
    OnWrite(Rs(0), [this](uint32_t value) {
      std::string state;
      if (BoardKey("fpga.rs.state", &state) && state == "configuring") return;
      latched_ = uint8_t(value);
    });
    OnWrite(Rs(1), [this](uint32_t) { Store(); });
    OnRead(Rs(0), [this](uint32_t, bool) { return status_; });
    OnWrite(Rs(21), [this](uint32_t value) { offset_low_ = value & 0xFF; });
    OnWrite(Rs(22), [this](uint32_t value) { offset_high_ = value & 0xFF; });
    for (uint32_t k = 0; k < 3; ++k)
      OnWrite(Rs(23 + k), [this, k](uint32_t value) { control_[k] = value; });
  }

  bool Get(const std::string& key, std::string* value) const override {
    if (key == "dmpx.steps") *value = FormatDecimal(steps_);
    else if (key == "dmpx.fill") *value = fill_ ? FormatDecimal(*fill_) : "none";
    else if (key == "dmpx.bytes") *value = FormatDecimal(bytes_);
    else if (key == "dmpx.crc") *value = FormatHex(~crc_);
    else if (key == "dmpx.offset")
      *value = offset_low_ || offset_high_
                   ? FormatDecimal(offset_low_.value_or(0) | offset_high_.value_or(0) << 8)
                   : "none";
    else if (key == "dmpx.control.1") *value = HexOrNone(control_[0]);
    else if (key == "dmpx.control.2") *value = HexOrNone(control_[1]);
    else if (key == "dmpx.control.3") *value = HexOrNone(control_[2]);
    else return DeviceModel::Get(key, value);
    return true;
  }

 private:
  void ResetState() override {
    Begin();
    offset_low_ = offset_high_ = std::nullopt;
    for (auto& word : control_) word = std::nullopt;
  }

  void Begin() {
    steps_ = bytes_ = 0;
    fill_ = std::nullopt;
    latched_ = std::nullopt;
    crc_ = 0xFFFFFFFFu;
  }

  void Store() {
    if (!latched_) return;
    if (!fill_) fill_ = steps_;
    crc_ = Crc32Update(crc_, *latched_);
    ++bytes_;
    latched_ = std::nullopt;
  }

  uint32_t status_ = 0;
  uint64_t steps_ = 0, bytes_ = 0;
  std::optional<uint64_t> fill_;      // the step of the load's first byte
  std::optional<uint8_t> latched_;    // written to RS word 0, not yet stored
  uint32_t crc_ = 0xFFFFFFFFu;
  std::optional<uint32_t> offset_low_, offset_high_, control_[3];
};

}  // namespace

std::unique_ptr<DeviceModel> MakeDemultiplexer(unsigned board_index) {
  return std::make_unique<Demultiplexer>(board_index);
}

}  // namespace zsim
