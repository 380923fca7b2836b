// SPDX-License-Identifier: Apache-2.0
// Blocks that wait in a directory for a server that is away: a file a block, in the order of their
// numbers, bounded in size. What a process leaves there the next one finds.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/scale/block.h"

namespace flow::host {

class Spool {
 public:
  // Makes the directory where it is missing, and looks at what is there. HostError when it cannot.
  Spool(std::string directory, std::uint64_t most_bytes);

  // Put keeps a block; false when there is no room for it, unless it has to be kept. HostError when
  // it cannot be written.
  bool Put(const Block& block, bool has_to_be_kept = false);

  // First reads the block with the smallest number. One that is damaged is set aside, told by
  // TakeTrouble. Drop forgets a block that was sent.
  std::optional<Block> First();
  void Drop(std::uint64_t sequence);

  // The smallest number, and how many there are; numbers from NextSequence on are free.
  [[nodiscard]] std::optional<std::uint64_t> FirstSequence() const;
  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] std::uint64_t bytes() const;
  [[nodiscard]] std::uint64_t NextSequence() const;
  std::vector<std::string> TakeTrouble();

 private:
  [[nodiscard]] std::string PathOf(std::uint64_t sequence) const;

  std::string directory_;
  std::uint64_t most_bytes_;
  mutable std::mutex mutex_;
  std::map<std::uint64_t, std::uint64_t> sizes_;  // of files, by number
  std::uint64_t bytes_ = 0;
  std::vector<std::string> trouble_;
};

}  // namespace flow::host
