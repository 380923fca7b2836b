// SPDX-License-Identifier: Apache-2.0
// Hashing and comparing key texts, sixteen bytes at a time. Keys are 2 to 113 bytes long, most of
// them under 24: too short for a function call each.
#pragma once

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <cstdint>
#include <cstring>
#include <string_view>

namespace flow::host {

// HashKey mixes by 64 by 64 bit multiplications. The seed is the process's own, so that an exporter
// cannot choose addresses that collide.
std::uint32_t HashKey(std::string_view key);

bool SameKey(std::string_view a, std::string_view b);

namespace internal {

extern const std::uint64_t kHashSeed;

inline std::uint64_t Load64(const char* p) {
  std::uint64_t value = 0;
  std::memcpy(&value, p, sizeof(value));
  return value;
}
inline std::uint64_t Load32(const char* p) {
  std::uint32_t value = 0;
  std::memcpy(&value, p, sizeof(value));
  return value;
}
inline std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = Wide{a} * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

inline bool Same16(const char* p, const char* q) {
#ifdef __SSE2__
  const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
  return _mm_movemask_epi8(_mm_cmpeq_epi8(a, b)) == 0xFFFF;
#else
  return ((Load64(p) ^ Load64(q)) | (Load64(p + 8) ^ Load64(q + 8))) == 0;
#endif
}

}  // namespace internal

inline std::uint32_t HashKey(std::string_view key) {
  using internal::Load32;
  using internal::Load64;
  const char* p = key.data();
  const std::size_t size = key.size();
  // Nobody who chooses a key's bytes may know what they are multiplied with.
  const std::uint64_t factor = internal::kHashSeed + 0x9E3779B97F4A7C15;
  std::uint64_t hash = internal::kHashSeed ^ size;
  // The last 16 bytes, which may overlap what was mixed already, or all there is.
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  if (size >= 8) {
    std::size_t left = size;
    for (; left > 16; left -= 16, p += 16) {
      hash = internal::Mix(hash ^ Load64(p), factor ^ Load64(p + 8));
    }
    const char* const end = key.data() + size;
    first = left >= 8 ? Load64(p) : 0;
    last = Load64(end - 8);
  } else if (size >= 4) {
    first = Load32(p);
    last = Load32(p + size - 4);
  } else if (size > 0) {
    const auto byte = [p](std::size_t at) {
      return std::uint64_t{static_cast<unsigned char>(p[at])};
    };
    first = byte(0) << 16 | byte(size / 2) << 8 | byte(size - 1);
  }
  hash = internal::Mix(hash ^ first, factor ^ last);
  return static_cast<std::uint32_t>(hash ^ hash >> 32);
}

// CopyKey copies a key, which may not overlap the place it goes to.
inline void CopyKey(std::string_view key, char* to) {
  const char* from = key.data();
  const std::size_t size = key.size();
  if (size < 8 || size > 32) {
    std::memcpy(to, from, size);
  } else if (size < 16) {  // two parts that may overlap
    std::memcpy(to, from, 8);
    std::memcpy(to + size - 8, from + size - 8, 8);
  } else {
    std::memcpy(to, from, 16);
    std::memcpy(to + size - 16, from + size - 16, 16);
  }
}

inline bool SameKey(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  using internal::Load32;
  using internal::Load64;
  const char* p = a.data();
  const char* q = b.data();
  std::size_t left = a.size();
  if (left >= 16) {
    for (; left > 16; left -= 16, p += 16, q += 16) {
      if (!internal::Same16(p, q)) return false;
    }
    return internal::Same16(p + left - 16, q + left - 16);
  }
  if (left >= 8)
    return ((Load64(p) ^ Load64(q)) | (Load64(p + left - 8) ^ Load64(q + left - 8))) == 0;
  if (left >= 4)
    return ((Load32(p) ^ Load32(q)) | (Load32(p + left - 4) ^ Load32(q + left - 4))) == 0;
  for (; left > 0; --left) {
    if (*p++ != *q++) return false;
  }
  return true;
}

}  // namespace flow::host
