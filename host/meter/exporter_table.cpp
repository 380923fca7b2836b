#include "host/meter/exporter_table.h"

#include <algorithm>
#include <iterator>
#include <numeric>

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
};
static_assert(std::size(kNames) == kRefusals);

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
  records += other.records;
  unknown_sets += other.unknown_sets;
  for (std::size_t i = 0; i < kRefusals; ++i) refused[i] += other.refused[i];
  last_seen = std::max(last_seen, other.last_seen);
}

void ExporterTable::NoteTemplates(std::span<const std::uint8_t> message) {
  const auto parsed = ParseTemplateMessage(message);
  if (!parsed) return;
  Templates& templates = templates_[SourceOf(parsed->exporter, parsed->port)];
  ForEachTemplate(parsed->set, [&](std::uint16_t id) { templates.try_emplace(id, datagrams_); });
}

void ExporterTable::Note(const MeteredDatagram& datagram) {
  const ExportVersion version = VersionOf(datagram.bytes);
  ExporterCounts& counts = exporters_[{datagram.exporter, datagram.port, version}];
  ++counts.datagrams;
  counts.bytes += datagram.bytes.size();
  counts.records += datagram.records;
  counts.last_seen = std::max(counts.last_seen, datagram.time);
  if (datagram.refusal != Refusal::kNone) {
    ++counts.refused[static_cast<std::size_t>(datagram.refusal)];
  } else if (version.HasTemplates()) {
    counts.unknown_sets += CountUnknownSets(datagram);
  }
  ++datagrams_;
}

// A set is decodable when its template was posted before this datagram, or stands in it further up
// and was posted with it.
std::uint64_t ExporterTable::CountUnknownSets(const MeteredDatagram& datagram) const {
  const auto known = templates_.find(SourceOf(datagram.exporter, datagram.port));
  // Without a template of its own an exporter may still be decoded by those in the policy.
  if (known == templates_.end() && datagram.records > 0) return 0;
  std::uint64_t unknown = 0;
  std::vector<std::uint16_t> defined_here;
  ForEachSet(datagram.bytes, [&](const ExportSet& set) {
    if (set.holds_templates) {
      ForEachTemplate(set.bytes, [&](std::uint16_t id) { defined_here.push_back(id); });
    }
    if (!set.holds_data) return;
    bool decodable = false;
    if (known != templates_.end()) {
      const auto posted = known->second.find(set.id);
      decodable = posted != known->second.end() &&
                  (posted->second < datagrams_ ||
                   std::ranges::find(defined_here, set.id) != defined_here.end());
    }
    if (!decodable) ++unknown;
  });
  return unknown;
}

void ExporterTable::Merge(const ExporterTable& other) {
  for (const auto& [key, counts] : other.exporters_) exporters_[key].Add(counts);
  for (const auto& [source, templates] : other.templates_) {
    templates_[source].insert(templates.begin(), templates.end());
  }
}

std::vector<ExporterTable::Row> ExporterTable::Rows() const {
  std::vector<Row> rows;
  rows.reserve(exporters_.size());
  for (const auto& [key, counts] : exporters_) {
    Row& row = rows.emplace_back(Row{key, counts});
    const auto known = templates_.find(SourceOf(key.address, key.port));
    if (known != templates_.end() && key.version.HasTemplates()) {
      row.counts.templates = known->second.size();
    }
  }
  std::ranges::sort(rows, {}, &Row::key);
  return rows;
}

}  // namespace flow::host
