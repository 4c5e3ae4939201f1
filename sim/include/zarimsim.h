/* zarimsim.h: control interface of the virtual board.
 *
 * The virtual board is our own implementation of the IO library `zarimio`. Beside the eleven
 * functions the torvixe library binds to, it exports these, so that tests, the CLI and users'
 * test rigs can configure boards, inject faults and read the register trace. Every key is
 * listed in docs/virtual-board.md. Plain C; compiles as C99 and as C++. */
#ifndef ZARIMSIM_H
#define ZARIMSIM_H

#include <stddef.h>
#include <stdint.h>

#ifndef ZSIM_EXPORT
#define ZSIM_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* One register access as the board saw it; a read records the value returned. */
typedef struct zsim_access {
  uint32_t addr;
  uint32_t value;
  uint8_t write;
} zsim_access;

/* Sets a key of board `board` (see docs/virtual-board.md). 0, or nonzero for an unknown key,
 * a bad value or a board index beyond the configured board count. */
ZSIM_EXPORT int zsim_set(unsigned board, const char* key, const char* value);

/* Model state as text, or NULL for an unknown key. The text stays valid until the calling
 * thread's next zsim_get. */
ZSIM_EXPORT const char* zsim_get(unsigned board, const char* key);

/* Loads keys from an INI file: sections [board.N] hold that board's keys, keys before any
 * section (or in [sim]) are global. 0, or nonzero when the file cannot be read or a line is
 * refused (the lines before it stay applied). The environment variable ZARIM_SIM_CONFIG names
 * a file loaded when the virtual board starts. */
ZSIM_EXPORT int zsim_load_config(const char* path);

/* Copies up to `max` trace entries (oldest first) into `out` and returns the number of entries
 * recorded since the last clear; `out` may be NULL with `max` 0 to ask for the count. */
ZSIM_EXPORT size_t zsim_trace(unsigned board, zsim_access* out, size_t max);
ZSIM_EXPORT void zsim_trace_clear(unsigned board);

/* Returns every board to its defaults (keys, model state, trace), as at start. Boards that are
 * open stay open. */
ZSIM_EXPORT void zsim_reset(void);

#ifdef __cplusplus
}
#endif

#endif /* ZARIMSIM_H */
