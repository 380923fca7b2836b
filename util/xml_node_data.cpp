// SPDX-License-Identifier: Apache-2.0
#include "util/xml_node_data.h"

#include <cstddef>

void XMLNode::XMLNodeDataTag::RecordOrder(XMLEntryKind kind, std::int32_t index) {
  // The entry is already among the counts.
  std::int32_t recorded = EntryCount() - 1;
  flow::Append(&order, &recorded, index * 4 + static_cast<std::int32_t>(kind));
}

void XMLNode::XMLNodeDataTag::Add(XMLNode child) {
  child.data_->parent = this;
  flow::Append(&children, &child_count, std::move(child));
  RecordOrder(XMLEntryKind::kChild, child_count - 1);
}

void XMLNode::XMLNodeDataTag::Add(XMLOwnedText text) {
  flow::Append(&texts, &text_count, std::move(text));
  RecordOrder(XMLEntryKind::kText, text_count - 1);
}

void XMLNode::XMLNodeDataTag::Add(XMLClear clear) {
  flow::Append(&clears, &clear_count, std::move(clear));
  RecordOrder(XMLEntryKind::kClear, clear_count - 1);
}

void XMLNode::XMLNodeDataTag::Add(XMLAttribute attribute) {
  flow::Append(&attributes, &attribute_count, std::move(attribute));
  RecordOrder(XMLEntryKind::kAttribute, attribute_count - 1);
}

// Handles.

XMLNode::XMLNode(XMLNodeDataTag* data) noexcept : data_(data) {
  if (data_ != nullptr) ++data_->reference_count;
}

XMLNode::XMLNode(const XMLNode& other) noexcept : XMLNode(other.data_) {}

XMLNode::XMLNode(XMLNode&& other) noexcept : data_(std::exchange(other.data_, nullptr)) {}

XMLNode& XMLNode::operator=(const XMLNode& other) noexcept {
  XMLNode copy(other);
  std::swap(data_, copy.data_);
  return *this;
}

XMLNode& XMLNode::operator=(XMLNode&& other) noexcept {
  XMLNode moved(std::move(other));
  std::swap(data_, moved.data_);
  return *this;
}

XMLNode::~XMLNode() { Release(); }

// Frees without recursion and without allocating: nodes that nobody holds any more wait in a list
// linked by their parent pointers.
void XMLNode::Release() noexcept {
  XMLNodeDataTag* waiting = std::exchange(data_, nullptr);
  if (waiting == nullptr || --waiting->reference_count > 0) return;
  waiting->parent = nullptr;
  while (waiting != nullptr) {
    const std::unique_ptr<XMLNodeDataTag> node(waiting);
    waiting = node->parent;
    for (std::int32_t i = 0; i < node->child_count; ++i) {
      XMLNodeDataTag* child =
          std::exchange(node->children[static_cast<std::size_t>(i)].data_, nullptr);
      child->parent = nullptr;
      if (--child->reference_count > 0) continue;
      child->parent = waiting;
      waiting = child;
    }
  }
}
