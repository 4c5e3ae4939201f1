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

/* The check runs 16 bytes at a time wherever SSE2 is there (every x86-64), and 32 at a time on
 * a processor with AVX2 when the compiler can ask the processor (GCC, Clang). */
#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define ZSIM_PAYLOAD_SSE2 1
#endif
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <immintrin.h>
#define ZSIM_PAYLOAD_AVX2 1
#endif

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

/* The check of a received PRBS body, at the speed its bytes can be loaded. Over two elements
 * (x^31 + x^28 + 1)^(2^k) = x^(31 * 2^k) + x^(28 * 2^k) + 1, so the stream also obeys
 * s[n] = s[n - 28 * 2^k] XOR s[n - 31 * 2^k] wherever both lie in the body. With 2^k = 8 that is
 * 28 and 31 bytes back, with 2^k = 256 it is 896 and 992 bytes, and bit b of a byte stays bit
 * b. So every byte of the body from byte 31 on is the XOR of the bytes 28 and 31 before it
 * (the generator's own recurrence, a byte at a time), and from byte 992 on the XOR of the bytes
 * 896 and 992 before it. A body is right when its first 32 bytes are the generator's and every
 * later byte is such an XOR of received bytes: by induction each byte then is the generator's.
 * Only 32 bytes are generated, no step waits for another, the XOR works on bytes (any width of
 * load, any host), and the far distances keep all three loads of a step equally aligned. */
static inline uint64_t zsim_payload_load64(const uint8_t* p) {
  uint64_t v;
  memcpy(&v, p, sizeof v);
  return v;
}

/* The OR over bytes j in [from, to) of body[j] XOR body[j - lag_short] XOR body[j - lag_long]:
 * 0 when that stretch follows the recurrence at those distances. */
static inline uint64_t zsim_prbs31_residue(const uint8_t* body, size_t from, size_t to,
                                           size_t lag_short, size_t lag_long) {
  uint64_t diff = 0;
#ifdef ZSIM_PAYLOAD_SSE2
  __m128i acc = _mm_setzero_si128();
  uint64_t lanes[2];
  for (; from + 16 <= to; from += 16) {
    const uint8_t* p = body + from;
    acc = _mm_or_si128(acc, _mm_xor_si128(_mm_loadu_si128((const __m128i*)p),
                                          _mm_xor_si128(_mm_loadu_si128((const __m128i*)(p - lag_short)),
                                                        _mm_loadu_si128((const __m128i*)(p - lag_long)))));
  }
  _mm_storeu_si128((__m128i*)lanes, acc);
  diff = lanes[0] | lanes[1];
#endif
  for (; from + 8 <= to; from += 8)
    diff |= zsim_payload_load64(body + from) ^ zsim_payload_load64(body + from - lag_short) ^
            zsim_payload_load64(body + from - lag_long);
  for (; from < to; ++from) diff |= (uint64_t)(body[from] ^ body[from - lag_short] ^ body[from - lag_long]);
  return diff;
}

/* The far distances 64 bytes a step, as far as whole steps go; *from moves past them. The
 * distances are constants so that the compiler sees that a load 896 back is the one 992 back
 * three vectors later and loads it once. */
#ifdef ZSIM_PAYLOAD_AVX2
__attribute__((target("avx2"))) static inline uint64_t zsim_prbs31_residue_far_avx2(const uint8_t* body,
                                                                                   size_t* from, size_t to) {
  __m256i acc0 = _mm256_setzero_si256(), acc1 = _mm256_setzero_si256();
  uint64_t lanes[4];
  size_t j = *from;
  for (; j + 64 <= to; j += 64) {
    const uint8_t* p = body + j;
    acc0 = _mm256_or_si256(acc0, _mm256_xor_si256(_mm256_loadu_si256((const __m256i*)p),
                                                  _mm256_xor_si256(_mm256_loadu_si256((const __m256i*)(p - 896)),
                                                                   _mm256_loadu_si256((const __m256i*)(p - 992)))));
    acc1 = _mm256_or_si256(acc1, _mm256_xor_si256(_mm256_loadu_si256((const __m256i*)(p + 32)),
                                                  _mm256_xor_si256(_mm256_loadu_si256((const __m256i*)(p - 864)),
                                                                   _mm256_loadu_si256((const __m256i*)(p - 960)))));
  }
  _mm256_storeu_si256((__m256i*)lanes, _mm256_or_si256(acc0, acc1));
  *from = j;
  return lanes[0] | lanes[1] | lanes[2] | lanes[3];
}
#endif

/* 1 when the `size` bytes at `body` are the PRBS-31 stream from `start_value`, else 0. */
static inline int zsim_prbs31_matches(const uint8_t* body, size_t size, uint32_t start_value) {
  uint8_t head[32];
  zsim_prbs31 g;
  uint64_t diff;
  size_t j;
  zsim_prbs31_start(&g, start_value);
  for (j = 0; j < sizeof head; j += 4) zsim_payload_put32(head + j, zsim_prbs31_next(&g));
  if (memcmp(body, head, size < sizeof head ? size : sizeof head) != 0) return 0;
  if (size <= sizeof head) return 1;
  diff = zsim_prbs31_residue(body, sizeof head, size < 992 ? size : 992, 28, 31);
  if (size > 992) {
    j = 992;
#ifdef ZSIM_PAYLOAD_AVX2
    if (__builtin_cpu_supports("avx2")) diff |= zsim_prbs31_residue_far_avx2(body, &j, size);
#endif
    diff |= zsim_prbs31_residue(body, j, size, 896, 992);
  }
  return diff == 0;
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
  if (kind == ZSIM_PAYLOAD_PRBS)
    return zsim_prbs31_matches(p, size, zsim_payload_start_value(channel, sequence))
               ? ZSIM_PAYLOAD_OK
               : ZSIM_PAYLOAD_BAD_BODY;
  {
    uint32_t w, diff = 0;
    for (j = 0; j < words; ++j)
      diff |= zsim_payload_get32(p + 4 * j) ^ zsim_payload_plain_word(kind, sequence, (uint32_t)j);
    w = zsim_payload_plain_word(kind, sequence, (uint32_t)words);
    for (j = 0; j < size % 4; ++j) diff |= p[4 * words + j] ^ (uint8_t)(w >> (8 * j));
    return diff == 0 ? ZSIM_PAYLOAD_OK : ZSIM_PAYLOAD_BAD_BODY;
  }
}

#endif /* ZARIMSIM_PAYLOAD_H */
