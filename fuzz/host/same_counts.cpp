// SPDX-License-Identifier: Apache-2.0
#include "fuzz/host/same_counts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/engine/flow_totals.h"

namespace flow::fuzz {
namespace {

using host::ExporterCounts;
using host::ExporterTable;
using host::FlowTotals;
using host::GroupCounters;
using host::SequenceGaps;
using host::StatsStore;

// Texts have other numbers in another store.
FlowTotals WithoutTexts(FlowTotals flow) {
  flow.tag = flow.text = flow.vrf = flow.app = flow.user = 0;
  return flow;
}

FlowTotals WithoutRecordWords(FlowTotals flow) {
  flow = WithoutTexts(flow);
  std::ranges::fill(flow.as_numbers, 0);
  std::ranges::fill(flow.next_hops, 0);
  std::memset(flow.macs, 0, sizeof(flow.macs));
  return flow;
}

constexpr std::pair<const char*, std::uint32_t FlowTotals::*> kTexts[] = {
    {"tag", &FlowTotals::tag},
    {"text", &FlowTotals::text},
    {"vrf", &FlowTotals::vrf},
    {"app", &FlowTotals::app},
    {"user", &FlowTotals::user}};

std::string TextsDifference(const StatsStore& one, const StatsStore& other, const FlowTotals& a,
                            const FlowTotals& b) {
  for (const auto& [name, text] : kTexts) {
    if (one.TextOf(a.*text) != other.TextOf(b.*text)) {
      return fmt::format("{} '{}' and '{}'", name, one.TextOf(a.*text), other.TextOf(b.*text));
    }
  }
  return {};
}

std::string TotalsDifference(const FlowTotals& a, const FlowTotals& b) {
  if (std::memcmp(&a, &b, sizeof(FlowTotals)) == 0) return {};
  const auto* const bytes_a = reinterpret_cast<const std::uint8_t*>(&a);
  const auto* const at = std::mismatch(bytes_a, bytes_a + sizeof(FlowTotals),
                                       reinterpret_cast<const std::uint8_t*>(&b))
                             .first;
  return fmt::format("byte {} of its totals", at - bytes_a);
}

std::string KeyDifference(const GroupCounters& group, const std::uint64_t* a,
                          const std::uint64_t* b) {
  if (b == nullptr) return "is missing in the other";
  for (std::size_t i = 0; i < group.columns; ++i) {
    if (a[i] != b[i]) return fmt::format("column {}: {} and {}", i, a[i], b[i]);
  }
  return {};
}

std::string NotesDifference(const GroupCounters& a, const GroupCounters& b) {
  for (const auto& [key, notes] : a.notes) {
    const auto found = b.notes.find(key);
    if (found == b.notes.end()) return fmt::format("notes of {} are missing in the other", key);
    const host::KeyNotes& others = found->second;
    if (notes.label != others.label || notes.description != others.description) {
      return fmt::format("label of {}: {} and {}", key, notes.label, others.label);
    }
    if (notes.properties != others.properties) return fmt::format("properties of {}", key);
  }
  return {};
}

std::string FlowsDifference(const StatsStore& one, const StatsStore& other,
                            const OfSeveralLanes& of_several_lanes) {
  std::string found;
  one.flows().ForEach([&](std::string_view key, const FlowTotals& flow) {
    if (!found.empty()) return;
    const auto same = other.flows().Find(key);
    if (!same) {
      found = "is missing in the other";
    } else if (of_several_lanes(key)) {
      found = TotalsDifference(WithoutRecordWords(flow), WithoutRecordWords(*same));
    } else {
      found = TextsDifference(one, other, flow, *same);
      if (found.empty()) found = TotalsDifference(WithoutTexts(flow), WithoutTexts(*same));
    }
    if (!found.empty()) found = fmt::format("flow {}: {}", key, found);
  });
  return found;
}

// In both directions the same, as long as there are as many.
std::string StoreDifference(const StatsStore& one, const StatsStore& other,
                            const OfSeveralLanes& of_several_lanes) {
  if (one.records != other.records) {
    return fmt::format("records: {} and {}", one.records, other.records);
  }
  for (const auto& group : one.groups()) {
    const auto same = std::ranges::find_if(
        other.groups(), [&](const auto& each) { return each->info.guid == group->info.guid; });
    if (same == other.groups().end())
      return fmt::format("no group {} in the other", group->info.id);
    std::string found = group->flows ? FlowsDifference(one, other, of_several_lanes) : "";
    group->table.ForEach([&](std::string_view key, const std::uint64_t* values) {
      if (!found.empty()) return;
      found = KeyDifference(*group, values, (*same)->table.Find(key));
      if (!found.empty()) found = fmt::format("{} {}: {}", group->info.id, key, found);
    });
    if (!found.empty()) return found;
    if (group->size() != (*same)->size()) {
      return fmt::format("keys of {}: {} and {}", group->info.id, group->size(), (*same)->size());
    }
    // The plug-in gives a name that comes without its application to the application named last,
    // whoever named it.
    if (group->info.id != "application_tags") found = NotesDifference(*group, **same);
    if (!found.empty()) return fmt::format("{}: {}", group->info.id, found);
  }
  return {};
}

constexpr std::pair<const char*, std::uint64_t SequenceGaps::*> kGaps[] = {
    {"missing", &SequenceGaps::missing},   {"came", &SequenceGaps::came},
    {"gaps", &SequenceGaps::gaps},         {"late", &SequenceGaps::late},
    {"restarts", &SequenceGaps::restarts}, {"jumps", &SequenceGaps::jumps}};
// Not how many templates are known: of two harvests the one says so that has the later datagram,
// which after a clock was set back is the first one.
constexpr std::pair<const char*, std::uint64_t ExporterCounts::*> kCounts[] = {
    {"datagrams", &ExporterCounts::datagrams},
    {"bytes", &ExporterCounts::bytes},
    {"unknown sets", &ExporterCounts::unknown_sets}};

std::string CountsDifference(const ExporterCounts& a, const ExporterCounts& b) {
  for (const auto& [name, count] : kCounts) {
    if (a.*count != b.*count) return fmt::format("{}: {} and {}", name, a.*count, b.*count);
  }
  for (const auto& [name, count] : kGaps) {
    if (a.gaps.*count != b.gaps.*count || a.sample_gaps.*count != b.sample_gaps.*count) {
      return fmt::format("gaps, {}: {} and {}", name, a.gaps.*count, b.gaps.*count);
    }
  }
  if (a.refused != b.refused) return "what was refused";
  if (a.books.described != b.books.described || a.books.reverse != b.books.reverse) {
    return fmt::format("described: {} and {}", a.books.described, b.books.described);
  }
  if (a.books.metered != b.books.metered) {
    return fmt::format("metered: {} and {}", a.books.metered, b.books.metered);
  }
  if (a.books.left_out != b.books.left_out) return "what was left out";
  if (a.last_seen != b.last_seen) return "last seen";
  return {};
}

std::string ExporterDifference(const ExporterTable& one, const ExporterTable& other) {
  const auto rows = one.Rows();
  const auto others = other.Rows();
  if (rows.size() != others.size()) {
    return fmt::format("exporters: {} and {}", rows.size(), others.size());
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::string name = rows[i].key.endpoint.Text() + " " + rows[i].key.version.Text();
    if (rows[i].key != others[i].key) return "no exporter " + name + " in the other";
    const std::string found = CountsDifference(rows[i].counts, others[i].counts);
    if (!found.empty()) return name + " " + found;
  }
  return {};
}

}  // namespace

std::string Difference(const host::Period& one, const host::Period& other,
                       const OfSeveralLanes& of_several_lanes) {
  const std::string found = ExporterDifference(one.exporters(), other.exporters());
  return found.empty() ? StoreDifference(one.store(), other.store(), of_several_lanes) : found;
}

}  // namespace flow::fuzz
