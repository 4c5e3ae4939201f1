// The one place that lists the emulated hardware blocks of a board.
#include "devices.h"

namespace zsim {

std::vector<std::unique_ptr<DeviceModel>> MakeDevices(unsigned board_index) {
  std::vector<std::unique_ptr<DeviceModel>> devices;
  devices.push_back(MakeLconvPresence(board_index));
  devices.push_back(MakeFpgaConfig(board_index));   // before the RAM: both see DEM word 0
  devices.push_back(MakeRam(board_index));
  devices.push_back(MakeSignalSimulator(board_index));
  devices.push_back(MakeI2cController(board_index));   // its EEPROMs follow lconv.present
  return devices;
}

}  // namespace zsim
