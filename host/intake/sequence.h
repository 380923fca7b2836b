// Sequence numbers of export datagrams: what an exporter sent that never came.
//
// NetFlow v5 numbers flows, v9 datagrams and IPFIX data records, per source or observation domain;
// sFlow numbers datagrams per agent and samples per data source. NetFlow v1 numbers nothing.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>

#include "host/base/endpoint.h"
#include "host/export/export_format.h"

namespace flow::host {

// What a numbered stream shows.
struct SequenceGaps {
  std::uint64_t missing = 0;   // units that numbers were left out for
  std::uint64_t came = 0;      // of these, those that came late
  std::uint64_t gaps = 0;      // how often numbers were left out
  std::uint64_t late = 0;      // datagrams or samples that came behind later ones, or twice
  std::uint64_t restarts = 0;  // numbers that went elsewhere, as after the exporter's restart

  [[nodiscard]] std::uint64_t Lost() const { return missing - std::min(missing, came); }
  void Add(const SequenceGaps& other);
};

// One numbered stream. The numbers should count the units that went before; some exporters count
// those that go with the number as well, and some count messages. The first of these that explains
// a number is taken for granted; once it was the only one to do so, until another explains two in a
// row.
class SequenceStream {
 public:
  // Take takes a number and how many units go with it, where that is known.
  void Take(std::uint32_t number, std::optional<std::uint32_t> units, SequenceGaps* gaps);

 private:
  enum class Counting : std::uint8_t { kBefore, kIncluded, kMessages };

  [[nodiscard]] std::optional<std::uint32_t> Expected(Counting counting,
                                                      std::optional<std::uint32_t> units) const;
  // Another counting than the one at hand that explains the number.
  [[nodiscard]] std::optional<Counting> Explanation(std::uint32_t number,
                                                    std::optional<std::uint32_t> units) const;
  // Judge takes a number that is not the expected one; false when it is not ahead of the last.
  bool Judge(std::uint32_t number, std::optional<std::uint32_t> units, SequenceGaps* gaps);
  void TakeLate(std::uint32_t number, std::optional<std::uint32_t> units, SequenceGaps* gaps);
  void Miss(std::uint32_t from, std::uint32_t units, SequenceGaps* gaps);

  bool is_started_ = false;
  Counting counting_ = Counting::kBefore;
  bool is_confirmed_ = false;          // no other explains what counting_ has explained
  std::optional<Counting> candidate_;  // explains the last number, where counting_ does not
  std::uint32_t candidate_gap_ = 0;    // what counting_ made of it
  std::uint32_t last_ = 0;
  std::optional<std::uint32_t> last_units_;
  // The last gap, which late units may fill.
  std::uint32_t gap_start_ = 0;
  std::uint32_t gap_length_ = 0;
  std::uint32_t gap_left_ = 0;
};

// All streams of a lane's exporters, as many as kMostStreams.
class SequenceTracker {
 public:
  static constexpr std::size_t kMostStreams = std::size_t{1} << 18;

  // Take looks at a datagram. data_records is the number of its IPFIX
  // data records, unless a template is unknown. samples takes the gaps of sFlow samples.
  void Take(const Endpoint& exporter, const ExportVersion& version,
            std::span<const std::uint8_t> datagram, std::optional<std::uint32_t> data_records,
            SequenceGaps* gaps, SequenceGaps* samples);

 private:
  void Count(std::uint64_t stream, std::uint32_t number, std::optional<std::uint32_t> units,
             SequenceGaps* gaps);
  void TakeSFlow(const Endpoint& exporter, std::span<const std::uint8_t> datagram,
                 SequenceGaps* gaps, SequenceGaps* samples);

  absl::flat_hash_map<std::uint64_t, SequenceStream> streams_;
};

// UnitOf names what a version's numbers count: "flows", "datagrams", "records", or "".
std::string_view UnitOf(const ExportVersion& version);

}  // namespace flow::host
