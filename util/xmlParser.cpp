// SPDX-License-Identifier: Apache-2.0
#include "util/xmlParser.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

#include "util/xml_node_data.h"
#include "util/xml_scanner.h"
#include "util/xml_tree_parser.h"

namespace {

constexpr ALLXMLClearTag kClearTags[] = {
    {"<![CDATA[", "]]>"},      {"<!DOCTYPE", ">"}, {"<PRE>", "</PRE>"},
    {"<Script>", "</Script>"}, {"<!--", "-->"},
};

constexpr const char* kErrorTexts[] = {
    "No error",
    "Warning: Unmatched end tag",
    "Error: No XML data",
    "Error: First token not start tag",
    "Error: Missing start tag name",
    "Error: Missing end tag name",
    "Error: Unmatched quote",
    "Error: Unmatched end tag",
    "Error: Unmatched clear tag end",
    "Error: Unexpected token found",
    "Error: Invalid tag found",
    "Error: No elements found",
    "Error: File not found",
    "Error: First Tag not found",
    "Error: Unknown character entity",
    "Error: unable to convert between UNICODE and MultiByte chars",
    "Error: unable to open file for writing",
    "Error: cannot write into file",
    "Warning: Base64-string length is not a multiple of 4",
    "Error: Base64-string contains an illegal character",
    "Warning: Base64-string is truncated",
    "Error: Base64 decode output buffer is too small",
};
static_assert(std::size(kErrorTexts) == kXmlBase64BufferTooSmall + 1);

bool SameName(const char* a, const char* b) {
  return a != nullptr && b != nullptr && flow::EqualNoCase(a, b);
}

// The top itself, or the first child of that name. What follows a declaration is looked for inside
// it, since the declaration holds it.
XMLNode FindTag(const XMLNode& top, const char* tag) {
  if (SameName(top.getName(), tag)) return top;
  XMLNode parent = top;
  for (int i = 0; i < parent.nChildNode(); ++i) {
    XMLNode child = parent.getChildNode(i);
    if (SameName(child.getName(), tag)) return child;
    if (child.isDeclaration()) {
      parent = std::move(child);
      i = -1;
    }
  }
  return {};
}

// Counts lines and characters from 1 up to the offset.
void Locate(std::string_view text, std::size_t place, XMLResults* results) {
  std::uint32_t line = 1;
  std::uint32_t column = 1;
  for (std::size_t i = 0; i < place;) {
    const bool is_line_feed = text[i] == '\n';
    i += flow::XmlCharLength(text.substr(i), flow::GlobalXmlOptions().strict_utf8);
    line += is_line_feed ? 1 : 0;
    column = is_line_feed ? 1 : column + 1;
  }
  results->line = static_cast<std::int32_t>(line);
  results->column = static_cast<std::int32_t>(column);
}

const char* NameOf(const XMLNode& node) { return node.getName(); }
const char* NameOf(const XMLAttribute& attribute) { return attribute.name.get(); }

constexpr int kNotFound = -1;

// The position of the first item of that name at or after start.
template <typename T>
int FindNamed(const T* items, int count, const char* name, int start) {
  for (int i = std::max(start, 0); i < count; ++i) {
    if (SameName(NameOf(items[i]), name)) return i;
  }
  return kNotFound;
}

// The position of the n-th item of that name, n counting from 0.
template <typename T>
int FindNth(const T* items, int count, const char* name, int n) {
  if (n < 0) return kNotFound;
  int found = FindNamed(items, count, name, 0);
  for (; n > 0 && found != kNotFound; --n) found = FindNamed(items, count, name, found + 1);
  return found;
}

int ToInt(const char* text) { return static_cast<std::int32_t>(std::strtol(text, nullptr, 10)); }

}  // namespace

namespace flow {

XmlOptions& GlobalXmlOptions() {
  thread_local XmlOptions options;
  return options;
}

}  // namespace flow

// Reading.

XMLNode XMLNode::parseString(const char* text, const char* tag, XMLResults* results) {
  XMLResults unread;
  XMLResults& outcome = results == nullptr ? unread : *results;
  outcome = {kXmlNone, 0, 0};
  if (text == nullptr) {
    outcome.error = kXmlNoElements;
    return {};
  }

  const std::string_view view = text;
  flow::XmlTreeParser parser(view);
  XMLNode top = parser.Parse();
  outcome.error = parser.Error();
  std::size_t place = parser.Place();
  if (top.nElement() == 1 && top.nChildNode() == 1) top = top.getChildNode(0);

  if (outcome.error > kXmlUnmatchedEndTagWarning) {
    top = {};
  } else if (tag != nullptr && *tag != '\0') {
    top = FindTag(top, tag);
    if (top.isEmpty()) {
      outcome.error = kXmlFirstTagNotFound;
      place = view.size();
    }
  }
  if (outcome.error != kXmlNone) Locate(view, place, &outcome);
  return top;
}

void XMLNode::setGlobalOptions(char guess_wide_chars, char strict_utf8, char drop_white_space) {
  flow::GlobalXmlOptions() = {guess_wide_chars != 0, strict_utf8 != 0, drop_white_space != 0};
}

const char* XMLNode::getVersion() { return "v2.23"; }

const char* XMLNode::getError(XMLError error) {
  const auto code = static_cast<std::size_t>(error);
  return code < std::size(kErrorTexts) ? kErrorTexts[code] : "Unknown";
}

std::span<const ALLXMLClearTag> XMLNode::getClearTagTable() { return kClearTags; }

// The node itself.

const char* XMLNode::getName() const { return isEmpty() ? nullptr : data_->name.get(); }

bool XMLNode::isDeclaration() const { return !isEmpty() && data_->is_declaration; }

XMLNode XMLNode::getParentNode() const { return isEmpty() ? XMLNode() : XMLNode(data_->parent); }

int XMLNode::nElement() const { return isEmpty() ? 0 : data_->EntryCount(); }

XMLEntry XMLNode::getEntry(int i) const {
  const std::int32_t entry = data_->order[static_cast<std::size_t>(i)];
  return {static_cast<XMLEntryKind>(entry & 3), entry >> 2};
}

// Children.

int XMLNode::nChildNode() const { return isEmpty() ? 0 : data_->child_count; }

int XMLNode::nChildNode(const char* name) const {
  int count = 0;
  for (int i = 0; !getChildNode(name, &i).isEmpty();) ++count;
  return count;
}

XMLNode XMLNode::getChildNode(int i) const {
  if (i < 0 || i >= nChildNode()) return {};
  return data_->children[static_cast<std::size_t>(i)];
}

XMLNode XMLNode::getChildNode(const char* name, int* index) const {
  if (isEmpty()) return {};
  const int found =
      FindNamed(data_->children.get(), nChildNode(), name, index == nullptr ? 0 : *index);
  if (found == kNotFound) return {};
  if (index != nullptr) *index = found + 1;
  return getChildNode(found);
}

XMLNode XMLNode::getChildNode(const char* name, int n) const {
  if (isEmpty()) return {};
  return getChildNode(FindNth(data_->children.get(), nChildNode(), name, n));
}

// Texts, verbatim sections, attributes.

int XMLNode::nText() const { return isEmpty() ? 0 : data_->text_count; }

const char* XMLNode::getText(int i) const {
  return i < 0 || i >= nText() ? nullptr : data_->texts[static_cast<std::size_t>(i)].get();
}

int XMLNode::nClear() const { return isEmpty() ? 0 : data_->clear_count; }

const XMLClear* XMLNode::getClear(int i) const {
  return i < 0 || i >= nClear() ? nullptr : &data_->clears[static_cast<std::size_t>(i)];
}

int XMLNode::nAttribute() const { return isEmpty() ? 0 : data_->attribute_count; }

const XMLAttribute* XMLNode::getAttribute(int i) const {
  return i < 0 || i >= nAttribute() ? nullptr : &data_->attributes[static_cast<std::size_t>(i)];
}

const char* XMLNode::getAttribute(const char* name, int* index) const {
  if (isEmpty()) return nullptr;
  const int found =
      FindNamed(data_->attributes.get(), nAttribute(), name, index == nullptr ? 0 : *index);
  if (found == kNotFound) return nullptr;
  if (index != nullptr) *index = found + 1;
  return getAttribute(found)->value.get();
}

const char* XMLNode::getAttribute(const char* name, int n) const {
  if (isEmpty()) return nullptr;
  const int found = FindNth(data_->attributes.get(), nAttribute(), name, n);
  return found == kNotFound ? nullptr : getAttribute(found)->value.get();
}

bool XMLNode::isAttributeSet(const char* name) const {
  return !isEmpty() && FindNamed(data_->attributes.get(), nAttribute(), name, 0) != kNotFound;
}

// Settings.

bool XMLNode::GetBoolProperty(const char* name, bool default_value) const {
  const char* text = getChildNode(name).getText();
  return text == nullptr ? default_value : flow::EqualNoCase(text, "true");
}

int XMLNode::GetIntProperty(const char* name, int default_value) const {
  const char* text = getChildNode(name).getText();
  return text == nullptr ? default_value : ToInt(text);
}

const char* XMLNode::GetStringProperty(const char* name, const char* default_value) const {
  const char* text = getChildNode(name).getText();
  return text == nullptr ? default_value : text;
}

bool XMLNode::GetBoolProperty(const char* name) const {
  return flow::EqualNoCase(GetStringProperty(name), "true");
}

int XMLNode::GetIntProperty(const char* name) const { return ToInt(GetStringProperty(name)); }

const char* XMLNode::GetStringProperty(const char* name) const {
  const char* text = getChildNode(name).getText();
  if (text == nullptr) {
    throw std::invalid_argument("Property " + std::string(name) + " not found (invalid_arg)");
  }
  return text;
}
