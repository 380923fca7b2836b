// SPDX-License-Identifier: Apache-2.0
#include "netflow/template_sets.h"

#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "flowhandlers/identifiers.h"
#include "netflow/export_formats.h"
#include "plugin/site_log.h"
#include "util/address_text.h"
#include "util/bytes.h"
#include "util/ombrel_time.h"

namespace flow {
namespace {

// A channel message: the first bytes of the IPv4 layer that carried the set, then the set.
constexpr std::size_t kCarrierSize = std::tuple_size_v<decltype(ExportSource::carrier)>;
constexpr std::size_t kTemplateHeader = 2 * sizeof(be16);
constexpr std::size_t kShortestMessage = kCarrierSize + sizeof(set_header) + sizeof(be16);

std::uint16_t FirstTemplateId(std::span<const std::uint8_t> set) {
  return set.size() < sizeof(set_header) + sizeof(be16) ? std::uint16_t{0}
                                                        : LoadBe16(&set[sizeof(set_header)]);
}

}  // namespace

SetError TemplateSets::v9_ProcessTemplateFlowset(const ExportSource& source, Bytes set,
                                                 TemplateRules rules, bool broadcast) {
  const std::size_t exporters = store_.ExporterCount();
  const auto now = static_cast<std::uint32_t>(COmbrelTime::now_tv_sec());
  ByteCursor records(set.subspan(sizeof(set_header)));
  while (records.Remaining() > 0) {
    // Padding (RFC 7011, 3.3.1).
    if (policy_.fSharePaddedTemplates && records.Remaining() < kTemplateHeader) break;
    const SetError error = store_.v9_ProcessTemplateFlowset_Single(source, rules, now, &records);
    if (error != SetError::kNone) {
      Log(host_.site, kLogWarning, "template record will overflow ");
      return error;
    }
  }
  if (broadcast) PostTemplateSet(source, set);
  if (store_.ExporterCount() != exporters) DumpTemplates();
  return SetError::kNone;
}

void TemplateSets::v9_ProcessTemplateOptions(const ExportSource& source, Bytes set,
                                             bool broadcast) {
  if (store_.LearnV9Options(source, set) && broadcast) PostTemplateSet(source, set);
}

void TemplateSets::v10_ProcessTemplateOptions(const ExportSource& source, Bytes set,
                                              bool broadcast) {
  if (store_.LearnIpfixOptions(source, set) && broadcast) PostTemplateSet(source, set);
}

void TemplateSets::PostTemplateSet(const ExportSource& source, Bytes set) const {
  std::vector<std::uint8_t> message;
  if (source.domain) {
    const be32 domain = be32::FromHost(*source.domain);
    message.assign(std::begin(domain.bytes), std::end(domain.bytes));
  }
  message.insert(message.end(), source.carrier.begin(), source.carrier.end());
  message.insert(message.end(), set.begin(), set.end());
  host_.engine->PostChannelMessage(
      source.domain ? CHANNELID_NETFLOW_DOMAIN_TEMPLATES : CHANNELID_NETFLOW_TEMPLATES,
      CLSID_PI_NETFLOWMETER, static_cast<std::uint32_t>(message.size()), message.data());
  LogTemplateMessage(" Broadcasted Flow Template ID ", FirstTemplateId(set), " from router ",
                     source.Address(), " to other filters");
}

void TemplateSets::LogTemplateMessage(const char* what, std::uint16_t id, const char* from,
                                      std::uint32_t exporter, const char* end) const {
  if (!policy_.fLogTemplateMessages) return;
  // Written by hand, as exporters decide how many of these there are.
  char text[160];
  char* out = text;
  const auto put = [&out](std::string_view part) { out += part.copy(out, part.size()); };
  put("[0x");
  out = std::to_chars(out, text + sizeof(text), reinterpret_cast<std::uintptr_t>(meter_), 16).ptr;
  put("]");
  put(what);
  out = PutDecimal(id, out);
  put(from);
  out = PutDottedIpv4(exporter, out);
  put(end);
  *out = '\0';
  Log(host_.site, kLogInformation, text);
}

SetError TemplateSets::OnChannelMessage(const IID& channel, Bytes message) {
  const bool has_domain = channel == CHANNELID_NETFLOW_DOMAIN_TEMPLATES;
  if (!has_domain && channel != CHANNELID_NETFLOW_TEMPLATES) return SetError::kNone;
  const std::size_t carrier_at = has_domain ? sizeof(be32) : 0;
  if (message.size() < carrier_at + kShortestMessage) return SetError::kNone;
  const std::uint32_t domain = LoadBe32(message.data());  // where there is one
  message = message.subspan(carrier_at);
  ExportSource source(message);
  if (has_domain && policy_.fTemplatesPerDomain) source.domain = domain;
  const Bytes set = message.subspan(kCarrierSize);
  const std::uint16_t id = LoadBe16(set.data());
  LogTemplateMessage(" Received a broadcast Template ID ", FirstTemplateId(set),
                     " originating router=", source.Address(), "");
  const std::size_t set_length = LoadBe16(&set[offsetof(set_header, length)]);
  const bool options_fit = set_length >= sizeof(set_header) && set_length <= set.size();
  switch (id) {
    case kV9TemplateSet:
      return v9_ProcessTemplateFlowset(source, set, TemplateRules::kV9, false);
    case kIpfixTemplateSet:
      return v9_ProcessTemplateFlowset(source, set, TemplateRules::kIpfix, false);
    case kV9OptionsTemplateSet:
      if (options_fit) v9_ProcessTemplateOptions(source, set.first(set_length), false);
      break;
    case kIpfixOptionsTemplateSet:
      if (options_fit) v10_ProcessTemplateOptions(source, set.first(set_length), false);
      break;
    default:  // hosts know the text, which has never named set 3
      Log(host_.site, kLogWarning,
          "Unknown FlowSet ID on broadcast channel, 0 1 2 expected, found: " + std::to_string(id));
  }
  return SetError::kNone;
}

}  // namespace flow
