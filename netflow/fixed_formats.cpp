// SPDX-License-Identifier: Apache-2.0
// NetFlow v1 and v5: records of one fixed format behind a header that counts them.

#include "netflow/netflow_meter.h"

namespace {

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
  ClearRecordTexts();
  for (const nf1_record& v1 : std::span(records, count)) {
    const nf5_record record = RecordFrom(v1);
    ext_fields ext{};
    ext.in_ifindex = v1.input.ToHost();
    ext.out_ifindex = v1.output.ToHost();
    ext.ip_version = 4;
    ProcRecord(host_.engine, &record, &header, &datagram.source.ip, &ext);
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
  ClearRecordTexts();
  ext_fields ext{};
  ext.ip_version = 4;
  for (const nf5_record& record : std::span(records, count)) {
    ext.in_ifindex = record.input.ToHost();
    ext.out_ifindex = record.output.ToHost();
    ext.src_as = record.src_as.ToHost();
    ext.dst_as = record.dst_as.ToHost();
    ProcRecord(host_.engine, &record, &header, &datagram.source.ip, &ext);
  }
  CountExportVolume(datagram);
  return false;
}

// Records of these formats carry no texts and say all in their fields, whatever was decoded before.
void CPINetflowMeter::ClearRecordTexts() {
  metering_.Use(nullptr);
  context_.AppTagText.Clear();
  context_.VrfTagText.Clear();
}
