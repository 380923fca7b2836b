// SPDX-License-Identifier: Apache-2.0
#include "host/export/export_format.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/base/big_endian.h"
#include "host/capture/made_headers.h"

namespace flow::host {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kShim = 12;
constexpr std::size_t kRecord = 48;  // NetFlow v1 and v5
constexpr std::size_t kV9Header = 20;
constexpr std::size_t kIpfixHeader = 16;
constexpr std::size_t kSetHeader = 4;
constexpr std::uint16_t kFirstDataSet = 256;
// A template message begins with the IPv4 header and the two ports of the datagram.
constexpr std::size_t kMessageHeader = 24;

constexpr std::uint16_t kVariable = 65535;

// samplingInterval of v9, samplingPacketInterval and samplingPacketSpace of RFC 5477.
bool TellsRate(int element) { return element == 34 || element == 305 || element == 306; }
// The space alone is no rate.
bool IsRate(int element) { return element == 34 || element == 305; }

// Reads a template's field list; false when it does not fit into the bytes.
bool ReadFields(Bytes fields, std::size_t count, bool ipfix, std::size_t* length,
                TemplateShape* shape) {
  std::size_t at = 0;
  std::uint32_t least = 0;
  bool variable = false;
  bool has_rate = false;
  for (std::size_t i = 0; i < count; ++i) {
    if (fields.size() < at + 4) return false;
    const bool enterprise = ipfix && (Be16(fields.data() + at) & 0x8000) != 0;
    const std::uint16_t field = Be16(fields.data() + at + 2);
    const bool is_variable = ipfix && field == kVariable;
    shape->tells_rate = shape->tells_rate || TellsRate(Be16(fields.data() + at) & 0x7FFF);
    least += field == kVariable ? 1 : field;  // that of v9 may vary, too
    if (!has_rate && IsRate(Be16(fields.data() + at))) {
      has_rate = true;
      shape->rate_end = least;
    }
    variable = variable || is_variable;
    shape->shortest += is_variable ? 1 : field;
    // A field of no length adds nothing to a walk.
    if (field != 0 && shape->lengths.size() <= TemplateShape::kMostFields) {
      shape->lengths.push_back(field);
    }
    at += enterprise ? 8 : 4;
  }
  const bool is_vast = shape->lengths.size() > TemplateShape::kMostFields;
  if (variable && is_vast) shape->shortest = TemplateShape::kVast;
  if (!variable || is_vast) shape->lengths = {};
  *length = at;
  return at <= fields.size();
}

// v9 gives the bytes of both lists of fields; a last field that the end of the set cuts is none.
bool ReadV9Options(Bytes rest, const TemplateVisitor& visit) {
  if (rest.size() < 6) return false;
  const auto fields_in = [](std::size_t bytes) { return (bytes + 3) / 4; };
  const std::size_t scopes = fields_in(Be16(rest.data() + 2));
  const std::size_t options = Be16(rest.data() + 4);
  const Bytes fields = rest.subspan(6);
  if (scopes * 4 + options > fields.size()) return false;
  TemplateShape shape;
  std::size_t length = 0;
  const std::size_t count = std::min(scopes + fields_in(options), fields.size() / 4);
  ReadFields(fields, count, false, &length, &shape);
  visit(Be16(rest.data()), std::move(shape));
  return true;
}

// IPFIX gives the number of all fields, and of the scopes.
bool ReadIpfixOptions(Bytes rest, const TemplateVisitor& visit) {
  if (rest.size() < 4) return false;
  TemplateShape shape;
  std::size_t length = 0;
  const bool is_whole =
      rest.size() >= 6 && ReadFields(rest.subspan(6), Be16(rest.data() + 2), true, &length, &shape);
  if (!is_whole) shape = {};
  visit(Be16(rest.data()), std::move(shape));
  return is_whole;
}

// The bytes of the record at the front, which has fields of variable length; 0 when it is cut.
std::size_t RecordLength(Bytes bytes, const TemplateShape& shape) {
  std::size_t at = 0;
  for (const std::uint16_t field : shape.lengths) {
    std::size_t length = field;
    if (field == kVariable) {
      if (at >= bytes.size()) return 0;
      length = bytes[at++];
      if (length == 255) {
        if (at + 2 > bytes.size()) return 0;
        length = Be16(bytes.data() + at);
        at += 2;
      }
    }
    at += length;
    if (at > bytes.size()) return 0;
  }
  return at;
}

constexpr std::uint32_t kAgentOfIpv4 = 1;

bool HasShim(Bytes datagram) {
  return datagram.size() >= kShim && std::memcmp(datagram.data(), "OMBR", 4) == 0 &&
         std::memcmp(datagram.data() + 8, "LNSM", 4) == 0;
}

}  // namespace

std::string ExportVersion::Text() const {
  if (sflow) return fmt::format("sFlow v{}", number);
  if (number == 10) return "IPFIX";
  if (number == 0) return "unknown";
  return number <= 9 ? fmt::format("NetFlow v{}", number) : fmt::format("version {}", number);
}

bool ExportVersion::IsKnown() const {
  if (sflow) return number == 2 || number == 4 || number == 5;
  return number == 1 || number == 5 || number == 9 || number == 10;
}

ExportVersion VersionOf(Bytes datagram) {
  if (datagram.size() < 4) return {};
  const std::uint16_t high = Be16(datagram.data());
  if (high != 0) return {false, high};
  return {true, Be32(datagram.data())};
}

std::optional<IpAddress> ShimExporter(Bytes datagram) {
  if (!HasShim(datagram)) return std::nullopt;
  return IpAddress::Ipv4(Be32(datagram.data() + 4));
}

Bytes WithoutShim(Bytes datagram, const IpAddress& exporter) {
  return ShimExporter(datagram) == exporter ? datagram.subspan(kShim) : datagram;
}

std::optional<IpAddress> NamedExporter(Bytes datagram) {
  if (HasShim(datagram)) return ShimExporter(datagram);
  constexpr std::size_t kAgentAt = 8;  // behind the version and the type of the address
  if (datagram.size() < kAgentAt + 4 || !VersionOf(datagram).sflow ||
      Be32(datagram.data() + 4) != kAgentOfIpv4) {
    return std::nullopt;
  }
  return IpAddress::Ipv4(Be32(datagram.data() + kAgentAt));
}

bool IsCutShort(Bytes datagram) {
  if (datagram.size() < 4) return true;
  const std::size_t second = Be16(datagram.data() + 2);
  switch (Be16(datagram.data())) {
    case 1:
      return 16 + second * kRecord > datagram.size();
    case 5:
      return 24 + second * kRecord > datagram.size();
    case 10:
      return second > datagram.size();
    default:
      return false;
  }
}

bool StandsAlone(const IID& protocol, Bytes datagram) {
  const ExportVersion version = VersionOf(datagram);
  if (datagram.size() < kShortestClaim) return false;
  if (!version.IsKnown() || version.HasTemplates()) return false;
  return protocol == (version.sflow ? kSFlowProtocol : kNetflowProtocol) &&
         (version.sflow || !IsCutShort(datagram));
}

void ForEachSet(Bytes datagram, const std::function<void(const ExportSet&)>& visit) {
  const bool ipfix = datagram.size() >= 4 && Be16(datagram.data()) == 10;
  const std::size_t header = ipfix ? kIpfixHeader : kV9Header;
  if (datagram.size() < header) return;
  const std::size_t second = Be16(datagram.data() + 2);
  std::size_t left = ipfix ? datagram.size() : second;  // v9 says how many sets there are at most
  if (ipfix && second < datagram.size()) datagram = datagram.first(second);
  for (Bytes rest = datagram.subspan(std::min(header, datagram.size()));
       rest.size() >= kSetHeader;) {
    const std::size_t length = Be16(rest.data() + 2);
    ExportSet set;
    set.id = Be16(rest.data());
    set.is_broken = length < kSetHeader || length > rest.size();
    set.bytes = set.is_broken ? rest : rest.first(length);
    set.is_beyond = left == 0;
    set.holds_templates = ipfix ? set.id == 2 || set.id == 3 : set.id == 0 || set.id == 1;
    set.holds_data = set.id >= kFirstDataSet;
    visit(set);
    rest = rest.subspan(set.bytes.size());
    if (left > 0) --left;
  }
}

bool ForEachTemplate(Bytes set, const TemplateVisitor& visit) {
  if (set.size() < kSetHeader) return false;
  const std::uint16_t set_id = Be16(set.data());
  const bool ipfix = set_id >= 2;
  Bytes rest = set.subspan(kSetHeader);
  if (set_id == 1) return ReadV9Options(rest, visit);
  if (set_id == 3) return ReadIpfixOptions(rest, visit);
  while (rest.size() >= 4) {
    const std::uint16_t id = Be16(rest.data());
    TemplateShape shape;
    std::size_t length = 0;
    if (!ReadFields(rest.subspan(4), Be16(rest.data() + 2), ipfix, &length, &shape)) return false;
    if (id >= kFirstDataSet) visit(id, std::move(shape));  // a set may end in padding
    rest = rest.subspan(4 + length);
  }
  return rest.empty();
}

std::optional<Timestamp> ExportTimeOf(Bytes datagram) {
  constexpr std::size_t kRead = 16;  // the shortest of the headers
  constexpr std::uint32_t kNanosPerMicro = 1000;
  if (datagram.size() < kRead) return std::nullopt;
  const auto seconds = [&](std::size_t at) {
    return Timestamp{Be32(datagram.data() + at)} * kMicrosPerSecond;
  };
  switch (Be16(datagram.data())) {
    case 1:
    case 5: {
      const Timestamp micros = Be32(datagram.data() + 12) / kNanosPerMicro;
      return seconds(8) + (micros < kMicrosPerSecond ? micros : 0);
    }
    case 9:
      return seconds(8);
    case 10:
      return seconds(4);
    default:
      return std::nullopt;
  }
}

std::uint32_t RecordsOf(Bytes datagram) {
  if (datagram.size() < 4) return 0;
  const std::size_t header = Be16(datagram.data()) == 1 ? 16 : 24;
  const std::size_t room = datagram.size() < header ? 0 : (datagram.size() - header) / kRecord;
  return static_cast<std::uint32_t>(std::min<std::size_t>(Be16(datagram.data() + 2), room));
}

std::size_t SFlowAgentSize(Bytes datagram) {
  return Be32(datagram.data() + 4) == kAgentOfIpv4 ? 4 : 16;
}

std::uint32_t FlowSamplesOf(Bytes datagram, std::uint64_t behind) {
  if (datagram.size() < 8) return 0;
  const std::size_t header = 24 + SFlowAgentSize(datagram);
  if (datagram.size() < header) return 0;
  std::uint32_t left = Be32(datagram.data() + header - 4);
  std::uint32_t samples = 0;
  for (Bytes rest = datagram.subspan(header); left > 0 && rest.size() >= 8; --left) {
    const std::uint32_t type = Be32(rest.data());
    const std::size_t length = Be32(rest.data() + 4);
    const bool counts = behind == 0;
    if (!counts) --behind;
    if (counts && (type == 1 || type == 3)) ++samples;
    if (length > rest.size() - 8) break;
    rest = rest.subspan(8 + length);
  }
  return samples;
}

std::uint32_t CountRecords(Bytes set, const TemplateShape& shape) {
  if (shape.shortest == 0 || set.size() < kSetHeader) return 0;
  if (shape.lengths.empty()) {
    return static_cast<std::uint32_t>((set.size() - kSetHeader) / shape.shortest);
  }
  std::uint32_t records = 0;
  // What is left at the end and shorter than any record is padding.
  for (Bytes rest = set.subspan(kSetHeader); rest.size() >= shape.shortest; ++records) {
    const std::size_t length = RecordLength(rest, shape);
    if (length == 0) break;
    rest = rest.subspan(length);
  }
  return records;
}

std::optional<std::uint32_t> DomainOf(Bytes datagram) {
  if (datagram.size() < kV9Header || !VersionOf(datagram).HasTemplates()) return std::nullopt;
  const bool ipfix = Be16(datagram.data()) == 10;
  return Be32(datagram.data() + (ipfix ? kIpfixHeader : kV9Header) - 4);
}

std::optional<TemplateMessage> ParseTemplateMessage(Bytes message, bool has_domain) {
  TemplateMessage parsed;
  if (has_domain) {
    if (message.size() < 4) return std::nullopt;
    parsed.owner.domain = Be32(message.data());
    message = message.subspan(4);
  }
  if (message.size() < kMessageHeader + kSetHeader) return std::nullopt;
  parsed.owner.exporter.address = IpAddress::Ipv4(Be32(message.data() + 12));
  const std::size_t port_at = std::size_t{message[0]} % 16 * 4;
  if (port_at + 2 <= message.size()) parsed.owner.exporter.port = Be16(message.data() + port_at);
  parsed.set = message.subspan(kMessageHeader);
  return parsed;
}

std::vector<std::uint8_t> MakeTemplateMessage(const TemplateMessage& message) {
  UdpPacket packet;
  packet.source = message.owner.exporter;
  packet.payload_length = message.set.size();
  std::vector<std::uint8_t> headers(kMadeHeaders);
  PutMadeHeaders(packet, headers.data());
  std::vector<std::uint8_t> made;
  made.reserve(sizeof(std::uint32_t) + kMessageHeader + message.set.size());
  if (message.owner.domain) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      made.push_back(static_cast<std::uint8_t>(*message.owner.domain >> shift));
    }
  }
  made.insert(made.end(), headers.begin(), headers.begin() + kMessageHeader);
  made.insert(made.end(), message.set.begin(), message.set.end());
  return made;
}

}  // namespace flow::host
