/* zarimsim_payload.h: what the virtual board's DMA engine writes into each buffer, and the check
 * a reader runs on a buffer it received. The engine fills buffers with zsim_payload_fill, so
 * the writer and every reader (tests, the CLI, users' rigs) share this one definition.
 *
 * Every buffer carries its own position, so a reader proves order and completeness without any
 * state shared with the board: buffer number `sequence` of channel `channel` (counted from 0
 * since the engine was started) is
 *
 *   bytes 0-3   0x5A000000 | kind << 16 | channel    (little-endian, as every field)
 *   bytes 4-7   the board's slot number
 *   bytes 8-15  sequence
 *   bytes 16-   the body, 32-bit words:
 *               prbs:    the PRBS-31 bit stream (x^31 + x^28 + 1), least significant bit of
 *                        each word first, from a start value made of (channel, sequence)
 *               counter: word j holds (sequence << 24 | j), 32 bits
 *               zero:    zeros
 *
 * Plain C; compiles as C99 and as C++. Header only: nothing to link. */
#ifndef ZARIMSIM_PAYLOAD_H
#define ZARIMSIM_PAYLOAD_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#define ZSIM_PAYLOAD_PRBS 0u
#define ZSIM_PAYLOAD_COUNTER 1u
#define ZSIM_PAYLOAD_ZERO 2u

#define ZSIM_PAYLOAD_MAGIC 0x5A000000u
#define ZSIM_PAYLOAD_HEADER_SIZE 16u

/* Results of zsim_payload_check. */
#define ZSIM_PAYLOAD_OK 0
#define ZSIM_PAYLOAD_SHORT 1           /* fewer bytes than a header */
#define ZSIM_PAYLOAD_NOT_OURS 2        /* no magic, or a kind this header does not know */
#define ZSIM_PAYLOAD_WRONG_CHANNEL 3
#define ZSIM_PAYLOAD_WRONG_SEQUENCE 4  /* a buffer lost, repeated or out of order */
#define ZSIM_PAYLOAD_BAD_BODY 5        /* right header, damaged contents */

static inline void zsim_payload_put32(uint8_t* p, uint32_t v) {
  p[0] = (uint8_t)v;
  p[1] = (uint8_t)(v >> 8);
  p[2] = (uint8_t)(v >> 16);
  p[3] = (uint8_t)(v >> 24);
}

static inline uint32_t zsim_payload_get32(const uint8_t* p) {
  return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

/* The PRBS-31 generator, 28 new bits per step: with the last 31 bits in `window` (oldest in
 * bit 0), bit n of the stream is bit n-31 XOR bit n-28. */
typedef struct zsim_prbs31 {
  uint64_t window;
  uint64_t pending;   /* generated bits not handed out yet, oldest in bit 0 */
  unsigned count;     /* how many */
} zsim_prbs31;

/* A start value in 1 .. 2^31-1 made of channel and sequence: neighbouring buffers and
 * channels get unrelated streams, and never the all-zero state that would stay zero. */
static inline uint32_t zsim_payload_start_value(unsigned channel, uint64_t sequence) {
  uint64_t x = sequence * 0x9E3779B97F4A7C15ull ^ ((uint64_t)channel + 1u) * 0xC2B2AE3D27D4EB4Full;
  uint32_t start;
  x ^= x >> 29;
  x *= 0xBF58476D1CE4E5B9ull;
  x ^= x >> 32;
  start = (uint32_t)x & 0x7FFFFFFFu;
  return start != 0 ? start : 1u;
}

static inline void zsim_prbs31_start(zsim_prbs31* g, uint32_t start_value) {
  g->window = start_value & 0x7FFFFFFFu;
  g->pending = 0;
  g->count = 0;
}

static inline uint32_t zsim_prbs31_next(zsim_prbs31* g) {
  uint32_t word;
  while (g->count < 32) {
    const uint64_t w = g->window;
    const uint64_t fresh = (w ^ (w >> 3)) & 0x0FFFFFFFu;
    g->window = (w >> 28) | (fresh << 3);
    g->pending |= fresh << g->count;
    g->count += 28;
  }
  word = (uint32_t)g->pending;
  g->pending >>= 32;
  g->count -= 32;
  return word;
}

/* Word j of the body of buffer `sequence` of channel `channel`, for the counter and zero
 * kinds; the prbs kind runs its generator instead. */
static inline uint32_t zsim_payload_plain_word(unsigned kind, uint64_t sequence, uint32_t j) {
  return kind == ZSIM_PAYLOAD_COUNTER ? (uint32_t)(sequence << 24) | j : 0u;
}

/* Fills `size` bytes (the header, then as much body as fits) as the engine does. */
static inline void zsim_payload_fill(void* buffer, size_t size, unsigned kind, unsigned channel,
                                     uint32_t slot, uint64_t sequence) {
  uint8_t header[ZSIM_PAYLOAD_HEADER_SIZE];
  uint8_t* p = (uint8_t*)buffer;
  size_t words, j;
  zsim_payload_put32(header, ZSIM_PAYLOAD_MAGIC | (kind & 0xFFu) << 16 | (channel & 0xFFFFu));
  zsim_payload_put32(header + 4, slot);
  zsim_payload_put32(header + 8, (uint32_t)sequence);
  zsim_payload_put32(header + 12, (uint32_t)(sequence >> 32));
  memcpy(p, header, size < sizeof header ? size : sizeof header);
  if (size <= ZSIM_PAYLOAD_HEADER_SIZE) return;
  p += ZSIM_PAYLOAD_HEADER_SIZE;
  size -= ZSIM_PAYLOAD_HEADER_SIZE;
  words = size / 4;
  if (kind == ZSIM_PAYLOAD_ZERO) {
    memset(p, 0, size);
  } else if (kind == ZSIM_PAYLOAD_PRBS) {
    zsim_prbs31 g;
    zsim_prbs31_start(&g, zsim_payload_start_value(channel, sequence));
    for (j = 0; j < words; ++j) zsim_payload_put32(p + 4 * j, zsim_prbs31_next(&g));
    if (size % 4 != 0) {
      uint8_t tail[4];
      zsim_payload_put32(tail, zsim_prbs31_next(&g));
      memcpy(p + 4 * words, tail, size % 4);
    }
  } else {
    for (j = 0; j < words; ++j)
      zsim_payload_put32(p + 4 * j, zsim_payload_plain_word(kind, sequence, (uint32_t)j));
    if (size % 4 != 0) {
      uint8_t tail[4];
      zsim_payload_put32(tail, zsim_payload_plain_word(kind, sequence, (uint32_t)words));
      memcpy(p + 4 * words, tail, size % 4);
    }
  }
}

/* The sequence number a buffer's header carries; 0 when it is no buffer of ours. */
static inline int zsim_payload_sequence(const void* buffer, size_t size, uint64_t* sequence) {
  const uint8_t* p = (const uint8_t*)buffer;
  if (size < ZSIM_PAYLOAD_HEADER_SIZE) return 0;
  if ((zsim_payload_get32(p) & 0xFF000000u) != ZSIM_PAYLOAD_MAGIC) return 0;
  *sequence = (uint64_t)zsim_payload_get32(p + 8) | (uint64_t)zsim_payload_get32(p + 12) << 32;
  return 1;
}

/* Checks the first `size` bytes of a buffer (a whole one, or the part of it a reader kept):
 * ZSIM_PAYLOAD_OK when they are exactly what the engine writes as buffer `expected_sequence`
 * of channel `channel`, whatever the payload kind; otherwise the first thing found wrong. */
static inline int zsim_payload_check(const void* buffer, size_t size, unsigned channel,
                                     uint64_t expected_sequence) {
  const uint8_t* p = (const uint8_t*)buffer;
  uint32_t first;
  unsigned kind;
  uint64_t sequence = 0;
  size_t words, j;
  if (size < ZSIM_PAYLOAD_HEADER_SIZE) return ZSIM_PAYLOAD_SHORT;
  first = zsim_payload_get32(p);
  kind = (first >> 16) & 0xFFu;
  if ((first & 0xFF000000u) != ZSIM_PAYLOAD_MAGIC || kind > ZSIM_PAYLOAD_ZERO)
    return ZSIM_PAYLOAD_NOT_OURS;
  if ((first & 0xFFFFu) != (channel & 0xFFFFu)) return ZSIM_PAYLOAD_WRONG_CHANNEL;
  zsim_payload_sequence(p, size, &sequence);
  if (sequence != expected_sequence) return ZSIM_PAYLOAD_WRONG_SEQUENCE;
  p += ZSIM_PAYLOAD_HEADER_SIZE;
  size -= ZSIM_PAYLOAD_HEADER_SIZE;
  words = size / 4;
  if (kind == ZSIM_PAYLOAD_PRBS) {
    zsim_prbs31 g;
    uint32_t w = 0;
    zsim_prbs31_start(&g, zsim_payload_start_value(channel, sequence));
    for (j = 0; j < words; ++j)
      if (zsim_payload_get32(p + 4 * j) != zsim_prbs31_next(&g)) return ZSIM_PAYLOAD_BAD_BODY;
    if (size % 4 != 0) w = zsim_prbs31_next(&g);
    for (j = 0; j < size % 4; ++j)
      if (p[4 * words + j] != (uint8_t)(w >> (8 * j))) return ZSIM_PAYLOAD_BAD_BODY;
  } else {
    uint32_t w;
    for (j = 0; j < words; ++j)
      if (zsim_payload_get32(p + 4 * j) != zsim_payload_plain_word(kind, sequence, (uint32_t)j))
        return ZSIM_PAYLOAD_BAD_BODY;
    w = zsim_payload_plain_word(kind, sequence, (uint32_t)words);
    for (j = 0; j < size % 4; ++j)
      if (p[4 * words + j] != (uint8_t)(w >> (8 * j))) return ZSIM_PAYLOAD_BAD_BODY;
  }
  return ZSIM_PAYLOAD_OK;
}

#endif /* ZARIMSIM_PAYLOAD_H */
