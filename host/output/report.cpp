// SPDX-License-Identifier: Apache-2.0
#include "host/output/report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "host/names/key_text.h"

namespace flow::host {

bool ReportOptions::Wants(const GroupInfo& group) const {
  return group_ids.empty() || std::ranges::find(group_ids, group.id) != group_ids.end();
}

Ranking::Ranking(const GroupCounters& group, std::size_t top)
    : column_sums(group.pruned_sums), group_(group) {
  for (const int meter : group.info.ranking) {
    rank_sum += group.pruned_sums[static_cast<std::size_t>(meter)];
  }
  const auto take = [&](KeyTable::Row row, const std::uint64_t* values) {
    std::uint64_t rank = 0;
    for (const int meter : group.info.ranking) rank += values[meter];
    for (std::size_t i = 0; i < group.columns; ++i) column_sums[i] += values[i];
    rank_sum += rank;
    Take({rank, row}, top);
  };
  rows_.reserve(std::min(top, group.size()));
  if (group.flows) {
    group.flows->rows().ForEachRow(
        [&](KeyTable::Row row) { take(row, group.flows->Whole(KeyTable::ValuesOf(row)).meters); });
  } else {
    group.table.ForEachRow([&](KeyTable::Row row) { take(row, KeyTable::ValuesOf(row)); });
  }
  std::ranges::sort(rows_, [this](const auto& a, const auto& b) { return IsLarger(a, b); });
}

// The rows are a heap once they are as many as are wanted: its top is the smallest.
void Ranking::Take(const Ranked& each, std::size_t top) {
  const auto larger = [this](const Ranked& a, const Ranked& b) { return IsLarger(a, b); };
  if (rows_.size() < top) {
    rows_.push_back(each);
    if (rows_.size() == top) std::ranges::make_heap(rows_, larger);
  } else if (top > 0 && larger(each, rows_.front())) {
    std::ranges::pop_heap(rows_, larger);
    rows_.back() = each;
    std::ranges::push_heap(rows_, larger);
  }
}

bool Ranking::IsLarger(const Ranked& a, const Ranked& b) const {
  if (a.rank != b.rank) return a.rank > b.rank;
  const std::string_view key_a = KeyTable::KeyOf(a.row);
  const std::string_view key_b = KeyTable::KeyOf(b.row);
  return group_.flows ? ComesBefore(key_a, key_b) : key_a < key_b;
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
