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
  devices.push_back(MakeDmaMaster(board_index));
  devices.push_back(MakeSynthesizers(board_index));   // the L chip follows lconv.type
  devices.push_back(MakePreselectorDac(board_index));
  devices.push_back(MakeAdc(board_index));
  devices.push_back(MakeDemodulator(board_index));   // after the RAM: both see DEM word 2
  devices.push_back(MakeDemodTables(board_index));
  devices.push_back(MakeIsoConverter(board_index));   // reads of DEM word 14, whose writes are the demodulator's
  return devices;
}

}  // namespace zsim
