// SPDX-License-Identifier: Apache-2.0
#include "config/netflow_policy.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "plugin/site_log.h"
#include "util/str_tokenizer.h"

namespace flow {
namespace {

// What reads a setting of the table; none for a list, which the filters read.
using Reader = void (*)(const XMLNode& policy, NetflowPolicy* out);

#define FLOW_SWITCH_AS(member, key, absent, ...)        \
  [](const XMLNode& policy, NetflowPolicy* out) {       \
    out->member = policy.GetBoolProperty(#key, absent); \
  },
#define FLOW_NUMBER(key, absent, ...) \
  [](const XMLNode& policy, NetflowPolicy* out) { out->key = policy.GetIntProperty(#key, absent); },
#define FLOW_TEXT(key, ...) \
  [](const XMLNode& policy, NetflowPolicy* out) { out->key = policy.GetStringProperty(#key, ""); },
#define FLOW_LIST(...) nullptr,
constexpr Reader kReaders[] = {
#include "plugin/netflow_settings.def"
};
constexpr const Reader* kFirstFilter = std::ranges::find(kReaders, nullptr);

}  // namespace

// A load that ends at filters in conflict has read what stands above them in the table.
void NetflowPolicy::LoadCounterSwitches(const XMLNode& policy) {
  for (const Reader* reader = kReaders; reader != kFirstFilter; ++reader) (*reader)(policy, this);
}

bool NetflowPolicy::LoadFilters(const XMLNode& policy, IOmbrelContainer* site) {
  return interface_filter.Load(policy, site) && host_filter.Load(policy, site);
}

void NetflowPolicy::LoadIgnoredEgressRouters(const XMLNode& policy, IOmbrelContainer* site) {
  constexpr char kKey[] = "IgnoreV9EgressFromDevices";
  IgnoreEgressRouterSet.Clear();
  const char* const list = ListText(policy, kKey);
  if (list == nullptr) return;
  LoadHosts(list, kKey, site, &IgnoreEgressRouterSet);
  if (IgnoreEgressRouterSet.Empty()) return;
  Log(site, kLogProgress,
      std::string("[v9 EGRESS EXCLUDE] will ignore Egress counters from router ") + list +
          ", router count = " + std::to_string(IgnoreEgressRouterSet.Size()));
}

void NetflowPolicy::LoadHomeAsNumbers(const XMLNode& policy, IOmbrelContainer* site) {
  fHomeASNumbers = false;
  HomeASSet.Clear();
  const StrTokenizer items(policy.GetStringProperty("HomeASNumbers", ""), ",");
  for (unsigned long i = 0; i < items.GetCount(); ++i) {
    const unsigned long number = std::strtoul(items.GetToken(i), nullptr, 0);
    HomeASSet.Insert(static_cast<std::uint32_t>(number));
    fHomeASNumbers = true;
    Log(site, kLogProgress, "NETFLOW: HOME AS ADDED " + std::to_string(number));
  }
  Log(site, kLogProgress,
      "NETFLOW: HOME AS total number added = " + std::to_string(HomeASSet.Size()));
}

void NetflowPolicy::LoadFlowSettings(const XMLNode& policy, IOmbrelContainer* site) {
  for (const Reader* reader = kFirstFilter; reader != std::end(kReaders); ++reader) {
    if (*reader != nullptr) (*reader)(policy, this);
  }
  counted_bits = fCount64Bit ? ~std::uint64_t{0} : 0xFFFFFFFF;
  rate_bits = fCount64Bit ? ~std::uint32_t{0} : 0x3FFF;
  if (fMergeHTTP || fMergeHTTPS || fMergeDNS) {
    fTerminateFlowDisabled = true;
    Log(site, kLogProgress,
        "TerminateFlow disabled due to user configuration fMergeHTTP/HTTPS/DNS");
  }
  if (AddL2AccountingBytes > 0) {
    Log(site, kLogProgress,
        "L2 Ethernet Adjust Bytes: Adding x bytes per packet " +
            std::to_string(AddL2AccountingBytes));
  }
}

}  // namespace flow
