// SPDX-License-Identifier: Apache-2.0
#include "host/names/key_text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <utility>

#include "host/base/endpoint.h"
#include "host/base/printable.h"
#include "host/names/well_known_names.h"

namespace flow::host {
namespace {

using Text = std::optional<std::string>;  // nothing: the key has not the form

constexpr std::size_t kIpv4Length = 11;  // C0.A8.01.0A
constexpr std::size_t kIpv6Length = 32;
constexpr std::size_t kInterfaceLength = 20;  // C0.A8.01.01_0000000A
constexpr std::size_t kInterface6Length = kInterfaceLength - kIpv4Length + kIpv6Length;

template <class Number>
std::optional<Number> Parse(std::string_view digits, int base) {
  Number value{};
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return value;
}

std::optional<std::uint32_t> Hex(std::string_view digits, std::size_t length) {
  if (digits.size() != length) return std::nullopt;
  return Parse<std::uint32_t>(digits, 16);
}

// KeyReader takes the pieces of a key one after another; after one that does not fit it is spoilt.
class KeyReader {
 public:
  explicit KeyReader(std::string_view key) : rest_(key) {}

  [[nodiscard]] bool AtEnd() const { return rest_.empty(); }
  [[nodiscard]] bool spoilt() const { return spoilt_; }

  std::string_view Take(std::size_t length) {
    if (rest_.size() < length) spoilt_ = true;
    const std::string_view piece = rest_.substr(0, length);
    rest_.remove_prefix(piece.size());
    return piece;
  }
  void Expect(std::string_view literal) {
    if (Take(literal.size()) != literal) spoilt_ = true;
  }
  std::uint32_t TakeHex(std::size_t digits) {
    const auto value = Hex(Take(digits), digits);
    if (!value) spoilt_ = true;
    return value.value_or(0);
  }
  IpAddress TakeIpv4() {
    std::uint32_t address = 0;
    for (int octet = 0; octet < 4; ++octet) {
      if (octet > 0) Expect(".");
      address = address << 8 | TakeHex(2);
    }
    return IpAddress::Ipv4(address);
  }
  IpAddress TakeIpv6() {
    std::array<std::uint8_t, 16> bytes{};
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(TakeHex(2));
    return IpAddress::Ipv6(bytes);
  }

 private:
  std::string_view rest_;
  bool spoilt_ = false;
};

Text Checked(const KeyReader& reader, std::string text) {
  if (reader.spoilt() || !reader.AtEnd()) return std::nullopt;
  return text;
}

std::string WithName(std::uint32_t number, std::string_view name) {
  return name.empty() ? fmt::format("{}", number) : fmt::format("{} ({})", number, name);
}

std::string ProtocolText(std::uint32_t protocol) {
  const std::string_view name = ProtocolName(static_cast<std::uint8_t>(protocol));
  return name.empty() ? fmt::format("protocol {}", protocol) : std::string(name);
}

std::optional<IpAddress> Ipv4Of(std::string_view key) {
  KeyReader reader(key);
  const IpAddress address = reader.TakeIpv4();
  if (reader.spoilt() || !reader.AtEnd()) return std::nullopt;
  return address;
}

Text Ipv4Key(std::string_view key) {
  const auto address = Ipv4Of(key);
  if (!address) return std::nullopt;
  return address->Text();
}

Text Ipv6Key(std::string_view key) {
  KeyReader reader(key);
  const IpAddress address = reader.TakeIpv6();
  return Checked(reader, address.Text());
}

Text InterfaceKey(std::string_view key) {
  KeyReader reader(key);
  const bool ipv6 = key.size() == kInterface6Length;
  const IpAddress exporter = ipv6 ? reader.TakeIpv6() : reader.TakeIpv4();
  reader.Expect("_");
  const std::uint32_t index = reader.TakeHex(8);
  return Checked(reader, fmt::format("{} if {}", exporter.Text(), index));
}

Text TotalsKey(std::string_view key) {
  constexpr std::pair<std::string_view, std::string_view> kNames[] = {
      {"TOTALBW", "all"},
      {"DIR_WITHINHOME", "within home"},
      {"DIR_INTOHOME", "into home"},
      {"DIR_OUTOFHOME", "out of home"},
      {"DIR_TRANSIT", "transit"},
  };
  for (const auto& [raw, name] : kNames) {
    if (raw == key) return std::string(name);
  }
  return std::nullopt;
}

Text ApplicationKey(std::string_view key) {
  if (key.substr(0, 2) != "p-") return std::nullopt;
  const auto port = Hex(key.substr(2), 4);
  if (!port) return std::nullopt;
  return WithName(*port, ServiceName(static_cast<std::uint16_t>(*port)));
}

Text ProtocolKey(std::string_view key) {
  const auto protocol = Hex(key, 2);
  if (!protocol) return std::nullopt;
  return WithName(*protocol, ProtocolName(static_cast<std::uint8_t>(*protocol)));
}

Text EthertypeKey(std::string_view key) {
  if (key == "0800") return "IPv4";
  if (key == "86DD") return "IPv6";
  return std::nullopt;
}

Text SubnetKey(std::string_view key) {
  KeyReader reader(key);
  const IpAddress address = reader.TakeIpv4();
  reader.Expect("/");
  const std::uint32_t length = reader.TakeHex(2);
  return Checked(reader, fmt::format("{}/{}", address.Text(), length));
}

// AS numbers come as signed decimals; above 2147483647 they are negative.
Text AsNumberKey(std::string_view key) {
  const auto number = Parse<std::int64_t>(key, 10);
  if (!number) return std::nullopt;
  return fmt::format("AS{}", static_cast<std::uint32_t>(*number));
}

Text AsInterfaceKey(std::string_view key) {
  const std::size_t backslash = key.find('\\');
  if (backslash == std::string_view::npos) return std::nullopt;
  const Text number = AsNumberKey(key.substr(0, backslash));
  const Text interface = InterfaceKey(key.substr(backslash + 1));
  if (!number || !interface) return std::nullopt;
  return fmt::format("{} on {}", *number, *interface);
}

Text VlanKey(std::string_view key) {
  const auto vlan = Parse<std::uint32_t>(key, 16);
  if (!vlan) return std::nullopt;
  return *vlan == 0 ? "untagged" : fmt::format("{}", *vlan);
}

Text MacPairKey(std::string_view key) {
  constexpr std::string_view kArrow = " ->";
  const std::size_t arrow = key.find(kArrow);
  if (arrow == std::string_view::npos) return std::nullopt;
  return fmt::format("{} -> {}", Printable(key.substr(0, arrow)),
                     Printable(key.substr(arrow + kArrow.size())));
}

Endpoint TakeSide(KeyReader* reader, bool ipv6) {
  Endpoint side;
  side.address = ipv6 ? reader->TakeIpv6() : reader->TakeIpv4();
  reader->Expect(":p-");
  side.port = static_cast<std::uint16_t>(reader->TakeHex(4));
  reader->Expect("_");
  return side;
}

std::string SideText(const Endpoint& side, const Endpoint& other) {
  // In a flow with a merged service all client ports are one, written as FFFF.
  const bool merges = other.port == 53 || other.port == 80 || other.port == 443;
  if (side.port != 0xFFFF || !merges) return side.Text();
  const std::string text = side.Text();
  return text.substr(0, text.rfind(':') + 1) + "*";
}

// The exporter part ends a session key: address and two interfaces, all zero when flows of several
// exporters are merged. A merged one may be written with short interfaces.
std::string TakeExporter(KeyReader* reader, std::size_t length) {
  const bool is_short = length == 21;
  const bool ipv6 = length == 50;
  const std::size_t digits = is_short ? 4 : 8;
  const IpAddress exporter = ipv6 ? reader->TakeIpv6() : reader->TakeIpv4();
  reader->Expect("_");
  const std::uint32_t first = reader->TakeHex(digits);
  reader->Expect("_");
  const std::uint32_t second = reader->TakeHex(digits);
  if (exporter == IpAddress() && first == 0 && second == 0) return "";
  return fmt::format(" at {} if {}/{}", exporter.Text(), first, second);
}

// A record without addresses has an empty key.
bool IsIpv6Session(std::string_view key) { return key.size() > 2 && key[2] == 'D'; }
std::size_t SessionExporterAt(std::string_view key) { return IsIpv6Session(key) ? 84 : 42; }

Text SessionKey(std::string_view key) {
  constexpr std::size_t kShortest = 63;
  if (key.size() < kShortest) return std::nullopt;
  const bool ipv6 = IsIpv6Session(key);
  const std::size_t before_exporter = SessionExporterAt(key);
  KeyReader reader(key);
  const std::uint32_t protocol = reader.TakeHex(2);
  reader.Expect(ipv6 ? "D:" : "C:");
  const Endpoint a = TakeSide(&reader, ipv6);
  const Endpoint b = TakeSide(&reader, ipv6);
  const std::string exporter = TakeExporter(&reader, key.size() - before_exporter);
  return Checked(reader, fmt::format("{} {} <-> {}{}", ProtocolText(protocol), SideText(a, b),
                                     SideText(b, a), exporter));
}

Text GuessedKey(std::string_view key) {
  switch (key.size()) {
    case kIpv4Length:
      return Ipv4Key(key);
    case kInterfaceLength:
    case kInterface6Length:
      return InterfaceKey(key);
    case kIpv6Length:
      return Ipv6Key(key);
    default:
      return std::nullopt;
  }
}

Text PlainKey(std::string_view /*key*/) { return std::nullopt; }

using KeyText = Text (*)(std::string_view key);

// By KeyKind.
constexpr KeyText kKeyTexts[] = {
    GuessedKey,   PlainKey,    TotalsKey,      Ipv4Key,     Ipv6Key,
    InterfaceKey, SessionKey,  ApplicationKey, ProtocolKey, EthertypeKey,
    SubnetKey,    AsNumberKey, AsInterfaceKey, VlanKey,     MacPairKey,
};
static_assert(std::size(kKeyTexts) == static_cast<std::size_t>(KeyKind::kMacPair) + 1);

// Where the exporter stands in a key; behind its end for a key without one.
std::size_t ExporterAt(KeyKind kind, std::string_view key) {
  switch (kind) {
    case KeyKind::kGuess:
      return key.size() == kIpv4Length || key.size() == kInterfaceLength ? 0 : key.size();
    case KeyKind::kInterface:
      return 0;
    case KeyKind::kSession:
      return SessionExporterAt(key);
    case KeyKind::kAsInterface:
      return std::min(key.find('\\'), key.size() - 1) + 1;
    default:
      return key.size();
  }
}

}  // namespace

std::string RealKey(const StandIns& stand_ins, KeyKind kind, std::string_view key) {
  const std::size_t at = ExporterAt(kind, key);
  if (key.size() < at + kIpv4Length || key[at] != 'F') return std::string(key);
  const auto stand_in = Ipv4Of(key.substr(at, kIpv4Length));
  if (!stand_in) return std::string(key);
  const IpAddress real = stand_ins.RealOf(*stand_in);
  if (real.family() == Family::kIpv4) return std::string(key);
  return fmt::format("{}{:02X}{}", key.substr(0, at), fmt::join(real.bytes(), ""),
                     key.substr(at + kIpv4Length));
}

std::string ReadableKey(KeyKind kind, std::string_view key) {
  Text text = kKeyTexts[static_cast<std::size_t>(kind)](key);
  return text ? *std::move(text) : Printable(key);
}

}  // namespace flow::host
