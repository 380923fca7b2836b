// SPDX-License-Identifier: Apache-2.0
// Splits a text into tokens once and hands them out by index.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

// Tokens are never trimmed: a blank after a comma belongs to the token that follows. They are
// NUL-terminated and live as long as the tokenizer. A null text or set counts as an empty one.
class StrTokenizer {
 public:
  // Any character of separators separates. A run of separators counts as one, and none at the ends
  // makes a token: no token is empty.
  StrTokenizer(const char* text, const char* separators);
  StrTokenizer(const char* text, char separator);
  StrTokenizer(const char* text, std::size_t length, const char* separators);  // no NUL needed

  // Every separator separates: n of them give n + 1 tokens, empty ones included. The int only
  // selects this form.
  StrTokenizer(const char* text, char separator, int keep_empty);

  StrTokenizer(const StrTokenizer& other);
  StrTokenizer& operator=(const StrTokenizer&) = delete;
  virtual ~StrTokenizer() = default;

  [[nodiscard]] unsigned long GetCount() const noexcept;
  [[nodiscard]] const char* GetToken(unsigned long i) const noexcept;  // null past the last

  // The characters from the token's start to the next token's, separators between them included, or
  // to the end of the text; 0 past the last.
  [[nodiscard]] unsigned long GetTokenLen(unsigned long i) const noexcept;

  [[nodiscard]] const char* LastToken() const;  // throws std::out_of_range without tokens

 private:
  StrTokenizer(std::string_view text, std::string_view separators);
  void IntTokenize();
  void IntTokenize_Chr();

  std::vector<std::int32_t> offsets_;  // of each token's first character in buffer_
  std::size_t buffer_length_;          // of the text and one NUL
  std::unique_ptr<char[]> buffer_;     // the text with NULs for separators
  std::size_t separators_length_;
  std::unique_ptr<char[]> separators_;
};
