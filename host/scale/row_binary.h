// SPDX-License-Identifier: Apache-2.0
// Rows in ClickHouse's form RowBinary: values one after the other, numbers in little endian.
// They come together here before they are appended: a row has dozens.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace flow::host {

class RowBinary {
 public:
  explicit RowBinary(std::string* out) : out_(*out) {}
  RowBinary(const RowBinary&) = delete;
  RowBinary& operator=(const RowBinary&) = delete;
  ~RowBinary() { Flush(); }

  // Appends what is here.
  void Flush() {
    out_.append(bytes_, size_);
    size_ = 0;
  }

  template <std::integral Number>
  RowBinary& Put(Number value) {
    char* const at = Room(sizeof(Number));
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
      at[i] = static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i));
    }
    return *this;
  }

  // A String.
  RowBinary& Text(std::string_view text) {
    Length(text.size());
    return Raw(text);
  }

  // A FixedString: as many bytes as it has.
  RowBinary& Fixed(std::span<const std::uint8_t> bytes) {
    return Raw({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }

  // Bytes as they are.
  RowBinary& Raw(std::string_view bytes) {
    if (bytes.size() <= sizeof(bytes_)) {
      bytes.copy(Room(bytes.size()), bytes.size());
    } else {
      Flush();
      out_.append(bytes);
    }
    return *this;
  }

  // An address as FixedString(16): one of IPv4 as ::ffff:a.b.c.d, so that all sort and compare.
  RowBinary& Address(std::span<const std::uint8_t> bytes) {
    constexpr std::uint8_t kMapped[12]{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    if (bytes.size() == 4) Fixed(kMapped);
    return Fixed(bytes);
  }

  template <std::integral Number>
  RowBinary& Nullable(const std::optional<Number>& value) {
    Put(static_cast<std::uint8_t>(!value));
    return value ? Put(*value) : *this;
  }

  // The number of an Array's elements, which follow; LEB128, as the lengths of texts.
  RowBinary& Length(std::size_t length) {
    for (; length >= 0x80; length >>= 7) Put(static_cast<std::uint8_t>(length | 0x80));
    return Put(static_cast<std::uint8_t>(length));
  }

 private:
  char* Room(std::size_t size) {
    if (size > sizeof(bytes_) - size_) Flush();
    char* const at = bytes_ + size_;
    size_ += size;
    return at;
  }

  std::string& out_;
  std::size_t size_ = 0;
  char bytes_[256];
};

}  // namespace flow::host
