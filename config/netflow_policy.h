// SPDX-License-Identifier: Apache-2.0
// The NetFlow meter's policy: every switch, number, list and filter that NetflowCounterPolicy.xml
// sets; the table of the settings is plugin/netflow_settings.def. A load overwrites all of them;
// before the first one every switch is off.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "config/filters.h"
#include "flowhandlers/host_interfaces.h"
#include "util/flat_set.h"
#include "util/xmlParser.h"

namespace flow {

struct NetflowPolicy {
  // The steps of a load, in their order. `policy` is the file's "Policy" element, which may be
  // empty: every setting then takes its default. What they find goes to the site's log.
  void LoadCounterSwitches(const XMLNode& policy);                  // those above the filters
  bool LoadFilters(const XMLNode& policy, IOmbrelContainer* site);  // false: lists conflict
  void LoadIgnoredEgressRouters(const XMLNode& policy, IOmbrelContainer* site);
  // Takes every item, 0 included: operators' files have numbers in base 16 and 8, and a word is 0.
  void LoadHomeAsNumbers(const XMLNode& policy, IOmbrelContainer* site);
  void LoadFlowSettings(const XMLNode& policy, IOmbrelContainer* site);  // all below the filters

  // Every switch, number and text of the table.
#define FLOW_SWITCH_AS(member, ...) bool member = false;
#define FLOW_NUMBER(key, ...) int key = 0;
#define FLOW_TEXT(key, ...) std::string key;
#define FLOW_LIST(...)
#include "plugin/netflow_settings.def"

  // Merged services share one flow, so flows are never closed once a merge has been on: no load
  // clears this.
  bool fTerminateFlowDisabled = false;

  InterfaceFilter interface_filter;
  HostFilter host_filter;
  FlatSet<std::uint32_t> IgnoreEgressRouterSet;  // exporters, host byte order

  // Home AS numbers. The set may also come from the feed, but is consulted only while the policy
  // itself lists a number.
  bool fHomeASNumbers = false;
  FlatSet<std::uint32_t> HomeASSet;

  // What counts of an exported number, and of a sampling rate: by Count64Bit, once for a load.
  std::uint64_t counted_bits = 0xFFFFFFFF;
  std::uint32_t rate_bits = 0x3FFF;  // as many as a v5 header has
  [[nodiscard]] std::uint64_t Counted(std::uint64_t number) const noexcept {
    return number & counted_bits;
  }
  [[nodiscard]] std::uint32_t CountedRate(std::int32_t rate) const noexcept {
    return std::max(static_cast<std::uint32_t>(rate) & rate_bits, 1U);
  }

  [[nodiscard]] bool IsHomeAs(std::uint32_t as_number) const noexcept {
    return HomeASSet.Contains(as_number);
  }
};

}  // namespace flow
