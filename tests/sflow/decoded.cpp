// SPDX-License-Identifier: Apache-2.0
#include "tests/sflow/decoded.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <variant>

#include "sflow/sflow_decoder.h"

namespace flow::test {
namespace {

using S = _SFSample;
struct Member {
  const char* name;
  std::variant<std::uint32_t S::*, std::uint64_t S::*, std::int32_t S::*, SFAddress S::*,
               std::uint8_t (S::*)[8], char (S::*)[200]>
      member;
};

const Member kFixed[] = {
    {"sourceIdType", &S::sourceIdType},
    {"sourceIdIndex", &S::sourceIdIndex},
    {"sampleSequenceNo", &S::sampleSequenceNo},
    {"meanSkipCount", &S::meanSkipCount},
    {"samplePool", &S::samplePool},
    {"dropEvents", &S::dropEvents},
    {"inputPortFormat", &S::inputPortFormat},
    {"inputPort", &S::inputPort},
    {"outputPortFormat", &S::outputPortFormat},
    {"outputPort", &S::outputPort},
    {"statsSamplingInterval", &S::statsSamplingInterval},
    {"counterBlockVersion", &S::counterBlockVersion},
    {"flowSampleType", &S::flowSampleType},
    {"headerProtocol", &S::headerProtocol},
    {"sampledPacketSize", &S::sampledPacketSize},
    {"headerLen", &S::headerLen},
    {"strippedBytes", &S::strippedBytes},
    {"num_extended", &S::num_extended},
};

const Member kFields[] = {
    {"src", &S::ethernet_src},
    {"dst", &S::ethernet_dst},
    {"ethernet_type", &S::ethernet_type},
    {"ethernet_len", &S::ethernet_len},
    {"in_vlan", &S::in_vlan},
    {"in_priority", &S::in_priority},
    {"out_vlan", &S::out_vlan},
    {"out_priority", &S::out_priority},
    {"hasIPv4", &S::hasIPv4},
    {"hasIPv4Struct", &S::hasIPv4Struct},
    {"ipv4Offset", &S::ipv4Offset},
    {"hasIPv6", &S::hasIPv6},
    {"hasIPv6Struct", &S::hasIPv6Struct},
    {"ipv6Offset", &S::ipv6Offset},
    {"srcIP", &S::srcIP},
    {"dstIP", &S::dstIP},
    {"IPProtocol", &S::IPProtocol},
    {"IPTOS", &S::IPTOS},
    {"IPTTL", &S::IPTTL},
    {"IPFragmentOffset", &S::IPFragmentOffset},
    {"srcPort", &S::srcPort},
    {"dstPort", &S::dstPort},
    {"TCPFlags", &S::TCPFlags},
    {"UDPBytes", &S::UDPBytes},
    {"payloadOffset", &S::payloadOffset},
    {"extendedTypes", &S::extendedTypes},
    {"nextHop", &S::nextHop},
    {"srcSubnetMask", &S::srcSubnetMask},
    {"dstSubnetMask", &S::dstSubnetMask},
    {"bgp_nexthop", &S::bgp_nexthop},
    {"my_as", &S::my_as},
    {"src_as", &S::src_as},
    {"src_peer_as", &S::src_peer_as},
    {"dst_peer_as", &S::dst_peer_as},
    {"dst_as", &S::dst_as},
    {"localpref", &S::localpref},
    {"src_user_charset", &S::src_user_charset},
    {"src_user_len", &S::src_user_len},
    {"src_user", &S::src_user},
    {"dst_user_charset", &S::dst_user_charset},
    {"dst_user_len", &S::dst_user_len},
    {"dst_user", &S::dst_user},
    {"url_direction", &S::url_direction},
    {"url_len", &S::url_len},
    {"url", &S::url},
    {"host_len", &S::host_len},
    {"host", &S::host},
    {"mpls_nexthop", &S::mpls_nexthop},
    {"nat_src", &S::nat_src},
    {"nat_dst", &S::nat_dst},
    {"ifIndex", &S::ifIndex},
    {"networkType", &S::networkType},
    {"ifSpeed", &S::ifSpeed},
    {"ifDirection", &S::ifDirection},
    {"ifStatus", &S::ifStatus},
    {"ifInOctets", &S::ifInOctets},
    {"ifInUcastPkts", &S::ifInUcastPkts},
    {"ifInMulticastPkts", &S::ifInMulticastPkts},
    {"ifInBroadcastPkts", &S::ifInBroadcastPkts},
    {"ifInDiscards", &S::ifInDiscards},
    {"ifInErrors", &S::ifInErrors},
    {"ifInUnknownProtos", &S::ifInUnknownProtos},
    {"ifOutOctets", &S::ifOutOctets},
    {"ifOutUcastPkts", &S::ifOutUcastPkts},
    {"ifOutMulticastPkts", &S::ifOutMulticastPkts},
    {"ifOutBroadcastPkts", &S::ifOutBroadcastPkts},
    {"ifOutDiscards", &S::ifOutDiscards},
    {"ifOutErrors", &S::ifOutErrors},
    {"ifPromiscuousMode", &S::ifPromiscuousMode},
};

// The text of a value; empty for one that is unset.
std::string Text(std::integral auto number) { return number == 0 ? "" : std::to_string(number); }

std::string Text(const SFAddress& address) {
  if (address.type == kSFAddressUnset) return "";
  char text[INET6_ADDRSTRLEN] = "?";
  if (address.type == kSFAddressIPv4) inet_ntop(AF_INET, address.bytes, text, sizeof text);
  if (address.type == kSFAddressIPv6) inet_ntop(AF_INET6, address.bytes, text, sizeof text);
  return text;
}

std::string Text(const std::uint8_t (&mac)[8]) {
  std::string text;
  for (const std::uint8_t byte : mac) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02x", byte);
    text += pair;
  }
  return text == "0000000000000000" ? "" : text;
}

std::string Text(const char (&text)[200]) { return text; }

std::string Describe(const _SFSample& sample, std::span<const Member> members) {
  std::string out;
  for (const Member& row : members) {
    const std::string text =
        std::visit([&](auto member) { return Text(sample.*member); }, row.member);
    if (!text.empty()) out += (out.empty() ? "" : " ") + std::string(row.name) + "=" + text;
  }
  return out;
}

std::string WordList(const char* name, const std::uint8_t* words, std::uint32_t count) {
  if (words == nullptr) return "";
  std::string text = std::string(" ") + name + "=";
  for (std::uint32_t i = 0; i < count; ++i) {
    text += (i == 0 ? "" : ",") + std::to_string(LoadBe32(words + std::size_t{4} * i));
  }
  return text;
}

// The sampled header is pointed at, not copied: all of it must lie inside the datagram.
void ReadHeader(const _SFSample& sample) {
  unsigned int sum = 0;
  for (std::int32_t i = 0; i < sample.headerLen; ++i) sum += sample.headerBytes[i];
  volatile unsigned int used = sum;
  (void)used;
}

int Deliver(void* context, _SFSample* sample) {
  ReadHeader(*sample);
  static_cast<Decoded*>(context)->samples.push_back(
      {sample->sampleType, Describe(*sample, kFixed),
       Describe(*sample, kFields) +
           WordList("dst_as_path", sample->dst_as_path, sample->dst_as_path_len) +
           WordList("communities", sample->communities, sample->communities_len)});
  return 0;
}

}  // namespace

Decoded Decode(std::span<const std::uint8_t> datagram) {
  const auto block = std::make_unique<std::uint8_t[]>(datagram.size());
  std::copy(datagram.begin(), datagram.end(), block.get());
  Decoded decoded = {};
  _SFSample sample{};
  sample.datagram = block.get();
  sample.datagramSize = static_cast<std::uint32_t>(datagram.size());
  sample.cursor = ByteCursor({block.get(), datagram.size()});
  sample.decodeOK = 1;
  testing::internal::CaptureStderr();
  readSFlowDatagram(&decoded, Deliver, &sample);
  decoded.diagnostics = testing::internal::GetCapturedStderr();
  decoded.exit = sample.exit;
  decoded.decode_ok = sample.decodeOK;
  return decoded;
}

}  // namespace flow::test
