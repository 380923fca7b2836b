// SPDX-License-Identifier: Apache-2.0
#include "host/web/metrics.h"

#include <algorithm>
#include <string_view>

#include "flowhandlers/counter_groups.h"
#include "host/names/key_text.h"

namespace flow::host {
namespace {

using prometheus::MetricType;

constexpr char kOthers[] = "others";

struct ExporterMetric {
  const char* name;
  const char* help;
  MetricType type;
  std::uint64_t (*value)(const ExporterCounts& counts);
};
constexpr ExporterMetric kExporterMetrics[] = {
    {"flowhost_exporter_datagrams_total", "Export datagrams that came", MetricType::Counter,
     [](const ExporterCounts& counts) { return counts.datagrams; }},
    {"flowhost_exporter_received_bytes_total", "Bytes of these, without UDP headers",
     MetricType::Counter, [](const ExporterCounts& counts) { return counts.bytes; }},
    {"flowhost_exporter_records_total", "Flow records and samples that were metered",
     MetricType::Counter, [](const ExporterCounts& counts) { return counts.books.metered; }},
    {"flowhost_exporter_dropped_datagrams_total",
     "Datagrams that found a full queue here; they are none of those that came",
     MetricType::Counter, [](const ExporterCounts& counts) { return counts.dropped; }},
    {"flowhost_exporter_lost_samples_total", "Samples of sFlow that never came, by their numbers",
     MetricType::Counter, [](const ExporterCounts& counts) { return counts.sample_gaps.Lost(); }},
    {"flowhost_exporter_sets_without_template_total", "Data sets whose template was not known",
     MetricType::Counter, [](const ExporterCounts& counts) { return counts.unknown_sets; }},
    {"flowhost_exporter_broken_sets_total", "Sets with impossible lengths", MetricType::Counter,
     [](const ExporterCounts& counts) { return counts.books.broken_sets; }},
    {"flowhost_exporter_restarts_total", "Sequence numbers that began anew", MetricType::Counter,
     [](const ExporterCounts& counts) { return counts.gaps.restarts; }},
    {"flowhost_exporter_templates", "Templates that were known when it was last seen",
     MetricType::Gauge, [](const ExporterCounts& counts) { return counts.templates; }},
};

void AddFamily(MetricFamilies* families, const char* name, const char* help, MetricType type) {
  families->push_back({name, help, type, {}});
}

std::size_t ColumnOf(const GroupInfo& group, std::string_view id) {
  const auto found = std::ranges::find(group.meters, id, &MeterInfo::id);
  return found == group.meters.end() ? 0 : static_cast<std::size_t>(found->index);
}

}  // namespace

void AddMetric(MetricFamilies* families, MetricLabels labels, double value) {
  prometheus::ClientMetric metric;
  metric.label = std::move(labels);
  (families->back().type == MetricType::Counter ? metric.counter.value : metric.gauge.value) =
      value;
  families->back().metric.push_back(std::move(metric));
}

void Metrics::Take(const Tick& tick, const std::vector<Harvest>& harvests) {
  const std::lock_guard lock(mutex_);
  losses_.Add(tick.losses);
  for (std::size_t kind = 0; kind < kPacketKinds; ++kind) {
    intake_.packets[kind] += tick.intake.packets[kind];
  }
  for (const Harvest& harvest : harvests) {
    for (const ExporterTable::Row& row : harvest.exporters.Rows()) TakeExporter(row);
    for (const auto& group : harvest.store->groups()) {
      if (group->info.guid == COUNTERID_FLOWINTF) TakeInterfaces(*group);
    }
  }
}

std::string Metrics::ExporterOf(const ExportSource& source) {
  if (source == ExportSource{}) return kOthers;  // as the table has those that are too many
  std::string text = stand_ins_.RealOf(source.endpoint.address).Text();
  return seen_.contains(text) || seen_.size() < most_exporters_ ? text : kOthers;
}

void Metrics::TakeExporter(const ExporterTable::Row& row) {
  const std::string exporter = ExporterOf(row.key);
  const bool is_one = exporter != kOthers;
  exporters_[{exporter, is_one ? row.key.version.Text() : ""}].Add(row.counts);
  if (!is_one) return;
  Timestamp& seen = seen_[exporter];
  seen = std::max(seen, row.counts.last_seen);
}

void Metrics::TakeInterfaces(const GroupCounters& group) {
  constexpr std::string_view kIndex = " if ";
  const std::size_t in = ColumnOf(group.info, "bytes_in");
  const std::size_t out = ColumnOf(group.info, "bytes_out");
  group.table.ForEach([&](std::string_view raw, const std::uint64_t* values) {
    const std::string key =
        ReadableKey(KeyKind::kInterface, RealKey(stand_ins_, KeyKind::kInterface, raw));
    const std::size_t end = key.find(kIndex);
    Interface place{kOthers, kOthers};
    if (end != std::string::npos && seen_.contains(key.substr(0, end))) {
      place = {key.substr(0, end), key.substr(end + kIndex.size())};
    }
    const bool has_room = interfaces_.size() < most_exporters_ * kInterfacesAnExporter;
    if (!has_room && !interfaces_.contains(place)) place = {kOthers, kOthers};
    Octets& octets = interfaces_[place];
    octets.in += values[in];
    octets.out += values[out];
  });
}

MetricFamilies Metrics::Families() const {
  const std::lock_guard lock(mutex_);
  MetricFamilies families;
  AddExporters(&families);
  AddClocks(&families);
  AddReasons(&families);
  AddSeen(&families);
  AddInterfaces(&families);
  AddFamily(&families, "flowhost_socket_dropped_datagrams_total",
            "Datagrams that found a full socket here", MetricType::Counter);
  AddMetric(&families, {}, static_cast<double>(losses_.Kernel()));
  AddFamily(&families, "flowhost_lane_dropped_datagrams_total",
            "Datagrams that found a full queue here, of all exporters", MetricType::Counter);
  AddMetric(&families, {}, static_cast<double>(losses_.queue));
  AddFamily(&families, "flowhost_strange_datagrams_total",
            "Datagrams of those who may not send here", MetricType::Counter);
  AddMetric(&families, {},
            static_cast<double>(intake_.packets[static_cast<std::size_t>(PacketKind::kStranger)]));
  return families;
}

void Metrics::AddExporters(MetricFamilies* families) const {
  for (const ExporterMetric& metric : kExporterMetrics) {
    AddFamily(families, metric.name, metric.help, metric.type);
    for (const auto& [source, counts] : exporters_) {
      AddMetric(families, {{"exporter", source.first}, {"version", source.second}},
                static_cast<double>(metric.value(counts)));
    }
  }
  AddFamily(families, "flowhost_exporter_lost_total",
            "What never came, by sequence numbers, in the unit that the version numbers",
            MetricType::Counter);
  for (const auto& [source, counts] : exporters_) {
    const std::string unit(source.second == "NetFlow v5" ? "flows"
                           : source.second == "IPFIX"    ? "records"
                                                         : "datagrams");
    AddMetric(families, {{"exporter", source.first}, {"version", source.second}, {"unit", unit}},
              static_cast<double>(counts.gaps.Lost()));
  }
}

// sFlow does not tell the time.
void Metrics::AddClocks(MetricFamilies* families) const {
  AddFamily(families, "flowhost_exporter_clock_offset_seconds",
            "How far the exporter's clock was ahead of ours, by its last datagram",
            MetricType::Gauge);
  for (const auto& [source, counts] : exporters_) {
    if (!counts.clock_offset || source.first == kOthers) continue;
    AddMetric(families, {{"exporter", source.first}, {"version", source.second}},
              static_cast<double>(*counts.clock_offset) / kMicrosPerSecond);
  }
}

// Reasons that nobody had have no series.
void Metrics::AddReasons(MetricFamilies* families) const {
  std::map<Source, std::uint64_t> refused;  // by exporter and reason
  std::map<Source, std::uint64_t> left_out;
  for (const auto& [source, counts] : exporters_) {
    for (std::size_t i = 1; i < kRefusals; ++i) {
      const std::string reason(RefusalId(static_cast<Refusal>(i)));
      if (counts.refused[i] > 0) refused[{source.first, reason}] += counts.refused[i];
    }
    for (std::size_t i = 0; i < kLeftOuts; ++i) {
      const std::string reason(LeftOutId(static_cast<LeftOut>(i)));
      const std::uint64_t count = counts.books.left_out[i];
      if (count > 0) left_out[{source.first, reason}] += count;
    }
  }
  const auto add = [families](const auto& counts) {
    for (const auto& [key, count] : counts) {
      AddMetric(families, {{"exporter", key.first}, {"reason", key.second}},
                static_cast<double>(count));
    }
  };
  AddFamily(families, "flowhost_exporter_refused_datagrams_total",
            "Datagrams that could not be read", MetricType::Counter);
  add(refused);
  AddFamily(families, "flowhost_exporter_left_out_records_total", "Records that were not metered",
            MetricType::Counter);
  add(left_out);
}

void Metrics::AddSeen(MetricFamilies* families) const {
  AddFamily(families, "flowhost_exporter_last_seen_timestamp_seconds",
            "When the last datagram came, since 1970", MetricType::Gauge);
  for (const auto& [exporter, seen] : seen_) {
    AddMetric(families, {{"exporter", exporter}},
              static_cast<double>(seen) / static_cast<double>(kMicrosPerSecond));
  }
}

void Metrics::AddInterfaces(MetricFamilies* families) const {
  AddFamily(families, "flowhost_interface_bytes_total",
            "Bytes that an exporter's interface received and sent, as metered",
            MetricType::Counter);
  for (const auto& entry : interfaces_) {
    // clang 14 takes no part of a structured binding into a lambda.
    const auto& place = entry.first;
    const auto& octets = entry.second;
    const auto add = [&](const char* direction, std::uint64_t count) {
      AddMetric(families,
                {{"exporter", place.first}, {"interface", place.second}, {"direction", direction}},
                static_cast<double>(count));
    };
    add("in", octets.in);
    add("out", octets.out);
  }
}

}  // namespace flow::host
