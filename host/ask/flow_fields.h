// The fields of flows that answers can be grouped by.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/ask/key_names.h"
#include "host/ask/stored_flows.h"

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

// PutField appends a column's value to a key, so that equal values have equal bytes and a key can
// be taken apart again.
void PutField(const FlowField& field, const StoredFlows& file, const Statement& row, int column,
              std::string* key);

// TakeField takes a field off the front of a key, as it is read.
std::string TakeField(const FlowField& field, std::string_view* key);

// FieldName is what the value of a field is called; empty where it has no name.
std::string FieldName(const FlowField& field, const std::string& value, const KeyNames& names);

}  // namespace flow::host
