// Everything that stands between the command line and the first datagram: the plug-in, what it
// offers, the sites, the lanes and the intake.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/component/call_trace.h"
#include "host/component/plugin_library.h"
#include "host/meter/intake.h"
#include "host/options.h"

namespace flow::host {

class Console;

class MeterSetup {
 public:
  // Loads the plug-in and asks what it offers. HostError and UsageError when that fails.
  MeterSetup(const MeterOptions& options, const std::string& trace, Console& console);

  // Start makes the lanes; the meters read their policies here.
  void Start();

  // GroupIds turns names of groups as the user gave them into their ids.
  [[nodiscard]] std::vector<std::string> GroupIds(const std::vector<std::string>& names) const;

  [[nodiscard]] const GroupCatalog& groups() const { return groups_; }
  Intake& intake() { return *intake_; }

  // Records metered so far.
  [[nodiscard]] std::uint64_t Records() const;

  // Merge collects what all lanes have counted. The result is *merged, or the only lane's store.
  const StatsStore& Merge(StatsStore* merged, ExporterTable* exporters) const;

 private:
  void TeachTraceNames();

  const MeterOptions& options_;
  Console& console_;
  // In the order in which they come to be; destroyed the other way round, the plug-in last.
  std::optional<CallTrace> trace_;
  PluginLibrary library_;
  std::vector<ComponentDescription> components_;
  GroupCatalog groups_;
  PortMap ports_;
  SiteSettings site_settings_;
  ChannelHub channels_;
  std::vector<std::unique_ptr<Lane>> lanes_;
  std::optional<Intake> intake_;
};

}  // namespace flow::host
