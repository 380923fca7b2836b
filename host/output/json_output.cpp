#include "host/output/json_output.h"

#include <nlohmann/json.hpp>

#include <utility>

#include "host/base/guid_text.h"
#include "host/names/key_text.h"
#include "host/output/output_file.h"

namespace flow::host {
namespace {

using Json = nlohmann::ordered_json;

// Texts from the wire may be no UTF-8 at all.
std::string Dump(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
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

Json ExportersOf(const Report& report) {
  Json exporters = Json::array();
  for (const ExporterTable::Row& row : report.exporters) {
    const ExporterCounts& counts = row.counts;
    Json entry{{"address", row.key.endpoint.address.Text()},
               {"port", row.key.endpoint.port},
               {"version", row.key.version.Text()},
               {"datagrams", counts.datagrams},
               {"records", counts.records},
               {"bytes", counts.bytes},
               {"templates", counts.templates},
               {"sets_without_template", counts.unknown_sets},
               {"rejected", counts.Refused()}};
    for (std::size_t i = 1; i < kRefusals; ++i) {
      if (counts.refused[i] == 0) continue;
      entry["rejected_why"][std::string(RefusalId(static_cast<Refusal>(i)))] = counts.refused[i];
    }
    if (!UnitOf(row.key.version).empty()) {
      entry["sequence"] = {{"unit", UnitOf(row.key.version)},
                           {"lost", counts.gaps.Lost()},
                           {"gaps", counts.gaps.gaps},
                           {"late", counts.gaps.late},
                           {"restarts", counts.gaps.restarts}};
    }
    if (row.key.version.sflow) entry["sequence"]["lost_samples"] = counts.sample_gaps.Lost();
    const std::string rate = SamplingRate(report.store, row.key.endpoint.address);
    if (!rate.empty()) entry["sampling_rate"] = rate;
    exporters.push_back(std::move(entry));
  }
  return exporters;
}

Json KeyOf(const GroupCounters& group, std::string_view key) {
  Json entry{{"key", key}, {"text", ReadableKey(group.info.key_kind, key)}};
  const auto notes = group.notes.find(key);
  if (notes == group.notes.end()) return entry;
  if (!notes->second.label.empty()) entry["label"] = notes->second.label;
  if (!notes->second.description.empty()) entry["description"] = notes->second.description;
  for (const auto& [name, value] : notes->second.properties) entry["properties"][name] = value;
  return entry;
}

void AddFlow(const StatsStore& store, const FlowTotals& flow, Json* entry) {
  (*entry)["volume"] = {{"bytes", flow.bytes}, {"packets", flow.packets}};
  (*entry)["first_ms"] = flow.first_ms;
  (*entry)["last_ms"] = flow.last_ms;
  (*entry)["duration_ms"] = FlowDuration(flow);
  (*entry)["closed"] = flow.closes != 0;
  if (flow.tag != 0) (*entry)["tag"] = store.TextOf(flow.tag);
  if (flow.text != 0) (*entry)["text_of_flow"] = store.TextOf(flow.text);
}

// Keys are written one by one, the largest first: a capture may hold millions.
void WriteGroup(const StatsStore& store, const GroupCounters& group, OutputFile* out) {
  const bool is_flows = &group == &store.flow_group();
  const Json head{
      {"id", group.info.id}, {"title", group.info.title}, {"guid", GuidText(group.info.guid)}};
  std::string text = Dump(head);
  text.pop_back();  // the closing brace
  out->Write(text + ",\"keys\":[");
  const char* separator = "\n";
  for (const KeyRow& row : RankKeys(group, group.table.size()).rows) {
    Json entry = KeyOf(group, row.key);
    for (const MeterInfo& meter : group.info.meters) entry[meter.id] = row.values[meter.index];
    if (is_flows) AddFlow(store, StatsStore::Flow(row.values), &entry);
    out->Write(std::exchange(separator, ",\n") + Dump(entry));
  }
  out->Write("]}");
}

}  // namespace

void WriteJson(const Report& report, const ReportOptions& options, const std::string& path) {
  OutputFile out(path);
  out.Write("{\"captures\":" + Dump(CapturesOf(report)));
  if (!report.title.empty()) out.Write(",\n\"title\":" + Dump(report.title));
  out.Write(",\n\"packets\":" + Dump(PacketsOf(report.intake)));
  const Json lost{{"kernel", report.losses.kernel}, {"queue", report.losses.queue}};
  out.Write(",\n\"lost_datagrams\":" + Dump(lost));
  out.Write(",\n\"records\":" + std::to_string(report.store.records));
  out.Write(",\n\"exporters\":" + Dump(ExportersOf(report)));
  out.Write(",\n\"groups\":[");
  const char* separator = "\n";
  for (const auto& group : report.store.groups()) {
    if (group->table.size() == 0 || !options.Wants(group->info)) continue;
    out.Write(std::exchange(separator, ",\n"));
    WriteGroup(report.store, *group, &out);
  }
  out.Write("]}\n");
  out.Close();
}

}  // namespace flow::host
