// SPDX-License-Identifier: Apache-2.0
// Everything that stands between the command line and the first datagram: the plug-in, what it
// offers, the sites, the lanes and the intake.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/border/call_trace.h"
#include "host/border/plugin_library.h"
#include "host/command/options.h"
#include "host/intake/intake.h"
#include "host/names/group_catalog.h"

namespace flow::host {

class Console;

// SettingsFrom is what the options say of directories and networks.
SiteSettings SettingsFrom(const MeterOptions& options);

class MeterSetup {
 public:
  // Loads the plug-in and asks what it offers. HostError and UsageError when that fails.
  MeterSetup(const MeterOptions& options, const std::string& trace, Console& console);

  // UseDefaultsIn has default policies written into this directory, where one is missing.
  void UseDefaultsIn(const std::filesystem::path& directory) {
    site_settings_.defaults_directory = directory;
  }

  // HearRecords has flows keep what else is counted for their records.
  void HearRecords() { catalog_.HearRecords(); }

  // NoteNumbers has lanes say which sequence numbers came; before Start.
  void NoteNumbers() { notes_numbers_ = true; }

  // Start makes the lanes; the meters read their policies here. Lanes work side by side where there
  // are several, and no trace wants the calls in order.
  void Start(LaneMode mode);
  // OnUsed and OnRate are to be set before; see LaneParts. Several may hear of use.
  void OnUsed(std::function<void(const Endpoint&)> on_used) {
    on_used_.push_back(std::move(on_used));
  }
  void OnRate(Handover::OnRate on_rate) { on_rate_ = std::move(on_rate); }

  // GroupIds turns names of groups as the user gave them into their ids.
  [[nodiscard]] std::vector<std::string> GroupIds(const std::vector<std::string>& names) const;

  [[nodiscard]] const GroupCatalog& catalog() const { return catalog_; }
  [[nodiscard]] const std::vector<ComponentDescription>& components() const { return components_; }
  [[nodiscard]] const PortMap& ports() const { return ports_; }
  [[nodiscard]] const SiteSettings& site_settings() const { return site_settings_; }
  [[nodiscard]] const std::string& plugin_path() const { return library_.path(); }
  ChannelHub& channels() { return channels_; }
  StandIns& stand_ins() { return stand_ins_; }
  Lanes& lanes() { return *lanes_; }
  Intake& intake() { return *intake_; }

 private:
  void TeachTraceNames();

  const MeterOptions& options_;
  Console& console_;
  // In the order in which they come to be; destroyed the other way round, the plug-in last.
  std::optional<CallTrace> trace_;
  PluginLibrary library_;
  std::vector<ComponentDescription> components_;
  GroupCatalog catalog_;
  PortMap ports_;
  SiteSettings site_settings_;
  std::vector<std::function<void(const Endpoint&)>> on_used_;
  Handover::OnRate on_rate_;
  bool notes_numbers_ = false;
  ChannelHub channels_;
  StandIns stand_ins_;
  std::optional<Lanes> lanes_;
  std::optional<Intake> intake_;
};

}  // namespace flow::host
