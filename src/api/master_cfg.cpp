#include "api/master_cfg.h"

#include "hw/driver_parameters.h"

namespace tvx {

// A value that is missing, not exactly four bytes long, or outside what the data path can
// serve (channels 0 to 255, 2 to 32 buffers per channel) is treated as unreadable: the default
// stands. Nothing is reported.
cMasterCfg::cMasterCfg(const char* service_name) {
  DriverParameters p = ReadDriverParameters(service_name);
  BuffersPerCH = p.buffers_per_channel;
  CHCount = p.channel_count;
}

}  // namespace tvx
