// SPDX-License-Identifier: Apache-2.0
// Numbered streams by what they are called, as many as there is room for.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/intake/sequence_stream.h"

namespace flow::host {

// A full table lets the stream go that was silent for longest. Strangers can make up any number of
// streams; so those that have sent little yet go first, until they have but an eighth of the room.
// Of the others those that are heard of again and again are passed over that often.
class StreamTable {
 public:
  explicit StreamTable(std::uint32_t most) : most_(most) {}

  // Of returns the stream of a key that is a hash; a new one where there is none. It is valid until
  // the next call.
  SequenceStream& Of(std::uint64_t key);

  [[nodiscard]] std::size_t size() const { return streams_.size(); }
  // Streams that were let go.
  [[nodiscard]] std::uint64_t evicted() const { return evicted_; }

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;
  static constexpr std::uint8_t kSettled = 4;  // so many numbers settle a stream

  struct Stream {
    std::uint64_t key = 0;
    std::uint32_t older = kNone;
    std::uint32_t newer = kNone;
    std::uint32_t placed = 0;  // when, in uses of the table
    std::uint8_t uses = 0;     // more tell how well it is known
    SequenceStream numbers;
  };
  // From the one silent for longest to the one that was last heard of; not to the last use, so that
  // a stream is not moved with each.
  struct Line {
    std::uint32_t oldest = kNone;
    std::uint32_t newest = kNone;
    std::size_t length = 0;
  };
  struct AsItIs {
    std::size_t operator()(std::uint64_t key) const { return key; }
  };

  std::uint32_t Add(std::uint64_t key);
  std::uint32_t Evict();
  Line& LineOf(const Stream& stream) { return stream.uses < kSettled ? newcomers_ : settled_; }
  void Leave(std::uint32_t index);
  void Join(std::uint32_t index);

  std::uint32_t most_;
  std::uint32_t uses_ = 0;  // modulo 2^32
  std::vector<Stream> streams_;
  absl::flat_hash_map<std::uint64_t, std::uint32_t, AsItIs> index_;
  Line newcomers_;
  Line settled_;
  std::uint64_t evicted_ = 0;
};

}  // namespace flow::host
