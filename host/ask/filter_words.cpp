// SPDX-License-Identifier: Apache-2.0
#include "host/ask/filter_words.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <span>

#include "host/base/words.h"
#include "host/names/well_known_names.h"
#include "host/policy/home_ranges.h"

namespace flow::host {
namespace {

constexpr std::string_view kAddressForm = "an address or network such as 10.0.0.0/8";
constexpr std::string_view kPortForm = "a port, a range such as 1000-2000, or a service's name";
constexpr std::string_view kTextForm = "a text, in quotes where it has blanks";
constexpr std::string_view kAmountForm = "a number such as 1500, 10k, 1.5M, 2G";

constexpr FilterWord kWords[] = {
    {"host", FilterField::kAddress, true, false, kAddressForm},
    {"net", FilterField::kAddress, true, false, kAddressForm},
    {"port", FilterField::kPort, true, true, kPortForm},
    {"as", FilterField::kAs, true, true, "an AS number or a range of them"},
    {"interface", FilterField::kInterface, true, true, "an ifIndex or a range of them"},
    {"mac", FilterField::kMac, true, false, "a MAC address such as 00:1b:21:0a:0b:0c"},
    {"exporter", FilterField::kExporter, false, false, kAddressForm},
    {"nexthop", FilterField::kNextHop, false, false, kAddressForm},
    {"bgpnexthop", FilterField::kBgpNextHop, false, false, kAddressForm},
    {"vrf", FilterField::kVrf, false, false, kTextForm},
    {"app", FilterField::kApplication, false, false, kTextForm},
    {"user", FilterField::kUser, false, false, kTextForm},
    {"tag", FilterField::kTag, false, false, kTextForm},
    {"proto", FilterField::kProtocol, false, true, "a protocol's name or number"},
    {"bytes", FilterField::kBytes, false, true, kAmountForm},
    {"packets", FilterField::kPackets, false, true, kAmountForm},
    {"duration", FilterField::kDuration, false, true, "seconds, or as in 500ms, 5m, 1h"},
    {"bps", FilterField::kBitRate, false, true, kAmountForm},
    {"pps", FilterField::kPacketRate, false, true, kAmountForm},
    // What other tools call them.
    {"ip", FilterField::kAddress, true, false, kAddressForm},
    {"asn", FilterField::kAs, true, true, "an AS number or a range of them"},
    {"if", FilterField::kInterface, true, true, "an ifIndex or a range of them"},
    {"router", FilterField::kExporter, false, false, kAddressForm},
    {"protocol", FilterField::kProtocol, false, true, "a protocol's name or number"},
};
constexpr std::size_t kOwnWords = 19;

struct Scale {
  std::string_view unit;
  double factor;
};
constexpr Scale kAmounts[] = {{"", 1},       {"k", 1e3},       {"m", 1e6},      {"g", 1e9},
                              {"t", 1e12},   {"ki", 1024},     {"mi", 1 << 20}, {"gi", 1 << 30},
                              {"kb", 1e3},   {"mb", 1e6},      {"gb", 1e9},     {"tb", 1e12},
                              {"kib", 1024}, {"mib", 1 << 20}, {"gib", 1 << 30}};
constexpr Scale kMilliseconds[] = {{"", 1e3},     {"ms", 1},     {"s", 1e3},    {"m", 60e3},
                                   {"min", 60e3}, {"h", 3600e3}, {"d", 86400e3}};

std::optional<std::int64_t> ParseNumber(std::string_view text, std::int64_t most) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (number < 0 || number > most) return std::nullopt;
  return number;
}

std::optional<std::int64_t> ParseScaled(std::string_view text, std::span<const Scale> scales) {
  double number = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  if (error != std::errc() || !(number >= 0)) return std::nullopt;
  const std::string_view unit(end, text.data() + text.size());
  for (const Scale& scale : scales) {
    if (!SameWord(scale.unit, unit)) continue;
    number = std::round(number * scale.factor);
    return number < 9e18 ? std::optional(static_cast<std::int64_t>(number)) : std::nullopt;
  }
  return std::nullopt;
}

// The number of a name among the first `count` numbers; the lowest where several have it.
template <class NameOf>
std::optional<std::int64_t> NumberOf(std::string_view name, unsigned count, NameOf name_of) {
  for (unsigned number = 0; number < count; ++number) {
    if (SameWord(name_of(number), name)) return number;
  }
  return std::nullopt;
}

std::optional<std::int64_t> ParseOne(FilterField field, std::string_view text) {
  constexpr std::int64_t kMost32 = std::numeric_limits<std::uint32_t>::max();
  switch (field) {
    case FilterField::kPort:
      if (const auto port = ParseNumber(text, 65535)) return port;
      return NumberOf(text, 65536,
                      [](unsigned port) { return ServiceName(static_cast<std::uint16_t>(port)); });
    case FilterField::kProtocol:
      if (const auto protocol = ParseNumber(text, 255)) return protocol;
      if (SameWord(text, "icmp6")) text = "ipv6-icmp";
      return NumberOf(text, 256, [](unsigned protocol) {
        return ProtocolName(static_cast<std::uint8_t>(protocol));
      });
    case FilterField::kAs:
      if (SameWord(text.substr(0, 2), "as")) text.remove_prefix(2);
      return ParseNumber(text, kMost32);
    case FilterField::kInterface:
      return ParseNumber(text, kMost32);
    case FilterField::kDuration:
      return ParseScaled(text, kMilliseconds);
    default:
      return ParseScaled(text, kAmounts);
  }
}

std::optional<FilterValue> ParseNumbers(FilterField field, std::string_view text) {
  if (const auto number = ParseOne(field, text)) return NumberRange{*number, *number};
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const auto first = ParseOne(field, text.substr(0, dash));
  const auto last = ParseOne(field, text.substr(dash + 1));
  if (!first || !last || *first > *last) return std::nullopt;
  return NumberRange{*first, *last};
}

std::optional<FilterValue> ParseAddresses(std::string_view text) {
  Network network;
  if (!ParseNetwork(text, &network)) return std::nullopt;
  const std::span<const std::uint8_t> bytes = network.address.bytes();
  std::array<std::uint8_t, 16> last{};
  std::ranges::copy(bytes, last.begin());
  for (unsigned bit = network.prefix; bit < 8 * bytes.size(); ++bit) {
    last[bit / 8] = static_cast<std::uint8_t>(last[bit / 8] | 0x80U >> bit % 8);
  }
  if (network.address.family() == Family::kIpv6) {
    return AddressRange{network.address, IpAddress::Ipv6(last)};
  }
  return AddressRange{network.address,
                      IpAddress::Ipv4(network.address.AsIpv4() | ~network.Ipv4Mask())};
}

std::optional<FilterValue> ParseMac(std::string_view text) {
  constexpr std::size_t kTextLength = 17;
  if (text.size() != kTextLength) return std::nullopt;
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); at += 3) {
    std::uint8_t byte = 0;
    const auto [end, error] = std::from_chars(text.data() + at, text.data() + at + 2, byte, 16);
    if (error != std::errc() || end != text.data() + at + 2) return std::nullopt;
    if (at + 2 < text.size() && text[at + 2] != ':' && text[at + 2] != '-') return std::nullopt;
    bytes.push_back(static_cast<char>(byte));
  }
  return bytes;
}

}  // namespace

const FilterWord* FindFilterWord(std::string_view word) {
  const auto* const found =
      std::ranges::find_if(kWords, [&](const FilterWord& row) { return SameWord(row.word, word); });
  return found == std::end(kWords) ? nullptr : found;
}

std::string FilterWordList() {
  std::string list;
  for (const FilterWord& row : std::span(kWords).first(kOwnWords)) {
    list.append(row.word).append(", ");
  }
  return list + "tcp, udp, icmp, ipv4 or ipv6";
}

std::optional<FilterValue> ParseFilterValue(FilterField field, std::string_view text) {
  switch (field) {
    case FilterField::kAddress:
    case FilterField::kExporter:
    case FilterField::kNextHop:
    case FilterField::kBgpNextHop:
      return ParseAddresses(text);
    case FilterField::kVrf:
    case FilterField::kApplication:
    case FilterField::kUser:
    case FilterField::kTag:
      return std::string(text);
    case FilterField::kMac:
      return ParseMac(text);
    default:
      return ParseNumbers(field, text);
  }
}

std::optional<Condition> ParseShortWord(std::string_view word) {
  Condition condition;
  const bool is_ipv4 = SameWord(word, "ipv4");
  if (is_ipv4 || SameWord(word, "ipv6")) {
    condition.field = FilterField::kFamily;
    condition.values.emplace_back(is_ipv4 ? NumberRange{4, 4} : NumberRange{6, 6});
    return condition;
  }
  condition.field = FilterField::kProtocol;
  if (word.empty() || (word.front() >= '0' && word.front() <= '9')) return std::nullopt;
  const std::optional<FilterValue> value = ParseFilterValue(FilterField::kProtocol, word);
  if (!value) return std::nullopt;
  condition.values = {*value};
  return condition;
}

}  // namespace flow::host
