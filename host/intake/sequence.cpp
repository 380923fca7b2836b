#include "host/intake/sequence.h"

#include <absl/hash/hash.h>

#include <algorithm>

#include "host/base/big_endian.h"

namespace flow::host {
namespace {

using Bytes = std::span<const std::uint8_t>;

// Larger jumps are restarts; so are steps back beyond what a network reorders.
constexpr std::uint32_t kLargestGap = 1U << 24;
constexpr std::uint32_t kLongestDelay = 1U << 12;

}  // namespace

void SequenceGaps::Add(const SequenceGaps& other) {
  missing += other.missing;
  came += other.came;
  gaps += other.gaps;
  late += other.late;
  restarts += other.restarts;
}

auto SequenceStream::Explanation(std::uint32_t number, std::optional<std::uint32_t> units) const
    -> std::optional<Counting> {
  for (const Counting counting : {Counting::kBefore, Counting::kIncluded, Counting::kMessages}) {
    if (counting != counting_ && Expected(counting, units) == number) return counting;
  }
  return std::nullopt;
}

std::optional<std::uint32_t> SequenceStream::Expected(Counting counting,
                                                      std::optional<std::uint32_t> units) const {
  if (counting == Counting::kMessages) return last_ + 1;
  const std::optional<std::uint32_t> step = counting == Counting::kBefore ? last_units_ : units;
  if (!step) return std::nullopt;
  return last_ + *step;
}

void SequenceStream::Take(std::uint32_t number, std::optional<std::uint32_t> units,
                          SequenceGaps* gaps) {
  if (is_started_ && Expected(counting_, units) == number) {
    candidate_.reset();
    is_confirmed_ = is_confirmed_ || !Explanation(number, units);
  } else if (is_started_ && !Judge(number, units, gaps)) {
    return;
  }
  is_started_ = true;
  last_ = number;
  last_units_ = units;
}

bool SequenceStream::Judge(std::uint32_t number, std::optional<std::uint32_t> units,
                           SequenceGaps* gaps) {
  const auto other = Explanation(number, units);
  // Twice is no coincidence, and there was no gap.
  if (other && (candidate_ == other || !is_confirmed_)) {
    gaps->came += candidate_gap_;
    candidate_gap_ = 0;
    counting_ = *other;
    candidate_.reset();
    return true;
  }
  candidate_ = other;
  candidate_gap_ = 0;
  const auto expected = Expected(counting_, units);
  const bool is_behind = last_ - number <= kLongestDelay;
  if (expected && !is_behind && number - *expected < kLargestGap) {
    candidate_gap_ = number - *expected;
    Miss(*expected, candidate_gap_, gaps);
  } else if (is_behind) {
    TakeLate(number, units, gaps);
    return false;
  } else if (expected && !other) {
    ++gaps->restarts;
  }
  return true;
}

// Late, or the same again.
void SequenceStream::TakeLate(std::uint32_t number, std::optional<std::uint32_t> units,
                              SequenceGaps* gaps) {
  ++gaps->late;
  if (number - gap_start_ >= gap_length_) return;
  const std::uint32_t one = counting_ == Counting::kMessages ? 1 : units.value_or(1);
  const std::uint32_t came = std::min(one, gap_left_);
  gaps->came += came;
  gap_left_ -= came;
}

void SequenceStream::Miss(std::uint32_t from, std::uint32_t units, SequenceGaps* gaps) {
  gaps->missing += units;
  ++gaps->gaps;
  gap_start_ = from;
  gap_length_ = units;
  gap_left_ = units;
}

void SequenceTracker::Count(std::uint64_t stream, std::uint32_t number,
                            std::optional<std::uint32_t> units, SequenceGaps* gaps) {
  auto found = streams_.find(stream);
  if (found == streams_.end()) {
    if (streams_.size() >= kMostStreams) return;
    found = streams_.try_emplace(stream).first;
  }
  found->second.Take(number, units, gaps);
}

void SequenceTracker::Take(const Endpoint& exporter, const ExportVersion& version, Bytes datagram,
                           std::optional<std::uint32_t> data_records, SequenceGaps* gaps,
                           SequenceGaps* samples) {
  if (version.sflow) return TakeSFlow(exporter, datagram, gaps, samples);
  const auto count = [&](std::uint32_t domain, std::size_t number_at,
                         std::optional<std::uint32_t> units) {
    Count(absl::HashOf(exporter, version.number, domain), Be32(datagram.data() + number_at), units,
          gaps);
  };
  if (version.number == 5 && datagram.size() >= 24) {
    count(Be16(datagram.data() + 20), 16, Be16(datagram.data() + 2));
  } else if (version.number == 9 && datagram.size() >= 20) {
    count(Be32(datagram.data() + 16), 12, 1);
  } else if (version.number == 10 && datagram.size() >= 16) {
    count(Be32(datagram.data() + 12), 8, data_records);
  }
}

// Version 5; earlier versions number datagrams alike, but their samples do not tell their lengths.
void SequenceTracker::TakeSFlow(const Endpoint& exporter, Bytes datagram, SequenceGaps* gaps,
                                SequenceGaps* samples) {
  if (datagram.size() < 8) return;
  const std::uint32_t version = Be32(datagram.data());
  const std::size_t agent = Be32(datagram.data() + 4) == 2 ? 16 : 4;
  const std::size_t number_at = 8 + agent + (version == 5 ? 4 : 0);  // behind the sub-agent
  if (datagram.size() < number_at + 12) return;
  const std::string_view sender(reinterpret_cast<const char*>(datagram.data()), number_at);
  const std::uint64_t stream = absl::HashOf(exporter, sender);
  Count(stream, Be32(datagram.data() + number_at), 1, gaps);
  if (version != 5) return;
  for (Bytes rest = datagram.subspan(number_at + 12); rest.size() >= 20;) {
    const std::uint32_t type = Be32(rest.data());  // 1 to 4: flow, counter, and both expanded
    const std::size_t length = Be32(rest.data() + 4);
    if (length > rest.size() - 8) return;
    if (type >= 1 && type <= 4 && length >= 12) {
      const std::uint32_t index = type >= 3 ? Be32(rest.data() + 16) : 0;
      Count(absl::HashOf(stream, type, Be32(rest.data() + 12), index), Be32(rest.data() + 8), 1,
            samples);
    }
    rest = rest.subspan(8 + length);
  }
}

std::string_view UnitOf(const ExportVersion& version) {
  if (version.sflow || version.number == 9) return "datagrams";
  if (version.number == 5) return "flows";
  return version.number == 10 ? "records" : "";
}

}  // namespace flow::host
