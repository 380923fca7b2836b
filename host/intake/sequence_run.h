// SPDX-License-Identifier: Apache-2.0
// A run of numbers: where it goes on, and which of those behind have not come.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace flow::host {

// The numbers that one datagram or sample takes, modulo 2^32: of flows, records, or its own.
struct NumberSpan {
  std::uint32_t first = 0;
  std::uint32_t next = 0;   // behind the last
  bool open_front = false;  // there may be more in front of it, or behind: how many go with the
  bool open_back = false;   // number is not known

  [[nodiscard]] std::uint32_t Length() const { return next - first; }
};

class SequenceRun {
 public:
  // How many gaps stay open for what comes late; the oldest is closed for another.
  static constexpr std::size_t kMostGaps = 6;

  void Start(const NumberSpan& span) { *this = SequenceRun(span); }

  [[nodiscard]] std::uint32_t start() const { return start_; }
  [[nodiscard]] std::uint32_t next() const { return next_; }

  // Advance goes on behind a span that begins with the next number.
  void Advance(const NumberSpan& span) {
    next_ = span.next;
    is_open_ = span.open_back;
  }

  // Skip goes on behind a span further ahead. What lies between is missing: how many numbers.
  std::uint32_t Skip(const NumberSpan& span);

  // Fill takes a span from behind: how many of its numbers were missing, in a gap that ends at most
  // reach numbers behind the next.
  std::uint32_t Fill(const NumberSpan& span, std::uint32_t reach);

  // Precede takes a span in front of the start, which moves there. What lies between is missing.
  std::uint32_t Precede(const NumberSpan& span);

  // Append goes on where another run, further ahead, ends. What lies between is missing.
  std::uint32_t Append(const SequenceRun& other);

  SequenceRun() = default;

 private:
  struct Gap {
    std::uint32_t first;
    std::uint32_t length;
  };

  explicit SequenceRun(const NumberSpan& span)
      : start_(span.first), next_(span.next), is_open_(span.open_back) {}

  void Open(Gap gap);
  void Close(std::size_t index);
  std::uint32_t FillGap(std::size_t index, std::uint32_t first, std::uint32_t length);

  std::uint32_t start_ = 0;
  std::uint32_t next_ = 0;
  bool is_open_ = false;  // the next number may be further ahead
  std::uint8_t gap_count_ = 0;
  std::array<Gap, kMostGaps> gaps_{};  // from the oldest
};

}  // namespace flow::host
