// The L-band down-convertor's presence line. The board reports whether a convertor is plugged
// in on bit 0 of peripheral word 0; the library reads it once at bring-up to choose the
// convertor family. The word's other bits behave as plain storage.
#include "devices.h"
#include "regs.h"

namespace zsim {
namespace {

class LconvPresence : public DeviceModel {
 public:
  explicit LconvPresence(unsigned board_index) : DeviceModel("lconv", board_index) {
    keys().AddNumber("lconv.present", &present_, 1, 0, 1);
    OnRead(Periph(0), [this](uint32_t stored, bool) { return (stored & ~1u) | present_; });
  }

 private:
  uint32_t present_ = 1;
};

}  // namespace

std::unique_ptr<DeviceModel> MakeLconvPresence(unsigned board_index) {
  return std::make_unique<LconvPresence>(board_index);
}

}  // namespace zsim
