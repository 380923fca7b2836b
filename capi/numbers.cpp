// SPDX-License-Identifier: Apache-2.0
#include "capi/numbers.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "flowhandlers.h"
#include "flowhandlers/counter_groups.h"
#include "flowhandlers/identifiers.h"

namespace flow::capi {
namespace {

// In the order of their numbers, from 1.
constexpr GUID kGroups[] = {
    COUNTERID_HOSTS,    COUNTERID_HOSTS6,     COUNTERID_FLOWS,      COUNTERID_FLOWGEN,
    COUNTERID_FLOWINTF, COUNTERID_AGGREGATES, COUNTERID_IPPROTOCOL, COUNTERID_ETHERTYPE,
    COUNTERID_APPS,     COUNTERID_NBAR,       COUNTERID_SUBNETS,    COUNTERID_ASN,
    COUNTERID_LINKAS,   COUNTERID_IPNEXTHOP,  COUNTERID_BGPNEXTHOP, COUNTERID_VRF,
    COUNTERID_VLAN,     COUNTERID_MAC,        COUNTERID_MACPAIR,    COUNTERID_APPID,
    COUNTERID_USERID,   COUNTERID_PREFIX4,    COUNTERID_PREFIX6,    COUNTERID_LEFTOUT,
};
static_assert(std::size(kGroups) == FH_GROUP_LEFTOUT);

// The first member tells them apart, and stands in few cache lines.
constexpr auto kFirstWords = [] {
  std::array<std::uint32_t, std::size(kGroups)> words{};
  for (std::size_t i = 0; i < words.size(); ++i) words[i] = kGroups[i].Data1;
  return words;
}();

constexpr GUID kChannels[] = {CHANNELID_NETFLOW_TEMPLATES, CHANNELID_NETFLOW_DOMAIN_TEMPLATES};

}  // namespace

std::uint16_t GroupNumber(const GUID& group) {
  const auto* const found = std::ranges::find(kFirstWords, group.Data1);
  if (found == kFirstWords.end()) return FH_GROUP_OTHER;
  const auto index = static_cast<std::size_t>(found - kFirstWords.begin());
  if (!(kGroups[index] == group)) return FH_GROUP_OTHER;
  return static_cast<std::uint16_t>(index + 1);
}

int ChannelNumber(const GUID& channel) {
  const auto* const found = std::ranges::find(kChannels, channel);
  return static_cast<int>(found - std::begin(kChannels));
}

const GUID* ChannelOf(int number) {
  const bool known = number >= 0 && number < static_cast<int>(std::size(kChannels));
  return known ? &kChannels[number] : nullptr;
}

}  // namespace flow::capi
