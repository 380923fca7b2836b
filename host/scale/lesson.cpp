// SPDX-License-Identifier: Apache-2.0
#include "host/scale/lesson.h"

#include <absl/strings/ascii.h>
#include <absl/strings/escaping.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

#include "host/base/big_endian.h"

namespace flow::host {
namespace {

using Json = nlohmann::json;
using Bytes = std::span<const std::uint8_t>;

constexpr std::string_view kKinds[] = {"templates", "rate"};
constexpr std::size_t kV9Header = 20;
constexpr std::size_t kIpfixHeader = 16;
constexpr std::size_t kSetHeader = 4;
constexpr std::size_t kMostBytes = 65'507;  // that fit into a datagram

std::string_view TextOf(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// A whole template set and nothing behind it.
bool IsTemplateSet(Bytes set) {
  return set.size() > kSetHeader && Be16(set.data()) <= 3 && Be16(set.data() + 2) == set.size();
}

void FindIds(Lesson* lesson) {
  Bytes set = lesson->bytes;
  if (lesson->kind == Lesson::Kind::kRate) set = {};
  ForEachTemplate(set, [&](std::uint16_t id, const TemplateShape&) { lesson->ids.push_back(id); });
}

// Of a datagram that tells a rate: which is that of its data.
bool FindRateId(Lesson* lesson) {
  if (!VersionOf(lesson->bytes).HasTemplates()) return false;
  bool is_sound = true;
  ForEachSet(lesson->bytes, [&](const ExportSet& set) {
    is_sound = is_sound && !set.is_broken && !set.is_beyond;
    if (set.holds_data) lesson->ids = {set.id};
  });
  return is_sound && !lesson->ids.empty();
}

template <class Number>
bool Read(const Json& row, const char* name, Number* out) {
  const auto found = row.find(name);
  if (found == row.end() || !found->is_number_unsigned()) return false;
  const auto value = found->get<std::uint64_t>();
  if (value > static_cast<std::uint64_t>(std::numeric_limits<Number>::max())) return false;
  *out = static_cast<Number>(value);
  return true;
}

std::string ReadText(const Json& row, const char* name) {
  const auto found = row.find(name);
  return found != row.end() && found->is_string() ? found->get<std::string>() : std::string();
}

}  // namespace

std::string_view Lesson::Content() const {
  if (kind == Kind::kTemplates) return TextOf(bytes);
  const std::size_t header = Be16(bytes.data()) == 10 ? kIpfixHeader : kV9Header;
  return TextOf(Bytes(bytes).subspan(std::min(header, bytes.size())));
}

std::string Lesson::Key() const {
  const std::string domain = owner.domain ? std::to_string(*owner.domain) : "-";
  return fmt::format("{} {} {} {} {}", owner.exporter.address.Text(), owner.exporter.port, domain,
                     kKinds[static_cast<std::size_t>(kind)], fmt::join(ids, ","));
}

std::string Lesson::ToJson() const {
  Json row{{"kind", kKinds[static_cast<std::size_t>(kind)]},
           {"collector", collector},
           {"run", run},
           {"sampler_address", owner.exporter.address.Text()},
           {"port", owner.exporter.port},
           {"told", static_cast<std::uint64_t>(told)},
           {"bytes", absl::BytesToHexString({TextOf(bytes).data(), bytes.size()})}};
  if (owner.domain) row["domain"] = *owner.domain;
  return row.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<Lesson> Lesson::FromJson(std::string_view text) {
  const Json row = Json::parse(text, nullptr, false);
  if (!row.is_object()) return std::nullopt;
  Lesson lesson;
  const std::string kind = ReadText(row, "kind");
  const auto* const known = std::ranges::find(kKinds, kind);
  const auto address = IpAddress::Parse(ReadText(row, "sampler_address"));
  const std::string digits = ReadText(row, "bytes");
  if (known == std::end(kKinds) || !address || !Read(row, "port", &lesson.owner.exporter.port) ||
      !Read(row, "told", &lesson.told) || !Read(row, "run", &lesson.run) ||
      digits.size() > 2 * kMostBytes || digits.size() % 2 != 0 ||
      !std::ranges::all_of(digits, absl::ascii_isxdigit)) {
    return std::nullopt;
  }
  lesson.kind = static_cast<Kind>(known - std::begin(kKinds));
  lesson.owner.exporter.address = *address;
  if (std::uint32_t domain = 0; Read(row, "domain", &domain)) lesson.owner.domain = domain;
  lesson.collector = ReadText(row, "collector");
  const std::string bytes = absl::HexStringToBytes(digits);
  lesson.bytes.assign(bytes.begin(), bytes.end());
  if (lesson.kind == Kind::kRate) return FindRateId(&lesson) ? std::optional(lesson) : std::nullopt;
  if (!IsTemplateSet(lesson.bytes)) return std::nullopt;
  FindIds(&lesson);
  return lesson.ids.empty() ? std::nullopt : std::optional(lesson);
}

std::optional<Lesson> LessonOf(Bytes message, bool has_domain) {
  const auto parsed = ParseTemplateMessage(message, has_domain);
  if (!parsed) return std::nullopt;
  Lesson lesson;
  lesson.owner = parsed->owner;
  lesson.bytes.assign(parsed->set.begin(), parsed->set.end());
  FindIds(&lesson);
  if (lesson.ids.empty()) return std::nullopt;
  return lesson;
}

std::vector<std::uint8_t> ChannelMessageOf(const Lesson& lesson, const IpAddress& exporter) {
  return MakeTemplateMessage(
      {{{exporter, lesson.owner.exporter.port}, lesson.owner.domain}, lesson.bytes});
}

}  // namespace flow::host
