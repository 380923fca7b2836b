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

}  // namespace

RecordMetering::Record::Record(IOmbrelStatsEngine* to, const nf5_record& record,
                               const nf5_header& header, const ext_fields& fields,
                               const Amounts& amounts)
    : Metered{.engine = to, .bytes = amounts.bytes, .packets = amounts.packets},
      rec(record),
      hdr(header),
      ext(fields),
      source(record.srcaddr.ToHost()),
      destination(record.dstaddr.ToHost()),
      ports{record.srcport.ToHost(), record.dstport.ToHost()} {}

void RecordMetering::ProcRecord(IOmbrelStatsEngine* engine, IOmbrelContainer* site,
                                const nf5_record& rec, const nf5_header& hdr, const ip_header& ip,
                                const ext_fields& ext) {
  UseExporter(ip.source.ToHost());
  Record r(engine, rec, hdr, ext, AmountsOf(rec, hdr));
  if (policy_.fCheckPacketsForCorruption) {
    std::uint32_t first = rec.First.ToHost();
    std::uint32_t last = rec.Last.ToHost();
    if (first == 0 && last == 0) {
      last = hdr.SysUptime.ToHost();
      first = last - kAssumedDuration;
    }
    if (IsCorrupt(r, first, last)) {
      LogCorrupt(site, r, first, last);
      return TellLeftOut(engine, left_out::kCorrupt);
    }
  }
  engine->MarkRecord();
  Classify(&r);
  if (policy_.fMeterNetflowSources) {
    engine->UpdateCounter2(COUNTERID_FLOWGEN, kIpv4KeyLength, exporter_key_.text,
                           exporters::kRecords, 1, exporters::kBytes, r.bytes);
  }
  if (!PassesFilters(r)) return TellLeftOut(engine, left_out::kFiltered);
  MakeHostKeys(&r);

  if (policy_.fMeterASN) UpdateAsNumbers(r);
  if (context_.CurrentExportVersion >= 9) {
    if (policy_.fMeterMasks) UpdatePrefixes(r);
    UpdateNextHops(r);
  }
  if (policy_.fMeterVRF) UpdateVrf(r);
  UpdateTotals(r, rec.prot);
  const bool source_is_home = AskIsHome(site, r.source);
  r.host_direction = &DirectionOf(source_is_home, AskIsHome(site, r.destination));
  if (policy_.fMeterv4v6) UpdateEtherType(r);
  if (policy_.fMeterHosts) UpdateHosts(r);
  if (policy_.fMeterApplications) UpdateApplications(r);
  if (policy_.fMeterSubnets) UpdateSubnets(r);
  if (policy_.fMeterNetflowInterfaces) UpdateInterfaces(r);

  TrackFlow(r);

  UpdateVendorTexts(r);
  UpdateConnections(r);
  UpdateLast(r);
}

// What a record counts for, sampling applied.
RecordMetering::Amounts RecordMetering::AmountsOf(const nf5_record& rec,
                                                  const nf5_header& hdr) const {
  std::uint64_t rate = 0;
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;
  if (addenda_ != nullptr) {
    rate = addenda_->sampling_rate;
    bytes = addenda_->bytes;
    packets = addenda_->packets;
  } else {
    rate = SamplingMultiplier(hdr);
    bytes = rec.dOctets.ToHost();
    packets = rec.dPkts.ToHost();
  }
  bytes = rate * (bytes + packets * static_cast<std::uint64_t>(policy_.AddL2AccountingBytes));
  packets = rate * packets;
  return {policy_.Counted(bytes), policy_.Counted(packets)};
}

void RecordMetering::TellLeftOut(IOmbrelStatsEngine* engine, int reason) {
  if (!policy_.fCountLeftOut) return;
  flow::TellLeftOut(engine, kIpv4KeyLength, exporter_key_.text, reason);
}

void RecordMetering::UseExporter(std::uint32_t address) {
  if (address == exporter_) return;
  exporter_ = address;
  exporter_key_ = MakeIpv4Key(address);
}

bool RecordMetering::IsCorrupt(const Record& r, std::uint32_t first, std::uint32_t last) const {
  if (r.packets == 0 || r.bytes == 0 || r.packets > r.bytes) return true;
  if (first > last || last - first > kLongestFlow) return true;
  if (r.bytes / r.packets <= kTooSmallPacket) return true;
  if (context_.FirstSwitchedSeen == 0) return false;
  const std::uint32_t uptime = r.hdr.SysUptime.ToHost();
  return IsFarFrom(uptime, last) || IsFarFrom(uptime, first);
}

void RecordMetering::LogCorrupt(IOmbrelContainer* site, const Record& r, std::uint32_t first,
                                std::uint32_t last) const {
  Log(site, kLogWarning,
      "Ignoring corrupt Netflow record byte=" + std::to_string(r.bytes) +
          " pkt=" + std::to_string(r.packets) + " sysuptime_from=" + std::to_string(first) +
          " to=" + std::to_string(last));
}

void RecordMetering::Classify(Record* r) const {
  if (!policy_.fHomeASNumbers) {
    r->Classify(home_networks_.Contains(r->source), home_networks_.Contains(r->destination));
    r->source_as_home = r->source_home;
    r->destination_as_home = r->destination_home;
    return;
  }
  r->source_as_home = policy_.IsHomeAs(r->ext.src_as);
  r->destination_as_home = policy_.IsHomeAs(r->ext.dst_as);
  // Where one AS number is missing, the flow is taken to cross the border of the home AS.
  const bool source = r->ext.src_as == 0 ? !r->destination_as_home : r->source_as_home;
  r->Classify(source, r->ext.dst_as == 0 ? !source : r->destination_as_home);
}

bool RecordMetering::PassesFilters(const Record& r) const {
  if (policy_.interface_filter.Active() &&
      !policy_.interface_filter.Passes(exporter_, r.ext.in_ifindex, r.ext.out_ifindex)) {
    return false;
  }
  return !policy_.host_filter.Active() || r.ext.ip_version != 4 ||
         policy_.host_filter.Passes(r.source, r.destination);
}

void RecordMetering::MakeHostKeys(Record* r) {
  if (r->ext.ip_version == 6) {
    OmbrelAPI::IP62Hex(r->ext.src_addr6, r->source_key);
    OmbrelAPI::IP62Hex(r->ext.dst_addr6, r->destination_key);
  } else {
    OmbrelAPI::Long2IPHex(r->source, r->source_key);
    OmbrelAPI::Long2IPHex(r->destination, r->destination_key);
  }
}

}  // namespace flow
