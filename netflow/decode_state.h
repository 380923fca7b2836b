// SPDX-License-Identifier: Apache-2.0
// The data record at hand, with what decoding it asks and what it tells beside the record.
#pragma once

#include <cstdint>
#include <optional>

#include "config/netflow_policy.h"
#include "metering/flow_record.h"
#include "metering/record_context.h"
#include "netflow/host_links.h"
#include "netflow/sampling_rates.h"

namespace flow {

// What has been seen in a record.
enum Presence : std::uint16_t {
  kSourceAddressSeen = 1 << 0,
  kDestinationAddressSeen = 1 << 1,
  kSourcePortSeen = 1 << 2,
  kDestinationPortSeen = 1 << 3,
  kFirstSwitchedSeen = 1 << 4,
  kInputInterfaceSeen = 1 << 5,
  kOutputInterfaceSeen = 1 << 6,
  kIpv6AddressSeen = 1 << 7,
  kExtrasSeen = 1 << 8,  // MAC addresses, or texts of any kind
};

struct DecodeState {
  // Outlive it.
  const NetflowPolicy& policy;
  const HostLinks& host;
  RecordContext& context;
  SamplingRates& rates;

  std::uint32_t exporter = 0;                          // of the data set, host byte order
  std::optional<std::uint32_t> domain = std::nullopt;  // the same, as in ExportSource
  std::int32_t rate = 0;                               // of its exporter or domain, as told last

  // Of the data set at hand: so many packets are taken in a row, then so many are passed over.
  std::uint32_t packet_interval = 0;
  std::optional<std::uint32_t> packet_space = std::nullopt;

  FlowRecord record = {};
  std::uint16_t presence = 0;

  RecordText<128> AppNameText = {};
  RecordText<128> AppDescText = {};
  std::int64_t AppSelectorId = 0;  // not cleared between records
};

}  // namespace flow
