// SPDX-License-Identifier: Apache-2.0
// NetFlow v1 and v5: records of one fixed format behind a header that counts them.

#include "netflow/netflow_meter.h"

namespace {

using flow::ExportClock;
using flow::FlowRecord;
using flow::RecordOrigin;

// Where the records of a packet begin, or null when the packet is too short for those it announces.
template <class Header, class Record>
const Record* RecordsOf(std::span<const std::uint8_t> packet, std::size_t* count) {
  *count = LoadBe16(packet.data() + offsetof(Header, count));
  if (sizeof(Header) + sizeof(Record) * *count > packet.size()) return nullptr;
  return reinterpret_cast<const Record*>(packet.data() + sizeof(Header));
}

nf5_header HeaderFrom(const nf1_header& v1) {
  nf5_header header{};
  header.version = v1.version;
  header.count = v1.count;
  header.SysUptime = v1.SysUptime;
  header.unix_secs = v1.unix_secs;
  header.unix_nsecs = v1.unix_nsecs;
  return header;
}

nf5_record RecordFrom(const nf1_record& v1) {
  nf5_record record{};
  record.srcaddr = v1.srcaddr;
  record.dstaddr = v1.dstaddr;
  record.nexthop = v1.nexthop;
  record.input = v1.input;
  record.output = v1.output;
  record.dPkts = v1.dPkts;
  record.dOctets = v1.dOctets;
  record.First = v1.First;
  record.Last = v1.Last;
  record.srcport = v1.srcport;
  record.dstport = v1.dstport;
  record.tcp_flags = v1.tcp_flags;
  record.prot = v1.prot;
  record.tos = v1.tos;
  return record;
}

// Fills what a record of these formats has. What it does not have is never filled.
[[gnu::always_inline]] inline void Fill(const nf5_record& wire, FlowRecord* record) {
  record->src_addr = wire.srcaddr.ToHost();
  record->dst_addr = wire.dstaddr.ToHost();
  record->src_port = wire.srcport.ToHost();
  record->dst_port = wire.dstport.ToHost();
  record->in_ifindex = wire.input.ToHost();
  record->out_ifindex = wire.output.ToHost();
  record->packets = wire.dPkts.ToHost();
  record->bytes = wire.dOctets.ToHost();
  record->first = wire.First.ToHost();
  record->last = wire.Last.ToHost();
  record->src_as = wire.src_as.ToHost();
  record->dst_as = wire.dst_as.ToHost();
  record->tcp_flags = wire.tcp_flags;
  record->protocol = wire.prot;
  record->ip_version = 4;
  record->src_mask = wire.src_mask;
  record->dst_mask = wire.dst_mask;
}

// How many packets an exported one stands for.
std::uint32_t SamplingRateOf(const nf5_header& header) {
  const std::uint32_t interval = header.sampling_interval.ToHost() & 0x3FFFU;
  return interval == 0 ? 1 : interval;
}

RecordOrigin OriginOf(const ip_header& ip, const nf5_header& header) {
  return {ip.source.ToHost(), SamplingRateOf(header),
          ExportClock(header.SysUptime.ToHost(), header.unix_secs.ToHost(),
                      header.unix_nsecs.ToHost() / 1'000'000)};
}

}  // namespace

bool CPINetflowMeter::Process_v1(const Datagram& datagram) {
  std::size_t count = 0;
  const auto* const records = RecordsOf<nf1_header, nf1_record>(datagram.packet, &count);
  if (records == nullptr) {
    Reject("Netflow 1 packet appears to be truncated\n");
    return true;
  }
  const nf5_header header =
      HeaderFrom(*reinterpret_cast<const nf1_header*>(datagram.packet.data()));
  const RecordOrigin origin = OriginOf(datagram.source.ip, header);
  ClearRecordTexts();
  for (const nf1_record& v1 : std::span(records, count)) {
    Fill(RecordFrom(v1), &fixed_record_);
    metering_.ProcRecord(host_.engine, host_.site, fixed_record_, origin);
  }
  CountExportVolume(datagram);
  return false;
}

bool CPINetflowMeter::Process_v5(const Datagram& datagram) {
  std::size_t count = 0;
  const auto* const records = RecordsOf<nf5_header, nf5_record>(datagram.packet, &count);
  if (records == nullptr) {
    Reject("Netflow 5 packet appears to be truncated\n");
    return true;
  }
  const auto& header = *reinterpret_cast<const nf5_header*>(datagram.packet.data());
  const RecordOrigin origin = OriginOf(datagram.source.ip, header);
  ClearRecordTexts();
  for (const nf5_record& record : std::span(records, count)) {
    Fill(record, &fixed_record_);
    metering_.ProcRecord(host_.engine, host_.site, fixed_record_, origin);
  }
  CountExportVolume(datagram);
  return false;
}

// Records of these formats carry no texts, whatever was decoded before.
void CPINetflowMeter::ClearRecordTexts() {
  context_.AppTagText.Clear();
  context_.VrfTagText.Clear();
}
