// SPDX-License-Identifier: Apache-2.0
#include "metering/flow_counter_groups.h"

#include <iterator>

namespace flow {
namespace {

// The host's kinds of meters.
constexpr std::int32_t kRateMeter = 4;
constexpr std::int32_t kCountMeter = 2;

constexpr VARDEFS_T kExporterMeters[] = {
    {exporters::kBytes, kRateMeter, 50, "Bps", "Total", "Bps"},
    {exporters::kExportBytes, kRateMeter, 50, "Bps", "Flow Volume", "Bps"},
    {exporters::kRecords, kRateMeter, 50, "Rps", "Flow Records", "Rps"},
};

constexpr VARDEFS_T kInterfaceMeters[] = {
    {interfaces::kBytes, kRateMeter, 100, "Bps", "Total", "Bps"},
    {interfaces::kReceived, kRateMeter, 100, "Bps", "Recv", "Bps"},
    {interfaces::kTransmitted, kRateMeter, 100, "Bps", "Xmit", "Bps"},
    {interfaces::kFlows, kCountMeter, 100, "Flw", "Flows", "Flw"},
};

}  // namespace

const CounterGroup kExporterGroup = {
    .identity = {"Netflow Sources Group", "Meters Netflow Source"},
    .guid = COUNTERID_FLOWGEN,
    .name = "FlowGens",
    .description = "Flow generator traffic",
    .top_n_count = 20,
    .bucket_size_ms = 60000,
    .track_hi_water = 500,
    .track_lo_water = 100,
    .meters = kExporterMeters,
    .meter_count = std::size(kExporterMeters),
};

const CounterGroup kInterfaceGroup = {
    .identity = {"Netflow Interfaces Group", "Meters Netflow Interfaces"},
    .guid = COUNTERID_FLOWINTF,
    .name = "FlowIntfs",
    .description = "Flow interface traffic",
    .top_n_count = 50,
    .bucket_size_ms = 60000,
    .track_hi_water = 500,
    .track_lo_water = 100,
    .meters = kInterfaceMeters,
    .meter_count = std::size(kInterfaceMeters),
};

}  // namespace flow
