#include "netflow/field_decoder.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "util/address_text.h"
#include "util/bytes.h"

namespace flow {
namespace {

constexpr std::uint32_t kVendorEnterprise = 25461;  // whose elements 56701 and 56702 are decoded
constexpr std::size_t kVendorAppIdLength = 32;
constexpr std::size_t kVendorUserIdLength = 64;

// Some firewalls tell how a flow ended but no TCP flags; SYN and RST close the flow.
constexpr std::uint8_t kFlagsOfEndedFlow = 0x06;

template <class To>
void Store(std::uint64_t value, To* to) noexcept {
  *to = static_cast<To>(value);
}

// Copies a text up to its first NUL, cut to the most characters that the field keeps.
template <std::size_t N>
void StoreText(const std::uint8_t* value, std::size_t length, std::size_t most,
               char (&to)[N]) noexcept {
  static_assert(N > 0);
  const std::size_t size = strnlen(reinterpret_cast<const char*>(value), std::min(length, most));
  std::memcpy(to, value, size);
  to[size] = '\0';
}

void StoreRecordText(const std::uint8_t* value, std::size_t length, RecordText<128>* to) noexcept {
  to->Assign(reinterpret_cast<const char*>(value), length);
}

bool IsPrintable(const std::uint8_t* value, std::size_t length) noexcept {
  for (std::size_t i = 0; i < length && value[i] != 0; ++i) {
    if (value[i] < 0x20 || value[i] > 0x7E) return false;
  }
  return true;
}

}  // namespace

void FieldDecoder::Start(std::uint32_t exporter_address, DecodedRecord* out) const noexcept {
  std::memset(out, 0, sizeof(*out));
  out->record.exporter_addr = exporter_address;
  out->record.ip_version = 4;
  context_->AppTagText.Clear();
  context_->VrfTagText.Clear();
  texts_->AppNameText.Clear();
  texts_->AppDescText.Clear();
}

void FieldDecoder::DecodeField(Decode decode, const std::uint8_t* value, std::size_t length,
                               bool is_variable, const DecodeSwitches& switches,
                               DecodedRecord* out) const {
  nf9_record& r = out->record;
  const std::uint64_t number = GetVarInt(length, value);
  const auto low = static_cast<std::uint32_t>(number);
  switch (decode) {
    case Decode::kSkip:
      return;
    case Decode::kBytes:
      r.bytes = low;
      return;
    case Decode::kPackets:
      r.packets = low;
      return;
    case Decode::kOutBytes:
      if (!switches.ignore_out_counts) r.rev_bytes = number;
      return;
    case Decode::kOutPackets:
      if (!switches.ignore_out_counts) r.rev_packets = number;
      return;
    case Decode::kReverseBytes:
      r.rev_bytes = number;
      return;
    case Decode::kReversePackets:
      r.rev_packets = number;
      return;
    case Decode::kForwardDeltaBytes:
      r.rev_bytes = std::max(static_cast<std::uint32_t>(r.rev_bytes), low);
      return;
    case Decode::kReverseDeltaBytes:
      r.bytes = std::max(static_cast<std::uint32_t>(r.bytes), low);
      return;
    case Decode::kProtocol:
      return Store(number, &r.protocol);
    case Decode::kTcpFlags:
      return Store(number, &r.tcp_flags);
    case Decode::kFlowEndReason:
      r.tcp_flags = kFlagsOfEndedFlow;
      return;
    case Decode::kSourcePort:
      out->presence |= kSourcePortSeen;
      return Store(number, &r.src_port);
    case Decode::kDestinationPort:
      out->presence |= kDestinationPortSeen;
      return Store(number, &r.dst_port);
    case Decode::kSourceAddress:
      out->presence |= kSourceAddressSeen;
      return Store(number, &r.src_addr);
    case Decode::kDestinationAddress:
      out->presence |= kDestinationAddressSeen;
      return Store(number, &r.dst_addr);
    case Decode::kPostNatSourceAddress:
      if (switches.use_post_nat_addresses) r.src_addr = low;
      return;
    case Decode::kPostNatDestinationAddress:
      if (switches.use_post_nat_addresses) r.dst_addr = low;
      return;
    case Decode::kSourceMask:
      return Store(number, &r.src_mask);
    case Decode::kDestinationMask:
      return Store(number, &r.dst_mask);
    case Decode::kInputInterface:
      out->presence |= kInputInterfaceSeen;
      return Store(number, &r.in_ifindex);
    case Decode::kOutputInterface:
      out->presence |= kOutputInterfaceSeen;
      return Store(number, &r.out_ifindex);
    case Decode::kNextHop:
      return Store(number, &r.ip_nexthop);
    case Decode::kBgpNextHop:
      return Store(number, &r.bgp_nexthop);
    case Decode::kSourceAs:
      return Store(number, &r.src_as);
    case Decode::kDestinationAs:
      return Store(number, &r.dst_as);
    case Decode::kFirstSwitched:
      context_->FirstSwitchedSeen = 22;
      return Store(number, &r.first);
    case Decode::kLastSwitched:
      return Store(number, &r.last);
    case Decode::kStartSeconds:
      return Store(number * 1000, &r.first);
    case Decode::kEndSeconds:
      return Store(number * 1000, &r.last);
    case Decode::kStartMilliseconds:
      return Store(number / 1000, &r.first);
    case Decode::kEndMilliseconds:
      return Store(number / 1000, &r.last);
    case Decode::kSourceAddress6:
      if (length != sizeof(r.src_addr6)) return;
      out->presence |= kIpv6AddressSeen | kSourceAddressSeen;
      std::memcpy(r.src_addr6, value, sizeof(r.src_addr6));
      return;
    case Decode::kDestinationAddress6:
      if (length != sizeof(r.dst_addr6)) return;
      out->presence |= kIpv6AddressSeen | kDestinationAddressSeen;
      std::memcpy(r.dst_addr6, value, sizeof(r.dst_addr6));
      return;
    case Decode::kSourceMac:
      if (length == sizeof(r.src_mac)) std::memcpy(r.src_mac, value, sizeof(r.src_mac));
      return;
    case Decode::kDestinationMac:
      if (length == sizeof(r.dst_mac)) std::memcpy(r.dst_mac, value, sizeof(r.dst_mac));
      return;
    case Decode::kSourceVlan:
      return Store(number, &r.src_vlan);
    case Decode::kDestinationVlan:
      return Store(number, &r.dst_vlan);
    case Decode::kIpVersion:
      return Store(number, &r.ip_version);
    case Decode::kDirection:
      return Store(number, &r.direction);
    case Decode::kInterfaceName:
      return StoreText(value, length, 127, r.if_name);
    case Decode::kInterfaceDescription:
      return StoreText(value, length, 127, r.if_desc);
    case Decode::kApplicationDescription:
      return StoreRecordText(value, length, &texts_->AppDescText);
    case Decode::kApplicationName:
      return StoreRecordText(value, length, &texts_->AppNameText);
    case Decode::kApplicationId:
      return DecodeApplicationId(value, length);
    case Decode::kIngressVrf: {
      char text[24] = "VRF:";
      char* const end = PutSignedDecimal(static_cast<std::int32_t>(low), text + 4);
      context_->VrfTagText.Assign(text, static_cast<std::size_t>(end - text));
      return;
    }
    case Decode::kSamplingRate:
      return rates_->OnSamplingRate(r.exporter_addr, low);
    case Decode::kEnterpriseNumber:
      return Store(number, &r.enterprise_id);
    case Decode::kVendorAppId:
      if (r.enterprise_id == kVendorEnterprise && length == kVendorAppIdLength) {
        StoreText(value, length, 31, r.vendor_text32);
      }
      return;
    case Decode::kVendorUserId:
      if (r.enterprise_id == kVendorEnterprise && length == kVendorUserIdLength &&
          IsPrintable(value, length)) {
        StoreText(value, length, 63, r.vendor_text64);
      }
      return;
    case Decode::kVariableText:
      if (is_variable) StoreText(value, length, 63, r.vendor_text64);
      return;
  }
}

// Application ids (RFC 6759): a classification engine and a selector in 4 bytes, or 8 bytes of a
// vendor's own.
void FieldDecoder::DecodeApplicationId(const std::uint8_t* value, std::size_t length) const {
  char text[32];
  char* end = text;
  if (length == 4) {
    const std::uint32_t selector = LoadBe32(value) & 0xFFFFFF;
    texts_->AppSelectorId = selector;
    end = PutDecimal(value[0], end);
    *end++ = ':';
    end = PutDecimal(selector, end);
  } else if (length == 8) {
    const std::uint64_t selector = LoadBe64(value);
    texts_->AppSelectorId = static_cast<std::int64_t>(selector);
    end = std::to_chars(end, text + sizeof(text), selector, 16).ptr;
  } else {
    return;
  }
  context_->AppTagText.Assign(text, static_cast<std::size_t>(end - text));
}

}  // namespace flow
