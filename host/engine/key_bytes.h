// Hashing and comparing key texts, eight bytes at a time. Keys are 2 to 113 bytes long, most of
// them under 24: too short for a function call each.
#pragma once

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

}  // namespace internal

inline std::uint32_t HashKey(std::string_view key) {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;
  const char* p = key.data();
  std::size_t left = key.size();
  std::uint64_t hash = internal::kHashSeed ^ left;
  for (; left > 8; left -= 8, p += 8) hash = internal::Mix(hash ^ internal::Load64(p), kFactor);
  std::uint64_t tail = 0;
  if (key.size() >= 8) {
    tail = internal::Load64(p + left - 8);  // may overlap what was mixed already
  } else if (left >= 4) {
    tail = internal::Load32(p) << 32 | internal::Load32(p + left - 4);
  } else {
    for (; left > 0; --left) tail = tail << 8 | static_cast<unsigned char>(*p++);
  }
  hash = internal::Mix(hash ^ tail, kFactor);
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
  if (left < 8) {
    if (left >= 4) {
      return Load32(p) == Load32(q) && Load32(p + left - 4) == Load32(q + left - 4);
    }
    for (; left > 0; --left) {
      if (*p++ != *q++) return false;
    }
    return true;
  }
  for (; left > 8; left -= 8, p += 8, q += 8) {
    if (Load64(p) != Load64(q)) return false;
  }
  return Load64(p + left - 8) == Load64(q + left - 8);
}

}  // namespace flow::host
