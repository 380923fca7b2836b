// SPDX-License-Identifier: Apache-2.0
// A message that is written member by member, as JSON or as protobuf
// (packaging/kafka/flowhost.proto).
#pragma once

#include <cstdint>
#include <string_view>

namespace flow::host {

// A member: its name in JSON and in the .proto file, and its number there.
struct MessageField {
  std::string_view name;
  std::uint32_t number;
};

// Writers use their memory again: what End gives is good until Begin.
class MessageRow {
 public:
  MessageRow() = default;
  MessageRow(const MessageRow&) = delete;
  MessageRow& operator=(const MessageRow&) = delete;
  virtual ~MessageRow() = default;

  virtual void Begin() = 0;
  virtual void Add(const MessageField& field, std::uint64_t number) = 0;
  // Valid UTF-8 without control characters.
  virtual void Add(const MessageField& field, std::string_view text) = 0;
  // A number by a name that is not known beforehand: in protobuf an entry of a map, in JSON a
  // member.
  virtual void AddNamed(const MessageField& map, std::string_view name, std::uint64_t number) = 0;
  virtual std::string_view End() = 0;
};

}  // namespace flow::host
