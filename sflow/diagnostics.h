// SPDX-License-Identifier: Apache-2.0
// The decoder's lines on standard error. A flood of broken datagrams may cause one line each, so a
// line is put together without printf and written at once.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

class SFDiagnostic {
 public:
  SFDiagnostic& Text(std::string_view text) noexcept {
    const std::size_t kept = std::min(text.size(), sizeof(line_) - length_);
    std::memcpy(line_ + length_, text.data(), kept);
    length_ += kept;
    return *this;
  }

  // Number shows a word from the wire as the signed number that readers of these lines expect.
  SFDiagnostic& Number(std::uint32_t word) noexcept {
    char* const end = line_ + sizeof(line_);
    const auto written = std::to_chars(line_ + length_, end, static_cast<std::int32_t>(word));
    length_ = static_cast<std::size_t>(written.ptr - line_);
    return *this;
  }

  void Write() const noexcept { std::fwrite(line_, 1, length_, stderr); }

 private:
  char line_[128];
  std::size_t length_ = 0;
};
