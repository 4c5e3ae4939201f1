// The table of emulated hardware blocks every board is built with. Each factory lives in the
// block's own file.
#pragma once

#include <memory>
#include <vector>

#include "device.h"

namespace zsim {

class DmaMaster;

std::unique_ptr<DeviceModel> MakeLconvPresence(unsigned board_index);
std::unique_ptr<DeviceModel> MakeFpgaConfig(unsigned board_index);
std::unique_ptr<DeviceModel> MakeRam(unsigned board_index);
std::unique_ptr<DeviceModel> MakeSignalSimulator(unsigned board_index);
std::unique_ptr<DeviceModel> MakeI2cController(unsigned board_index);
std::unique_ptr<DeviceModel> MakeDmaMaster(unsigned board_index);   // stream/dma_master.cpp
std::unique_ptr<DeviceModel> MakeSynthesizers(unsigned board_index);    // rf/synthesizers.cpp
std::unique_ptr<DeviceModel> MakePreselectorDac(unsigned board_index);  // rf/preselector_dac.cpp
std::unique_ptr<DeviceModel> MakeAdc(unsigned board_index);             // rf/adc.cpp
std::unique_ptr<DeviceModel> MakeDemodulator(unsigned board_index);     // demod/demodulator.cpp
std::unique_ptr<DeviceModel> MakeDemodTables(unsigned board_index);     // demod/tables.cpp
std::unique_ptr<DeviceModel> MakeIsoConverter(unsigned board_index);    // demod/iso_converter.cpp
std::unique_ptr<DeviceModel> MakeGain(unsigned board_index);            // rf/gain.cpp
std::unique_ptr<DeviceModel> MakeEqualizer(unsigned board_index);       // demod/equalizer.cpp
std::unique_ptr<DeviceModel> MakeDemultiplexer(unsigned board_index);   // demod/demultiplexer.cpp
// stream/counters.cpp: follows the bus master's counts, which its engine moves.
std::unique_ptr<DeviceModel> MakeCounters(unsigned board_index, const DmaMaster& master);

// Every block of one board, in a fixed order. Two blocks never claim reads of the same
// address; the board model checks that when it is built.
std::vector<std::unique_ptr<DeviceModel>> MakeDevices(unsigned board_index);

}  // namespace zsim
