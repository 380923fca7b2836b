// The directions of IPv6 traffic. A plug-in can ask whether an IPv4 address is at home, so its
// totals by direction are those of IPv4; the host adds those of IPv6.
#pragma once

#include "host/engine/stats_store.h"
#include "host/policy/home_ranges.h"

namespace flow::host {

// AddIpv6Directions adds what the IPv6 flows of a store carried to its totals by direction. Flows
// must be whole: before any were let go.
void AddIpv6Directions(const HomeRanges& home, StatsStore* store);

}  // namespace flow::host
