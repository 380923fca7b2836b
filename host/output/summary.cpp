// SPDX-License-Identifier: Apache-2.0
#include "host/output/summary.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>

#include "host/base/number_text.h"
#include "host/base/printable.h"
#include "host/names/key_text.h"
#include "host/output/books.h"
#include "host/output/columns.h"
#include "host/output/text_table.h"

namespace flow::host {
namespace {

using Align = TextTable::Align;

// A number that is made of parts; a single part says it all.
std::string Counted(std::uint64_t sum, const std::vector<std::string>& parts) {
  if (parts.size() == 1) return parts.front();
  return fmt::format("{}: {}", Thousands(sum), fmt::join(parts, ", "));
}

// SummaryPrinter holds what every part of the summary needs.
class SummaryPrinter {
 public:
  SummaryPrinter(const Report& report, const ReportOptions& options, std::FILE* out)
      : report_(report), options_(options), traffic_(TrafficOf(report)), out_(out) {}

  void Print() {
    PrintCaptures();
    PrintTotals();
    PrintExporters();
    if (options_.top == 0) return;
    for (const auto& group : report_.store.groups()) {
      if (group->size() > 0 && options_.Wants(group->info)) PrintGroup(*group);
    }
  }

 private:
  [[nodiscard]] std::string Bytes(std::uint64_t bytes) const {
    return options_.exact ? Thousands(bytes) : SiBytes(bytes);
  }
  [[nodiscard]] std::string Value(Unit unit, std::uint64_t value) const {
    return unit == Unit::kBytes ? Bytes(value) : Thousands(value);
  }
  [[nodiscard]] std::string CellText(ColumnKind kind, const Cell& cell) const;
  // The columns that have something to say about these rows.
  template <class Row>
  [[nodiscard]] std::vector<const Column<Row>*> Telling(std::span<const Column<Row>> columns,
                                                        std::span<const Row> rows) const;
  template <class Row>
  void AddCells(const std::vector<const Column<Row>*>& columns, const Row& row,
                std::vector<std::string>* cells) const;
  [[nodiscard]] std::string KeyText(const GroupCounters& group, std::string_view key) const;
  void Heading(std::string_view title, std::size_t shown, std::size_t all,
               std::uint64_t pruned = 0) const;
  void Line(std::string_view label, std::string_view text) const;

  void PrintCaptures();
  void PrintTotals();
  void PrintRecords(const RecordBooks& books);
  void PrintRejected(const ExporterCounts& sum);
  void PrintLost();
  void PrintTraffic();
  [[nodiscard]] std::string UnclaimedPorts() const;
  void PrintOtherPackets();
  [[nodiscard]] std::vector<ExporterTable::Row> TopExporters() const;
  void PrintExporters();
  void PrintGroup(const GroupCounters& group);

  const Report& report_;
  const ReportOptions& options_;
  Traffic traffic_;
  std::FILE* out_;
};

// Texts stand at the left, numbers at the right.
template <class Row>
void AddHeadings(const std::vector<const Column<Row>*>& columns, TextTable* table) {
  for (const Column<Row>* column : columns) {
    const bool is_left = column->kind == ColumnKind::kText || column->kind == ColumnKind::kState ||
                         column->kind == ColumnKind::kTime;
    table->AddColumn(std::string(column->heading), is_left ? Align::kLeft : Align::kRight);
  }
}

std::string SummaryPrinter::CellText(ColumnKind kind, const Cell& cell) const {
  const auto* const text = std::get_if<std::string>(&cell);
  const auto number = [&] {
    const auto* const natural = std::get_if<std::uint64_t>(&cell);
    return natural != nullptr ? static_cast<std::int64_t>(*natural) : std::get<std::int64_t>(cell);
  };
  switch (kind) {
    case ColumnKind::kText:
    case ColumnKind::kAmount:
      return Printable(*text);
    case ColumnKind::kRate:
      return fmt::format("1:{}", Printable(*text));
    case ColumnKind::kCount:
      return Thousands(static_cast<std::uint64_t>(number()));
    case ColumnKind::kBytes:
      return Bytes(static_cast<std::uint64_t>(number()));
    case ColumnKind::kTime:
      return TimeText(number() / 1000);
    case ColumnKind::kDuration:
      return DurationText(number());
    case ColumnKind::kOffset:
      return OffsetText(number());
    case ColumnKind::kState:
      return "closed";
  }
  return "";
}

template <class Row>
std::vector<const Column<Row>*> SummaryPrinter::Telling(std::span<const Column<Row>> columns,
                                                        std::span<const Row> rows) const {
  std::vector<const Column<Row>*> telling;
  for (const Column<Row>& column : columns) {
    const auto applies = [&](const Row& row) { return column.Applies(report_, row); };
    if (!column.heading.empty() && std::ranges::any_of(rows, applies)) telling.push_back(&column);
  }
  return telling;
}

template <class Row>
void SummaryPrinter::AddCells(const std::vector<const Column<Row>*>& columns, const Row& row,
                              std::vector<std::string>* cells) const {
  for (const Column<Row>* column : columns) {
    const bool is_state = column->kind == ColumnKind::kState;
    cells->push_back(column->Applies(report_, row)
                         ? CellText(column->kind, column->value(report_, row))
                     : is_state ? "open"
                                : "-");
  }
}

std::string SummaryPrinter::KeyText(const GroupCounters& group, std::string_view key) const {
  const std::string shown = KeyOf(report_, group, key);
  if (options_.raw_keys) return Printable(shown);
  std::string text = ReadableKey(group.info.key_kind, shown);
  const auto notes = group.notes.find(key);
  if (notes == group.notes.end()) return text;
  if (!notes->second.label.empty()) text += fmt::format(" [{}]", Printable(notes->second.label));
  for (const auto& [name, value] : notes->second.properties) {
    text += fmt::format(" {}={}", Printable(name), Printable(value));
  }
  return text;
}

void SummaryPrinter::Heading(std::string_view title, std::size_t shown, std::size_t all,
                             std::uint64_t pruned) const {
  const std::string count = shown < all ? fmt::format("top {} of {}", shown, Thousands(all))
                                        : fmt::format("all {}", Thousands(all));
  const std::string small =
      pruned == 0 ? "" : fmt::format(", {} small ones let go", Thousands(pruned));
  fmt::print(out_, "\n{} ({}{})\n", Printable(title), count, small);
}

void SummaryPrinter::Line(std::string_view label, std::string_view text) const {
  fmt::print(out_, "  {:<17} {}\n", label, text);
}

void SummaryPrinter::PrintCaptures() {
  if (!report_.title.empty()) fmt::print(out_, "{}\n", report_.title);
  for (const CaptureResult& capture : report_.captures) {
    if (capture.packets == 0 && !capture.error.empty()) continue;
    fmt::print(out_, "{}: {} packets{}\n", Printable(capture.path), Thousands(capture.packets),
               capture.error.empty() ? "" : ", not read to its end");
  }
  const IntakeCounts& intake = report_.intake;
  if (intake.Packets() == 0 || !report_.title.empty()) return;
  const std::int64_t span = (intake.last - intake.first) / 1000;
  fmt::print(out_, "{} to {} UTC ({})\n", TimeText(intake.first / kMicrosPerSecond),
             TimeText(intake.last / kMicrosPerSecond), DurationText(span));
}

void SummaryPrinter::PrintTotals() {
  const ExporterCounts sum = SumOf(report_);
  fmt::print(out_, "\n");
  Line("Export datagrams", fmt::format("{} ({})", Thousands(sum.datagrams), SiBytes(sum.bytes)));
  PrintRejected(sum);
  PrintLost();
  PrintRecords(sum.books);
  PrintTraffic();
  if (sum.unknown_sets > 0) {
    Line("Not decoded",
         fmt::format("{} data sets whose template is unknown", Thousands(sum.unknown_sets)));
  }
  if (sum.books.broken_sets > 0) {
    Line("Broken",
         fmt::format("{} sets with impossible lengths", Thousands(sum.books.broken_sets)));
  }
  if (report_.store.stray_updates > 0) {
    Line("Not counted", fmt::format("{} updates of meters that their group does not have",
                                    Thousands(report_.store.stray_updates)));
  }
  PrintOtherPackets();
  if (report_.seconds >= 1) {
    const double rate = static_cast<double>(sum.books.metered) / report_.seconds;
    Line("Took", fmt::format("{:.1f} s, {} records a second", report_.seconds,
                             Thousands(static_cast<std::uint64_t>(rate))));
  }
}

// Every record that the datagrams describe is metered, once or in both directions, or left out.
void SummaryPrinter::PrintRecords(const RecordBooks& books) {
  std::string text = Thousands(books.metered);
  if (books.reverse > 0) {
    text += fmt::format(", {} of them second directions", Thousands(books.reverse));
  }
  Line("Flow records", text);
  if (books.LeftOutSum() == 0) return;
  std::vector<std::string> reasons;
  for (std::size_t i = 0; i < kLeftOuts; ++i) {
    if (books.left_out[i] == 0) continue;
    reasons.push_back(
        fmt::format("{} {}", Thousands(books.left_out[i]), LeftOutText(static_cast<LeftOut>(i))));
  }
  Line("Left out", fmt::format("{} of {}: {}", Thousands(books.LeftOutSum()),
                               Thousands(books.described), fmt::join(reasons, ", ")));
}

void SummaryPrinter::PrintRejected(const ExporterCounts& sum) {
  if (sum.Refused() == 0) return;
  std::vector<std::string> reasons;
  for (std::size_t i = 0; i < kRefusals; ++i) {
    if (sum.refused[i] == 0) continue;
    reasons.push_back(
        fmt::format("{} {}", Thousands(sum.refused[i]), RefusalText(static_cast<Refusal>(i))));
  }
  Line("Rejected", Counted(sum.Refused(), reasons));
}

using UnitSums = std::map<std::string_view, std::uint64_t>;

// "12 datagrams, 3 samples"; empty where there are none.
std::string UnitsText(const UnitSums& sums) {
  std::vector<std::string> parts;
  for (const auto& [unit, sum] : sums) {
    if (sum > 0) parts.push_back(fmt::format("{} {}", Thousands(sum), unit));
  }
  return fmt::format("{}", fmt::join(parts, ", "));
}

// What never reached a meter: lost in this host, and lost before it, as sequence numbers tell.
void SummaryPrinter::PrintLost() {
  std::vector<std::string> here;
  if (const std::uint64_t kernel = report_.losses.Kernel(); kernel > 0) {
    here.push_back(fmt::format("{} datagrams by full sockets", Thousands(kernel)));
  }
  if (report_.losses.queue > 0) {
    here.push_back(fmt::format("{} datagrams by full queues", Thousands(report_.losses.queue)));
  }
  if (!here.empty()) Line("Lost here", fmt::format("{}", fmt::join(here, ", ")));

  UnitSums lost;
  UnitSums lost_here;
  std::uint64_t jumps = 0;
  for (const ExporterTable::Row& row : report_.exporters) {
    const ExporterCounts& counts = row.counts;
    lost[UnitOf(row.key.version)] += counts.gaps.Lost();
    lost["samples"] += counts.sample_gaps.Lost();
    lost_here[UnitOf(row.key.version)] += counts.gaps.here;
    lost_here["samples"] += counts.sample_gaps.here;
    jumps += counts.gaps.jumps + counts.sample_gaps.jumps;
  }
  const std::string before = UnitsText(lost);
  const std::string off = UnitsText(lost_here);
  if (!before.empty() || !off.empty()) {
    Line("Lost on the way",
         fmt::format(
             "{}, by sequence numbers{}", before.empty() ? "nothing" : before,
             off.empty() ? "" : fmt::format(", without {} for full sockets and queues", off)));
  }
  if (jumps > 0) Line("Sequence jumps", fmt::format("{}, not counted as lost", Thousands(jumps)));
  if (report_.streams_evicted > 0) {
    Line("Not followed", fmt::format("{} streams of sequence numbers, for want of room",
                                     Thousands(report_.streams_evicted)));
  }
}

// The number to compare with the exporters' own.
void SummaryPrinter::PrintTraffic() {
  if (traffic_.packets == 0 && traffic_.bytes == 0) return;
  Line("Traffic", fmt::format("{} bytes ({}) in {} packets, all flow records added up",
                              Thousands(traffic_.bytes), SiBytes(traffic_.bytes),
                              Thousands(traffic_.packets)));
  // What has no addresses, or is of IPv4 and not metered by host, goes nowhere.
  if (traffic_.directed_bytes >= traffic_.bytes) return;
  Line("No direction", fmt::format("{} bytes of it, whose addresses are not metered",
                                   Thousands(traffic_.bytes - traffic_.directed_bytes)));
}

// The busiest ports that no protocol claims, as in "9996, 53, ...".
std::string SummaryPrinter::UnclaimedPorts() const {
  constexpr std::size_t kShown = 5;
  std::vector<std::pair<std::uint64_t, std::uint16_t>> ports;
  for (const auto& [port, datagrams] : report_.intake.unclaimed_ports) {
    ports.emplace_back(datagrams, port);
  }
  std::ranges::sort(ports, std::greater{});
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < std::min(ports.size(), kShown); ++i) {
    texts.push_back(std::to_string(ports[i].second));
  }
  if (ports.size() > kShown) texts.emplace_back("...");
  return fmt::format("{}", fmt::join(texts, ", "));
}

void SummaryPrinter::PrintOtherPackets() {
  const IntakeCounts& intake = report_.intake;
  std::vector<std::string> kinds;
  std::uint64_t others = intake.Unclaimed();
  if (others > 0) {
    kinds.push_back(fmt::format("{} UDP to ports that no protocol claims ({})", Thousands(others),
                                UnclaimedPorts()));
  }
  for (std::size_t i = 1; i < kPacketKinds; ++i) {
    if (intake.packets[i] == 0) continue;
    others += intake.packets[i];
    kinds.push_back(
        fmt::format("{} {}", Thousands(intake.packets[i]), KindText(static_cast<PacketKind>(i))));
  }
  if (others == 0) return;
  Line("Other packets", Counted(others, kinds));
}

// The busiest exporters, in the order of their addresses.
std::vector<ExporterTable::Row> SummaryPrinter::TopExporters() const {
  std::vector<ExporterTable::Row> rows = report_.exporters;
  std::ranges::stable_sort(rows, std::greater{},
                           [](const auto& row) { return row.counts.datagrams; });
  rows.resize(std::min(rows.size(), options_.top));
  std::ranges::sort(rows, {}, &ExporterTable::Row::key);
  return rows;
}

void SummaryPrinter::PrintExporters() {
  const std::vector<ExporterTable::Row> rows = TopExporters();
  if (rows.empty()) return;
  const auto columns = Telling<ExporterTable::Row>(ExporterColumns(), rows);
  TextTable table;
  AddHeadings(columns, &table);
  for (const ExporterTable::Row& row : rows) {
    std::vector<std::string> cells;
    AddCells(columns, row, &cells);
    table.AddRow(std::move(cells));
  }
  Heading("Exporters", rows.size(), report_.exporters.size());
  table.Print(out_);
}

bool RanksByBytes(const GroupInfo& group) {
  return std::ranges::all_of(group.ranking, [&](int index) {
    const auto meter = std::ranges::find(group.meters, index, &MeterInfo::index);
    return meter != group.meters.end() && meter->unit == Unit::kBytes;
  });
}

void SummaryPrinter::PrintGroup(const GroupCounters& group) {
  // The directions are few, and parts of the total beside them: all are shown, without shares.
  const bool totals = group.info.key_kind == KeyKind::kTotals;
  const bool is_flows = &group == &report_.store.flow_group();
  const Ranking ranking(group, totals ? group.size() : options_.top);
  std::vector<const MeterInfo*> meters;
  for (const MeterInfo& meter : group.info.meters) {
    const auto column = static_cast<std::size_t>(meter.index);
    if (is_flows || ranking.column_sums[column] != 0) meters.push_back(&meter);
  }
  std::vector<FlowTotals> flows;
  if (is_flows) ranking.ForEach([&](const KeyRow& row) { flows.push_back(*row.flow); });
  const auto columns = Telling<FlowTotals>(FlowColumns(), flows);
  // A share is one of all traffic, whatever the group leaves out or counts for two keys.
  const std::uint64_t whole =
      RanksByBytes(group.info) && traffic_.bytes > 0 ? traffic_.bytes : ranking.rank_sum;
  TextTable table;
  table.AddColumn(group.info.key_title, Align::kLeft);
  if (!totals) table.AddColumn("Share", Align::kRight);
  for (const MeterInfo* meter : meters) table.AddColumn(Printable(meter->title), Align::kRight);
  AddHeadings(columns, &table);
  ranking.ForEach([&](const KeyRow& row) {
    std::vector<std::string> cells{KeyText(group, row.key)};
    if (!totals) cells.push_back(Percent(row.rank, whole));
    for (const MeterInfo* meter : meters) {
      cells.push_back(Value(meter->unit, row.values[meter->index]));
    }
    if (is_flows) AddCells(columns, *row.flow, &cells);
    table.AddRow(std::move(cells));
  });
  Heading(group.info.title, ranking.size(), group.size(), group.pruned_keys);
  table.Print(out_);
}

}  // namespace

void PrintSummary(const Report& report, const ReportOptions& options, std::FILE* out) {
  SummaryPrinter(report, options, out).Print();
  std::fflush(out);
}

}  // namespace flow::host
