// SPDX-License-Identifier: Apache-2.0
// What a decoder knows about the datagram and the record at hand beside the record itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace flow {

// A text taken from a record: at most Capacity - 1 characters, always terminated.
template <std::size_t Capacity>
class RecordText {
 public:
  void Clear() noexcept {
    text_[0] = '\0';
    size_ = 0;
  }
  [[nodiscard]] bool Empty() const noexcept { return size_ == 0; }
  [[nodiscard]] const char* Text() const noexcept { return text_; }
  [[nodiscard]] std::size_t Size() const noexcept { return size_; }

  // Assign takes the text up to its first NUL, cut to the capacity.
  void Assign(const char* from, std::size_t length) noexcept {
    size_ = 0;
    while (size_ < length && size_ < Capacity - 1 && from[size_] != '\0') {
      text_[size_] = from[size_];
      ++size_;
    }
    text_[size_] = '\0';
  }
  void Assign(std::string_view text) noexcept { Assign(text.data(), text.size()); }

 private:
  char text_[Capacity] = {};
  std::size_t size_ = 0;
};

struct RecordContext {
  std::uint16_t CurrentExportVersion = 0;
  // 22 once a record of the datagram has carried FIRST_SWITCHED, else 0.
  std::uint32_t FirstSwitchedSeen = 0;
  // Of the current record; empty in NetFlow v1 and v5.
  RecordText<128> AppTagText;
  RecordText<128> VrfTagText;
};

}  // namespace flow
