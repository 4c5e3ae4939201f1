// The one place that lists the emulated hardware blocks of a board.
#include "devices.h"

#include "stream/dma_master.h"

namespace zsim {

std::vector<std::unique_ptr<DeviceModel>> MakeDevices(unsigned board_index) {
  std::vector<std::unique_ptr<DeviceModel>> devices;
  devices.push_back(MakeLconvPresence(board_index));
  devices.push_back(MakeFpgaConfig(board_index));   // before the RAM: both see DEM word 0
  devices.push_back(MakeRam(board_index));
  devices.push_back(MakeSignalSimulator(board_index));
  devices.push_back(MakeI2cController(board_index));   // its EEPROMs follow lconv.present
  devices.push_back(MakeDmaMaster(board_index));
  const DmaMaster& master = static_cast<const DmaMaster&>(*devices.back());
  devices.push_back(MakeSynthesizers(board_index));   // the L chip follows lconv.type
  devices.push_back(MakePreselectorDac(board_index));
  devices.push_back(MakeAdc(board_index));
  devices.push_back(MakeDemodulator(board_index));   // after the RAM: both see DEM word 2
  devices.push_back(MakeDemodTables(board_index));
  devices.push_back(MakeIsoConverter(board_index));   // reads of DEM word 14, whose writes are the demodulator's
  devices.push_back(MakeGain(board_index));   // DEM word 0 also: the FPGA loader and the RAM see it
  devices.push_back(MakeEqualizer(board_index));
  devices.push_back(MakeDemultiplexer(board_index));   // RS word 0 also: the FPGA loader sees it
  devices.push_back(MakeCounters(board_index, master));
  return devices;
}

}  // namespace zsim
