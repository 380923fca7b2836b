// SPDX-License-Identifier: Apache-2.0
// Intake of a record: derived values, checks, classification, filters, and the order of all
// updates.

#include "metering/record_metering.h"

#include <cstdlib>
#include <string>

#include "metering/left_out_words.h"
#include "plugin/site_log.h"

namespace flow {
namespace {

// A record without times counts as a flow of the last minute.
constexpr std::uint32_t kAssumedDuration = 60'000;

// What a sane record keeps to: more bytes in an average packet (an IPv4 header has 20), a flow that
// is no longer, times that are no farther from the export.
constexpr std::uint32_t kTooSmallPacket = 7;
constexpr std::uint32_t kLongestFlow = 100'000'000;
constexpr std::int64_t kFarthestUptime = 10'000'000;

bool IsFarFrom(std::uint32_t uptime, std::uint32_t time) {
  const std::int64_t distance = static_cast<std::int32_t>(uptime - time);
  return std::abs(distance) > kFarthestUptime;
}

bool AskIsHome(IOmbrelContainer* site, std::uint32_t address) {
  bool is_home = false;
  if (site != nullptr) site->IsHomeAddress(address, &is_home);
  return is_home;
}

[[gnu::cold]] void LogCorrupt(IOmbrelContainer* site, std::uint64_t bytes, std::uint64_t packets,
                              std::uint32_t first, std::uint32_t last) {
  Log(site, kLogWarning,
      "Ignoring corrupt Netflow record byte=" + std::to_string(bytes) +
          " pkt=" + std::to_string(packets) + " sysuptime_from=" + std::to_string(first) +
          " to=" + std::to_string(last));
}

}  // namespace

void RecordMetering::ProcRecord(IOmbrelStatsEngine* engine, IOmbrelContainer* site,
                                const FlowRecord& rec, const RecordOrigin& origin) {
  const NetflowPolicy& policy = policy_;
  UseExporter(origin.exporter);
  const Amounts amounts = AmountsOf(rec, origin.sampling_rate);
  if (policy.fCheckPacketsForCorruption) {
    Lifetime times = {rec.first, rec.last};
    if (times.first == 0 && times.last == 0) {
      times.last = origin.clock.Uptime();
      times.first = times.last - kAssumedDuration;
    }
    if (IsCorrupt(amounts, times, origin.clock)) {
      LogCorrupt(site, amounts.bytes, amounts.packets, times.first, times.last);
      return TellLeftOut(engine, left_out::kCorrupt);
    }
  }
  Record r{
      {.engine = engine, .bytes = amounts.bytes, .packets = amounts.packets}, rec, origin, policy};
  engine->MarkRecord();
  Classify(&r);
  if (policy.fMeterNetflowSources) {
    engine->UpdateCounter2(COUNTERID_FLOWGEN, kIpv4KeyLength, exporter_key_.text,
                           exporters::kRecords, 1, exporters::kBytes, r.bytes);
  }
  if (!PassesFilters(r)) return TellLeftOut(engine, left_out::kFiltered);
  MakeHostKeys(rec);

  if (policy.fMeterASN) UpdateAsNumbers(r);
  if (context_.CurrentExportVersion >= 9) {
    if (policy.fMeterMasks) UpdatePrefixes(r);
    UpdateNextHops(r);
  }
  if (policy.fMeterVRF && rec.has_extras) UpdateVrf(r);
  UpdateTotals(r, rec.protocol);
  r.source_host_home = AskIsHome(site, rec.src_addr);
  r.destination_host_home = AskIsHome(site, rec.dst_addr);
  if (policy.fMeterv4v6) UpdateEtherType(r);
  if (policy.fMeterHosts) UpdateHosts(r);
  if (policy.fMeterApplications) UpdateApplications(r);
  if (policy.fMeterSubnets) UpdateSubnets(r);
  if (policy.fMeterNetflowInterfaces) UpdateInterfaces(r);

  TrackFlow(r);

  if (rec.has_extras) UpdateVendorTexts(r);
  UpdateConnections(r);
  UpdateLast(r);
}

// What a record counts for, sampling applied.
RecordMetering::Amounts RecordMetering::AmountsOf(const FlowRecord& rec,
                                                  std::uint32_t sampling_rate) const {
  const std::uint64_t rate = sampling_rate;
  const std::uint64_t added =
      rec.packets * static_cast<std::uint64_t>(policy_.AddL2AccountingBytes);
  return {policy_.Counted(rate * (rec.bytes + added)), policy_.Counted(rate * rec.packets)};
}

void RecordMetering::TellLeftOut(IOmbrelStatsEngine* engine, int reason) {
  if (!policy_.fCountLeftOut) return;
  flow::TellLeftOut(engine, kIpv4KeyLength, exporter_key_.text, reason);
}

void RecordMetering::UseExporter(std::uint32_t address) {
  if (address == exporter_) return;
  exporter_ = address;
  exporter_key_ = MakeIpv4Key(address);
  in_interface_.SetExporter(exporter_key_);
  out_interface_.SetExporter(exporter_key_);
}

bool RecordMetering::IsCorrupt(const Amounts& amounts, const Lifetime& times,
                               const ExportClock& clock) const {
  if (amounts.packets == 0 || amounts.bytes == 0 || amounts.packets > amounts.bytes) return true;
  if (times.first > times.last || times.last - times.first > kLongestFlow) return true;
  if (amounts.bytes / amounts.packets <= kTooSmallPacket) return true;
  if (context_.FirstSwitchedSeen == 0) return false;
  return IsFarFrom(clock.Uptime(), times.last) || IsFarFrom(clock.Uptime(), times.first);
}

void RecordMetering::Classify(Record* r) const {
  if (!r->policy.fHomeASNumbers) {
    r->Classify(home_networks_.Contains(r->rec.src_addr), home_networks_.Contains(r->rec.dst_addr));
    r->source_as_home = r->source_home;
    r->destination_as_home = r->destination_home;
    return;
  }
  r->source_as_home = r->policy.IsHomeAs(r->rec.src_as);
  r->destination_as_home = r->policy.IsHomeAs(r->rec.dst_as);
  // Where one AS number is missing, the flow is taken to cross the border of the home AS.
  const bool source = r->rec.src_as == 0 ? !r->destination_as_home : r->source_as_home;
  r->Classify(source, r->rec.dst_as == 0 ? !source : r->destination_as_home);
}

bool RecordMetering::PassesFilters(const Record& r) const {
  if (r.policy.interface_filter.Active() &&
      !r.policy.interface_filter.Passes(exporter_, r.rec.in_ifindex, r.rec.out_ifindex)) {
    return false;
  }
  return !r.policy.host_filter.Active() || r.rec.ip_version != 4 ||
         r.policy.host_filter.Passes(r.rec.src_addr, r.rec.dst_addr);
}

void RecordMetering::MakeHostKeys(const FlowRecord& rec) {
  if (rec.ip_version == 6) {
    OmbrelAPI::IP62Hex(rec.src_addr6, source_key_);
    OmbrelAPI::IP62Hex(rec.dst_addr6, destination_key_);
  } else if (!rec.has_two_way_key) {
    MakeIpv4HostKeys(rec);
  }
}

void RecordMetering::MakeIpv4HostKeys(const FlowRecord& rec) {
  OmbrelAPI::Long2IPHex(rec.src_addr, source_key_);
  OmbrelAPI::Long2IPHex(rec.dst_addr, destination_key_);
}

}  // namespace flow
