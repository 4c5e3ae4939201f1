// Loading the board's three FPGAs ("DEM", "DEC", "RS") from configuration files: configuration
// reset through INT_0x04, a wait for the acknowledge, the file streamed word by word into the
// device's data port, and a check of its done bit.
#pragma once

#include <cstdint>

#include "hw/common_module.h"

namespace tvx {

// One row of the device table: where the device takes its configuration data and which bits
// of INT_0x04 request its reset and report it done.
struct FpgaDevice {
  const char* name;
  uint32_t (*data_port)();   // byte address, formed from the block base at each selection
  uint32_t reset_mask;       // written to INT_0x04; also the acknowledge bit(s)
  uint32_t done_mask;
};

// The device `name` stands for, comparing without regard to the case of ASCII letters only
// (a byte outside A-Z/a-z must match exactly); null for no device or a null name.
const FpgaDevice* FindFpgaDevice(const char* name);

class cfpga : public cCommonModule {
 public:
  using cCommonModule::cCommonModule;
  // Polls the status register until InReset or until `timeout` seconds have passed, with no
  // pause between readings; true when the reset was acknowledged.
  virtual bool WaitForReset(double timeout);
  virtual uint32_t StatusRegister() = 0;
  virtual bool InReset(uint32_t value) = 0;
  // 0 loaded; -1 reset not acknowledged; -2 done not set; -3 file not opened (or not read);
  // -4 buffer not allocated. The message is in the module text.
  virtual int32_t Load(const char* fileName) = 0;

  // The device the next Load configures.
  void Select(const FpgaDevice& device);
  uint32_t data_port() const { return DataPort; }
  uint32_t reset_mask() const { return ResetMask; }
  uint32_t done_mask() const { return DoneMask; }

 protected:
  // Set by Select before every load; zero until the first, so that a Load before any
  // selection writes nothing meaningful rather than whatever the memory held.
  uint32_t DataPort = 0;
  uint32_t DoneMask = 0;
  uint32_t ResetMask = 0;
};

class cfpgaE : public cfpga {
 public:
  using cfpga::cfpga;
  uint32_t StatusRegister() override;
  bool InReset(uint32_t value) override { return (value & ResetMask) != 0; }
  int32_t Load(const char* fileName) override;
};

}  // namespace tvx
