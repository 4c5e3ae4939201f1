// Linked into the test build of the library that differs from the real one in one register
// word: the first gain stage's control word goes out with its lowest bit flipped. The link
// routes the export's call of tvx::cGainFirst::SetCode here (--wrap), so the library's sources stay
// as they are. A replay of a recording made with the real library must stop at that word.
#include <cstdint>

extern "C" {
int32_t __real__ZN3tvx10cGainFirst7SetCodeEPKj(void* self, const uint32_t* code);

int32_t __wrap__ZN3tvx10cGainFirst7SetCodeEPKj(void* self, const uint32_t* code) {
  const uint32_t changed = *code ^ 1u;
  return __real__ZN3tvx10cGainFirst7SetCodeEPKj(self, &changed);
}
}
