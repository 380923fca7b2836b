// SPDX-License-Identifier: Apache-2.0
// The meter's policy in force: loads the file, once and whenever it changes, into everything that
// it sets.
#pragma once

#include <cstdint>

#include "config/change_checker.h"
#include "config/home_as_feed.h"
#include "config/home_networks.h"
#include "config/netflow_policy.h"
#include "netflow/host_links.h"
#include "netflow/sampling_rates.h"
#include "netflow/template_store.h"
#include "util/xmlParser.h"

namespace flow {

class MeterPolicy {
 public:
  // All outlive it. The policy's static templates and sampling rates go into these two.
  MeterPolicy(const HostLinks& host, TemplateStore* templates, SamplingRates* rates)
      : host_(host), templates_(*templates), rates_(*rates) {}

  [[nodiscard]] const NetflowPolicy& Settings() const noexcept { return policy_; }
  [[nodiscard]] const flow::HomeNetworks& HomeNetworks() const noexcept { return home_networks_; }

  // LoadFromHost asks the site for directory, home networks and policy file, and loads that. False,
  // with the reason in the site's log, when there is no policy to meter by.
  bool LoadFromHost();

  // ReadConfiguration loads the policy file, or loads it again. False when its filters conflict;
  // what was read until then is in force. A file that cannot be read ends the process.
  bool ReadConfiguration(const char* path);

  // KeepUpToDate loads what has changed, policy file or feed, when it is time to look. `now` is the
  // engine's time in seconds.
  void KeepUpToDate(std::uint64_t now);

 private:
  void Reload();
  void LoadStaticTemplates(const XMLNode& element);
  void LoadReloadInterval(const char* path);

  const HostLinks& host_;
  TemplateStore& templates_;
  SamplingRates& rates_;

  NetflowPolicy policy_;
  flow::HomeNetworks home_networks_;
  HomeAsFeed home_as_feed_;
  CPeriodicFileModifyChecker ConfigChecker;
};

}  // namespace flow
