// SPDX-License-Identifier: Apache-2.0
// What the host itself reads out of export datagrams and template messages: enough to say who sends
// what, and which data cannot be decoded for want of a template.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "flowhandlers/identifiers.h"
#include "host/base/endpoint.h"
#include "host/base/timestamp.h"

namespace flow::host {

// The version of an export datagram.
struct ExportVersion {
  bool sflow = false;
  std::uint32_t number = 0;

  friend auto operator<=>(const ExportVersion&, const ExportVersion&) = default;

  // "NetFlow v5", "IPFIX", "sFlow v5", "version 4242".
  [[nodiscard]] std::string Text() const;

  // Whether a meter decodes this version.
  [[nodiscard]] bool IsKnown() const;

  // Whether its data stands in sets that need a template.
  [[nodiscard]] bool HasTemplates() const { return !sflow && (number == 9 || number == 10); }
};

// The protocols of the plug-in. Each has meters of its own, which know nothing of the other.
inline constexpr IID kNetflowProtocol = MakeGuid("CEF0774D-F1F3-40A6-8987-168BD69D9901");
inline constexpr IID kSFlowProtocol = MakeGuid("462919DD-EE84-497C-AC6F-05D1162BCC5B");

// Meters leave shorter datagrams alone.
inline constexpr std::size_t kShortestClaim = 24;

// VersionOf reads the version: 16 bits in NetFlow and IPFIX, 32 bits below 65536 in sFlow.
ExportVersion VersionOf(std::span<const std::uint8_t> datagram);

// ShimExporter is the exporter that a forwarder's shim in front names, if there is one.
std::optional<IpAddress> ShimExporter(std::span<const std::uint8_t> datagram);

// WithoutShim drops the 12-byte header that a forwarder puts in front, if there is one and it names
// this exporter: then the meter has taken it off as well.
std::span<const std::uint8_t> WithoutShim(std::span<const std::uint8_t> datagram,
                                          const IpAddress& exporter);

// NamedExporter gives the IPv4 address that a datagram itself calls its exporter: in a forwarder's
// header, or as an sFlow agent.
std::optional<IpAddress> NamedExporter(std::span<const std::uint8_t> datagram);

// IsCutShort tells whether the datagram is shorter than its header says: more v1 or v5 records than
// fit, or an IPFIX message length past the end.
bool IsCutShort(std::span<const std::uint8_t> datagram);

// StandsAlone tells whether a datagram for this protocol means the same whatever its exporter sent
// before: it is whole, and of a version without templates and rates that are told once.
bool StandsAlone(const IID& protocol, std::span<const std::uint8_t> datagram);

// A set of a v9 or IPFIX datagram, header included.
struct ExportSet {
  std::uint16_t id = 0;
  std::span<const std::uint8_t> bytes;
  bool holds_templates = false;  // templates or option templates
  bool holds_data = false;
  bool is_broken = false;  // its length is impossible, or runs past the datagram: bytes is the rest
  bool is_beyond = false;  // beyond the number of sets that a v9 header gives
};

// ForEachSet walks over the sets of a v9 or IPFIX datagram, a broken one the last.
void ForEachSet(std::span<const std::uint8_t> datagram,
                const std::function<void(const ExportSet&)>& visit);

// What a template says about the size of its records.
struct TemplateShape {
  std::uint32_t shortest = 0;  // bytes of a record, at least
  std::vector<std::uint16_t>
      lengths;                 // of the fields, 65535 for variable; empty when all are fixed
  bool tells_rate = false;     // a field is a sampling rate, or a part of one
  std::uint32_t rate_end = 0;  // bytes, at least, up to the end of the first field that tells one

  // Templates of variable lengths with more fields than any device has are not kept: their records
  // cannot be counted.
  static constexpr std::size_t kMostFields = 256;
  static constexpr std::uint32_t kVast = 0xFFFFFFFF;
  [[nodiscard]] bool IsVariable() const { return !lengths.empty() || IsVast(); }
  [[nodiscard]] bool IsVast() const { return shortest == kVast; }
};

// ForEachTemplate walks over the templates that a template set defines. The set's id tells its
// form: 0 and 1 are v9, 2 and 3 IPFIX; option template sets define one template. False when one is
// cut: a meter has kept those before it, and of an IPFIX options template one without fields.
using TemplateVisitor = std::function<void(std::uint16_t id, TemplateShape shape)>;
bool ForEachTemplate(std::span<const std::uint8_t> set, const TemplateVisitor& visit);

// SFlowAgentSize is how many bytes the agent's address has in an sFlow datagram of at least 8: 16,
// unless it is said to be of IPv4.
std::size_t SFlowAgentSize(std::span<const std::uint8_t> datagram);

// ExportTimeOf reads when a datagram was sent, by its exporter's clock: whole seconds but for v1
// and v5. sFlow does not tell.
std::optional<Timestamp> ExportTimeOf(std::span<const std::uint8_t> datagram);

// RecordsOf counts the records that a v1 or v5 header gives, as far as they are there;
// FlowSamplesOf the flow samples of an sFlow v5 datagram, those behind so many samples of any kind.
// Earlier versions do not tell the lengths of samples.
std::uint32_t RecordsOf(std::span<const std::uint8_t> datagram);
std::uint32_t FlowSamplesOf(std::span<const std::uint8_t> datagram, std::uint64_t behind = 0);

// CountRecords counts the records of a data set, header included.
std::uint32_t CountRecords(std::span<const std::uint8_t> set, const TemplateShape& shape);

// DomainOf is the observation domain of a v9 or IPFIX datagram (v9's source id).
std::optional<std::uint32_t> DomainOf(std::span<const std::uint8_t> datagram);

// Whose templates: an exporter's, or those of one of its domains where meters keep them apart.
struct TemplateOwner {
  Endpoint exporter;
  std::optional<std::uint32_t> domain = std::nullopt;

  friend auto operator<=>(const TemplateOwner&, const TemplateOwner&) = default;
  template <class Hash>
  friend Hash AbslHashValue(Hash hash, const TemplateOwner& owner) {
    return Hash::combine(std::move(hash), owner.exporter, owner.domain);
  }
};

// The channels on which meters share templates; on the second one messages begin with a domain.
inline bool HasDomain(const GUID& channel) { return channel == CHANNELID_NETFLOW_DOMAIN_TEMPLATES; }
inline bool IsTemplateChannel(const GUID& channel) {
  return channel == CHANNELID_NETFLOW_TEMPLATES || HasDomain(channel);
}

// A message of the template channels: whose template set, and the set. On the channel of domains it
// begins with the domain.
struct TemplateMessage {
  TemplateOwner owner;
  std::span<const std::uint8_t> set;
};
std::optional<TemplateMessage> ParseTemplateMessage(std::span<const std::uint8_t> message,
                                                    bool has_domain);

// MakeTemplateMessage makes one, with a domain where the owner has one. It goes by the exporter's
// address, which is one of IPv4, and port.
std::vector<std::uint8_t> MakeTemplateMessage(const TemplateMessage& message);

}  // namespace flow::host
