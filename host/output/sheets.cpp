// SPDX-License-Identifier: Apache-2.0
#include "host/output/sheets.h"

#include <vector>

#include "host/names/key_text.h"
#include "host/output/books.h"

namespace flow::host {
namespace {

constexpr bool kNumber = true;

template <class Row>
void AddColumns(std::span<const Column<Row>> columns, std::vector<SheetColumn>* out) {
  for (const Column<Row>& column : columns) {
    if (column.id.empty()) continue;
    const bool is_text = column.kind == ColumnKind::kText || column.kind == ColumnKind::kRate;
    out->push_back({std::string(column.id), !is_text});
  }
}

template <class Row>
void AddCells(std::span<const Column<Row>> columns, const Report& report, const Row& row,
              std::vector<Cell>* cells) {
  for (const Column<Row>& column : columns) {
    if (!column.id.empty()) cells->push_back(column.value(report, row));
  }
}

void WriteExporters(const Report& report, SheetSink* sink) {
  std::vector<SheetColumn> columns;
  AddColumns(ExporterColumns(), &columns);
  sink->Begin("exporters", columns);
  std::vector<Cell> cells;
  for (const ExporterTable::Row& row : report.exporters) {
    cells.clear();
    AddCells(ExporterColumns(), report, row, &cells);
    sink->Row(cells);
  }
  sink->End();
}

void WriteBooks(const Report& report, SheetSink* sink) {
  const SheetColumn columns[] = {{"entry"}, {"count", kNumber}};
  sink->Begin("books", columns);
  for (const BookEntry& entry : BookEntries(report)) {
    const Cell cells[] = {entry.id, entry.value};
    sink->Row(cells);
  }
  sink->End();
}

void WriteGroup(const Report& report, const GroupCounters& group, bool only_top_n,
                SheetSink* sink) {
  const bool is_flows = &group == &report.store.flow_group();
  const std::size_t top = only_top_n ? group.info.top_n : group.size();
  std::vector<SheetColumn> columns{{"key"}, {"text"}};
  for (const MeterInfo& meter : group.info.meters) columns.push_back({meter.id, kNumber});
  if (is_flows) AddColumns(FlowColumns(), &columns);
  sink->Begin(group.info.id, columns);
  std::vector<Cell> cells;
  Ranking(group, top).ForEach([&](const KeyRow& row) {
    const std::string key = KeyOf(report, group, row.key);
    cells.assign({key, ReadableKey(group.info.key_kind, key)});
    for (const MeterInfo& meter : group.info.meters) cells.emplace_back(row.values[meter.index]);
    if (is_flows) AddCells(FlowColumns(), report, *row.flow, &cells);
    sink->Row(cells);
  });
  sink->End();
}

// The names "label" and "description" stand for what has no name of its own.
void WriteNotes(const Report& report, const ReportOptions& options, SheetSink* sink) {
  const SheetColumn columns[] = {{"group_id"}, {"key"}, {"name"}, {"value"}};
  sink->Begin("key_notes", columns);
  for (const auto& group : report.store.groups()) {
    if (!options.Wants(group->info)) continue;
    for (const auto& entry : group->notes) {
      const std::string key = KeyOf(report, *group, entry.first);
      const KeyNotes& notes = entry.second;
      const auto write = [&](const std::string& name, const std::string& value) {
        const Cell cells[] = {group->info.id, key, name, value};
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
  WriteBooks(report, sink);
  for (const auto& group : report.store.groups()) {
    if (options.Wants(group->info)) {
      WriteGroup(report, *group, options.only_top_n, sink);
    }
  }
  WriteNotes(report, options, sink);
}

}  // namespace flow::host
