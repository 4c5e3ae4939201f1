/* consumer.c: an application built against an installed torvixe, the way users build theirs.
 * Brings board 0 up, reads what identifies it and exits 0 when every call succeeded. */
#include <stdio.h>
#include "torvixe.h"

int main(void) {
  DeviceId board = {0};
  uint8_t type = 0, version = 0;
  if (CreateDeviceInstance(&board) != 0 || GetLConvertorType(&board, &type) != 0 ||
      GetInterfaceVersion(&board, &version) != 0) {
    printf("board 0: %s\n", GetErrorMessage());
    return 1;
  }
  printf("board 0: convertor type %u, interface version %u\n", type, version);
  ReleaseDeviceInstance(&board);
  return 0;
}
