// SPDX-License-Identifier: Apache-2.0
// Messages in protobuf's wire format: members in any order, zero and empty ones left out.
#pragma once

#include <string>

#include "host/scale/message_row.h"

namespace flow::host {

class ProtoRow final : public MessageRow {
 public:
  void Begin() override { out_.clear(); }
  void Add(const MessageField& field, std::uint64_t number) override {
    if (number == 0) return;
    Tag(field.number, kVarint);
    Varint(number);
  }
  void Add(const MessageField& field, std::string_view text) override {
    if (text.empty()) return;
    Tag(field.number, kLength);
    Varint(text.size());
    out_ += text;
  }
  void AddNamed(const MessageField& map, std::string_view name, std::uint64_t number) override {
    if (number == 0) return;
    ProtoRow entry;
    entry.Add({{}, 1}, name);
    entry.Add({{}, 2}, number);
    Add(map, entry.End());
  }
  std::string_view End() override { return out_; }

 private:
  static constexpr std::uint32_t kVarint = 0;
  static constexpr std::uint32_t kLength = 2;

  void Tag(std::uint32_t number, std::uint32_t type) { Varint(number << 3 | type); }
  void Varint(std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) out_ += static_cast<char>(value | 0x80);
    out_ += static_cast<char>(value);
  }

  std::string out_;
};

}  // namespace flow::host
