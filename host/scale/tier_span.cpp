// SPDX-License-Identifier: Apache-2.0
#include "host/scale/tier_span.h"

#include <algorithm>
#include <utility>

#include "host/base/memory_budget.h"
#include "host/intake/sequence.h"
#include "host/store/exporter_rows.h"

namespace flow::host {
namespace {

TierSpan::Source SourceOf(const SourceNames& names) {
  return {names.exporter, names.port, names.version};
}

// Nothing of those that are too many for rows of their own.
std::optional<std::int64_t> ClockOf(const ExporterTable::Row& row) {
  const auto& offset = row.counts.clock_offset;
  if (!offset || row.key == ExportSource{}) return std::nullopt;
  return *offset / 1000;
}

void AddHealth(const TierSpan::Health& part, TierSpan::Health* into) {
  into->lost_unit = std::max(into->lost_unit, part.lost_unit);
  if (part.clock_offset_ms) into->clock_offset_ms = part.clock_offset_ms;
  into->values.resize(part.values.size());
  for (std::size_t i = 0; i < part.values.size(); ++i) {
    std::uint64_t& value = into->values[i];
    const bool adds = HealthColumns()[i].sum == HealthSum::kAdds;
    value = adds ? value + part.values[i] : std::max(value, part.values[i]);
  }
}

}  // namespace

void BucketSums::Add(const BucketSums& other) {
  ran += other.ran;
  datagrams += other.datagrams;
  records += other.records;
  bytes += other.bytes;
  packets += other.packets;
  flows += other.flows;
  flows_not_kept += other.flows_not_kept;
}

TierSpan TierSpan::OfMinute(StoredMinute minute) {
  TierSpan span;
  span.bucket = minute.bucket;
  span.counts = std::move(minute.counts);
  span.numbers = std::move(minute.numbers);
  for (const ExporterHealth& exporter : minute.exporters) {
    Health health{std::string(UnitOf(exporter.row.key.version)), ClockOf(exporter.row), {}};
    for (const HealthColumn& column : HealthColumns()) {
      health.values.push_back(column.value(exporter));
    }
    AddHealth(health, &span.health[SourceOf(NamesOf(exporter.row.key))]);
    span.sums.datagrams += exporter.row.counts.datagrams;
    span.sums.records += exporter.row.counts.books.metered;
  }
  ForEachLoss(minute.exporters, minute.losses, [&](const ExporterLoss& loss) {
    span.losses[{SourceOf(loss.source), std::string(loss.place), std::string(loss.reason),
                 std::string(loss.unit)}] += loss.count;
  });
  const auto [bytes, packets] = span.counts.AllTraffic();
  span.sums.ran = static_cast<std::uint64_t>(std::clamp<std::int64_t>(
      minute.to - std::max(minute.from, minute.bucket), 0, kMinuteSeconds));
  span.sums.bytes = bytes;
  span.sums.packets = packets;
  span.sums.flows = minute.flows;
  span.sums.flows_not_kept = minute.flows_not_kept;
  return span;
}

// Keys go for want of memory alone.
void TierSpan::Add(const TierSpan& part) {
  counts.Add(part.counts);
  counts.PruneTo(Shares().stored_keys);
  for (const auto& [source, sent] : part.health) AddHealth(sent, &health[source]);
  for (const auto& [key, count] : part.losses) losses[key] += count;
  sums.Add(part.sums);
}

}  // namespace flow::host
