#include "rf/gain.h"

#include <cmath>

#include "hw/regs.h"
#include "hw/regs/dem.h"

namespace tvx {
namespace {

// A failed read counts as a code of 0: the lowest level the stage can report.
uint32_t ReadWord(cZARIM* io, uint32_t address) {
  uint32_t value = 0;
  io->ReadPort(address, &value);
  return value;
}

}  // namespace

uint32_t cGainFirst::ReadCode() {
  return (ReadWord(Io, statusAddress) >> dem::kFirstGainShift) & dem::kFirstGainMask;
}

uint32_t cGainFirst::ReadCodeChannel1() {
  statusAddress = Dem(dem::kChannelStatus);
  return ReadCode();
}

uint32_t cGainFirst::ReadCodeChannel2() {
  statusAddress = Dem(dem::kChannel2Status);
  return ReadCode();
}

// The two-preselector convertors take the code as it is; every other one needs bit 13 set.
int32_t cGainFirst::SetCode(const uint32_t* code) {
  lastCode = convertorType == 1 || convertorType == 2 ? *code : *code | dem::kFirstGainAlwaysOn;
  Io->WritePort(Dem(dem::kFirstGainControl), lastCode);
  return 0;
}

cGainSecond::cGainSecond(cZARIM* io) : cCommonModule(io), statusAddress(Dem(dem::kChannelStatus)) {}

int32_t cGainSecond::SetControl(const uint32_t value[2]) {
  Io->WritePort(Dem(dem::kSecondGainControl1), value[0]);
  Io->WritePort(Dem(dem::kSecondGainControl2), value[1]);
  lastControl[0] = value[0];
  lastControl[1] = value[1];
  return 0;
}

uint32_t cGainSecondE::ReadCode() { return ReadWord(Io, statusAddress) & dem::kSecondGainMask; }

uint32_t cGainSecondE::ReadCodeChannel1() {
  statusAddress = Dem(dem::kSecondGainStatus1);
  return ReadCode();
}

uint32_t cGainSecondE::ReadCodeChannel2() {
  statusAddress = Dem(dem::kSecondGainStatus2);
  return ReadCode();
}

double cGainSecondE::CodeToDb(const uint32_t* code) {
  const double c = *code != 0 ? double(*code) : 1.0;
  return -20.0 * std::log10(c * (1.0 / 65536.0));
}

}  // namespace tvx
