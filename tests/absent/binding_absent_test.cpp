// Runs from a directory whose IO library is missing or lacks one of its functions: bring-up
// must stop before anything is opened, with the board's own text.
#include <gtest/gtest.h>


#include "torvixe.h"

TEST(BindingAbsent, BringUpStopsWithItsText) {
  DeviceId id{0};
  EXPECT_EQ(CreateDeviceInstance(&id), 1);
  EXPECT_STREQ(GetErrorMessage(), "Error creating pModule");
  // The failed board stays in the table and answers the same without retrying.
  EXPECT_EQ(CreateDeviceInstance(&id), 1);
  EXPECT_STREQ(GetErrorMessage(), "Error creating pModule");
  // Exports on it find no hardware-access object.
  PortAccess access{0x8000, 0xDEADBEEF};
  EXPECT_EQ(_devinp(&id, &access), 1);
  EXPECT_EQ(access.Value, 0xDEADBEEFu);
  ReleaseDeviceInstance(&id);
}
