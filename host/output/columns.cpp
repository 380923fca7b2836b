// SPDX-License-Identifier: Apache-2.0
#include "host/output/columns.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/base/number_text.h"

namespace flow::host {
namespace {

using Exporter = ExporterTable::Row;

// Rather than all those that are too many for rows of their own.
bool IsOne(const Report&, const Exporter& row) { return row.key != ExportSource{}; }
bool HasTemplates(const Report&, const Exporter& row) { return row.key.version.HasTemplates(); }
bool HasNumbers(const Report&, const Exporter& row) { return !UnitOf(row.key.version).empty(); }
bool HasSamples(const Report&, const Exporter& row) { return row.key.version.sflow; }
bool WasRefused(const Report&, const Exporter& row) { return row.counts.Refused() > 0; }
bool WasDropped(const Report&, const Exporter& row) { return row.counts.dropped > 0; }
bool HasLost(const Report&, const Exporter& row) { return row.counts.gaps.Lost() > 0; }
bool IsSampled(const Report& report, const Exporter& row) {
  return !SamplingRate(report, row.key.endpoint.address).empty();
}

bool TellsTime(const Report& report, const Exporter& row) {
  return IsOne(report, row) && row.counts.clock_offset;
}

bool HasReverse(const Report&, const Exporter& row) { return row.counts.books.reverse > 0; }
bool HasLeftOut(const Report&, const Exporter& row) { return row.counts.books.LeftOutSum() > 0; }
template <LeftOut kReason>
bool LeavesOut(const Report&, const Exporter& row) {
  return row.counts.books.left_out[static_cast<std::size_t>(kReason)] > 0;
}
template <LeftOut kReason>
Cell LeftOutCount(const Report&, const Exporter& row) {
  return row.counts.books.left_out[static_cast<std::size_t>(kReason)];
}

constexpr auto kText = ColumnKind::kText;
constexpr auto kCount = ColumnKind::kCount;

// Its name is that of the reason behind "left_out_".
template <LeftOut kReason>
constexpr ExporterColumn LeftOutColumn(std::string_view id) {
  return {id, "left_out", "", kCount, LeftOutCount<kReason>, LeavesOut<kReason>};
}

constexpr ExporterColumn kExporterColumns[] = {
    {"", "", "Exporter", kText,
     [](const Report& report, const Exporter& row) -> Cell {
       return IsOne(report, row) ? row.key.endpoint.Text() : "all others";
     }},
    {"address", "", "", kText,
     [](const Report&, const Exporter& row) -> Cell { return row.key.endpoint.address.Text(); }},
    {"port", "", "", kCount,
     [](const Report&, const Exporter& row) -> Cell {
       return std::uint64_t{row.key.endpoint.port};
     }},
    {"version", "", "Version", kText,
     [](const Report&, const Exporter& row) -> Cell { return row.key.version.Text(); }, IsOne},
    {"datagrams", "", "Datagrams", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.datagrams; }},
    {"described", "", "", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.books.described; }},
    {"reverse", "", "", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.books.reverse; },
     HasReverse},
    {"records", "", "Records", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.books.metered; }},
    {"", "", "Left out", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.books.LeftOutSum(); },
     HasLeftOut},
    {"bytes", "", "Export data", ColumnKind::kBytes,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.bytes; }},
    {"templates", "", "Templates", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.templates; }, HasTemplates},
    {"sets_without_template", "", "Undecoded sets", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.unknown_sets; },
     HasTemplates},
    {"broken_sets", "", "", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.books.broken_sets; },
     HasTemplates},
    LeftOutColumn<LeftOut::kDuplicateEgress>("left_out_duplicate_egress"),
    LeftOutColumn<LeftOut::kZeroBytes>("left_out_zero_bytes"),
    LeftOutColumn<LeftOut::kNoAddresses>("left_out_no_addresses"),
    LeftOutColumn<LeftOut::kFiltered>("left_out_filtered"),
    LeftOutColumn<LeftOut::kCorrupt>("left_out_corrupt"),
    LeftOutColumn<LeftOut::kIpv6Sample>("left_out_ipv6_samples"),
    LeftOutColumn<LeftOut::kUndecodedSample>("left_out_undecoded_samples"),
    LeftOutColumn<LeftOut::kFragment>("left_out_fragments"),
    LeftOutColumn<LeftOut::kVariableLength>("left_out_variable_length"),
    LeftOutColumn<LeftOut::kBrokenSet>("left_out_broken_set"),
    LeftOutColumn<LeftOut::kBeyondCount>("left_out_beyond_count"),
    LeftOutColumn<LeftOut::kUnexplained>("left_out_unexplained"),
    {"rejected", "", "Rejected", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.Refused(); }, WasRefused},
    {"dropped_here", "", "Dropped here", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.dropped; }, WasDropped},
    {"", "", "Lost", ColumnKind::kAmount,
     [](const Report&, const Exporter& row) -> Cell {
       return fmt::format("{} {}", Thousands(row.counts.gaps.Lost()), UnitOf(row.key.version));
     },
     HasLost},
    {"lost", "sequence", "", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.gaps.Lost(); }, HasNumbers},
    {"lost_unit", "sequence", "", kText,
     [](const Report&, const Exporter& row) -> Cell {
       return std::string(UnitOf(row.key.version));
     },
     HasNumbers},
    {"lost_samples", "sequence", "", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.sample_gaps.Lost(); },
     HasSamples},
    {"lost_here", "sequence", "", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.gaps.here; }, HasNumbers},
    {"gaps", "sequence", "", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.gaps.gaps; }, HasNumbers},
    {"late", "sequence", "", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.gaps.late; }, HasNumbers},
    {"restarts", "sequence", "", kCount,
     [](const Report&, const Exporter& row) -> Cell { return row.counts.gaps.restarts; },
     HasNumbers},
    {"jumps", "sequence", "", kCount,
     [](const Report&, const Exporter& row) -> Cell {
       return row.counts.gaps.jumps + row.counts.sample_gaps.jumps;
     },
     HasNumbers},
    {"sampling_rate", "", "Sampling", ColumnKind::kRate,
     [](const Report& report, const Exporter& row) -> Cell {
       return SamplingRate(report, row.key.endpoint.address);
     },
     IsSampled},
    {"clock_offset_ms", "", "Clock", ColumnKind::kOffset,
     [](const Report& report, const Exporter& row) -> Cell {
       if (!TellsTime(report, row)) return {};
       return std::int64_t{*row.counts.clock_offset / 1000};
     },
     TellsTime},
};

bool IsClosed(const Report&, const FlowTotals& flow) { return flow.closes != 0; }
bool HasTag(const Report&, const FlowTotals& flow) { return flow.tag != 0; }
bool HasText(const Report&, const FlowTotals& flow) { return flow.text != 0; }

template <int kWay>
Cell VolumeBytes(const Report&, const FlowTotals& flow) {
  return flow.bytes[kWay];
}
template <int kWay>
Cell VolumePackets(const Report&, const FlowTotals& flow) {
  return flow.packets[kWay];
}

constexpr FlowColumn kFlowColumns[] = {
    {"volume_bytes_forward", "", "", ColumnKind::kBytes, VolumeBytes<0>},
    {"volume_bytes_reverse", "", "", ColumnKind::kBytes, VolumeBytes<1>},
    {"volume_packets_forward", "", "", kCount, VolumePackets<0>},
    {"volume_packets_reverse", "", "", kCount, VolumePackets<1>},
    {"first_ms", "", "First seen (UTC)", ColumnKind::kTime,
     [](const Report&, const FlowTotals& flow) -> Cell { return flow.first_ms; }},
    {"last_ms", "", "", ColumnKind::kTime,
     [](const Report&, const FlowTotals& flow) -> Cell { return flow.last_ms; }},
    {"duration_ms", "", "Lasted", ColumnKind::kDuration,
     [](const Report&, const FlowTotals& flow) -> Cell { return FlowDuration(flow); }},
    {"closes", "", "State", ColumnKind::kState,
     [](const Report&, const FlowTotals& flow) -> Cell { return std::uint64_t{flow.closes}; },
     IsClosed},
    {"tag", "", "Tag", kText,
     [](const Report& report, const FlowTotals& flow) -> Cell {
       return std::string(report.store.TextOf(flow.tag));
     },
     HasTag},
    {"flow_text", "", "Text", kText,
     [](const Report& report, const FlowTotals& flow) -> Cell {
       return std::string(report.store.TextOf(flow.text));
     },
     HasText},
};

}  // namespace

std::span<const ExporterColumn> ExporterColumns() { return kExporterColumns; }
std::span<const FlowColumn> FlowColumns() { return kFlowColumns; }

}  // namespace flow::host
