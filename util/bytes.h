// SPDX-License-Identifier: Apache-2.0
// Big-endian numbers on the wire: loads, wire field types and a cursor that knows its end. Every
// byte of a datagram is read through this header.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

// LoadBeN reads a big-endian number of N bits. The caller has checked that N / 8 bytes are there.
[[nodiscard]] constexpr std::uint16_t LoadBe16(const std::uint8_t* p) noexcept {
  return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}
[[nodiscard]] constexpr std::uint32_t LoadBe32(const std::uint8_t* p) noexcept {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}
[[nodiscard]] constexpr std::uint64_t LoadBe64(const std::uint8_t* p) noexcept {
  return std::uint64_t{LoadBe32(p)} << 32 | LoadBe32(p + 4);
}

// GetVarInt reads a big-endian number of 1, 2, 4 or 8 bytes; any other width yields 0, and no byte
// is read. The caller has checked that width bytes are there.
[[nodiscard]] constexpr std::uint64_t GetVarInt(std::size_t width, const std::uint8_t* p) noexcept {
  switch (width) {
    case 1:
      return *p;
    case 2:
      return LoadBe16(p);
    case 4:
      return LoadBe32(p);
    case 8:
      return LoadBe64(p);
    default:
      return 0;
  }
}

// BigEndian is a number whose bytes in memory are those of v on the wire. (Stores byte by byte are
// not merged where several fields are set in a row.)
[[nodiscard]] constexpr std::uint16_t BigEndian(std::uint16_t v) noexcept {
  return std::endian::native == std::endian::little ? __builtin_bswap16(v) : v;
}
[[nodiscard]] constexpr std::uint32_t BigEndian(std::uint32_t v) noexcept {
  return std::endian::native == std::endian::little ? __builtin_bswap32(v) : v;
}
[[nodiscard]] constexpr std::uint64_t BigEndian(std::uint64_t v) noexcept {
  return std::endian::native == std::endian::little ? __builtin_bswap64(v) : v;
}

// ClearBytes sets N bytes to 0 in plain stores. (A memset of a few hundred bytes becomes a string
// instruction, which is slow to start.)
template <std::size_t N>
void ClearBytes(void* bytes) noexcept {
  constexpr std::size_t kAtOnce = 64;
  if constexpr (N > kAtOnce) {
    std::memset(bytes, 0, kAtOnce);
    ClearBytes<N - kAtOnce>(static_cast<std::uint8_t*>(bytes) + kAtOnce);
  } else {
    std::memset(bytes, 0, N);
  }
}

// A number as it stands on the wire, network byte order, alignment 1. There is no conversion but
// ToHost and FromHost, so that a forgotten swap does not compile.
struct be16 {
  std::uint8_t bytes[2];
  [[nodiscard]] constexpr std::uint16_t ToHost() const noexcept { return LoadBe16(bytes); }
  [[nodiscard]] static constexpr be16 FromHost(std::uint16_t v) noexcept {
    return std::bit_cast<be16>(BigEndian(v));
  }
};
struct be32 {
  std::uint8_t bytes[4];
  [[nodiscard]] constexpr std::uint32_t ToHost() const noexcept { return LoadBe32(bytes); }
  [[nodiscard]] static constexpr be32 FromHost(std::uint32_t v) noexcept {
    return std::bit_cast<be32>(BigEndian(v));
  }
  // The four bytes as one number in the machine's order: a key that keeps the wire's byte order.
  [[nodiscard]] constexpr std::uint32_t AsStored() const noexcept {
    return std::bit_cast<std::uint32_t>(*this);
  }
};
static_assert(sizeof(be16) == 2 && alignof(be16) == 1);
static_assert(sizeof(be32) == 4 && alignof(be32) == 1);

// ByteCursor walks over bytes and never past their end. A read that does not fit fails, moves
// nothing and leaves its output alone.
class ByteCursor {
 public:
  explicit constexpr ByteCursor(std::span<const std::uint8_t> bytes) noexcept : rest_(bytes) {}

  [[nodiscard]] constexpr std::size_t Remaining() const noexcept { return rest_.size(); }
  [[nodiscard]] constexpr const std::uint8_t* Position() const noexcept { return rest_.data(); }

  // Take gives the next n bytes. n may come from the wire: sizes are compared, never pointers.
  [[nodiscard]] constexpr bool Take(std::size_t n, std::span<const std::uint8_t>* out) noexcept {
    if (n > rest_.size()) return false;
    *out = rest_.first(n);
    rest_ = rest_.subspan(n);
    return true;
  }
  [[nodiscard]] constexpr bool TakeBe16(std::uint16_t* out) noexcept {
    std::span<const std::uint8_t> bytes;
    if (!Take(2, &bytes)) return false;
    *out = LoadBe16(bytes.data());
    return true;
  }
  [[nodiscard]] constexpr bool TakeBe32(std::uint32_t* out) noexcept {
    std::span<const std::uint8_t> bytes;
    if (!Take(4, &bytes)) return false;
    *out = LoadBe32(bytes.data());
    return true;
  }

 private:
  std::span<const std::uint8_t> rest_;
};
