// Data sets: from the bytes of a record to the records that are metered.

#include <algorithm>
#include <cstring>
#include <utility>

#include "flowhandlers/session_keys.h"
#include "netflow/netflow_meter.h"
#include "util/address_text.h"

using flow::DecodedRecord;
using flow::SetError;
using flow::Template;

namespace {

constexpr std::uint8_t kIngress = 0;
constexpr std::uint8_t kEgress = 1;

// What the source port of a record counts as that has a destination port alone.
constexpr std::uint16_t kUnknownPort = 65535;

// The parts of a record that tell source from destination change places.
void Reverse(nf5_record* record, ext_fields* ext) {
  std::swap(record->srcaddr, record->dstaddr);
  std::swap(record->srcport, record->dstport);
  std::swap(record->input, record->output);
  std::swap(ext->in_ifindex, ext->out_ifindex);
  std::swap(ext->src_as, ext->dst_as);
  std::swap(ext->src_mac, ext->dst_mac);
  std::swap(ext->src_addr6, ext->dst_addr6);
  std::swap(ext->src_mask, ext->dst_mask);
}

// Copies a text with its NUL; most records have none.
template <std::size_t N, std::size_t M>
void CopyText(const char (&from)[M], char (&to)[N]) {
  static_assert(N < M);
  if (from[0] == '\0') {
    to[0] = '\0';
  } else {
    std::memcpy(to, from, N);
  }
}

void SetExtFields(const nf9_record& record, ext_fields* ext) {
  std::memset(ext, 0, offsetof(ext_fields, vendor_text32));
  ext->in_ifindex = record.in_ifindex;
  ext->out_ifindex = record.out_ifindex;
  ext->ip_version = record.ip_version;
  ext->src_mask = record.src_mask;
  ext->dst_mask = record.dst_mask;
  ext->ip_nexthop = record.ip_nexthop;
  ext->bgp_nexthop = record.bgp_nexthop;
  ext->src_as = record.src_as;
  ext->dst_as = record.dst_as;
  ext->direction = record.direction;
  std::memcpy(ext->src_mac, record.src_mac, sizeof(ext->src_mac));
  std::memcpy(ext->dst_mac, record.dst_mac, sizeof(ext->dst_mac));
  CopyText(record.vendor_text32, ext->vendor_text32);
  CopyText(record.vendor_text64, ext->vendor_text64);
  if (record.ip_version == 6) {
    std::memcpy(ext->src_addr6, record.src_addr6, sizeof(ext->src_addr6));
    std::memcpy(ext->dst_addr6, record.dst_addr6, sizeof(ext->dst_addr6));
  }
}

nf5_record FlowRecordOf(const nf9_record& r) {
  nf5_record record{};
  record.srcaddr = be32::FromHost(r.src_addr);
  record.dstaddr = be32::FromHost(r.dst_addr);
  record.dPkts = be32::FromHost(static_cast<std::uint32_t>(r.packets));
  record.dOctets = be32::FromHost(static_cast<std::uint32_t>(r.bytes));
  record.First = be32::FromHost(r.first);
  record.Last = be32::FromHost(r.last);
  record.srcport = be16::FromHost(r.src_port);
  record.dstport = be16::FromHost(r.dst_port);
  record.tcp_flags = r.tcp_flags;
  record.prot = r.protocol;
  return record;
}

}  // namespace

SetError CPINetflowMeter::v9_ProcessDataFlowset(const Datagram& datagram, const nf9_header& header,
                                                Bytes set) {
  duplicates_.StartSet();
  ByteCursor records(set.subspan(sizeof(set_header)));
  if (records.Remaining() == 0) return SetError::kNone;
  SetError error = SetError::kNone;
  const Template* const fields = templates_.Find(datagram.source.key, LoadBe16(set.data()), &error);
  if (fields == nullptr) return error;
  const DataSet data_set = {datagram,
                            header,
                            *fields,
                            {.use_post_nat_addresses = policy_.fUsePostNATAddresses,
                             .ignore_out_counts = policy_.fIgnoreOutCounts}};
  while (records.Remaining() > 0) {
    const std::size_t before = records.Remaining();
    error = v9_ProcessDataFlowset_single(data_set, &records);
    if (error != SetError::kNone) return error;
    if (records.Remaining() == before) break;  // a template of no length describes one record
  }
  duplicates_.EndSet(site_);
  return SetError::kNone;
}

SetError CPINetflowMeter::v9_ProcessDataFlowset_single(const DataSet& set, ByteCursor* records) {
  DecodedRecord decoded;
  decoder_.Start(set.datagram.source.Address(), &decoded);
  const SetError error = DecodeFields(set, records, &decoded);
  if (error != SetError::kNone) return error;

  nf9_record& record = decoded.record;
  if (record.dst_port != 0 && record.src_port == 0) record.src_port = kUnknownPort;
  NameApplication(set.datagram.engine);
  NameInterface(set.datagram, record);
  if (record.first > record.last) std::swap(record.first, record.last);
  if (IsDuplicateEgress(set, record)) return SetError::kNone;
  if (policy_.fMeterZeroFlows && record.bytes == 0) {
    record.bytes = 1;
    record.packets = 1;
  }
  if (record.src_addr == 0 && record.dst_addr == 0 &&
      (decoded.presence & flow::kIpv6AddressSeen) != 0) {
    record.ip_version = 6;
  }
  constexpr auto kBoth = flow::kSourceAddressSeen | flow::kDestinationAddressSeen;
  if ((decoded.presence & kBoth) == kBoth) CountNetflow9(set, record);
  return SetError::kNone;
}

SetError CPINetflowMeter::DecodeFields(const DataSet& set, ByteCursor* records,
                                       DecodedRecord* out) {
  const Template& fields = set.fields;
  Bytes bytes;
  if (fields.HasPlan() && records->Take(fields.RecordLength(), &bytes)) {
    decoder_.DecodeByPlan(fields.Plan(), bytes.data(), set.switches, out);
    return SetError::kNone;
  }
  // Field by field: what comes before an overflow has its effect.
  for (std::size_t i = 0; i < fields.Fields().size(); ++i) {
    std::size_t length = fields.Fields()[i].length;
    const bool is_variable = length == flow::kVariableLength && policy_.fAllowVariableStrings;
    if (is_variable) {
      if (!records->Take(1, &bytes)) return SetError::kVariableOverflow;
      length = bytes[0];
    }
    if (!records->Take(length, &bytes)) {
      return is_variable ? SetError::kVariableOverflow : SetError::kFieldOverflow;
    }
    decoder_.DecodeField(fields.DecodeOfField(i), bytes.data(), length, is_variable, set.switches,
                         out);
  }
  return SetError::kNone;
}

// Gives the host the name of an application under the key of each classification engine that uses
// its selector, and under the tag itself.
void CPINetflowMeter::NameApplication(IOmbrelStatsEngine* engine) {
  if (application_.AppNameText.Empty()) return;
  const char* const name = application_.AppNameText.Text();
  const char* const description = application_.AppDescText.Text();
  for (const char* engine_id : {"1:", "3:", "6:", "13:"}) {
    char key[32];
    const std::size_t length = std::strlen(engine_id);
    std::memcpy(key, engine_id, length);
    *flow::PutSignedDecimal(application_.AppSelectorId, key + length) = '\0';
    engine->SetKeyAttributes(COUNTERID_NBAR, key, name, description);
  }
  engine->SetKeyAttributes(COUNTERID_NBAR, context_.AppTagText.Text(), name, description);
}

// The description is what operators know an interface by.
void CPINetflowMeter::NameInterface(const Datagram& datagram, const nf9_record& record) {
  if (record.if_name[0] == '\0') return;
  char key[flow::kInterfaceKeyLength + 1];
  flow::MakeIntfKey(datagram.source.address_key, record.in_ifindex, key);
  datagram.engine->SetKeyAttributes(COUNTERID_FLOWINTF, key, record.if_desc, record.if_desc);
}

bool CPINetflowMeter::IsDuplicateEgress(const DataSet& set, const nf9_record& record) {
  if (!set.fields.CarriesDirection()) return false;  // all ingress: nothing to compare with
  if (record.direction == kEgress && policy_.fIgnoreAllEgress) {
    duplicates_.CountDropped();
    return true;
  }
  if (record.direction != kIngress && record.direction != kEgress) return false;
  char key[flow::kKeyBufferSize];
  const flow::Ipv4Key source = flow::MakeIpv4Key(record.src_addr);
  const flow::Ipv4Key destination = flow::MakeIpv4Key(record.dst_addr);
  flow::MakeSessionKey_Bi(metering_.KeyRules(),
                          {record.protocol,
                           {source.text, record.src_port, record.in_ifindex},
                           {destination.text, record.dst_port, record.out_ifindex},
                           set.datagram.source.address_key},
                          key);
  if (record.direction == kEgress) return duplicates_.IsDuplicate(key);
  duplicates_.AddIngress(key);
  return false;
}

void CPINetflowMeter::CountNetflow9(const DataSet& set, const nf9_record& record) {
  const std::uint32_t exporter = set.datagram.source.ip.source.AsStored();
  nf5_record flow_record = FlowRecordOf(record);
  nf5_header header{};
  header.SysUptime = set.header.SysUptime;
  header.unix_secs = set.header.unix_secs;
  header.sampling_interval = be16::FromHost(static_cast<std::uint16_t>(rates_.RateOf(exporter)));
  const ip_header& ip = set.datagram.source.ip;
  ext_fields ext;
  SetExtFields(record, &ext);
  if (static_cast<std::uint32_t>(record.bytes) != 0) {
    ProcRecord(set.datagram.engine, &flow_record, &header, &ip, &ext);
  }
  const auto reverse_bytes = static_cast<std::uint32_t>(record.rev_bytes);
  if (reverse_bytes == 0 || policy_.IgnoreEgressRouterSet.Contains(record.exporter_addr)) return;
  flow_record.dOctets = be32::FromHost(reverse_bytes);
  flow_record.dPkts = be32::FromHost(static_cast<std::uint32_t>(record.rev_packets));
  Reverse(&flow_record, &ext);
  ProcRecord(set.datagram.engine, &flow_record, &header, &ip, &ext);
}
