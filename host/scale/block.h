// SPDX-License-Identifier: Apache-2.0
// Rows of one raw table and one day, as they go to the server together.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace flow::host {

// More rows than this are several blocks: a server takes so many at once, all or the first of them.
inline constexpr std::uint32_t kMostBlockRows = 1'000'000;

struct Block {
  std::string table;
  std::string collector;
  std::uint64_t run = 0;
  std::uint32_t number = 0;  // in its run
  std::int64_t bucket = 0;   // of all rows
  std::uint32_t rows = 0;
  std::string body;  // in the form RowBinary
  // Of rows that are asked for one by one: where each ends in the body.
  std::vector<std::uint32_t> ends;

  // Not sent, but of use where the block is let go.
  std::uint64_t sequence = 0;  // in the order in which blocks were given
  std::uint64_t bytes = 0;     // that flows carried
  std::uint64_t packets = 0;

  [[nodiscard]] std::size_t Memory() const {
    return body.size() + ends.size() * sizeof(ends[0]) + sizeof(*this);
  }
  // Flows, of which each row counts.
  [[nodiscard]] bool HasRowNumbers() const { return !ends.empty(); }
};

}  // namespace flow::host
