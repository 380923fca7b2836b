// SPDX-License-Identifier: Apache-2.0
// What an XMLNode handle points to, and the reader's process-wide options. For the reader's own
// files alone.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "util/xmlParser.h"

namespace flow {

struct XmlOptions {
  bool guess_wide_chars = true;
  bool strict_utf8 = true;
  bool drop_white_space = true;
};
XmlOptions& GlobalXmlOptions();

// Appends to an array of count elements that has room for the next power of two, which makes a long
// row of siblings cost linear time without a capacity beside each of the five arrays.
template <typename T>
void Append(std::unique_ptr<T[]>* array, std::int32_t* count, T value) {
  const auto used = static_cast<std::size_t>(*count);
  if ((used & (used - 1)) == 0) {
    auto grown = std::make_unique<T[]>(used == 0 ? 1 : 2 * used);
    std::move(array->get(), array->get() + used, grown.get());
    *array = std::move(grown);
  }
  (*array)[used] = std::move(value);
  ++*count;
}

}  // namespace flow

struct XMLNode::XMLNodeDataTag {
  XMLOwnedText name;
  std::int32_t child_count = 0;
  std::int32_t text_count = 0;
  std::int32_t clear_count = 0;
  std::int32_t attribute_count = 0;
  bool is_declaration = false;
  XMLNodeDataTag* parent = nullptr;  // null for a top, and once the parent is freed
  std::unique_ptr<XMLNode[]> children;
  std::unique_ptr<XMLOwnedText[]> texts;
  std::unique_ptr<XMLClear[]> clears;
  std::unique_ptr<XMLAttribute[]> attributes;
  std::unique_ptr<std::int32_t[]> order;  // index << 2 | kind of every entry
  std::int32_t reference_count = 0;

  [[nodiscard]] std::int32_t EntryCount() const noexcept {
    return child_count + text_count + clear_count + attribute_count;
  }
  void Add(XMLNode child);
  void Add(XMLOwnedText text);
  void Add(XMLClear clear);
  void Add(XMLAttribute attribute);

 private:
  void RecordOrder(XMLEntryKind kind, std::int32_t index);
};
