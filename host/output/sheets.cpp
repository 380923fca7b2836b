#include "host/output/sheets.h"

#include <vector>

#include "host/names/key_text.h"

namespace flow::host {
namespace {

constexpr bool kNumber = true;

void WriteExporters(const Report& report, SheetSink* sink) {
  const SheetColumn columns[] = {
      {"address"},
      {"port", kNumber},
      {"version"},
      {"datagrams", kNumber},
      {"records", kNumber},
      {"bytes", kNumber},
      {"templates", kNumber},
      {"sets_without_template", kNumber},
      {"rejected", kNumber},
      {"lost", kNumber},
      {"lost_unit"},
      {"lost_samples", kNumber},
      {"sampling_rate"},
  };
  sink->Begin("exporters", columns);
  for (const ExporterTable::Row& row : report.exporters) {
    const ExporterCounts& counts = row.counts;
    const Cell cells[] = {row.key.endpoint.address.Text(),
                          std::uint64_t{row.key.endpoint.port},
                          row.key.version.Text(),
                          counts.datagrams,
                          counts.records,
                          counts.bytes,
                          counts.templates,
                          counts.unknown_sets,
                          counts.Refused(),
                          counts.gaps.Lost(),
                          std::string(UnitOf(row.key.version)),
                          counts.sample_gaps.Lost(),
                          SamplingRate(report.store, row.key.endpoint.address)};
    sink->Row(cells);
  }
  sink->End();
}

std::vector<SheetColumn> ColumnsOf(const GroupCounters& group, bool is_flows) {
  std::vector<SheetColumn> columns{{"key"}, {"text"}};
  for (const MeterInfo& meter : group.info.meters) columns.push_back({meter.id, kNumber});
  if (is_flows) {
    columns.insert(columns.end(), {{"volume_bytes_forward", kNumber},
                                   {"volume_bytes_reverse", kNumber},
                                   {"volume_packets_forward", kNumber},
                                   {"volume_packets_reverse", kNumber},
                                   {"first_ms", kNumber},
                                   {"last_ms", kNumber},
                                   {"duration_ms", kNumber},
                                   {"closes", kNumber},
                                   {"tag"},
                                   {"flow_text"}});
  }
  return columns;
}

void AddFlowCells(const StatsStore& store, const FlowTotals& flow, std::vector<Cell>* cells) {
  const Cell added[] = {flow.bytes[0],
                        flow.bytes[1],
                        flow.packets[0],
                        flow.packets[1],
                        flow.first_ms,
                        flow.last_ms,
                        FlowDuration(flow),
                        std::uint64_t{flow.closes},
                        std::string(store.TextOf(flow.tag)),
                        std::string(store.TextOf(flow.text))};
  cells->insert(cells->end(), std::begin(added), std::end(added));
}

void WriteGroup(const StatsStore& store, const GroupCounters& group, bool only_top_n,
                SheetSink* sink) {
  const bool is_flows = &group == &store.flow_group();
  const std::size_t top = only_top_n ? group.info.top_n : group.table.size();
  sink->Begin(group.info.id, ColumnsOf(group, is_flows));
  std::vector<Cell> cells;
  for (const KeyRow& row : RankKeys(group, top).rows) {
    cells.assign({std::string(row.key), ReadableKey(group.info.key_kind, row.key)});
    for (const MeterInfo& meter : group.info.meters) cells.emplace_back(row.values[meter.index]);
    if (is_flows) AddFlowCells(store, StatsStore::Flow(row.values), &cells);
    sink->Row(cells);
  }
  sink->End();
}

// The names "label" and "description" stand for what has no name of its own.
void WriteNotes(const Report& report, const ReportOptions& options, SheetSink* sink) {
  const SheetColumn columns[] = {{"group_id"}, {"key"}, {"name"}, {"value"}};
  sink->Begin("key_notes", columns);
  for (const auto& group : report.store.groups()) {
    if (!options.Wants(group->info)) continue;
    for (const auto& entry : group->notes) {
      const KeyNotes& notes = entry.second;
      const auto write = [&](const std::string& name, const std::string& value) {
        const Cell cells[] = {group->info.id, entry.first, name, value};
        if (!value.empty()) sink->Row(cells);
      };
      write("label", notes.label);
      write("description", notes.description);
      for (const auto& [name, value] : notes.properties) write(name, value);
    }
  }
  sink->End();
}

}  // namespace

void WriteSheets(const Report& report, const ReportOptions& options, SheetSink* sink) {
  WriteExporters(report, sink);
  for (const auto& group : report.store.groups()) {
    if (options.Wants(group->info)) {
      WriteGroup(report.store, *group, options.only_top_n, sink);
    }
  }
  WriteNotes(report, options, sink);
}

}  // namespace flow::host
