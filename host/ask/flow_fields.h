// SPDX-License-Identifier: Apache-2.0
// The fields of flows that answers can be grouped by.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ask/flow_scan.h"
#include "host/ask/key_names.h"

namespace flow::host {

enum class FieldForm : std::uint8_t {
  kAddress,
  kNumber,
  kPort,
  kAs,
  kProtocol,
  kExporter,
  kText,
  kMac,
};

enum class FieldEnd : std::uint8_t { kNone, kSource, kDestination, kEither };

struct FlowField {
  std::string_view name;
  std::string_view title;
  FieldForm form;
  FieldEnd end;
  std::string_view source;       // column, at the source where it has ends
  std::string_view destination;  // column at the destination
};

// ParseFields reads "src,dport". UsageError names all fields.
std::vector<const FlowField*> ParseFields(std::string_view list);

// AddColumns adds the columns of a field to those that a scan is asked for: two where either end
// is meant.
void AddColumns(const FlowField& field, std::vector<std::string>* columns);

// PutField appends a column's value to a key, so that equal values have equal bytes and a key can
// be taken apart again.
void PutField(const FlowField& field, const FlowRow& row, std::size_t column, std::string* key);

// The same of values that are at hand; an empty text and no number are what is not known.
void PutKeyBytes(std::string_view bytes, std::string* key);
void PutKeyNumber(std::optional<std::uint32_t> number, std::string* key);
std::string_view TakeKeyBytes(std::string_view* key);
std::optional<std::uint32_t> TakeKeyNumber(std::string_view* key);

// Longer texts are cut off in keys.
inline constexpr std::size_t kLongestKeyText = 500;

// HasDirections: whether the fields tell source from destination.
bool HasDirections(const std::vector<const FlowField*>& fields);

// The keys of a flow: one, or two where fields mean either end and the ends differ.
class FlowKeys {
 public:
  explicit FlowKeys(const std::vector<const FlowField*>& fields);

  // `first`: the row's column that is the fields' first.
  template <class Visit>
  void ForEach(const FlowRow& row, std::size_t first, Visit visit) {
    Make(row, first, 0, &key_);
    visit(std::string_view(key_));
    if (!has_either_) return;
    Make(row, first, 1, &other_key_);
    if (other_key_ != key_) visit(std::string_view(other_key_));
  }

 private:
  // end: which one is meant by fields of either end.
  void Make(const FlowRow& row, std::size_t first, std::size_t end, std::string* key) const;

  const std::vector<const FlowField*>& fields_;
  bool has_either_;
  std::string key_;
  std::string other_key_;
};

// TakeField takes a field off the front of a key, as it is read.
std::string TakeField(const FlowField& field, std::string_view* key);

// FieldTexts takes a key apart.
std::vector<std::string> FieldTexts(const std::vector<const FlowField*>& fields,
                                    std::string_view key);

// FieldName is what the value of a field is called; empty where it has no name.
std::string FieldName(const FlowField& field, const std::string& value, const KeyNames& names);

}  // namespace flow::host
