// The table of emulated hardware blocks every board is built with. Each factory lives in the
// block's own file.
#pragma once

#include <memory>
#include <vector>

#include "device.h"

namespace zsim {

std::unique_ptr<DeviceModel> MakeLconvPresence(unsigned board_index);
std::unique_ptr<DeviceModel> MakeFpgaConfig(unsigned board_index);
std::unique_ptr<DeviceModel> MakeRam(unsigned board_index);
std::unique_ptr<DeviceModel> MakeSignalSimulator(unsigned board_index);
std::unique_ptr<DeviceModel> MakeI2cController(unsigned board_index);

// Every block of one board, in a fixed order. Two blocks never claim reads of the same
// address; the board model checks that when it is built.
std::vector<std::unique_ptr<DeviceModel>> MakeDevices(unsigned board_index);

}  // namespace zsim
