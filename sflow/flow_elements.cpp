// SPDX-License-Identifier: Apache-2.0
// The elements of a flow sample beside the sampled header: what the agent knows about the packet.

#include "sflow/sflow_steps.h"

namespace {

constexpr std::uint32_t kProtocolTcp = 6;

// ReadPacketData reads what stands in for a sampled header: an IPv4 or IPv6 packet as words. The
// last of them is its TOS or priority.
bool ReadPacketData(_SFSample* sample, std::uint32_t address_type, std::uint32_t word_count,
                    std::uint32_t* last_word) {
  if (!TakeWords(sample, word_count, &sample->headerBytes)) return false;
  sample->headerLen = static_cast<std::int32_t>(4 * word_count);
  SFWords words(sample->headerBytes);
  sample->sampledPacketSize = words.Next();
  sample->IPProtocol = words.Next();
  words.NextAddress(address_type, &sample->srcIP);
  words.NextAddress(address_type, &sample->dstIP);
  sample->srcPort = words.Next();
  sample->dstPort = words.Next();
  const std::uint32_t flags = words.Next();
  if (sample->IPProtocol == kProtocolTcp) sample->TCPFlags = flags;
  *last_word = words.Next();
  return true;
}

// SkipTextAndWords passes over a text and the words behind it.
bool SkipTextAndWords(_SFSample* sample, std::uint32_t word_count) {
  return SkipString(sample) && SkipWords(sample, word_count);
}

// SkipWordList passes over a count word and that many words.
bool SkipWordList(_SFSample* sample) {
  std::uint32_t count = 0;
  return GetWord(sample, &count) && SkipWords(sample, count);
}

// Extended notes that a sample came with a kind of extended data.
bool Extended(_SFSample* sample, std::uint32_t bit) {
  sample->extendedTypes |= bit;
  return true;
}

// ReadAsPath reads the path of versions 4 and 5: segments with a type, a length and AS numbers. Of
// the path only its first and last numbers are kept.
bool ReadAsPath(_SFSample* sample) {
  std::uint32_t segments = 0;
  if (!GetWord(sample, &segments)) return false;
  for (std::uint32_t i = 0; i < segments; ++i) {
    const std::uint8_t* head = nullptr;
    const std::uint8_t* path = nullptr;
    if (!TakeWords(sample, 2, &head)) return false;
    const std::uint32_t length = LoadBe32(head + 4);
    if (!TakeWords(sample, length, &path)) return false;
    if (length == 0) continue;
    if (i == 0) sample->dst_peer_as = LoadBe32(path);
    if (i == segments - 1) sample->dst_as = LoadBe32(path + std::size_t{4} * (length - 1));
  }
  return true;
}

bool ReadCommunities(_SFSample* sample) {
  const std::uint8_t* communities = nullptr;
  if (!GetWord(sample, &sample->communities_len)) return false;
  if (!TakeWords(sample, sample->communities_len, &communities)) return false;
  if (sample->communities_len != 0) sample->communities = communities;
  return true;
}

bool ReadAsPathV2(_SFSample* sample) {
  if (!GetWord(sample, &sample->dst_as_path_len)) return false;
  const std::uint32_t length = sample->dst_as_path_len;
  if (!TakeWords(sample, length, &sample->dst_as_path)) return false;
  if (length == 0) return true;
  sample->dst_peer_as = LoadBe32(sample->dst_as_path);
  sample->dst_as = LoadBe32(sample->dst_as_path + std::size_t{4} * (length - 1));
  return true;
}

bool mplsLabelStack(_SFSample* sample) { return SkipWordList(sample); }

bool ReadSocket(_SFSample* sample, std::uint32_t address_type, std::uint32_t word_count) {
  const std::uint8_t* fixed = nullptr;
  if (!TakeWords(sample, word_count, &fixed)) return false;
  SFWords words(fixed);
  words.Skip(1);  // protocol
  words.NextAddress(address_type, &sample->srcIP);
  words.NextAddress(address_type, &sample->dstIP);
  return true;  // the ports stay those of the header
}

}  // namespace

bool readFlowSample_ethernet(_SFSample* sample) {
  const std::uint8_t* fixed = nullptr;
  if (!TakeWords(sample, 6, &fixed)) return false;
  SFWords words(fixed);
  sample->ethernet_len = words.Next();
  words.NextMac(sample->ethernet_src);
  words.NextMac(sample->ethernet_dst);
  sample->ethernet_type = words.Next();
  return true;
}

bool readFlowSample_IPv4(_SFSample* sample) {
  return ReadPacketData(sample, kSFAddressIPv4, 8, &sample->IPTOS);
}

bool readFlowSample_IPv6(_SFSample* sample) {
  std::uint32_t priority = 0;
  return ReadPacketData(sample, kSFAddressIPv6, 14, &priority);
}

bool readExtendedSwitch(_SFSample* sample) {
  const std::uint8_t* fixed = nullptr;
  if (!TakeWords(sample, 4, &fixed)) return false;
  SFWords words(fixed);
  sample->in_vlan = words.Next();
  sample->in_priority = words.Next();
  sample->out_vlan = words.Next();
  sample->out_priority = words.Next();
  return Extended(sample, kSFExtendedSwitch);
}

bool readExtendedRouter(_SFSample* sample) {
  return getAddress(sample, &sample->nextHop) && GetWord(sample, &sample->srcSubnetMask) &&
         GetWord(sample, &sample->dstSubnetMask) && Extended(sample, kSFExtendedRouter);
}

bool readExtendedGateway(_SFSample* sample) {
  const std::uint32_t version = sample->datagramVersion;
  if (version == 5 && !getAddress(sample, &sample->bgp_nexthop)) return false;
  const std::uint8_t* fixed = nullptr;
  if (!TakeWords(sample, 3, &fixed)) return false;
  SFWords words(fixed);
  sample->my_as = words.Next();
  sample->src_as = words.Next();
  sample->src_peer_as = words.Next();
  sample->dst_peer_as = 0;
  sample->dst_as = 0;
  if (version == 2) return ReadAsPathV2(sample) && Extended(sample, kSFExtendedGateway);
  return ReadAsPath(sample) && ReadCommunities(sample) && GetWord(sample, &sample->localpref) &&
         Extended(sample, kSFExtendedGateway);
}

bool readExtendedUser(_SFSample* sample) {
  const bool has_charset = sample->datagramVersion == 5;
  return (!has_charset || GetWord(sample, &sample->src_user_charset)) &&
         getString(sample, sample->src_user, sizeof(sample->src_user), &sample->src_user_len) &&
         (!has_charset || GetWord(sample, &sample->dst_user_charset)) &&
         getString(sample, sample->dst_user, sizeof(sample->dst_user), &sample->dst_user_len) &&
         Extended(sample, kSFExtendedUser);
}

bool readExtendedUrl(_SFSample* sample) {
  const bool has_host = sample->datagramVersion == 5;
  return GetWord(sample, &sample->url_direction) &&
         getString(sample, sample->url, sizeof(sample->url), &sample->url_len) &&
         (!has_host || getString(sample, sample->host, sizeof(sample->host), &sample->host_len)) &&
         Extended(sample, kSFExtendedUrl);
}

bool readExtendedMpls(_SFSample* sample) {
  return getAddress(sample, &sample->mpls_nexthop) && mplsLabelStack(sample) &&
         mplsLabelStack(sample) && Extended(sample, kSFExtendedMpls);
}

bool readExtendedNat(_SFSample* sample) {
  return getAddress(sample, &sample->nat_src) && getAddress(sample, &sample->nat_dst) &&
         Extended(sample, kSFExtendedNat);
}

bool readExtendedMplsTunnel(_SFSample* sample) {
  return SkipTextAndWords(sample, 2) && Extended(sample, kSFExtendedMplsTunnel);
}

bool readExtendedMplsVC(_SFSample* sample) {
  return SkipTextAndWords(sample, 2) && Extended(sample, kSFExtendedMplsVc);
}

bool readExtendedMplsFTN(_SFSample* sample) {
  return SkipTextAndWords(sample, 1) && Extended(sample, kSFExtendedMplsFtn);
}

bool readExtendedMplsLdpFec(_SFSample* sample) {
  return SkipWords(sample, 1) && Extended(sample, kSFExtendedMplsLdpFec);
}

bool readExtendedVlanTunnel(_SFSample* sample) {
  return SkipWordList(sample) && Extended(sample, kSFExtendedVlanTunnel);
}

bool readExtendedWifiPayload(_SFSample* sample) {
  return SkipWords(sample, 1) && readFlowSample_header(sample);  // the word is the cipher suite
}

bool readExtendedWifiReceive(_SFSample* sample) { return SkipTextAndWords(sample, 2 + 7); }

bool readExtendedWifiTransmit(_SFSample* sample) { return SkipTextAndWords(sample, 2 + 8); }

bool readExtendedSocket4(_SFSample* sample) { return ReadSocket(sample, kSFAddressIPv4, 5); }

bool readExtendedSocket6(_SFSample* sample) { return ReadSocket(sample, kSFAddressIPv6, 11); }

bool readFlowSample_memcache(_SFSample* sample) {
  return SkipWords(sample, 2) && SkipTextAndWords(sample, 4);
}

bool readFlowSample_http(_SFSample* sample) {
  if (!SkipWords(sample, 2)) return false;
  for (int text = 0; text < 6; ++text) {
    if (!SkipString(sample)) return false;
  }
  return SkipWords(sample, 4);
}
