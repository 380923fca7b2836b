// SPDX-License-Identifier: Apache-2.0
// The site: what a component may ask its host.
#pragma once

#include <filesystem>
#include <string>

#include "flowhandlers/host_interfaces.h"
#include "host/base/endpoint.h"
#include "host/border/host_object.h"
#include "host/border/policy_file.h"
#include "host/policy/home_ranges.h"

namespace flow::host {

class CallTrace;
class Console;

// What all sites of a run share.
struct SiteSettings {
  std::filesystem::path config_directory;  // policy files
  std::filesystem::path data_directory;    // feeds
  std::filesystem::path work_directory;    // template dumps; empty for none
  // Where default policies are written for those that are missing; empty for the directory of the
  // policies.
  std::filesystem::path defaults_directory;
  HomeRanges home = HomeRanges::OrPrivate({});
};

// One component's site. It outlives the component; everything it is made of outlives it.
class Site final : public HostObject<IOmbrelContainer, IID_IOmbrelContainer> {
 public:
  // name stands before the component's log messages; trace may be null.
  Site(const SiteSettings& settings, Console& console, std::string name, long instance,
       CallTrace* trace);

  // SpeakOf tells whose datagram the component is given, for what it logs meanwhile; null for none.
  void SpeakOf(const IpAddress* exporter) { exporter_ = exporter; }

  // SpeakOfErrorsAlone keeps the log of a component that goes through what others have said.
  void SpeakOfErrorsAlone(bool alone) { errors_alone_ = alone; }

  Status Log(int level, const char* text) override;
  Status GetDataDirectory(char** path) override;
  Status PreparePluginConfigFile(const IID& owner, const char* fileName, char** fullPath) override;
  Status IsHomeAddress(std::uint32_t address, bool* result) override;
  Status GetHomeNetworks(int* count, std::uint32_t** addresses, std::uint32_t** masks) override;
  Status GetInstanceNumber(long* number) override;
  Status GetWorkDirectory(char** path) override;

  [[nodiscard]] const PolicyFile& policy() const { return policy_; }

 private:
  [[gnu::cold]] void TraceHomeAddress(std::uint32_t address) const;

  const SiteSettings& settings_;
  Console& console_;
  std::string name_;
  long instance_;
  CallTrace* trace_;
  const IpAddress* exporter_ = nullptr;
  PolicyFile policy_;
  bool errors_alone_ = false;
};

}  // namespace flow::host
