#include "formats/sha_blocks.h"

#if defined(__x86_64__)

#include <cpuid.h>
#include <immintrin.h>

// Only these functions may use the instructions; the rest of the program runs everywhere.
#define TOVREK_SHA __attribute__((target("sha,sse4.1"), always_inline)) inline

namespace tovrek {
namespace {

constexpr size_t kBlockSize = 64;

// Round constants of SHA-256 (FIPS 180-4, 4.2.2).
alignas(16) constexpr uint32_t kConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

TOVREK_SHA __m128i load(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

// The state as the instructions want it: a..d and e for SHA-1 with the highest word first, for
// SHA-256 the words a, b, e, f and c, d, g, h.
struct Lanes {
  __m128i abcd, e;
  __m128i abef, cdgh;
};

// The message words of the last four steps; each step is four rounds.
struct Schedule {
  __m128i words[4];
};

TOVREK_SHA __m128i words1(Schedule* schedule, const char* block, int step) {
  const __m128i reversed = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
  __m128i* const words = schedule->words;
  __m128i& next = words[step & 3];
  if (step < 4) {
    next = _mm_shuffle_epi8(load(block + 16 * step), reversed);
  } else {
    const __m128i mixed =
        _mm_xor_si128(_mm_sha1msg1_epu32(next, words[(step + 1) & 3]), words[(step + 2) & 3]);
    next = _mm_sha1msg2_epu32(mixed, words[(step + 3) & 3]);
  }
  return next;
}

TOVREK_SHA __m128i words256(Schedule* schedule, const char* block, int step) {
  const __m128i bigEndian = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
  __m128i* const words = schedule->words;
  __m128i& next = words[step & 3];
  if (step < 4) {
    next = _mm_shuffle_epi8(load(block + 16 * step), bigEndian);
  } else {
    const __m128i last = words[(step + 3) & 3];
    const __m128i mixed = _mm_add_epi32(_mm_sha256msg1_epu32(next, words[(step + 1) & 3]),
                                        _mm_alignr_epi8(last, words[(step + 2) & 3], 4));
    next = _mm_sha256msg2_epu32(mixed, last);
  }
  return next;
}

// `kFunction` is the quarter of the rounds that the step lies in.
template <int kFunction>
TOVREK_SHA void step1(Lanes* lanes, __m128i words, bool first) {
  const __m128i input =
      first ? _mm_add_epi32(lanes->e, words) : _mm_sha1nexte_epu32(lanes->e, words);
  lanes->e = lanes->abcd;
  lanes->abcd = _mm_sha1rnds4_epu32(lanes->abcd, input, kFunction);
}

TOVREK_SHA void step256(Lanes* lanes, __m128i words, int step) {
  const __m128i input = _mm_add_epi32(words, load(kConstants + 4 * step));
  lanes->cdgh = _mm_sha256rnds2_epu32(lanes->cdgh, lanes->abef, input);
  lanes->abef = _mm_sha256rnds2_epu32(lanes->abef, lanes->cdgh, _mm_shuffle_epi32(input, 0x0e));
}

// A quarter of both: five steps of one and four of the other, in turn.
template <int kQuarter>
TOVREK_SHA void quarter(Lanes* lanes, Schedule* one, Schedule* two, const char* block) {
#pragma GCC unroll 4
  for (int i = 0; i < 4; ++i) {
    const int step = 5 * kQuarter + i;
    step1<kQuarter>(lanes, words1(one, block, step), step == 0);
    step256(lanes, words256(two, block, 4 * kQuarter + i), 4 * kQuarter + i);
  }
  step1<kQuarter>(lanes, words1(one, block, 5 * kQuarter + 4), false);
}

}  // namespace

bool hasShaInstructions() {
  static const bool has = [] {
    unsigned a = 0, b = 0, c = 0, d = 0;
    constexpr unsigned kSse41 = 1U << 19;
    constexpr unsigned kSha = 1U << 29;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & kSse41) == 0) return false;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & kSha) != 0;
  }();
  return has;
}

__attribute__((target("sha,sse4.1"))) void addShaBlocks(uint32_t* sha1, uint32_t* sha256,
                                                        const char* blocks, size_t count) {
  Lanes lanes{};
  lanes.abcd = _mm_shuffle_epi32(load(sha1), 0x1b);
  lanes.e = _mm_set_epi32(static_cast<int>(sha1[4]), 0, 0, 0);
  const __m128i cdab = _mm_shuffle_epi32(load(sha256), 0xb1);
  const __m128i efgh = _mm_shuffle_epi32(load(sha256 + 4), 0x1b);
  lanes.abef = _mm_alignr_epi8(cdab, efgh, 8);
  lanes.cdgh = _mm_blend_epi16(efgh, cdab, 0xf0);
  for (size_t i = 0; i < count; ++i) {
    const Lanes before = lanes;
    Schedule one, two;
    const char* block = blocks + i * kBlockSize;
    quarter<0>(&lanes, &one, &two, block);
    quarter<1>(&lanes, &one, &two, block);
    quarter<2>(&lanes, &one, &two, block);
    quarter<3>(&lanes, &one, &two, block);
    lanes.e = _mm_sha1nexte_epu32(lanes.e, before.e);
    lanes.abcd = _mm_add_epi32(lanes.abcd, before.abcd);
    lanes.abef = _mm_add_epi32(lanes.abef, before.abef);
    lanes.cdgh = _mm_add_epi32(lanes.cdgh, before.cdgh);
  }
  const auto store = [](uint32_t * to, __m128i value) __attribute__((target("sha,sse4.1"))) {
    void* const place = to;
    _mm_storeu_si128(static_cast<__m128i*>(place), value);
  };
  store(sha1, _mm_shuffle_epi32(lanes.abcd, 0x1b));
  sha1[4] = static_cast<uint32_t>(_mm_extract_epi32(lanes.e, 3));
  const __m128i feba = _mm_shuffle_epi32(lanes.abef, 0x1b);
  const __m128i dchg = _mm_shuffle_epi32(lanes.cdgh, 0xb1);
  store(sha256, _mm_blend_epi16(feba, dchg, 0xf0));
  store(sha256 + 4, _mm_alignr_epi8(dchg, feba, 8));
}

}  // namespace tovrek

#else

namespace tovrek {

bool hasShaInstructions() {
  return false;
}

void addShaBlocks(uint32_t*, uint32_t*, const char*, size_t) {}

}  // namespace tovrek

#endif
