// SPDX-License-Identifier: Apache-2.0
#include "host/store/exporter_rows.h"

#include <absl/hash/hash.h>
#include <fmt/format.h>

#include <string>

#include "host/base/memory_budget.h"

namespace flow::host {
namespace {

using Row = ExporterTable::Row;

template <auto kMember>
std::uint64_t Count(const ExporterHealth& health) {
  return health.row.counts.*kMember;
}
template <auto kMember>
std::uint64_t Book(const ExporterHealth& health) {
  return health.row.counts.books.*kMember;
}
template <auto kMember>
std::uint64_t Gap(const ExporterHealth& health) {
  return health.row.counts.gaps.*kMember;
}

std::uint64_t Seen(const ExporterHealth& health) {
  return static_cast<std::uint64_t>(health.row.counts.last_seen / kMicrosPerSecond);
}

constexpr HealthColumn kHealthColumns[] = {
    {"datagrams", HealthSum::kAdds, Count<&ExporterCounts::datagrams>},
    {"bytes", HealthSum::kAdds, Count<&ExporterCounts::bytes>},
    {"described", HealthSum::kAdds, Book<&RecordBooks::described>},
    {"reverse", HealthSum::kAdds, Book<&RecordBooks::reverse>},
    {"records", HealthSum::kAdds, Book<&RecordBooks::metered>},
    {"left_out", HealthSum::kAdds,
     [](const ExporterHealth& health) { return health.row.counts.books.LeftOutSum(); }},
    {"refused", HealthSum::kAdds,
     [](const ExporterHealth& health) { return health.row.counts.Refused(); }},
    {"templates", HealthSum::kLatest, Count<&ExporterCounts::templates>},
    {"sets_without_template", HealthSum::kAdds, Count<&ExporterCounts::unknown_sets>},
    {"broken_sets", HealthSum::kAdds, Book<&RecordBooks::broken_sets>},
    {"lost", HealthSum::kAdds,
     [](const ExporterHealth& health) { return health.row.counts.gaps.Lost(); }},
    {"lost_samples", HealthSum::kAdds,
     [](const ExporterHealth& health) { return health.row.counts.sample_gaps.Lost(); }},
    {"lost_here", HealthSum::kAdds, Gap<&SequenceGaps::here>},
    {"dropped", HealthSum::kAdds, Count<&ExporterCounts::dropped>},
    {"gaps", HealthSum::kAdds, Gap<&SequenceGaps::gaps>},
    {"late", HealthSum::kAdds, Gap<&SequenceGaps::late>},
    {"restarts", HealthSum::kAdds, Gap<&SequenceGaps::restarts>},
    {"jumps", HealthSum::kAdds, Gap<&SequenceGaps::jumps>},
    {"last_seen", HealthSum::kLatest, Seen},
    {"sampling_rate", HealthSum::kLatest,
     [](const ExporterHealth& health) { return health.sampling_rate; }},
};

std::string InsertHealth() {
  std::string names = "bucket, exporter, port, version, lost_unit, clock_offset_ms";
  std::string places = "?, ?, ?, ?, ?, ?";
  std::string sums = "clock_offset_ms = coalesce(excluded.clock_offset_ms, clock_offset_ms)";
  for (const HealthColumn& column : kHealthColumns) {
    names += fmt::format(", {}", column.name);
    places += ", ?";
    constexpr std::string_view kForms[] = {"{0} = {0} + excluded.{0}",
                                           "{0} = max({0}, excluded.{0})"};
    sums += ", ";
    sums += fmt::format(fmt::runtime(kForms[static_cast<std::size_t>(column.sum)]), column.name);
  }
  return fmt::format("INSERT INTO health_minute ({}) VALUES ({}) ON CONFLICT DO UPDATE SET {}",
                     names, places, sums);
}

// What a tier's span has, from the tier below.
std::string AddUpHealth(const Tier& below, const Tier& tier) {
  std::string names = "bucket, exporter, port, version, lost_unit, clock_offset_ms";
  std::string sums =
      "?1, exporter, port, version, max(lost_unit), CAST(round(avg(clock_offset_ms)) AS INTEGER)";
  for (const HealthColumn& column : kHealthColumns) {
    names += fmt::format(", {}", column.name);
    sums += fmt::format(", {}({})", column.sum == HealthSum::kAdds ? "sum" : "max", column.name);
  }
  return fmt::format(
      "INSERT OR REPLACE INTO health_{} ({}) SELECT {} FROM health_{} WHERE bucket >= ?1 AND "
      "bucket < ?1 + {} GROUP BY exporter, port, version",
      tier.name, names, sums, below.name, tier.seconds);
}

std::string AddUpLosses(const Tier& below, const Tier& tier) {
  return fmt::format(
      "INSERT OR REPLACE INTO losses_{} SELECT ?1, exporter, port, version, place, reason, "
      "sum(count), unit FROM losses_{} WHERE bucket >= ?1 AND bucket < ?1 + {} GROUP BY exporter, "
      "port, version, place, reason",
      tier.name, below.name, tier.seconds);
}

// What an exporter's own books say was lost.
void LossesOf(const Row& row, const std::function<void(const ExporterLoss& loss)>& visit) {
  const SourceNames source = NamesOf(row.key);
  const auto tell = [&](std::string_view place, std::string_view reason, std::uint64_t count,
                        std::string_view unit) {
    if (count > 0) visit({source, place, reason, count, unit});
  };
  const ExporterCounts& counts = row.counts;
  tell("way", "sequence", counts.gaps.Lost(), UnitOf(row.key.version));
  tell("way", "samples", counts.sample_gaps.Lost(), "samples");
  tell("here", "queue", counts.dropped, "datagrams");
  for (std::size_t i = 1; i < kRefusals; ++i) {
    tell("refused", RefusalId(static_cast<Refusal>(i)), counts.refused[i], "datagrams");
  }
  tell("left_out", "no_template", counts.unknown_sets, "sets");
  tell("left_out", "broken_sets", counts.books.broken_sets, "sets");
  for (std::size_t i = 0; i < kLeftOuts; ++i) {
    tell("left_out", LeftOutId(static_cast<LeftOut>(i)), counts.books.left_out[i], "records");
  }
}

}  // namespace

std::span<const HealthColumn> HealthColumns() { return kHealthColumns; }

void ForEachLoss(const std::vector<ExporterHealth>& exporters, const Losses& losses,
                 const std::function<void(const ExporterLoss& loss)>& visit) {
  for (const ExporterHealth& health : exporters) LossesOf(health.row, visit);
  for (const auto& [port, datagrams] : losses.kernel) {
    if (datagrams > 0) visit({{"", port, ""}, "here", "kernel", datagrams, "datagrams"});
  }
}

// All that are too many for rows of their own are an exporter without an address.
SourceNames NamesOf(const ExportSource& source) {
  if (source == ExportSource{}) return {};
  return {source.endpoint.address.Text(), source.endpoint.port, source.version.Text()};
}

ExporterRows::ExporterRows(Database* database)
    : database_(*database),
      health_(database->Prepare(InsertHealth())),
      loss_(database->Prepare("INSERT INTO losses_minute VALUES (?, ?, ?, ?, ?, ?, ?, ?) ON "
                              "CONFLICT DO UPDATE SET count = count + excluded.count")),
      exporter_(database->Prepare(
          "INSERT INTO exporters (exporter, port, version, first_seen, last_seen, templates, "
          "sampling_rate, clock_offset_ms) VALUES (?1, ?2, ?3, ?4, ?4, ?5, nullif(?6, 0), ?7) ON "
          "CONFLICT DO UPDATE SET last_seen = max(last_seen, excluded.last_seen), templates = "
          "excluded.templates, sampling_rate = coalesce(excluded.sampling_rate, sampling_rate), "
          "clock_offset_ms = coalesce(excluded.clock_offset_ms, clock_offset_ms)")) {
  Know();
}

void ExporterRows::Know() {
  known_.clear();
  Statement all = database_.Prepare("SELECT exporter, port, version FROM exporters");
  while (all.Step()) known_.insert(absl::HashOf(all.Text(0), all.Integer(1), all.Text(2)));
}

std::vector<ExporterHealth> ExporterRows::WithRoom(const std::vector<ExporterHealth>& exporters) {
  std::vector<ExporterHealth> kept;
  ExporterHealth others;
  std::uint64_t let_go = 0;
  for (const ExporterHealth& health : exporters) {
    const SourceNames source = NamesOf(health.row.key);
    const std::uint64_t hash =
        absl::HashOf(std::string_view(source.exporter), std::int64_t{source.port},
                     std::string_view(source.version));
    const ExporterCounts& counts = health.row.counts;
    const bool is_used = counts.books.metered > 0 || counts.is_regular;
    if (known_.contains(hash) || known_.size() < (is_used ? kMostExporters : kMostStrangers)) {
      known_.insert(hash);
      kept.push_back(health);
    } else {
      others.row.counts.Add(counts);
      ++let_go;
    }
  }
  if (let_go > 0) kept.push_back(others);
  NoteLetGo(LetGo::kTexts, let_go);
  return kept;
}

void ExporterRows::BindClock(Statement* statement, const Row& row, int place) {
  const auto& offset = row.counts.clock_offset;
  if (offset && row.key != ExportSource{}) {
    statement->Bind(place, std::int64_t{*offset / 1000});
  } else {
    statement->BindNull(place);
  }
}

void ExporterRows::BindSource(Statement* statement, const SourceNames& source, int place) {
  statement->Bind(place, source.exporter)
      .Bind(place + 1, std::uint64_t{source.port})
      .Bind(place + 2, source.version);
}

void ExporterRows::Write(std::int64_t minute, const std::vector<ExporterHealth>& exporters,
                         const Losses& losses) {
  const std::vector<ExporterHealth> kept = WithRoom(exporters);
  for (const ExporterHealth& health : kept) {
    const Row& row = health.row;
    const SourceNames source = NamesOf(row.key);
    health_.Bind(1, minute);
    BindSource(&health_, source, 2);
    health_.Bind(5, UnitOf(row.key.version));
    BindClock(&health_, row, 6);
    int place = 6;
    for (const HealthColumn& column : kHealthColumns) health_.Bind(++place, column.value(health));
    health_.Run();
    BindSource(&exporter_, source, 1);
    BindClock(&exporter_, row, 7);
    exporter_.Bind(4, Seen(health))
        .Bind(5, row.counts.templates)
        .Bind(6, health.sampling_rate)
        .Run();
  }
  ForEachLoss(kept, losses, [&](const ExporterLoss& loss) {
    loss_.Bind(1, minute);
    BindSource(&loss_, loss.source, 2);
    loss_.Bind(5, loss.place).Bind(6, loss.reason).Bind(7, loss.count).Bind(8, loss.unit).Run();
  });
}

void ExporterRows::AddUp(std::size_t tier, std::int64_t bucket) {
  for (const std::string& sql :
       {AddUpHealth(kTiers[tier - 1], kTiers[tier]), AddUpLosses(kTiers[tier - 1], kTiers[tier])}) {
    database_.Prepare(sql).Bind(1, bucket).Run();
  }
}

void ExporterRows::DropSilentSince(std::int64_t time) {
  if (time <= 0) return;
  database_.Prepare("DELETE FROM exporters WHERE last_seen < ?").Bind(1, time).Run();
  Know();
}

void ExporterRows::DropBefore(const Tier& tier, std::int64_t bucket) {
  database_.Execute(
      fmt::format("DELETE FROM health_{0} WHERE bucket < {1}; "
                  "DELETE FROM losses_{0} WHERE bucket < {1}",
                  tier.name, bucket));
}

}  // namespace flow::host
