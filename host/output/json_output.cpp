// SPDX-License-Identifier: Apache-2.0
#include <nlohmann/json.hpp>

#include <utility>

#include "host/base/guid_text.h"
#include "host/names/key_text.h"
#include "host/output/books.h"
#include "host/output/columns.h"
#include "host/output/json_texts.h"
#include "host/output/output_file.h"
#include "host/output/outputs.h"

namespace flow::host {
namespace {

using Json = nlohmann::ordered_json;

// Texts from the wire may be no UTF-8 at all.
std::string Dump(Json value) {
  MakeUtf8(&value);
  return value.dump();
}

Json CapturesOf(const Report& report) {
  Json captures = Json::array();
  for (const CaptureResult& capture : report.captures) {
    Json entry{{"path", capture.path}, {"packets", capture.packets}};
    if (!capture.error.empty()) entry["error"] = capture.error;
    captures.push_back(std::move(entry));
  }
  return captures;
}

Json PacketsOf(const IntakeCounts& intake) {
  Json packets{{"total", intake.Packets()},
               {"first_us", intake.first},
               {"last_us", intake.last},
               {"udp_unclaimed", intake.Unclaimed()}};
  for (std::size_t i = 1; i < kPacketKinds; ++i) {
    packets["other"][std::string(KindId(static_cast<PacketKind>(i)))] = intake.packets[i];
  }
  for (const auto& [port, datagrams] : intake.unclaimed_ports) {
    packets["unclaimed_ports"][std::to_string(port)] = datagrams;
  }
  return packets;
}

// Texts that are empty are left out, and what is not known.
template <class Row>
void AddColumns(std::span<const Column<Row>> columns, const Report& report, const Row& row,
                Json* entry) {
  for (const Column<Row>& column : columns) {
    const bool has_part = !column.part.empty();
    if (column.id.empty() || (has_part && !column.Applies(report, row))) continue;
    const Cell cell = column.value(report, row);
    if (cell == Cell() || cell == Cell(std::string())) continue;
    Json& object = has_part ? (*entry)[std::string(column.part)] : *entry;
    std::string id(column.id);
    if (has_part && id.starts_with(std::string(column.part) + "_")) {
      id.erase(0, column.part.size() + 1);
    }
    std::visit(
        [&](const auto& value) {
          if constexpr (!std::is_same_v<std::decay_t<decltype(value)>, std::monostate>) {
            object[id] = value;
          }
        },
        cell);
  }
}

Json ExportersOf(const Report& report) {
  Json exporters = Json::array();
  for (const ExporterTable::Row& row : report.exporters) {
    Json entry;
    AddColumns(ExporterColumns(), report, row, &entry);
    for (std::size_t i = 1; i < kRefusals; ++i) {
      const std::uint64_t refused = row.counts.refused[i];
      if (refused > 0)
        entry["rejected_why"][std::string(RefusalId(static_cast<Refusal>(i)))] = refused;
    }
    exporters.push_back(std::move(entry));
  }
  return exporters;
}

Json EntryOf(const Report& report, const GroupCounters& group, std::string_view key) {
  const std::string shown = KeyOf(report, group, key);
  Json entry{{"key", shown}, {"text", ReadableKey(group.info.key_kind, shown)}};
  const auto notes = group.notes.find(key);
  if (notes == group.notes.end()) return entry;
  if (!notes->second.label.empty()) entry["label"] = notes->second.label;
  if (!notes->second.description.empty()) entry["description"] = notes->second.description;
  for (const auto& [name, value] : notes->second.properties) entry["properties"][name] = value;
  return entry;
}

// "left_out.filtered" stands as "filtered" in the object "left_out".
Json BooksOf(const Report& report) {
  Json books;
  for (const BookEntry& entry : BookEntries(report)) {
    const std::size_t dot = entry.id.find('.');
    if (dot == std::string::npos) {
      books[entry.id] = entry.value;
    } else {
      books[entry.id.substr(0, dot)][entry.id.substr(dot + 1)] = entry.value;
    }
  }
  return books;
}

// Keys are written one by one, the largest first: a capture may hold millions.
void WriteGroup(const Report& report, const GroupCounters& group, OutputFile* out) {
  const bool is_flows = &group == &report.store.flow_group();
  const Json head{
      {"id", group.info.id}, {"title", group.info.title}, {"guid", GuidText(group.info.guid)}};
  std::string text = Dump(head);
  text.pop_back();  // the closing brace
  out->Write(text + ",\"keys\":[");
  const char* separator = "\n";
  Ranking(group, group.size()).ForEach([&](const KeyRow& row) {
    Json entry = EntryOf(report, group, row.key);
    for (const MeterInfo& meter : group.info.meters) entry[meter.id] = row.values[meter.index];
    if (is_flows) AddColumns(FlowColumns(), report, *row.flow, &entry);
    out->Write(std::exchange(separator, ",\n") + Dump(entry));
  });
  out->Write("]}");
}

}  // namespace

void WriteJson(const Report& report, const ReportOptions& options, const std::string& path) {
  OutputFile out(path);
  out.Write("{\"captures\":" + Dump(CapturesOf(report)));
  if (!report.title.empty()) out.Write(",\n\"title\":" + Dump(report.title));
  out.Write(",\n\"packets\":" + Dump(PacketsOf(report.intake)));
  const Json lost{{"kernel", report.losses.Kernel()}, {"queue", report.losses.queue}};
  out.Write(",\n\"lost_datagrams\":" + Dump(lost));
  if (report.streams_evicted > 0) {
    out.Write(",\n\"numbered_streams_let_go\":" + std::to_string(report.streams_evicted));
  }
  const Json books = BooksOf(report);
  out.Write(",\n\"records\":" + Dump(books.at("metered_records")));
  out.Write(",\n\"books\":" + Dump(books));
  out.Write(",\n\"exporters\":" + Dump(ExportersOf(report)));
  out.Write(",\n\"groups\":[");
  const char* separator = "\n";
  for (const auto& group : report.store.groups()) {
    if (group->size() == 0 || !options.Wants(group->info)) continue;
    out.Write(std::exchange(separator, ",\n"));
    WriteGroup(report, *group, &out);
  }
  out.Write("]}\n");
  out.Close();
}

}  // namespace flow::host
