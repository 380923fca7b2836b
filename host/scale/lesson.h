// SPDX-License-Identifier: Apache-2.0
// What collectors tell each other of exporters, so that one that moves is decoded where it goes:
// templates, and the option data that told its sampling rates.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/timestamp.h"
#include "host/export/export_format.h"

namespace flow::host {

struct Lesson {
  enum class Kind : std::uint8_t { kTemplates, kRate };

  Kind kind = Kind::kTemplates;
  TemplateOwner owner;              // by its real address
  std::vector<std::uint16_t> ids;   // of the templates that it defines, or tells a rate by
  std::vector<std::uint8_t> bytes;  // a template set; a datagram with a template set and its data
  Timestamp told = 0;               // when the exporter sent it last
  std::string collector;            // who was told
  std::uint64_t run = 0;

  // For comparing: a datagram's header differs each time.
  [[nodiscard]] std::string_view Content() const;
  // Begins with the exporter and a blank; the same for all that takes each other's place.
  [[nodiscard]] std::string Key() const;
  [[nodiscard]] std::string ToJson() const;
  // Nothing where the text is none, or the bytes are not what they should be.
  static std::optional<Lesson> FromJson(std::string_view text);
};

// Of a message of the template channels. Nothing where it defines no template.
std::optional<Lesson> LessonOf(std::span<const std::uint8_t> message, bool has_domain);

// The message of the template channels that has these templates, of an exporter by this address of
// IPv4.
std::vector<std::uint8_t> ChannelMessageOf(const Lesson& lesson, const IpAddress& exporter);

}  // namespace flow::host
