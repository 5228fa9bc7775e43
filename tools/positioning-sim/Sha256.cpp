#include "Sha256.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <immintrin.h>
#define SIM_SHA_X86 1
#endif

namespace sim {

namespace {

const uint32_t kRound[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

inline uint32_t Rotate(uint32_t aValue, int aBits) { return (aValue >> aBits) | (aValue << (32 - aBits)); }

#ifdef SIM_SHA_X86
bool HasShaInstructions() {
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0) return false;
  const bool ssse3 = (c & bit_SSSE3) != 0, sse41 = (c & bit_SSE4_1) != 0;
  if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0) return false;
  return ssse3 && sse41 && (b & bit_SHA) != 0;
}

// The rounds with the SHA extensions: four rounds per pair of sha256rnds2, the
// message schedule with sha256msg1/msg2, the state kept as ABEF and CDGH.
__attribute__((target("sha,sse4.1,ssse3"))) void ShaBlocks(uint32_t* aState, const uint8_t* aData, size_t aCount) {
  const __m128i byteSwap = _mm_set_epi64x(0x0c0d0e0f08090a0bULL, 0x0405060700010203ULL);
  __m128i cdab = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(aState)), 0xB1);
  __m128i efgh = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(aState + 4)), 0x1B);
  __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
  __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);
  for (; aCount > 0; --aCount, aData += 64) {
    const __m128i abefBefore = abef, cdghBefore = cdgh;
    __m128i w[4];
    for (size_t i = 0; i < 4; ++i)
      w[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(aData + 16 * i)), byteSwap);
#pragma GCC unroll 16
    for (size_t group = 0; group < 16; ++group) {
      const __m128i& current = w[group % 4];
      __m128i message = _mm_add_epi32(current, _mm_loadu_si128(reinterpret_cast<const __m128i*>(kRound + 4 * group)));
      cdgh = _mm_sha256rnds2_epu32(cdgh, abef, message);
      if (group >= 3 && group <= 14) {
        __m128i& next = w[(group + 1) % 4];
        next = _mm_add_epi32(next, _mm_alignr_epi8(current, w[(group + 3) % 4], 4));
        next = _mm_sha256msg2_epu32(next, current);
      }
      message = _mm_shuffle_epi32(message, 0x0E);
      abef = _mm_sha256rnds2_epu32(abef, cdgh, message);
      if (group >= 1 && group <= 12) {
        __m128i& previous = w[(group + 3) % 4];
        previous = _mm_sha256msg1_epu32(previous, current);
      }
    }
    abef = _mm_add_epi32(abef, abefBefore);
    cdgh = _mm_add_epi32(cdgh, cdghBefore);
  }
  const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
  const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(aState), _mm_blend_epi16(feba, dchg, 0xF0));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(aState + 4), _mm_alignr_epi8(dchg, feba, 8));
}
#endif

void PortableBlock(uint32_t* aState, const uint8_t* aBlock) {
  uint32_t w[64];
  for (size_t i = 0; i < 16; ++i) {
    w[i] = static_cast<uint32_t>(aBlock[4 * i]) << 24 | static_cast<uint32_t>(aBlock[4 * i + 1]) << 16 |
           static_cast<uint32_t>(aBlock[4 * i + 2]) << 8 | static_cast<uint32_t>(aBlock[4 * i + 3]);
  }
  for (int i = 16; i < 64; ++i) {
    const uint32_t s0 = Rotate(w[i - 15], 7) ^ Rotate(w[i - 15], 18) ^ (w[i - 15] >> 3);
    const uint32_t s1 = Rotate(w[i - 2], 17) ^ Rotate(w[i - 2], 19) ^ (w[i - 2] >> 10);
    w[i] = w[i - 16] + s0 + w[i - 7] + s1;
  }
  uint32_t a = aState[0], b = aState[1], c = aState[2], d = aState[3];
  uint32_t e = aState[4], f = aState[5], g = aState[6], h = aState[7];
  for (int i = 0; i < 64; ++i) {
    const uint32_t t1 = h + (Rotate(e, 6) ^ Rotate(e, 11) ^ Rotate(e, 25)) + ((e & f) ^ (~e & g)) + kRound[i] + w[i];
    const uint32_t t2 = (Rotate(a, 2) ^ Rotate(a, 13) ^ Rotate(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + t1;
    d = c;
    c = b;
    b = a;
    a = t1 + t2;
  }
  aState[0] += a;
  aState[1] += b;
  aState[2] += c;
  aState[3] += d;
  aState[4] += e;
  aState[5] += f;
  aState[6] += g;
  aState[7] += h;
}

}  // namespace

bool CSha256::Accelerated() {
#ifdef SIM_SHA_X86
  static const bool accelerated = HasShaInstructions();
  return accelerated;
#else
  return false;
#endif
}

CSha256::CSha256(bool aPortable)
    : iState{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19},
      iPending{},
      iAccelerated(!aPortable && Accelerated()) {}

void CSha256::Blocks(const uint8_t* aBlocks, size_t aCount) {
#ifdef SIM_SHA_X86
  if (iAccelerated) return ShaBlocks(iState, aBlocks, aCount);
#endif
  for (size_t i = 0; i < aCount; ++i) PortableBlock(iState, aBlocks + 64 * i);
}

void CSha256::Update(const void* aData, size_t aSize) {
  const uint8_t* bytes = static_cast<const uint8_t*>(aData);
  iLength += aSize;
  if (iPendingSize > 0) {
    const size_t taken = aSize < 64 - iPendingSize ? aSize : 64 - iPendingSize;
    memcpy(iPending + iPendingSize, bytes, taken);
    iPendingSize += taken;
    bytes += taken;
    aSize -= taken;
    if (iPendingSize < 64) return;
    Blocks(iPending, 1);
    iPendingSize = 0;
  }
  Blocks(bytes, aSize / 64);
  bytes += aSize / 64 * 64;
  aSize %= 64;
  memcpy(iPending, bytes, aSize);
  iPendingSize = aSize;
}

std::string CSha256::HexDigest() {
  // The padding: a one bit, zeros, and the message length in bits, big-endian.
  const uint64_t bits = iLength * 8;
  const uint8_t one = 0x80;
  Update(&one, 1);
  const uint8_t zeros[64] = {};
  Update(zeros, iPendingSize <= 56 ? 56 - iPendingSize : 120 - iPendingSize);
  uint8_t length[8];
  for (int i = 0; i < 8; ++i) length[i] = static_cast<uint8_t>(bits >> (56 - 8 * i));
  Update(length, 8);
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (uint32_t word : iState) {
    for (int shift = 28; shift >= 0; shift -= 4) hex += kDigits[(word >> shift) & 0xf];
  }
  return hex;
}

bool Sha256OfFile(const std::string& aPath, std::string& aDigest, std::string& aError) {
  FILE* file = fopen(aPath.c_str(), "rb");
  if (file == nullptr) return aError = aPath + ": " + strerror(errno), false;
  CSha256 hash;
  char buffer[65536];
  size_t got = 0;
  while ((got = fread(buffer, 1, sizeof buffer, file)) > 0) hash.Update(buffer, got);
  const bool failed = ferror(file) != 0;
  fclose(file);
  if (failed) return aError = aPath + ": reading failed", false;
  aDigest = hash.HexDigest();
  return true;
}

}  // namespace sim
