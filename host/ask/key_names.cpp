// SPDX-License-Identifier: Apache-2.0
#include "host/ask/key_names.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <functional>
#include <optional>
#include <sstream>

#include "host/base/error.h"
#include "host/base/files.h"
#include "host/base/words.h"
#include "host/names/well_known_names.h"
#include "host/policy/home_ranges.h"

namespace flow::host {
namespace {

template <class Number>
bool ParseWhole(std::string_view text, Number* number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
  return error == std::errc() && end == text.data() + text.size();
}

// The address with its bits behind a prefix cleared.
IpAddress Cut(const IpAddress& address, unsigned length) {
  std::array<std::uint8_t, 16> bytes{};
  const std::span<const std::uint8_t> old = address.bytes();
  for (std::size_t i = 0; i < old.size(); ++i) {
    const unsigned kept = std::min(8U, length - std::min<unsigned>(length, unsigned(i) * 8));
    bytes[i] = static_cast<std::uint8_t>(old[i] & 0xFF00U >> kept);
  }
  if (address.family() == Family::kIpv6) return IpAddress::Ipv6(bytes);
  return IpAddress::Ipv4(std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
                         std::uint32_t{bytes[2]} << 8 | bytes[3]);
}

// "10.0.0.1 if 3" of the store, "10.0.0.1:3" and "[2001:db8::1]:3" of people.
std::optional<std::pair<IpAddress, std::uint32_t>> ParseInterface(std::string_view text) {
  std::string_view separator = " if ";
  std::size_t at = text.find(separator);
  if (at == std::string_view::npos) {
    separator = ":";
    at = text.rfind(':');
  }
  if (at == std::string_view::npos) return std::nullopt;
  std::uint32_t index = 0;
  if (!ParseWhole(text.substr(at + separator.size()), &index)) return std::nullopt;
  std::string_view address = text.substr(0, at);
  const bool is_bracketed = address.starts_with('[') && address.ends_with(']');
  if (is_bracketed) address = address.substr(1, address.size() - 2);
  const auto parsed = IpAddress::Parse(std::string(address));
  if (!parsed) return std::nullopt;
  if (separator == ":" && (parsed->family() == Family::kIpv6) != is_bracketed) return std::nullopt;
  return std::pair(*parsed, index);
}

std::optional<std::uint32_t> ParseAs(std::string_view text) {
  std::uint32_t number = 0;
  if (!SameWord(text.substr(0, 2), "as") || !ParseWhole(text.substr(2), &number)) return {};
  return number;
}

}  // namespace

void KeyNames::ReadFile(const std::string& path) {
  const auto text = ReadGiven(path);
  if (!text) throw HostError(fmt::format("{} cannot be read: {}", path, FileTrouble(errno)));
  std::istringstream file(*text);
  constexpr std::string_view kBlanks = " \t\r";
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    const std::size_t start = line.find_first_not_of(kBlanks);
    if (start == std::string::npos || line[start] == '#') continue;
    const std::size_t end = line.find_first_of(kBlanks, start);
    const std::size_t name = line.find_first_not_of(kBlanks, end);
    const std::string what = line.substr(start, end - start);
    if (name == std::string::npos ||
        !Learn(what, line.substr(name, line.find_last_not_of(kBlanks) + 1 - name))) {
      throw UsageError(fmt::format(
          "{}:{}: '{}' with a name behind it is expected to be an address, a network, EXPORTER:N, "
          "AS64500 or PORT/PROTOCOL",
          path, number, what));
    }
  }
}

bool KeyNames::Learn(std::string_view what, std::string name) {
  Network network;
  if (ParseNetwork(what, &network)) {
    auto& lengths = lengths_[network.address.family() == Family::kIpv6];
    if (std::ranges::find(lengths, network.prefix) == lengths.end()) {
      lengths.push_back(network.prefix);
      std::ranges::sort(lengths, std::greater());
    }
    networks_[{network.prefix, network.address}] = std::move(name);
    return true;
  }
  return LearnInterface(what, name) || LearnNumber(what, name);
}

bool KeyNames::LearnInterface(std::string_view what, const std::string& name) {
  const auto interface = ParseInterface(what);
  if (interface) interfaces_[*interface] = name;
  return interface.has_value();
}

bool KeyNames::LearnNumber(std::string_view what, const std::string& name) {
  if (const auto as_number = ParseAs(what)) {
    as_numbers_[*as_number] = name;
    return true;
  }
  const std::size_t slash = what.find('/');
  std::uint16_t port = 0;
  if (!ParseWhole(what.substr(0, slash), &port)) return false;
  int protocol = -1;
  for (int i = 0; slash != std::string_view::npos && i < 256 && protocol < 0; ++i) {
    const std::string_view known = ProtocolName(static_cast<std::uint8_t>(i));
    if (SameWord(known, what.substr(slash + 1))) protocol = i;
  }
  if (slash != std::string_view::npos && protocol < 0) return false;
  ports_[{port, protocol}] = name;
  return true;
}

std::string KeyNames::OfAddress(const IpAddress& address) const {
  std::string name = OfNetwork(address);
  if (name.empty() && asks_dns_) name = dns_.NameOf(address);
  return WithGeo(address, std::move(name));
}

std::string KeyNames::WithGeo(const IpAddress& address, std::string name) const {
  std::string about;
  for (const GeoDatabase& database : geo_) {
    const std::string more = database.About(address);
    if (!more.empty()) about += (about.empty() ? "" : ", ") + more;
  }
  if (about.empty()) return name;
  return name.empty() ? about : fmt::format("{} ({})", name, about);
}

std::string KeyNames::OfNetwork(const IpAddress& address) const {
  for (const unsigned length : lengths_[address.family() == Family::kIpv6]) {
    const auto found = networks_.find({length, Cut(address, length)});
    if (found != networks_.end()) return found->second;
  }
  return "";
}

std::string KeyNames::OfInterface(const IpAddress& exporter, std::uint32_t index) const {
  const auto found = interfaces_.find({exporter, index});
  return found == interfaces_.end() ? "" : found->second;
}

std::string KeyNames::OfAs(std::uint32_t number) const {
  const auto found = as_numbers_.find(number);
  return found == as_numbers_.end() ? "" : found->second;
}

std::string KeyNames::OfPort(std::uint16_t port, std::uint8_t protocol) const {
  auto found = ports_.find({port, protocol});
  if (found == ports_.end()) found = ports_.find({port, -1});
  return found == ports_.end() ? std::string(ServiceName(port)) : found->second;
}

std::string KeyNames::FromFile(const std::string& key_kind, const std::string& key) const {
  if (key_kind == "interface") {
    const auto interface = ParseInterface(key);
    return interface ? OfInterface(interface->first, interface->second) : "";
  }
  if (key_kind == "as") {
    const auto number = ParseAs(key);
    return number ? OfAs(*number) : "";
  }
  if (key_kind == "port") {
    std::uint16_t port = 0;
    const bool is_port = ParseWhole(key, &port);
    const auto found = is_port ? ports_.lower_bound({port, -1}) : ports_.end();
    return found != ports_.end() && found->first.first == port ? found->second : "";
  }
  if (const auto interface = ParseInterface(key)) {
    const std::string name = OfInterface(interface->first, interface->second);
    if (!name.empty()) return name;
  }
  const auto address = IpAddress::Parse(key);
  return address ? OfNetwork(*address) : "";
}

std::string KeyNames::NameOf(StoredCounters* counters, const StoredGroup& group,
                             const std::string& key) const {
  const auto address = IpAddress::Parse(key);
  std::string name = FromFile(group.key_kind, key);
  if (!name.empty()) return address ? WithGeo(*address, std::move(name)) : name;
  for (const char* const query :
       {"SELECT label FROM labels WHERE group_id = ? AND key = ? AND label <> ''",
        "SELECT name FROM names WHERE group_id = ? AND key = ?"}) {
    const auto stored = counters->Ask(query, {group.id, key});
    if (name.empty() && stored->Step()) name = stored->Text(0);
  }
  if (!address) return name;
  return name.empty() ? OfAddress(*address) : WithGeo(*address, std::move(name));
}

}  // namespace flow::host
