// SPDX-License-Identifier: Apache-2.0
#include "host/output/report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <tuple>

#include "host/names/key_text.h"

namespace flow::host {

bool ReportOptions::Wants(const GroupInfo& group) const {
  return group_ids.empty() || std::ranges::find(group_ids, group.id) != group_ids.end();
}

Ranking RankKeys(const GroupCounters& group, std::size_t top) {
  Ranking ranking;
  ranking.column_sums = group.pruned_sums;
  for (const int meter : group.info.ranking) {
    ranking.rank_sum += group.pruned_sums[static_cast<std::size_t>(meter)];
  }
  std::vector<KeyRow>& rows = ranking.rows;
  rows.reserve(group.table.size());
  group.table.ForEach([&](std::string_view key, const std::uint64_t* values) {
    KeyRow& row = rows.emplace_back(KeyRow{key, values, 0});
    for (const int meter : group.info.ranking) row.rank += values[meter];
    for (std::size_t i = 0; i < group.columns; ++i) ranking.column_sums[i] += values[i];
    ranking.rank_sum += row.rank;
  });
  const auto larger = [](const KeyRow& a, const KeyRow& b) {
    return std::tie(b.rank, a.key) < std::tie(a.rank, b.key);
  };
  const auto end = rows.begin() + static_cast<std::ptrdiff_t>(std::min(top, rows.size()));
  std::partial_sort(rows.begin(), end, rows.end(), larger);
  rows.erase(end, rows.end());
  return ranking;
}

std::vector<ExporterTable::Row> RealExporters(const Period& period, const StandIns& stand_ins) {
  std::vector<ExporterTable::Row> rows = period.exporters().Rows();
  for (ExporterTable::Row& row : rows) {
    row.key.endpoint.address = stand_ins.RealOf(row.key.endpoint.address);
  }
  std::ranges::sort(rows, {}, &ExporterTable::Row::key);
  return rows;
}

std::string KeyOf(const Report& report, const GroupCounters& group, std::string_view key) {
  return RealKey(report.stand_ins, group.info.key_kind, key);
}

std::string SamplingRate(const Report& report, const IpAddress& exporter) {
  const IpAddress known = report.stand_ins.Find(exporter);
  const std::string key = fmt::format("{:02X}", fmt::join(known.bytes(), "."));
  for (const auto& group : report.store.groups()) {
    if (!(group->info.guid == kExporterGroup)) continue;
    const auto notes = group->notes.find(key);
    if (notes == group->notes.end()) return "";
    const auto rate = notes->second.properties.find("netflow.sampling_rate");
    return rate == notes->second.properties.end() ? "" : rate->second;
  }
  return "";
}

Traffic TrafficOf(const Report& report) {
  Traffic traffic;
  for (const auto& group : report.store.groups()) {
    if (group->info.key_kind != KeyKind::kTotals) continue;
    group->table.ForEach([&](std::string_view key, const std::uint64_t* values) {
      if (key == "TOTALBW") {
        traffic.bytes += values[0];
        traffic.packets += values[1];
      } else {
        traffic.directed_bytes += values[0];
      }
    });
  }
  return traffic;
}

std::int64_t FlowDuration(const FlowTotals& flow) {
  if (flow.has_times == 0 && flow.duration_ms != 0) return flow.duration_ms;
  return std::max<std::int64_t>(flow.last_ms - flow.first_ms, 0);
}

}  // namespace flow::host
