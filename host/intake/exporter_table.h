// SPDX-License-Identifier: Apache-2.0
// What every exporter has sent, and what of it never came.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <tuple>
#include <vector>

#include "host/base/endpoint.h"
#include "host/base/timestamp.h"
#include "host/export/export_format.h"
#include "host/intake/record_books.h"
#include "host/intake/sequence.h"

namespace flow::host {

// Why a datagram was not metered.
enum class Refusal : std::uint8_t {
  kNone,
  kNotClaimed,
  kUnknownVersion,
  kCutShort,
  kFailed,
  kOtherProtocol,  // NetFlow on a port of sFlow, or the other way round
  kTooDear,        // went through no meter: its exporter's take too long
  kUnfinished,     // the meter was at it when the run ended
};
inline constexpr std::size_t kRefusals = 8;

// RefusalText is the reason as it reads after a number, as in "3 of an unknown version"; RefusalId
// its name in files.
std::string_view RefusalText(Refusal refusal);
std::string_view RefusalId(Refusal refusal);

// What a row of the table is about: an exporter, and one version that it sends.
struct ExportSource {
  Endpoint endpoint;
  ExportVersion version;

  friend auto operator<=>(const ExportSource&, const ExportSource&) = default;

  template <class Hash>
  friend Hash AbslHashValue(Hash hash, const ExportSource& key) {
    return Hash::combine(std::move(hash), key.endpoint, key.version.sflow, key.version.number);
  }
};

struct ExporterCounts {
  std::uint64_t datagrams = 0;
  std::uint64_t bytes = 0;  // of export datagrams, UDP headers left out
  RecordBooks books;
  std::uint64_t templates = 0;     // known when it was last seen
  std::uint64_t unknown_sets = 0;  // data sets whose template was not known
  std::uint64_t dropped = 0;       // datagrams that found a full queue; none of the above
  std::array<std::uint64_t, kRefusals> refused{};
  SequenceGaps gaps;         // in the units of the version
  SequenceGaps sample_gaps;  // of sFlow samples
  Timestamp last_seen = 0;
  std::optional<Timestamp> clock_offset;  // how far its clock was ahead of ours, last
  std::uint16_t arrives_at = 0;           // the UDP port, last
  bool is_regular = false;                // records of it were metered before the table, too
  bool is_lent = false;                   // its numbers are another table's

  [[nodiscard]] std::uint64_t Refused() const;
  void Add(const ExporterCounts& other);
};

// A datagram that went through a meter.
struct MeteredDatagram {
  Endpoint exporter;  // as the meter saw it
  Timestamp time = 0;
  std::span<const std::uint8_t> bytes;  // without a shim
  std::uint64_t records = 0;            // that the meter marked
  Refusal refusal = Refusal::kNone;
  MeterWords words{};
  std::uint16_t arrived_at = 0;  // the UDP port
  bool has_numbers = true;       // else another table is told of them by NoteNumbersOf
};

class ExporterTable {
 public:
  struct Row {
    ExportSource key;
    ExporterCounts counts;
  };

  // NoteTemplates takes a message that a meter posted on the template channel while it counted the
  // datagram that Note is told of next; NoteForeignTemplates one that came from elsewhere before.
  // has_domain: on the channel of domains.
  void NoteTemplates(std::span<const std::uint8_t> message, bool has_domain = false) {
    NoteTemplatesAt(datagrams_, message, has_domain);
  }
  void NoteForeignTemplates(std::span<const std::uint8_t> message, bool has_domain = false) {
    NoteTemplatesAt(0, message, has_domain);
  }

  void Note(const MeteredDatagram& datagram);

  // NoteNumbersOf takes the numbers and the clock of a datagram that needs nothing of those before
  // it, or known templates alone, and whose records another table is told of.
  void NoteNumbersOf(const MeteredDatagram& datagram);

  // NoteDropped takes what is kept of a datagram that went through no meter, for want of room: its
  // numbers are not missing.
  void NoteDropped(const Endpoint& exporter, Timestamp time, std::span<const std::uint8_t> numbers);

  // Of the datagram that Note was told of last: whether it is the first in which a record was
  // decoded by a template of its domain; and whether it has something that meters learn.
  [[nodiscard]] bool HasNewUser() const { return has_new_user_; }
  [[nodiscard]] bool HasLessons() const { return has_lessons_; }
  // Whether it has records by templates that nobody told here.
  [[nodiscard]] bool HasStrangeRecords() const { return has_strange_records_; }
  // Whether templates were ever let go because there were too many.
  [[nodiscard]] bool HasForgotten() const { return has_forgotten_; }
  // How many records were decoded by an owner's templates, or those of its exporter.
  [[nodiscard]] std::uint64_t RecordsBy(const TemplateOwner& owner);

  // Reap hands out what was counted since it was last called; templates and sequence numbers stay.
  ExporterTable Reap();

  // NoteNumbers has it keep what sequence numbers came of each stream, by run.
  void NoteNumbers() { sequences_.NoteNumbers(); }
  [[nodiscard]] const std::vector<StreamNumbers>& numbers() const { return numbers_; }

  // Merge adds what another table counted, later where both are of one lane.
  void Merge(const ExporterTable& other);

  // By address, port and version. Beyond the share of memory those that sent no record are one row
  // of address 0, and then whoever comes later; not those of whom records were metered before.
  [[nodiscard]] std::vector<Row> Rows() const;

  // ForEach shows what each exporter has sent, to be corrected.
  void ForEach(const std::function<void(const ExportSource&, ExporterCounts&)>& visit);

  // Numbered streams that were let go because there were too many.
  [[nodiscard]] std::uint64_t streams_evicted() const { return streams_evicted_; }

 private:
  struct KnownTemplate {
    std::uint64_t posted = 0;  // first, with this datagram
    std::uint64_t told = 0;    // last
    TemplateShape shape;
  };
  // The templates of one owner, and of all.
  struct Templates {
    absl::flat_hash_map<std::uint16_t, KnownTemplate> by_id;
    std::uint64_t since = 0;    // the datagram that came with the first
    std::uint64_t records = 0;  // that were decoded by them
  };
  using Owners = absl::flat_hash_map<TemplateOwner, Templates>;

  void NoteTemplatesAt(std::uint64_t posted, std::span<const std::uint8_t> message,
                       bool has_domain);
  void NoteTemplate(Owners* owners, const TemplateOwner& owner, std::uint64_t posted,
                    std::uint16_t id, TemplateShape shape);
  bool TakeTemplates(const MeteredDatagram& datagram, std::span<const std::uint8_t> set,
                     std::vector<std::uint16_t>* defined);
  ExporterCounts& CountsOf(const ExportSource& key);
  ExporterCounts& AddRow(const ExportSource& key, bool is_regular);
  bool MakeRoom();
  using StreamKey = std::tuple<Endpoint, bool, std::uint32_t, bool, std::uint64_t, std::uint32_t>;
  void MergeNumbers(const std::vector<StreamNumbers>& later);
  void NoteRegulars();
  bool MakeRoomForTemplates();
  static void NoteClock(const MeteredDatagram& datagram, ExporterCounts* counts);
  Described Describe(const MeteredDatagram& datagram, const ExportVersion& version,
                     ExporterCounts* counts);
  // What is known for a datagram: its domain's templates, and the exporter's own, which stand in;
  // and its domain's that were not posted.
  struct Known {
    Templates* domain = nullptr;
    Templates* exporter = nullptr;
    Templates* not_posted = nullptr;

    [[nodiscard]] bool Any() const {
      return domain != nullptr || exporter != nullptr || not_posted != nullptr;
    }
    [[nodiscard]] std::size_t Size() const;
    [[nodiscard]] const KnownTemplate* Find(std::uint16_t id) const;
    void AddRecords(std::uint64_t records) const;
    [[nodiscard]] std::uint64_t Records() const;
  };
  [[nodiscard]] Known KnownFor(const TemplateOwner& domain);
  Described DescribeSets(const MeteredDatagram& datagram, Known* known);

  absl::flat_hash_map<ExportSource, ExporterCounts> exporters_;
  Owners templates_;
  Owners not_posted_;
  std::size_t template_count_ = 0;
  std::size_t room_wait_ = 0;  // so many newcomers come before the next look for room
  // Who sent records before the last harvest, and how many.
  absl::flat_hash_map<ExportSource, std::uint64_t> regulars_;
  bool has_new_user_ = false;
  bool has_lessons_ = false;
  bool has_strange_records_ = false;
  bool has_forgotten_ = false;
  SequenceTracker sequences_;
  std::vector<StreamNumbers> numbers_;  // that were reaped, or merged
  absl::flat_hash_map<StreamKey, std::size_t> number_places_;
  std::uint64_t streams_evicted_ = 0;  // in what was reaped
  std::uint64_t evicted_before_ = 0;
  std::uint64_t datagrams_ = 1;  // the number of the next
};

}  // namespace flow::host
