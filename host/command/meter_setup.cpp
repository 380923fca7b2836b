// SPDX-License-Identifier: Apache-2.0
#include "host/command/meter_setup.h"

#include <fmt/format.h>

#include <cstdlib>

#include "host/base/console.h"
#include "host/base/error.h"

namespace flow::host {
namespace {

namespace fs = std::filesystem;

fs::path DefaultConfigDirectory() {
  if (const char* const base = std::getenv("XDG_CONFIG_HOME"); base != nullptr && *base == '/') {
    return fs::path(base) / "flowhost";
  }
  if (const char* const home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    return fs::path(home) / ".config" / "flowhost";
  }
  return "flowhost-config";
}

std::vector<GroupDescription> GroupsOf(const std::vector<ComponentDescription>& components) {
  std::vector<GroupDescription> groups;
  for (const ComponentDescription& component : components) {
    if (component.group) groups.push_back(*component.group);
  }
  return groups;
}

}  // namespace

SiteSettings SettingsFrom(const MeterOptions& options) {
  SiteSettings settings;
  const auto given_or = [](const std::string& given, fs::path fallback) {
    return given.empty() ? std::move(fallback) : fs::path(given);
  };
  settings.config_directory = given_or(options.config_directory, DefaultConfigDirectory());
  settings.data_directory = given_or(options.data_directory, settings.config_directory);
  settings.work_directory = options.work_directory;
  settings.home = HomeRanges::OrPrivate(options.home);
  return settings;
}

MeterSetup::MeterSetup(const MeterOptions& options, const std::string& trace, Console& console)
    : options_(options),
      console_(console),
      library_(options.plugin),
      components_(DescribeComponents(library_.package())),
      catalog_(GroupsOf(components_)),
      ports_(components_, options.extra_ports),
      site_settings_(SettingsFrom(options)) {
  if (trace.empty()) return;
  trace_.emplace(trace);
  TeachTraceNames();
}

void MeterSetup::TeachTraceNames() {
  for (const GroupInfo& group : catalog_.groups()) trace_->Learn(group.guid, group.id);
  for (const ComponentDescription& component : components_) {
    trace_->Learn(component.clsid, component.name);
  }
  trace_->Learn(UPID_IP, "IPv4");
  trace_->Learn(UPID_UDP, "UDP");
  trace_->Learn(CHANNELID_NETFLOW_TEMPLATES, "templates");
  trace_->Learn(CHANNELID_NETFLOW_DOMAIN_TEMPLATES, "templates of domains");
}

void MeterSetup::Start(LaneMode mode) {
  LaneParts parts{library_.package(), components_, catalog_.groups(),
                  site_settings_,     channels_,   console_};
  parts.trace = trace_ ? &*trace_ : nullptr;
  parts.on_rate = on_rate_;
  parts.notes_numbers = notes_numbers_;
  if (!on_used_.empty()) {
    parts.on_used = [this](const Endpoint& exporter) {
      for (const auto& hear : on_used_) hear(exporter);
    };
  }
  lanes_.emplace(parts, options_.instances, trace_ ? LaneMode::kInline : mode);
  intake_.emplace(ports_, *lanes_, stand_ins_);
}

std::vector<std::string> MeterSetup::GroupIds(const std::vector<std::string>& names) const {
  std::vector<std::string> ids;
  for (const std::string& name : names) {
    const GroupInfo* const group = catalog_.Find(name);
    if (group == nullptr) {
      std::string known;
      for (const GroupInfo& info : catalog_.groups())
        known += (known.empty() ? "" : ", ") + info.id;
      throw UsageError(fmt::format("--group: there is no {}; there are {}", name, known));
    }
    ids.push_back(group->id);
  }
  return ids;
}

}  // namespace flow::host
