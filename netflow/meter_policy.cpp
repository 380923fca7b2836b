// SPDX-License-Identifier: Apache-2.0
#include "netflow/meter_policy.h"

#include <memory>
#include <string>

#include "flowhandlers/identifiers.h"
#include "plugin/site_log.h"

namespace flow {
namespace {

constexpr char kPolicyFile[] = "NetflowCounterPolicy.xml";
constexpr int kShortestReloadInterval = 60;

}  // namespace

bool MeterPolicy::LoadFromHost() {
  IOmbrelContainer* const site = host_.site;
  char* answer = nullptr;
  site->GetDataDirectory(&answer);
  const std::unique_ptr<char[]> directory(answer);
  home_as_feed_.SetDataDirectory(directory != nullptr ? directory.get() : "");
  Log(site, kLogProgress, "Loading netflow metering policy configuration");
  home_networks_.Fetch(site);
  answer = nullptr;
  const Status status = site->PreparePluginConfigFile(CLSID_PI_NETFLOWMETER, kPolicyFile, &answer);
  const std::unique_ptr<char[]> path(answer);
  if (status != kStatusOk || path == nullptr) {
    Log(site, kLogError, "Error preparing plugin configuration file. Cant proceed");
    return false;
  }
  if (ReadConfiguration(path.get())) return true;
  Log(site, kLogError, "Unable to load netflow policy information from configuration");
  return false;
}

// The order of the steps is that of their messages.
bool MeterPolicy::ReadConfiguration(const char* path) {
  IOmbrelContainer* const site = host_.site;
  const XMLNode root = XMLNode::openFileHelper(path, "OmbrelPluginConfiguration");
  const XMLNode policy = root.getChildNode("Policy");
  policy_.LoadCounterSwitches(policy);
  if (!policy_.LoadFilters(policy, site)) return false;
  LoadStaticTemplates(root.getChildNode("StaticTemplates"));
  rates_.Load(root.getChildNode("SamplingRates"), site);
  policy_.LoadIgnoredEgressRouters(policy, site);
  policy_.LoadHomeAsNumbers(policy, site);
  policy_.LoadFlowSettings(policy, site);
  LoadReloadInterval(path);
  if (!policy_.HomeASNumbersFile.empty()) {
    home_as_feed_.LoadHomeNetsFromLatestFile(policy_.HomeASNumbersFile, site, &policy_.HomeASSet);
  }
  return true;
}

void MeterPolicy::KeepUpToDate(std::uint64_t now) {
  if (ConfigChecker.IsTimeToExecute(static_cast<unsigned int>(now))) Reload();
  if (!policy_.HomeASNumbersFile.empty()) {
    home_as_feed_.Check(now, policy_.HomeASNumbersFile, host_.site, &policy_.HomeASSet);
  }
}

void MeterPolicy::Reload() {
  Log(host_.site, kLogInformation, "CONFIGREFRESH:  Config file modified, reloading");
  const std::string path = ConfigChecker.File();  // the load replaces the checker
  if (!ReadConfiguration(path.c_str())) {
    Log(host_.site, kLogError,
        "CONFIGREFRESH: Unable to load netflow policy information from configuration");
  }
  Log(host_.site, kLogInformation, "CONFIGREFRESH:  Reloaded configuration file");
}

void MeterPolicy::LoadStaticTemplates(const XMLNode& element) {
  templates_.ClearStaticTemplates();
  int next = 0;
  for (XMLNode child = element.getChildNode("Template", &next); !child.isEmpty();
       child = element.getChildNode("Template", &next)) {
    templates_.ProcessStaticTemplate(child, host_.site);
  }
}

void MeterPolicy::LoadReloadInterval(const char* path) {
  const int interval = policy_.ReloadConfigCheckSeconds;
  if (interval <= 0) return;
  if (interval < kShortestReloadInterval) {
    Log(host_.site, kLogWarning,
        "CONFIGRELOAD: IGNORE. Minimum value must be 60 seconds, supplied input =  " +
            std::to_string(interval));
    return;
  }
  ConfigChecker = CPeriodicFileModifyChecker(path, interval);
  Log(host_.site, kLogProgress,
      "CONFIGRELOAD: Will check and reload config every " + std::to_string(interval) + " seconds");
}

}  // namespace flow
