// SPDX-License-Identifier: Apache-2.0
#include "util/xml_tree_parser.h"

#include <algorithm>
#include <memory>

namespace flow {
namespace {

XMLOwnedText MakeText(std::string_view text) {
  auto copy = std::make_unique<char[]>(text.size() + 1);
  text.copy(copy.get(), text.size());
  return copy;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsXmlSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsXmlSpace(text.back())) text.remove_suffix(1);
  return text;
}

struct Entity {
  std::string_view name;
  char value;
};
constexpr Entity kEntities[] = {
    {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''},
};

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 16;
}

// Decodes "&#65;" or "&#x41;" at the front of text and gives its length, or 0. Values above 255 are
// cut to their low byte.
std::size_t DecodeNumber(std::string_view text, char* out) {
  if (!text.starts_with("&#")) return 0;
  std::size_t i = 2;
  const bool is_hex = i < text.size() && (text[i] == 'x' || text[i] == 'X');
  if (is_hex) ++i;
  const int base = is_hex ? 16 : 10;
  const std::size_t first_digit = i;
  unsigned value = 0;
  for (; i < text.size() && DigitValue(text[i]) < base; ++i) {
    value = value * static_cast<unsigned>(base) + static_cast<unsigned>(DigitValue(text[i]));
  }
  if (i == first_digit || i == text.size() || text[i] != ';') return 0;
  *out = static_cast<char>(value & 0xFF);
  return i + 1;
}

// "</a" at the end of the text or in front of another mark closes nothing.
bool EndsEndTagName(std::string_view rest) {
  return !rest.empty() && (IsXmlSpace(rest.front()) || rest.front() == '>');
}

std::size_t DecodeEntity(std::string_view text, char* out) {
  for (const Entity& entity : kEntities) {
    if (!EqualNoCase(text.substr(0, entity.name.size()), entity.name)) continue;
    *out = entity.value;
    return entity.name.size();
  }
  return DecodeNumber(text, out);
}

}  // namespace

XmlTreeParser::XmlTreeParser(std::string_view text)
    : text_(text), options_(GlobalXmlOptions()), scanner_(text, options_.strict_utf8) {}

XMLNode XmlTreeParser::Parse() {
  XMLNode top(new XMLNode::XMLNodeDataTag);
  open_ = {top.data_};
  while (ParseText() && scanner_.Place() < text_.size()) {
    if (!ParseTag()) return top;
  }
  if (error_ <= kXmlUnmatchedEndTagWarning) CheckAllClosed();
  return top;
}

bool XmlTreeParser::ParseText() {
  std::string_view run = scanner_.TakeTextRun();
  if (options_.drop_white_space) run = Trim(run);
  if (run.empty()) return true;
  XMLOwnedText text = DecodeEntities(run);
  if (text == nullptr) return false;
  open_.back()->Add(std::move(text));
  return true;
}

bool XmlTreeParser::ParseTag() {
  const XmlToken mark = scanner_.Next();
  switch (mark.kind) {
    case XmlTokenKind::kClear:
      return ParseClear(mark);
    case XmlTokenKind::kEndTag:
      return ParseEndTag(mark.place);
    default:
      return ParseElement(mark.kind == XmlTokenKind::kDeclaration);
  }
}

bool XmlTreeParser::ParseClear(const XmlToken& mark) {
  std::string_view content;
  if (!scanner_.TakeUpTo(mark.clear->close, &content)) {
    return Fail(kXmlUnmatchedClearTagEnd, mark.place);
  }
  open_.back()->Add(XMLClear{mark.clear->open.data(), MakeText(content), mark.clear->close.data()});
  return true;
}

bool XmlTreeParser::ParseElement(bool is_declaration) {
  const XmlToken name = scanner_.Next(is_declaration);
  if (name.kind != XmlTokenKind::kText) return FailAt(name, kXmlMissingTagName);
  XMLNode element(new XMLNode::XMLNodeDataTag);
  XMLNode::XMLNodeDataTag* data = element.data_;
  data->name = MakeText(name.text);
  data->is_declaration = is_declaration;
  open_.back()->Add(std::move(element));
  return ParseStartTag(data);
}

bool XmlTreeParser::ParseStartTag(XMLNode::XMLNodeDataTag* element) {
  XmlToken token = scanner_.Next(element->is_declaration);
  while (token.kind == XmlTokenKind::kText) {
    const std::string_view name = token.text;
    token = scanner_.Next(element->is_declaration);
    if (!ParseAttribute(element, name, &token)) return false;
  }
  switch (token.kind) {
    case XmlTokenKind::kShortClose:
      return true;
    case XmlTokenKind::kClose:
    case XmlTokenKind::kEnd:
      open_.push_back(element);
      return true;
    default:
      return FailAt(token, kXmlUnexpectedToken);
  }
}

// next is the token after the name, and afterwards the token after the attribute.
bool XmlTreeParser::ParseAttribute(XMLNode::XMLNodeDataTag* element, std::string_view name,
                                   XmlToken* next) {
  XMLOwnedText value;
  if (next->kind == XmlTokenKind::kEquals) {
    *next = scanner_.Next(element->is_declaration);
    if (next->kind == XmlTokenKind::kEnd) return true;
    if (next->kind != XmlTokenKind::kText && next->kind != XmlTokenKind::kQuoted) {
      return FailAt(*next, kXmlUnexpectedToken);
    }
    value = DecodeEntities(next->text);
    if (value == nullptr) return false;
    *next = scanner_.Next(element->is_declaration);
  }
  element->Add(XMLAttribute{MakeText(name), std::move(value)});
  return true;
}

bool XmlTreeParser::ParseEndTag(std::size_t tag_place) {
  const XmlToken name = scanner_.Next();
  if (name.kind != XmlTokenKind::kText) return FailAt(name, kXmlMissingEndTagName);
  std::size_t i = 0;  // open_[0], the top, has no name and no end tag
  if (EndsEndTagName(text_.substr(scanner_.Place()))) {
    for (i = open_.size() - 1; i > 0 && !EqualNoCase(open_[i]->name.get(), name.text);) --i;
  }
  if (i == 0) return Fail(kXmlUnmatchedEndTag, tag_place);
  if (i + 1 < open_.size()) Warn(tag_place);
  open_.resize(i);
  return PassRestOfTag();
}

// What stands behind the name of an end tag means nothing, and its ">" may be missing at the end.
bool XmlTreeParser::PassRestOfTag() {
  for (;;) {
    const XmlToken token = scanner_.Next();
    switch (token.kind) {
      case XmlTokenKind::kClose:
      case XmlTokenKind::kShortClose:
      case XmlTokenKind::kEnd:
        return true;
      default:
        if (IsLeftOpen(token)) return FailAt(token, kXmlUnexpectedToken);
    }
  }
}

XMLOwnedText XmlTreeParser::DecodeEntities(std::string_view text) {
  auto decoded = std::make_unique<char[]>(text.size() + 1);  // an entity is longer than its value
  std::size_t used = 0;
  while (!text.empty()) {
    std::size_t length = 0;
    if (text.front() == '&') {
      length = DecodeEntity(text, &decoded[used]);
      if (length == 0) {
        Fail(kXmlUnknownEntity, static_cast<std::size_t>(text.data() - text_.data()));
        return nullptr;
      }
      ++used;
    } else {
      length = XmlCharLength(text, options_.strict_utf8);
      used += text.copy(&decoded[used], length);
    }
    text.remove_prefix(length);
  }
  return decoded;
}

// A declaration has no end tag; every other element still open at the end of the text lacks one.
void XmlTreeParser::CheckAllClosed() {
  const bool all_closed = std::all_of(open_.begin() + 1, open_.end(),
                                      [](const auto* node) { return node->is_declaration; });
  if (!all_closed) Warn(text_.size());
}

bool XmlTreeParser::Fail(XMLError error, std::size_t place) {
  error_ = error;
  place_ = place;
  return false;
}

bool XmlTreeParser::FailAt(const XmlToken& token, XMLError error) {
  if (IsLeftOpen(token)) {
    error = token.kind == XmlTokenKind::kClear ? kXmlUnmatchedClearTagEnd : kXmlUnmatchedQuote;
  }
  return Fail(error, token.place);
}

bool XmlTreeParser::IsLeftOpen(const XmlToken& token) {
  if (token.kind != XmlTokenKind::kClear) return token.kind == XmlTokenKind::kUnmatchedQuote;
  std::string_view content;
  return !scanner_.TakeUpTo(token.clear->close, &content);
}

void XmlTreeParser::Warn(std::size_t place) {
  if (error_ != kXmlNone) return;
  error_ = kXmlUnmatchedEndTagWarning;
  place_ = place;
}

}  // namespace flow
