// SPDX-License-Identifier: Apache-2.0
// Messages as JSON objects.
#pragma once

#include <fmt/format.h>

#include "host/scale/message_row.h"

namespace flow::host {

class JsonRow final : public MessageRow {
 public:
  void Begin() override {
    buffer_.clear();
    buffer_.push_back('{');
  }
  void Add(const MessageField& field, std::uint64_t number) override {
    AddNamed(field, field.name, number);
  }
  void Add(const MessageField& field, std::string_view text) override {
    Name(field.name);
    buffer_.push_back('"');
    for (const char c : text) {
      if (c == '"' || c == '\\') buffer_.push_back('\\');
      buffer_.push_back(c);
    }
    buffer_.push_back('"');
  }
  void AddNamed(const MessageField& /*map*/, std::string_view name, std::uint64_t number) override {
    Name(name);
    const fmt::format_int text(number);
    buffer_.append(text.data(), text.data() + text.size());
  }
  std::string_view End() override {
    buffer_.push_back('}');
    return {buffer_.data(), buffer_.size()};
  }

 private:
  void Name(std::string_view name) {
    if (buffer_.size() > 1) buffer_.push_back(',');
    buffer_.push_back('"');
    buffer_.append(name);
    buffer_.append(std::string_view("\":"));
  }

  fmt::memory_buffer buffer_;
};

}  // namespace flow::host
