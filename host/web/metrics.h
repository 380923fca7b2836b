// SPDX-License-Identifier: Apache-2.0
// What a collector has counted since it started, as Prometheus takes it.
#pragma once

#include <prometheus/metric_family.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/engine/stats_store.h"
#include "host/intake/exporter_table.h"
#include "host/intake/stand_ins.h"
#include "host/period/reporter.h"

namespace flow::host {

using MetricFamilies = std::vector<prometheus::MetricFamily>;

// MetricLabels are names and values.
using MetricLabels = std::vector<prometheus::ClientMetric::Label>;

// AddMetric adds a value to the last family.
void AddMetric(MetricFamilies* families, MetricLabels labels, double value);

// Totals by exporter and version, and by interface. So many exporters have series of their own, and
// so many times as many interfaces; the others are one.
class Metrics {
 public:
  Metrics(std::size_t most_exporters, const StandIns& stand_ins)
      : most_exporters_(most_exporters), stand_ins_(stand_ins) {}

  // Take adds what was counted until a tick.
  void Take(const Tick& tick, const std::vector<Harvest>& harvests);

  // Any thread.
  [[nodiscard]] MetricFamilies Families() const;

  static constexpr std::size_t kInterfacesAnExporter = 16;

 private:
  using Source = std::pair<std::string, std::string>;     // exporter, version
  using Interface = std::pair<std::string, std::string>;  // exporter, ifIndex
  struct Octets {
    std::uint64_t in = 0;
    std::uint64_t out = 0;
  };

  void TakeExporter(const ExporterTable::Row& row);
  void TakeInterfaces(const GroupCounters& group);
  std::string ExporterOf(const ExportSource& source);
  void AddExporters(MetricFamilies* families) const;
  void AddClocks(MetricFamilies* families) const;
  void AddReasons(MetricFamilies* families) const;
  void AddSeen(MetricFamilies* families) const;
  void AddInterfaces(MetricFamilies* families) const;

  std::size_t most_exporters_;
  const StandIns& stand_ins_;
  mutable std::mutex mutex_;
  std::map<Source, ExporterCounts> exporters_;
  std::map<std::string, Timestamp> seen_;  // by exporter, those with series of their own
  std::map<Interface, Octets> interfaces_;
  Losses losses_;
  IntakeCounts intake_;
};

}  // namespace flow::host
