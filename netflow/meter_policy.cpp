// Loading the meter's policy: each step hands over to the type that keeps what it reads.

#include "netflow/netflow_meter.h"
#include "plugin/site_log.h"

using flow::Log;

namespace {

constexpr int kShortestReloadInterval = 60;

}  // namespace

bool CPINetflowMeter::ReadConfiguration(const char* path) {
  const XMLNode root = XMLNode::openFileHelper(path, "OmbrelPluginConfiguration");
  const XMLNode policy = root.getChildNode("Policy");
  policy_.LoadCounterSwitches(policy);
  if (!policy_.LoadFilters(policy, site_)) return false;
  LoadStaticTemplates(root.getChildNode("StaticTemplates"));
  rates_.Load(root.getChildNode("SamplingRates"), site_);
  policy_.LoadIgnoredEgressRouters(policy, site_);
  policy_.LoadHomeAsNumbers(policy, site_);
  policy_.LoadFlowSettings(policy, site_);
  LoadReloadInterval(path);
  if (!policy_.HomeASNumbersFile.empty()) {
    home_as_feed_.LoadHomeNetsFromLatestFile(policy_.HomeASNumbersFile, site_, &policy_.HomeASSet);
  }
  return true;
}

void CPINetflowMeter::LoadStaticTemplates(const XMLNode& element) {
  templates_.ClearStaticTemplates();
  int next = 0;
  for (XMLNode child = element.getChildNode("Template", &next); !child.isEmpty();
       child = element.getChildNode("Template", &next)) {
    ProcessStaticTemplate(child);
  }
}

void CPINetflowMeter::ProcessStaticTemplate(const XMLNode& element) {
  templates_.LoadStaticTemplate(element, site_);
}

void CPINetflowMeter::LoadReloadInterval(const char* path) {
  const int interval = policy_.ReloadConfigCheckSeconds;
  if (interval <= 0) return;
  if (interval < kShortestReloadInterval) {
    Log(site_, kLogWarning,
        "CONFIGRELOAD: IGNORE. Minimum value must be 60 seconds, supplied input =  " +
            std::to_string(interval));
    return;
  }
  ConfigChecker = CPeriodicFileModifyChecker(path, interval);
  Log(site_, kLogProgress,
      "CONFIGRELOAD: Will check and reload config every " + std::to_string(interval) + " seconds");
}
