// SPDX-License-Identifier: Apache-2.0
// Cuts an XML text into the tokens that the tree parser asks for.
#pragma once

#include <cstddef>
#include <string_view>

#include "util/xmlParser.h"

namespace flow {

inline bool IsXmlSpace(char c) noexcept { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Whether the two are equal without regard to ASCII case, whatever the host's locale.
bool EqualNoCase(std::string_view a, std::string_view b) noexcept;

// The bytes of the character at the front of text, never more than text has. With strict_utf8 the
// lead byte tells, whether or not the bytes after it belong to it; else every byte is a character.
std::size_t XmlCharLength(std::string_view text, bool strict_utf8) noexcept;

enum class XmlTokenKind {
  kEnd,             // of the text
  kStart,           // <
  kEndTag,          // </
  kDeclaration,     // <?
  kClear,           // the opening mark of a verbatim section
  kClose,           // >, in a declaration ?> as well
  kShortClose,      // />
  kEquals,          // =
  kText,            // a plain word
  kQuoted,          // "..." or '...'
  kUnmatchedQuote,  // a quote without its partner
};

struct XmlToken {
  XmlTokenKind kind;
  std::size_t place;                      // offset of its first byte in the text
  std::string_view text;                  // of a word, or what a quoted value holds
  const ALLXMLClearTag* clear = nullptr;  // the section that a clear mark opens
};

class XmlScanner {
 public:
  XmlScanner(std::string_view text, bool strict_utf8) noexcept
      : text_(text), strict_utf8_(strict_utf8) {}

  [[nodiscard]] std::size_t Place() const noexcept { return place_; }

  // The next token inside a tag, or the mark that opens one; white space before it is passed.
  XmlToken Next(bool in_declaration = false) noexcept;

  // Everything up to the next "<" or the end. Quotes mean nothing between tags.
  std::string_view TakeTextRun() noexcept;

  // Everything up to the mark, which is passed as well. False, with nothing passed, without one.
  bool TakeUpTo(std::string_view mark, std::string_view* out) noexcept;

 private:
  [[nodiscard]] std::string_view Rest() const noexcept { return text_.substr(place_); }
  XmlToken Mark(XmlTokenKind kind, std::size_t length) noexcept;
  XmlToken Tag() noexcept;
  XmlToken Quoted() noexcept;
  XmlToken Word(bool in_declaration) noexcept;

  std::string_view text_;
  std::size_t place_ = 0;
  bool strict_utf8_;
};

}  // namespace flow
