// SPDX-License-Identifier: Apache-2.0
// NetFlow v9 packets and IPFIX messages: the walk over their sets, and what each set is.

#include <algorithm>
#include <cstdio>

#include "netflow/netflow_meter.h"
#include "plugin/site_log.h"

using flow::Log;
using flow::SetError;
using flow::TemplateRules;

namespace {

// The length that a set's header claims, that header included.
std::size_t SetLength(std::span<const std::uint8_t> sets) {
  return LoadBe16(&sets[offsetof(set_header, length)]);
}

}  // namespace

bool CPINetflowMeter::Process_v9(const Datagram& datagram) {
  const Bytes packet = datagram.packet;
  if (packet.size() > sizeof(nf9_header) + sizeof(set_header)) {
    const auto& header = *reinterpret_cast<const nf9_header*>(packet.data());
    Bytes rest = packet.subspan(sizeof(nf9_header));
    // The last four bytes of a packet never begin a flowset.
    for (int left = header.count.ToHost(); left > 0 && rest.size() > sizeof(set_header); --left) {
      const std::size_t length = SetLength(rest);
      if (length < sizeof(set_header) || length > rest.size()) break;
      GiveUp(v9_ProcessRecord(datagram, header, rest.first(length)));
      rest = rest.subspan(length);
    }
  }
  CountExportVolume(datagram);
  return true;
}

bool CPINetflowMeter::Process_v10(const Datagram& datagram) {
  const Bytes packet = datagram.packet;
  const std::size_t message_length = LoadBe16(&packet[offsetof(ipfix_header, length)]);
  if (message_length > packet.size()) {
    Log(host_.site, kLogInformation, "Truncated packet, IPFIX record len > captured PCAP len");
    return true;
  }
  // IPFIX has one clock, in seconds; it stands in for both of v9's.
  nf9_header header{};
  std::copy_n(&packet[offsetof(ipfix_header, export_time)], sizeof(be32), header.SysUptime.bytes);
  header.unix_secs = header.SysUptime;
  Bytes rest = packet.first(message_length);
  rest = rest.subspan(std::min(sizeof(ipfix_header), message_length));
  while (rest.size() >= sizeof(set_header)) {
    const std::size_t length = SetLength(rest);
    if (length < sizeof(set_header)) break;
    if (length > rest.size()) {
      char text[96];
      std::snprintf(text, sizeof(text), "Truncated IPFIX, setheader len %d > avail packet len %ld",
                    static_cast<int>(length), static_cast<long>(rest.size()));
      Log(host_.site, kLogWarning, text);
      return true;
    }
    GiveUp(v10_ProcessRecord(datagram, header, rest.first(length)));
    rest = rest.subspan(length);
  }
  CountExportVolume(datagram);
  return true;
}

// A set that cannot be read is given up; the walk goes on behind it.
void CPINetflowMeter::GiveUp(SetError why) {
  if (why != SetError::kNone) last_set_error_ = why;
}

SetError CPINetflowMeter::v9_ProcessRecord(const Datagram& datagram, const nf9_header& header,
                                           Bytes set) {
  const std::uint16_t id = LoadBe16(set.data());
  if (id >= flow::kFirstDataSet) {
    return data_sets_.v9_ProcessDataFlowset(datagram.source, header, set);
  }
  if (id == flow::kV9TemplateSet) {
    return template_sets_.v9_ProcessTemplateFlowset(datagram.source, set, TemplateRules::kV9, true);
  }
  if (id == flow::kV9OptionsTemplateSet) {
    template_sets_.v9_ProcessTemplateOptions(datagram.source, set, true);
  }
  return SetError::kNone;
}

SetError CPINetflowMeter::v10_ProcessRecord(const Datagram& datagram, const nf9_header& header,
                                            Bytes set) {
  const std::uint16_t id = LoadBe16(set.data());
  // A static template may describe sets with the id 1, which is free in IPFIX.
  if (id >= flow::kFirstDataSet || id == 1) {
    return data_sets_.v9_ProcessDataFlowset(datagram.source, header, set);
  }
  if (id == flow::kIpfixTemplateSet) {
    return template_sets_.v9_ProcessTemplateFlowset(datagram.source, set, TemplateRules::kIpfix,
                                                    true);
  }
  if (id == flow::kIpfixOptionsTemplateSet) {
    template_sets_.v10_ProcessTemplateOptions(datagram.source, set, true);
  }
  return SetError::kNone;
}
