// Sequence numbers of export datagrams: what an exporter sent that never came.
//
// NetFlow v5 numbers flows, v9 datagrams and IPFIX data records, per source or observation domain;
// sFlow numbers datagrams per agent and samples per data source. NetFlow v1 numbers nothing.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <optional>
#include <span>

#include "host/meter/export_format.h"

namespace flow::host {

// What a numbered stream shows.
struct SequenceGaps {
  std::uint64_t lost = 0;      // in the units of its numbers, less those that came late
  std::uint64_t gaps = 0;      // how often numbers were left out
  std::uint64_t late = 0;      // datagrams or samples that came behind later ones
  std::uint64_t restarts = 0;  // numbers that went elsewhere, as after the exporter's restart

  void Add(const SequenceGaps& other);
};

// One numbered stream. The numbers should count the units that went before; some exporters count
// those that go with the number as well, and some count messages. Whichever of these explains the
// numbers is taken for granted.
class SequenceStream {
 public:
  // Take takes a number and how many units go with it, where that is known.
  void Take(std::uint32_t number, std::optional<std::uint32_t> units, SequenceGaps* gaps);

 private:
  enum class Counting : std::uint8_t { kBefore, kIncluded, kMessages };

  [[nodiscard]] std::optional<std::uint32_t> Expected(Counting counting,
                                                      std::optional<std::uint32_t> units) const;
  void Judge(std::uint32_t number, std::optional<std::uint32_t> units, SequenceGaps* gaps);

  bool is_started_ = false;
  Counting counting_ = Counting::kBefore;
  std::uint32_t last_ = 0;
  std::optional<std::uint32_t> last_units_;
};

// All streams of a lane's exporters, as many as kMostStreams.
class SequenceTracker {
 public:
  static constexpr std::size_t kMostStreams = std::size_t{1} << 18;

  // Take looks at a datagram. source names its exporter; data_records is the number of its IPFIX
  // data records, unless a template is unknown. samples takes the gaps of sFlow samples.
  void Take(std::uint64_t source, const ExportVersion& version,
            std::span<const std::uint8_t> datagram, std::optional<std::uint32_t> data_records,
            SequenceGaps* gaps, SequenceGaps* samples);

 private:
  void Count(std::uint64_t stream, std::uint32_t number, std::optional<std::uint32_t> units,
             SequenceGaps* gaps);
  void TakeSFlow(std::uint64_t source, std::span<const std::uint8_t> datagram, SequenceGaps* gaps,
                 SequenceGaps* samples);

  absl::flat_hash_map<std::uint64_t, SequenceStream> streams_;
};

// UnitOf names what a version's numbers count: "flows", "datagrams", "records", or "".
std::string_view UnitOf(const ExportVersion& version);

}  // namespace flow::host
