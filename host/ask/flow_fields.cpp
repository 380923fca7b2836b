// SPDX-License-Identifier: Apache-2.0
#include "host/ask/flow_fields.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <span>

#include "host/base/error.h"
#include "host/base/words.h"
#include "host/names/well_known_names.h"

namespace flow::host {
namespace {

constexpr FlowField kFields[] = {
    {"src", "Source", FieldForm::kAddress, FieldEnd::kSource, "src", "dst"},
    {"dst", "Destination", FieldForm::kAddress, FieldEnd::kDestination, "src", "dst"},
    {"host", "Host", FieldForm::kAddress, FieldEnd::kEither, "src", "dst"},
    {"sport", "From port", FieldForm::kPort, FieldEnd::kSource, "sport", "dport"},
    {"dport", "To port", FieldForm::kPort, FieldEnd::kDestination, "sport", "dport"},
    {"port", "Port", FieldForm::kPort, FieldEnd::kEither, "sport", "dport"},
    {"service", "Service", FieldForm::kPort, FieldEnd::kNone, "dport", ""},
    {"proto", "Protocol", FieldForm::kProtocol, FieldEnd::kNone, "proto", ""},
    {"exporter", "Exporter", FieldForm::kExporter, FieldEnd::kNone, "exporter", ""},
    {"in", "In", FieldForm::kNumber, FieldEnd::kSource, "in_if", "out_if"},
    {"out", "Out", FieldForm::kNumber, FieldEnd::kDestination, "in_if", "out_if"},
    {"interface", "Interface", FieldForm::kNumber, FieldEnd::kEither, "in_if", "out_if"},
    {"src_as", "From AS", FieldForm::kAs, FieldEnd::kSource, "src_as", "dst_as"},
    {"dst_as", "To AS", FieldForm::kAs, FieldEnd::kDestination, "src_as", "dst_as"},
    {"as", "AS", FieldForm::kAs, FieldEnd::kEither, "src_as", "dst_as"},
    {"next_hop", "Next hop", FieldForm::kAddress, FieldEnd::kNone, "next_hop", ""},
    {"bgp_next_hop", "BGP next hop", FieldForm::kAddress, FieldEnd::kNone, "bgp_next_hop", ""},
    {"vrf", "VRF", FieldForm::kText, FieldEnd::kNone, "vrf", ""},
    {"app", "Application", FieldForm::kText, FieldEnd::kNone, "app", ""},
    {"user", "User", FieldForm::kText, FieldEnd::kNone, "user", ""},
    {"tag", "Tag", FieldForm::kText, FieldEnd::kNone, "tag", ""},
    {"src_mac", "From MAC", FieldForm::kMac, FieldEnd::kSource, "src_mac", "dst_mac"},
    {"dst_mac", "To MAC", FieldForm::kMac, FieldEnd::kDestination, "src_mac", "dst_mac"},
    {"mac", "MAC", FieldForm::kMac, FieldEnd::kEither, "src_mac", "dst_mac"},
};

std::string_view AsText(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string AddressText(std::string_view bytes) {
  const auto* const data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  if (bytes.size() == 16)
    return IpAddress::Ipv6(std::span<const std::uint8_t, 16>(data, 16)).Text();
  if (bytes.size() != 4) return "-";
  return IpAddress::Ipv4(std::uint32_t{data[0]} << 24 | std::uint32_t{data[1]} << 16 |
                         std::uint32_t{data[2]} << 8 | data[3])
      .Text();
}

std::string MacText(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    text += fmt::format("{}{:02x}", text.empty() ? "" : ":", static_cast<unsigned char>(c));
  }
  return text.empty() ? "-" : text;
}

std::string NumberText(FieldForm form, std::uint32_t number) {
  if (form == FieldForm::kAs) return fmt::format("AS{}", number);
  if (form == FieldForm::kProtocol) {
    const std::string_view name = ProtocolName(static_cast<std::uint8_t>(number));
    if (!name.empty()) return std::string(name);
  }
  return std::to_string(number);
}

template <class Number>
Number NumberIn(std::string_view text) {
  Number number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

std::vector<const FlowField*> ParseFields(std::string_view list) {
  std::vector<const FlowField*> fields;
  while (!list.empty()) {
    const std::string_view name = list.substr(0, list.find(','));
    list.remove_prefix(std::min(list.size(), name.size() + 1));
    const auto* const found = std::ranges::find_if(
        kFields, [&](const FlowField& field) { return SameWord(field.name, name); });
    if (found == std::end(kFields)) {
      std::string all;
      for (const FlowField& field : kFields) {
        all.append(all.empty() ? "" : ", ").append(field.name);
      }
      throw UsageError(fmt::format("--group-by: flows have no '{}'; they have {}", name, all));
    }
    fields.push_back(found);
  }
  return fields;
}

void AddColumns(const FlowField& field, std::vector<std::string>* columns) {
  if (field.end == FieldEnd::kNone) {
    columns->emplace_back(field.source);
    return;
  }
  const auto in_braces = [](std::string_view name) { return fmt::format("{{{}}}", name); };
  if (field.end != FieldEnd::kDestination) columns->push_back(in_braces(field.source));
  if (field.end != FieldEnd::kSource) columns->push_back(in_braces(field.destination));
}

void PutField(const FlowField& field, const FlowRow& row, std::size_t column, std::string* key) {
  switch (field.form) {
    case FieldForm::kAddress:
    case FieldForm::kMac:
      return PutKeyBytes(AsText(row.Bytes(column)), key);
    case FieldForm::kExporter:
      return PutKeyBytes(row.file().Exporter(row.Integer(column)), key);
    case FieldForm::kText:
      return PutKeyBytes(row.file().TextOf(row.Integer(column)), key);
    default:
      if (row.IsNull(column)) return PutKeyNumber(std::nullopt, key);
      return PutKeyNumber(static_cast<std::uint32_t>(row.Integer(column)), key);
  }
}

// Lengths take two bytes; of all fields together they fit a key.
void PutKeyBytes(std::string_view bytes, std::string* key) {
  bytes = bytes.substr(0, kLongestKeyText);
  key->push_back(static_cast<char>(bytes.size() >> 8));
  key->push_back(static_cast<char>(bytes.size() & 0xFF));
  key->append(bytes);
}

std::string_view TakeKeyBytes(std::string_view* key) {
  const auto high = static_cast<unsigned char>((*key)[0]);
  const auto low = static_cast<unsigned char>((*key)[1]);
  const std::string_view bytes = key->substr(2, std::size_t{high} << 8 | low);
  key->remove_prefix(2 + bytes.size());
  return bytes;
}

// Five bytes, the first for "not known", in the order of numbers.
void PutKeyNumber(std::optional<std::uint32_t> number, std::string* key) {
  const std::uint32_t value = number.value_or(0);
  const char bytes[]{static_cast<char>(number.has_value()), static_cast<char>(value >> 24),
                     static_cast<char>(value >> 16), static_cast<char>(value >> 8),
                     static_cast<char>(value)};
  key->append(bytes, sizeof(bytes));
}

std::optional<std::uint32_t> TakeKeyNumber(std::string_view* key) {
  std::uint32_t value = 0;
  for (const char byte : key->substr(1, 4)) value = value << 8 | static_cast<std::uint8_t>(byte);
  const bool is_known = key->front() != 0;
  key->remove_prefix(5);
  return is_known ? std::optional(value) : std::nullopt;
}

bool HasDirections(const std::vector<const FlowField*>& fields) {
  return std::ranges::any_of(fields, [](const FlowField* field) {
    return field->end == FieldEnd::kSource || field->end == FieldEnd::kDestination;
  });
}

FlowKeys::FlowKeys(const std::vector<const FlowField*>& fields)
    : fields_(fields), has_either_(std::ranges::any_of(fields, [](const FlowField* field) {
        return field->end == FieldEnd::kEither;
      })) {}

void FlowKeys::Make(const FlowRow& row, std::size_t first, std::size_t end,
                    std::string* key) const {
  key->clear();
  std::size_t column = first;
  for (const FlowField* const field : fields_) {
    const bool is_either = field->end == FieldEnd::kEither;
    PutField(*field, row, is_either ? column + end : column, key);
    column += is_either ? 2 : 1;
  }
}

std::string TakeField(const FlowField& field, std::string_view* key) {
  switch (field.form) {
    case FieldForm::kAddress:
    case FieldForm::kExporter:
      return AddressText(TakeKeyBytes(key));
    case FieldForm::kMac:
      return MacText(TakeKeyBytes(key));
    case FieldForm::kText: {
      const std::string_view text = TakeKeyBytes(key);
      return text.empty() ? "-" : std::string(text);
    }
    default: {
      const auto number = TakeKeyNumber(key);
      return number ? NumberText(field.form, *number) : "-";
    }
  }
}

std::vector<std::string> FieldTexts(const std::vector<const FlowField*>& fields,
                                    std::string_view key) {
  std::vector<std::string> texts;
  for (const FlowField* const field : fields) texts.push_back(TakeField(*field, &key));
  return texts;
}

std::string FieldName(const FlowField& field, const std::string& value, const KeyNames& names) {
  switch (field.form) {
    case FieldForm::kAddress:
    case FieldForm::kExporter: {
      const auto address = IpAddress::Parse(value);
      return address ? names.OfAddress(*address) : "";
    }
    case FieldForm::kAs:
      return value == "-" ? "" : names.OfAs(NumberIn<std::uint32_t>(value.substr(2)));
    case FieldForm::kPort:
      return value == "-" ? "" : names.OfPort(NumberIn<std::uint16_t>(value), 0);
    default:
      return "";
  }
}

}  // namespace flow::host
