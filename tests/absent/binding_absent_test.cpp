// Runs from a directory whose IO library is missing or lacks one of its functions: bring-up
// must stop before anything is opened, with the board's own text.
#include <gtest/gtest.h>

#include "torvixe.h"

TEST(BindingAbsent, BringUpStopsWithItsTextAndNothingIsReached) {
  DeviceId id{0};
  FpgaBaseAddresses bases{};
  bases.DemBase = 0x1234;
  EXPECT_EQ(GetFPGABaseAddress(&id, &bases), -1) << "no board came up yet";
  EXPECT_STREQ(GetErrorMessage(), "GetFPGABaseAddress [0]: Базовые адреса ПЛИС не инициализированы");
  // The failed board stays in the table and answers the same without retrying.
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_EQ(CreateDeviceInstance(&id), 1);
    EXPECT_STREQ(GetErrorMessage(), "Error creating pModule");
  }
  // Raw access finds a device that was never opened and calls nothing.
  PortAccess access{0x8000, 0xDEADBEEF};
  EXPECT_EQ(_devinp(&id, &access), 2);
  EXPECT_STREQ(GetErrorMessage(), "_devinp [0]: Не открыт доступ к устройству: ");
  EXPECT_EQ(access.Value, 0xDEADBEEFu);
  EXPECT_EQ(GetDeviceSlotID(&id), 0xFFFFFFFFu);
  EXPECT_EQ(GetFPGABaseAddress(&id, &bases), -1) << "stopped before the bases were set";
  EXPECT_EQ(bases.DemBase, 0x1234u);
  ReleaseDeviceInstance(&id);
}
