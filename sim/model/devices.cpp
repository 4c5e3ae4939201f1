// The one place that lists the emulated hardware blocks of a board.
#include "devices.h"

namespace zsim {

std::vector<std::unique_ptr<DeviceModel>> MakeDevices(unsigned board_index) {
  std::vector<std::unique_ptr<DeviceModel>> devices;
  devices.push_back(MakeLconvPresence(board_index));
  return devices;
}

}  // namespace zsim
