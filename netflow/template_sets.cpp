// Template sets: what is learnt of them, how they travel to the other meters of the host, and the
// dump.

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "netflow/netflow_meter.h"
#include "plugin/site_log.h"
#include "util/address_text.h"
#include "util/ombrel_time.h"

using flow::ExportSource;
using flow::Log;
using flow::SetError;
using flow::TemplateRules;

namespace {

// A channel message: the first bytes of the IPv4 layer that carried the set, then the set.
constexpr std::size_t kCarrierSize = std::tuple_size_v<decltype(ExportSource::carrier)>;
constexpr std::size_t kShortestMessage = kCarrierSize + sizeof(set_header) + sizeof(be16);

std::uint16_t FirstTemplateId(std::span<const std::uint8_t> set) {
  return set.size() < sizeof(set_header) + sizeof(be16) ? std::uint16_t{0}
                                                        : LoadBe16(&set[sizeof(set_header)]);
}

}  // namespace

SetError CPINetflowMeter::v9_ProcessTemplateFlowset(const ExportSource& source, Bytes set,
                                                    TemplateRules rules, bool broadcast) {
  const std::size_t exporters = templates_.ExporterCount();
  const auto now = static_cast<std::uint32_t>(COmbrelTime::now_tv_sec());
  ByteCursor records(set.subspan(sizeof(set_header)));
  while (records.Remaining() > 0) {
    const SetError error = templates_.LearnTemplate(source.key, rules, now, &records);
    if (error != SetError::kNone) {
      Log(site_, kLogWarning, "template record will overflow ");
      return error;
    }
  }
  if (broadcast) PostTemplateSet(source, set);
  if (templates_.ExporterCount() != exporters) DumpTemplates();
  return SetError::kNone;
}

void CPINetflowMeter::v9_ProcessTemplateOptions(const ExportSource& source, Bytes set,
                                                bool broadcast) {
  if (templates_.LearnV9Options(source.key, set) && broadcast) PostTemplateSet(source, set);
}

void CPINetflowMeter::v10_ProcessTemplateOptions(const ExportSource& source, Bytes set,
                                                 bool broadcast) {
  if (templates_.LearnIpfixOptions(source.key, set) && broadcast) PostTemplateSet(source, set);
}

void CPINetflowMeter::PostTemplateSet(const ExportSource& source, Bytes set) {
  std::vector<std::uint8_t> message(source.carrier.begin(), source.carrier.end());
  message.insert(message.end(), set.begin(), set.end());
  engine_->PostChannelMessage(CHANNELID_NETFLOW_TEMPLATES, CLSID_PI_NETFLOWMETER,
                              static_cast<std::uint32_t>(message.size()), message.data());
  LogTemplateMessage(" Broadcasted Flow Template ID ", FirstTemplateId(set), " from router ",
                     source.Address(), " to other filters");
}

void CPINetflowMeter::LogTemplateMessage(const char* what, std::uint16_t id, const char* from,
                                         std::uint32_t exporter, const char* end) const {
  if (!policy_.fLogTemplateMessages) return;
  // Written by hand, as exporters decide how many of these there are.
  char text[160];
  char* out = text;
  const auto put = [&out](std::string_view part) { out += part.copy(out, part.size()); };
  put("[0x");
  out = std::to_chars(out, text + sizeof(text), reinterpret_cast<std::uintptr_t>(this), 16).ptr;
  put("]");
  put(what);
  out = flow::PutDecimal(id, out);
  put(from);
  out = flow::PutDottedIpv4(exporter, out);
  put(end);
  *out = '\0';
  Log(site_, kLogInformation, text);
}

Status CPINetflowMeter::OnChannelMessage(const IID& channel, unsigned int length, void* data) {
  if (channel != CHANNELID_NETFLOW_TEMPLATES || data == nullptr || length < kShortestMessage) {
    return kStatusOk;
  }
  const Bytes message(static_cast<const std::uint8_t*>(data), length);
  const ExportSource source(message);
  Bytes set = message.subspan(kCarrierSize);
  const std::uint16_t id = LoadBe16(set.data());
  LogTemplateMessage(" Received a broadcast Template ID ", FirstTemplateId(set),
                     " originating router=", source.Address(), "");
  const std::size_t set_length = LoadBe16(&set[offsetof(set_header, length)]);
  const bool options_fit = set_length >= sizeof(set_header) && set_length <= set.size();
  switch (id) {
    case flow::kV9TemplateSet:
    case flow::kIpfixTemplateSet:
      GiveUp(v9_ProcessTemplateFlowset(
          source, set, id == flow::kIpfixTemplateSet ? TemplateRules::kIpfix : TemplateRules::kV9,
          false));
      break;
    case flow::kV9OptionsTemplateSet:
      if (options_fit) v9_ProcessTemplateOptions(source, set.first(set_length), false);
      break;
    case flow::kIpfixOptionsTemplateSet:
      if (options_fit) v10_ProcessTemplateOptions(source, set.first(set_length), false);
      break;
    default:
      Log(site_, kLogWarning,
          "Unknown FlowSet ID on broadcast channel, 0 1 2 expected, found: " + std::to_string(id));
  }
  return kStatusOk;
}

void CPINetflowMeter::DumpTemplates() const {
  if (site_ == nullptr) return;
  char* work_directory = nullptr;
  site_->GetWorkDirectory(&work_directory);
  const std::unique_ptr<char[]> directory(work_directory);
  if (directory == nullptr) return;
  long instance = 0;
  site_->GetInstanceNumber(&instance);
  const std::string path =
      std::string(directory.get()) + "/TemplateDump-" + std::to_string(instance) + ".txt";
  FILE* const file = std::fopen(path.c_str(), "w");
  if (file == nullptr) {
    Log(site_, kLogError,
        std::string("Dump Template DB Error ") + std::strerror(errno) + " f=" + path);
    return;
  }
  DebugDumpTemplates(file);
  std::fclose(file);
}
