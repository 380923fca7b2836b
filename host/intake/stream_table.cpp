// SPDX-License-Identifier: Apache-2.0
#include "host/intake/stream_table.h"

namespace flow::host {

SequenceStream& StreamTable::Of(std::uint64_t key) {
  const auto found = index_.find(key);
  const std::uint32_t index = found == index_.end() ? Add(key) : found->second;
  Stream& stream = streams_[index];
  ++uses_;
  if (stream.uses < kSettled || uses_ - stream.placed > most_ / 16) {
    Leave(index);
    if (stream.uses < kSettled) ++stream.uses;
    Join(index);
  }
  return stream.numbers;
}

std::uint32_t StreamTable::Add(std::uint64_t key) {
  std::uint32_t index = static_cast<std::uint32_t>(streams_.size());
  if (streams_.size() < most_) {
    streams_.emplace_back();
  } else {
    index = Evict();
    streams_[index] = {};
  }
  streams_[index].key = key;
  index_.emplace(key, index);
  Join(index);
  return index;
}

std::uint32_t StreamTable::Evict() {
  const bool is_crowded = settled_.length > most_ - most_ / 8;
  const std::uint32_t index =
      is_crowded || newcomers_.length == 0 ? settled_.oldest : newcomers_.oldest;
  index_.erase(streams_[index].key);
  Leave(index);
  ++evicted_;
  return index;
}

void StreamTable::Leave(std::uint32_t index) {
  Stream& stream = streams_[index];
  Line& line = LineOf(stream);
  (stream.older == kNone ? line.oldest : streams_[stream.older].newer) = stream.newer;
  (stream.newer == kNone ? line.newest : streams_[stream.newer].older) = stream.older;
  --line.length;
}

void StreamTable::Join(std::uint32_t index) {
  Stream& stream = streams_[index];
  Line& line = LineOf(stream);
  stream.older = line.newest;
  stream.newer = kNone;
  (line.newest == kNone ? line.oldest : streams_[line.newest].newer) = index;
  stream.placed = uses_;
  line.newest = index;
  ++line.length;
}

}  // namespace flow::host
