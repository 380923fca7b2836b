// SPDX-License-Identifier: Apache-2.0
#include "host/intake/stream_table.h"

namespace flow::host {
namespace {

// A settled stream is known better each time that it is heard of again, up to here, and less each
// time that it is passed over in spite of its silence.
constexpr std::uint8_t kBestKnown = 255;

}  // namespace

SequenceStream& StreamTable::Of(std::uint64_t key) {
  const auto found = index_.find(key);
  const std::uint32_t index = found == index_.end() ? Add(key) : found->second;
  Stream& stream = streams_[index];
  ++uses_;
  if (stream.uses < kSettled || uses_ - stream.placed > most_ / 16) {
    Leave(index);
    if (stream.uses < kBestKnown) ++stream.uses;
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
  const bool is_settled = is_crowded || newcomers_.length == 0;
  // What just settled goes before what has been here for long and pauses. The walk is short,
  // whatever there is to pass over.
  constexpr int kMostPassedOver = 64;
  for (int i = 0; is_settled && i < kMostPassedOver; ++i) {
    const std::uint32_t oldest = settled_.oldest;
    if (streams_[oldest].uses == kSettled) break;
    Leave(oldest);
    --streams_[oldest].uses;
    Join(oldest);
  }
  const std::uint32_t index = is_settled ? settled_.oldest : newcomers_.oldest;
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
