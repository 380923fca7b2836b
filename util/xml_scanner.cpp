// SPDX-License-Identifier: Apache-2.0
#include "util/xml_scanner.h"

#include <algorithm>

namespace flow {
namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool EndsWord(std::string_view rest, bool in_declaration) {
  const char c = rest.front();
  return IsXmlSpace(c) || c == '<' || c == '=' || c == '>' || rest.starts_with("/>") ||
         (in_declaration && rest.starts_with("?>"));
}

}  // namespace

bool EqualNoCase(std::string_view a, std::string_view b) noexcept {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                            [](char x, char y) { return Lower(x) == Lower(y); });
}

std::size_t XmlCharLength(std::string_view text, bool strict_utf8) noexcept {
  const auto lead = static_cast<unsigned char>(text.front());
  std::size_t length = 1;
  if (strict_utf8 && lead >= 0xC2 && lead <= 0xF4) {
    length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  }
  return std::min(length, text.size());
}

XmlToken XmlScanner::Next(bool in_declaration) noexcept {
  while (place_ < text_.size() && IsXmlSpace(text_[place_])) ++place_;
  if (place_ == text_.size()) return Mark(XmlTokenKind::kEnd, 0);
  switch (text_[place_]) {
    case '<':
      return Tag();
    case '>':
      return Mark(XmlTokenKind::kClose, 1);
    case '=':
      return Mark(XmlTokenKind::kEquals, 1);
    case '"':
    case '\'':
      return Quoted();
    default:
      break;
  }
  if (Rest().starts_with("/>")) return Mark(XmlTokenKind::kShortClose, 2);
  if (in_declaration && Rest().starts_with("?>")) return Mark(XmlTokenKind::kClose, 2);
  return Word(in_declaration);
}

XmlToken XmlScanner::Mark(XmlTokenKind kind, std::size_t length) noexcept {
  const XmlToken token = {kind, place_, text_.substr(place_, length)};
  place_ += length;
  return token;
}

XmlToken XmlScanner::Tag() noexcept {
  for (const ALLXMLClearTag& row : XMLNode::getClearTagTable()) {
    if (!EqualNoCase(Rest().substr(0, row.open.size()), row.open)) continue;
    XmlToken token = Mark(XmlTokenKind::kClear, row.open.size());
    token.clear = &row;
    return token;
  }
  if (Rest().starts_with("</")) return Mark(XmlTokenKind::kEndTag, 2);
  if (Rest().starts_with("<?")) return Mark(XmlTokenKind::kDeclaration, 2);
  return Mark(XmlTokenKind::kStart, 1);
}

XmlToken XmlScanner::Quoted() noexcept {
  const std::size_t start = place_;
  for (std::size_t end = start + 1; end < text_.size();
       end += XmlCharLength(text_.substr(end), strict_utf8_)) {
    if (text_[end] != text_[start]) continue;
    place_ = end + 1;
    return {XmlTokenKind::kQuoted, start, text_.substr(start + 1, end - start - 1)};
  }
  return Mark(XmlTokenKind::kUnmatchedQuote, 1);
}

XmlToken XmlScanner::Word(bool in_declaration) noexcept {
  const std::size_t start = place_;
  while (place_ < text_.size() && !EndsWord(Rest(), in_declaration)) {
    place_ += XmlCharLength(Rest(), strict_utf8_);
  }
  return {XmlTokenKind::kText, start, text_.substr(start, place_ - start)};
}

std::string_view XmlScanner::TakeTextRun() noexcept {
  const std::size_t start = place_;
  while (place_ < text_.size() && text_[place_] != '<') {
    place_ += XmlCharLength(Rest(), strict_utf8_);
  }
  return text_.substr(start, place_ - start);
}

bool XmlScanner::TakeUpTo(std::string_view mark, std::string_view* out) noexcept {
  const std::size_t found = text_.find(mark, place_);
  if (found == std::string_view::npos) return false;
  *out = text_.substr(place_, found - place_);
  place_ = found + mark.size();
  return true;
}

}  // namespace flow
