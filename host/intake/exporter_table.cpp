// SPDX-License-Identifier: Apache-2.0
#include "host/intake/exporter_table.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <optional>
#include <utility>

#include "host/base/memory_budget.h"

namespace flow::host {
namespace {

struct RefusalName {
  std::string_view id;
  std::string_view text;
};
constexpr RefusalName kNames[] = {
    {"metered", "metered"},
    {"too_short", "too short"},
    {"unknown_version", "of an unknown version"},
    {"cut_short", "cut short"},
    {"refused", "refused by the meter"},
    {"other_protocol", "of another protocol than the port's"},
    {"too_dear", "held back, as they took too much of a meter's time or memory"},
    {"unfinished", "cut off by the end of the run"},
};
static_assert(std::size(kNames) == kRefusals);

// A look through a full table has found so little that it is not worth another soon.
bool IsLittle(std::size_t found, std::size_t all) { return found < all / 16; }

// Versions beyond are what strangers make up, and are one to us.
constexpr std::uint32_t kLargestVersion = 15;

ExportVersion CountedVersion(std::span<const std::uint8_t> datagram) {
  const ExportVersion version = VersionOf(datagram);
  return version.IsKnown() || version.number <= kLargestVersion ? version : ExportVersion{};
}

}  // namespace

std::string_view RefusalText(Refusal refusal) {
  return kNames[static_cast<std::size_t>(refusal)].text;
}
std::string_view RefusalId(Refusal refusal) { return kNames[static_cast<std::size_t>(refusal)].id; }

std::uint64_t ExporterCounts::Refused() const {
  return std::accumulate(refused.begin(), refused.end(), std::uint64_t{0});
}

void ExporterCounts::Add(const ExporterCounts& other) {
  datagrams += other.datagrams;
  bytes += other.bytes;
  books.Add(other.books);
  unknown_sets += other.unknown_sets;
  dropped += other.dropped;
  for (std::size_t i = 0; i < kRefusals; ++i) refused[i] += other.refused[i];
  gaps.Add(other.gaps);
  sample_gaps.Add(other.sample_gaps);
  if (other.last_seen >= last_seen && !other.is_lent) {
    templates = other.templates;
    arrives_at = other.arrives_at;
    if (other.clock_offset) clock_offset = other.clock_offset;
  }
  last_seen = std::max(last_seen, other.last_seen);
  is_regular = is_regular || other.is_regular;
}

void ExporterTable::NoteTemplatesAt(std::uint64_t posted, std::span<const std::uint8_t> message,
                                    bool has_domain) {
  const auto parsed = ParseTemplateMessage(message, has_domain);
  if (!parsed) return;
  ForEachTemplate(parsed->set, [&](std::uint16_t id, TemplateShape shape) {
    NoteTemplate(&templates_, parsed->owner, posted, id, std::move(shape));
  });
}

void ExporterTable::NoteTemplate(Owners* owners, const TemplateOwner& owner, std::uint64_t posted,
                                 std::uint16_t id, TemplateShape shape) {
  const auto of_owner = owners->find(owner);
  const bool is_there = of_owner != owners->end() && of_owner->second.by_id.contains(id);
  if (template_count_ >= Shares().templates && !is_there && !MakeRoomForTemplates()) {
    has_forgotten_ = true;
    return NoteLetGo(LetGo::kTemplates, 1);
  }
  Templates& templates = (*owners)[owner];
  if (templates.by_id.empty()) templates.since = posted;
  const auto [known, is_new] = templates.by_id.try_emplace(id, KnownTemplate{posted, 0, {}});
  known->second.told = posted;
  known->second.shape = std::move(shape);
  if (is_new) ++template_count_;
}

// Half of the owners go: those by whose templates the fewest records were decoded, of these the
// newest. A flood makes them up.
bool ExporterTable::MakeRoomForTemplates() {
  using Value = std::pair<std::uint64_t, std::uint64_t>;
  const auto value_of = [](const Templates& templates) {
    return Value{templates.records, ~templates.since};
  };
  std::vector<Value> values;
  for (const Owners* const owners : {&templates_, &not_posted_}) {
    for (const auto& [owner, templates] : *owners) values.push_back(value_of(templates));
  }
  if (values.empty()) return false;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) / 2);
  std::nth_element(values.begin(), middle, values.end());
  std::size_t found = 0;
  for (Owners* const owners : {&templates_, &not_posted_}) {
    absl::erase_if(*owners, [&](const auto& entry) {
      if (value_of(entry.second) > *middle) return false;
      found += entry.second.by_id.size();
      return true;
    });
  }
  template_count_ -= found;
  has_forgotten_ = true;
  NoteLetGo(LetGo::kTemplates, found);
  return found > 0;
}

// A meter does not post a set with a template that is cut, but keeps what stands before. True when
// there was something of the kind.
bool ExporterTable::TakeTemplates(const MeteredDatagram& datagram,
                                  std::span<const std::uint8_t> set,
                                  std::vector<std::uint16_t>* defined) {
  std::vector<std::pair<std::uint16_t, TemplateShape>> templates;
  const bool is_whole = ForEachTemplate(set, [&](std::uint16_t id, TemplateShape shape) {
    defined->push_back(id);
    templates.emplace_back(id, std::move(shape));
  });
  if (is_whole || templates.empty()) return false;
  const TemplateOwner owner{datagram.exporter, DomainOf(datagram.bytes)};
  for (auto& [id, shape] : templates) {
    NoteTemplate(&not_posted_, owner, datagrams_, id, std::move(shape));
  }
  return true;
}

ExporterCounts& ExporterTable::CountsOf(const ExportSource& key) {
  const auto known = exporters_.find(key);
  return known != exporters_.end() ? known->second : AddRow(key, regulars_.contains(key));
}

ExporterCounts& ExporterTable::AddRow(const ExportSource& key, bool is_regular) {
  const std::size_t most = is_regular ? 2 * Shares().exporters : Shares().exporters;
  const bool has_room = exporters_.size() < most || MakeRoom();
  ExporterCounts& counts = exporters_[has_room ? key : ExportSource{}];
  counts.is_regular = counts.is_regular || is_regular;
  return counts;
}

// Exporters of which nothing was ever metered become one.
bool ExporterTable::MakeRoom() {
  if (room_wait_ > 0) {
    --room_wait_;
    return false;
  }
  ExporterCounts others;
  const std::size_t before = exporters_.size();
  absl::erase_if(exporters_, [&](const auto& entry) {
    if (entry.second.books.metered > 0 || entry.second.is_regular) return false;
    others.Add(entry.second);
    return true;
  });
  const std::size_t found = before - exporters_.size();
  if (found > 0) exporters_[ExportSource{}].Add(others);
  if (IsLittle(found, before)) room_wait_ = before / 4;
  NoteLetGo(LetGo::kExporters, found);
  return found > 0;
}

void ExporterTable::Note(const MeteredDatagram& datagram) {
  const ExportVersion version = CountedVersion(datagram.bytes);
  ExporterCounts& counts = CountsOf({datagram.exporter, version});
  ++counts.datagrams;
  counts.bytes += datagram.bytes.size();
  counts.last_seen = std::max(counts.last_seen, datagram.time);
  counts.arrives_at = datagram.arrived_at;
  counts.is_lent = !datagram.has_numbers;
  has_new_user_ = false;
  has_lessons_ = false;
  Described described;
  if (datagram.refusal != Refusal::kNone) {
    ++counts.refused[static_cast<std::size_t>(datagram.refusal)];
  } else {
    described = Describe(datagram, version, &counts);
    if (datagram.has_numbers) NoteClock(datagram, &counts);
  }
  has_strange_records_ = described.unknown_sets > 0 && datagram.records > described.records;
  counts.books.Enter(described, version.sflow, datagram.records, datagram.words);
  ++datagrams_;
  if (!version.IsKnown() || !datagram.has_numbers) return;
  const bool is_described =
      datagram.refusal == Refusal::kNone && described.unknown_sets == 0 && !described.has_vast;
  std::optional<std::uint32_t> data_records;
  if (is_described) data_records = static_cast<std::uint32_t>(described.records);
  sequences_.Take({datagram.exporter, version, datagram.time, datagram.bytes, data_records},
                  &counts.gaps, &counts.sample_gaps);
}

void ExporterTable::NoteClock(const MeteredDatagram& datagram, ExporterCounts* counts) {
  if (const auto sent = ExportTimeOf(datagram.bytes)) counts->clock_offset = *sent - datagram.time;
}

void ExporterTable::NoteNumbersOf(const MeteredDatagram& datagram) {
  const ExportVersion version = CountedVersion(datagram.bytes);
  ExporterCounts& counts = CountsOf({datagram.exporter, version});
  counts.last_seen = std::max(counts.last_seen, datagram.time);
  counts.arrives_at = datagram.arrived_at;
  NoteClock(datagram, &counts);
  std::optional<std::uint32_t> data_records;
  if (version.HasTemplates()) {
    Known known = KnownFor({datagram.exporter, DomainOf(datagram.bytes)});
    const Described described = DescribeSets(datagram, &known);
    known.AddRecords(described.records);
    counts.templates = known.Size();
    if (described.unknown_sets == 0 && !described.has_vast) {
      data_records = static_cast<std::uint32_t>(described.records);
    }
  }
  sequences_.Take({datagram.exporter, version, datagram.time, datagram.bytes, data_records},
                  &counts.gaps, &counts.sample_gaps);
}

void ExporterTable::NoteDropped(const Endpoint& exporter, Timestamp time,
                                std::span<const std::uint8_t> numbers) {
  const ExportVersion version = CountedVersion(numbers);
  ExporterCounts& counts = CountsOf({exporter, version});
  ++counts.dropped;
  counts.last_seen = std::max(counts.last_seen, time);
  if (!version.IsKnown()) return;
  sequences_.Take({exporter, version, time, numbers, std::nullopt}, &counts.gaps,
                  &counts.sample_gaps);
}

Described ExporterTable::Describe(const MeteredDatagram& datagram, const ExportVersion& version,
                                  ExporterCounts* counts) {
  Described described;
  if (version.HasTemplates()) {
    Known known = KnownFor({datagram.exporter, DomainOf(datagram.bytes)});
    described = DescribeSets(datagram, &known);
    has_new_user_ = described.records > 0 && known.Records() == 0;
    known.AddRecords(described.records);
    // Without a template of its own an exporter may still be decoded by those in the policy.
    if (known.Any() || datagram.records == 0) counts->unknown_sets += described.unknown_sets;
    counts->templates = known.Size();
  } else if (version.sflow) {
    if (version.number != 5) return described;
    described.records = FlowSamplesOf(datagram.bytes);
    // The meter marks each sample; one that it cannot read it gives up, with all behind it.
    described.in_broken_sets = FlowSamplesOf(datagram.bytes, datagram.records);
  } else {
    described.records = RecordsOf(datagram.bytes);
  }
  return described;
}

ExporterTable::Known ExporterTable::KnownFor(const TemplateOwner& domain) {
  const auto find = [](Owners& owners, const TemplateOwner& owner) -> Templates* {
    const auto found = owners.empty() ? owners.end() : owners.find(owner);
    return found == owners.end() ? nullptr : &found->second;
  };
  return {find(templates_, domain), find(templates_, {domain.exporter}), find(not_posted_, domain)};
}

std::size_t ExporterTable::Known::Size() const {
  return (domain == nullptr ? 0 : domain->by_id.size()) +
         (exporter == nullptr ? 0 : exporter->by_id.size());
}

void ExporterTable::Known::AddRecords(std::uint64_t records) const {
  for (Templates* const templates : {domain, exporter, not_posted}) {
    if (templates != nullptr) templates->records += records;
  }
}

std::uint64_t ExporterTable::Known::Records() const {
  std::uint64_t most = 0;
  for (const Templates* const templates : {domain, exporter, not_posted}) {
    if (templates != nullptr) most = std::max(most, templates->records);
  }
  return most;
}

std::uint64_t ExporterTable::RecordsBy(const TemplateOwner& owner) {
  return KnownFor(owner).Records();
}

const ExporterTable::KnownTemplate* ExporterTable::Known::Find(std::uint16_t id) const {
  const auto find = [id](const Templates* templates) -> const KnownTemplate* {
    if (templates == nullptr) return nullptr;
    const auto found = templates->by_id.find(id);
    return found == templates->by_id.end() ? nullptr : &found->second;
  };
  const KnownTemplate* posted = find(domain);
  if (posted == nullptr) posted = find(exporter);
  const KnownTemplate* const other = find(not_posted);
  return posted == nullptr || (other != nullptr && other->told >= posted->told) ? other : posted;
}

// A set is decodable when its template was posted before this datagram, or stands in it further up
// and was posted with it.
Described ExporterTable::DescribeSets(const MeteredDatagram& datagram, Known* known) {
  Described described;
  std::vector<std::uint16_t> defined_here;
  ForEachSet(datagram.bytes, [&](const ExportSet& set) {
    if (set.is_broken) ++described.broken_sets;
    if (set.holds_templates && !set.is_broken && !set.is_beyond) {
      if (TakeTemplates(datagram, set.bytes, &defined_here)) {
        *known = KnownFor({datagram.exporter, DomainOf(datagram.bytes)});
      }
      has_lessons_ = true;
    }
    if (!set.holds_data) return;
    const KnownTemplate* const posted = known->Find(set.id);
    const bool decodable =
        posted != nullptr && (posted->posted < datagrams_ ||
                              std::ranges::find(defined_here, set.id) != defined_here.end());
    if (!decodable) {
      ++described.unknown_sets;
      return;
    }
    has_lessons_ = has_lessons_ || posted->shape.tells_rate;
    const std::uint32_t records = CountRecords(set.bytes, posted->shape);
    described.records += records;
    if (set.is_broken) described.in_broken_sets += records;
    if (set.is_beyond) described.beyond_count += records;
    described.has_variable = described.has_variable || posted->shape.IsVariable();
    described.has_vast = described.has_vast || posted->shape.IsVast();
  });
  return described;
}

// Half of them go where they are too many: those of the fewest records. What was long ago counts
// less each time.
void ExporterTable::NoteRegulars() {
  for (const auto& [key, counts] : exporters_) {
    if (counts.books.metered > 0) regulars_[key] += counts.books.metered;
  }
  if (regulars_.size() <= Shares().exporters) return;
  std::vector<std::uint64_t> records;
  for (const auto& [key, metered] : regulars_) records.push_back(metered);
  const auto middle = records.begin() + static_cast<std::ptrdiff_t>(records.size() / 2);
  std::nth_element(records.begin(), middle, records.end());
  absl::erase_if(regulars_, [&](auto& entry) {
    const bool goes = entry.second <= *middle;
    entry.second /= 2;
    return goes;
  });
}

ExporterTable ExporterTable::Reap() {
  NoteRegulars();
  ExporterTable reaped;
  reaped.exporters_ = std::exchange(exporters_, {});
  reaped.numbers_ = sequences_.TakeNumbers();
  const std::uint64_t evicted = sequences_.Evicted();
  reaped.streams_evicted_ = evicted - std::exchange(evicted_before_, evicted);
  return reaped;
}

void ExporterTable::Merge(const ExporterTable& other) {
  for (const auto& [key, counts] : other.exporters_) {
    const auto known = exporters_.find(key);
    (known != exporters_.end() ? known->second : AddRow(key, counts.is_regular)).Add(counts);
  }
  streams_evicted_ += other.streams_evicted_;
  MergeNumbers(other.numbers_);
}

void ExporterTable::MergeNumbers(const std::vector<StreamNumbers>& later) {
  for (const StreamNumbers& numbers : later) {
    const StreamKey key{numbers.exporter,   numbers.version.sflow, numbers.version.number,
                        numbers.of_samples, numbers.stream,        numbers.run};
    if (numbers_.size() >= SequenceTracker::kMostNoted && !number_places_.contains(key)) continue;
    const auto [place, is_new] = number_places_.emplace(key, numbers_.size());
    if (is_new) {
      numbers_.push_back(numbers);
      continue;
    }
    numbers_[place->second].next = numbers.next;
    numbers_[place->second].came += numbers.came;
  }
}

void ExporterTable::ForEach(
    const std::function<void(const ExportSource&, ExporterCounts&)>& visit) {
  for (auto& [key, counts] : exporters_) visit(key, counts);
}

std::vector<ExporterTable::Row> ExporterTable::Rows() const {
  std::vector<Row> rows;
  rows.reserve(exporters_.size());
  for (const auto& [key, counts] : exporters_) rows.push_back({key, counts});
  std::ranges::sort(rows, {}, &Row::key);
  return rows;
}

}  // namespace flow::host
