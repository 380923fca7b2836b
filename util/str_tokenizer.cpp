// SPDX-License-Identifier: Apache-2.0
#include "util/str_tokenizer.h"

#include <cstring>
#include <limits>
#include <stdexcept>

namespace {

// The buffer ends in four NUL bytes more than its text needs.
constexpr std::size_t kSpareBytes = 5;

std::string_view View(const char* text) { return text == nullptr ? std::string_view() : text; }

std::unique_ptr<char[]> Copy(const char* bytes, std::size_t length, std::size_t capacity) {
  auto copy = std::make_unique<char[]>(capacity);
  std::memcpy(copy.get(), bytes, length);
  return copy;
}

}  // namespace

StrTokenizer::StrTokenizer(std::string_view text, std::string_view separators)
    : buffer_length_(text.size() + 1),
      buffer_(std::make_unique<char[]>(text.size() + kSpareBytes)),
      separators_length_(separators.size()),
      separators_(std::make_unique<char[]>(separators.size() + 1)) {
  if (text.size() > std::numeric_limits<std::int32_t>::max() - kSpareBytes) {
    throw std::length_error("StrTokenizer: text too long");
  }
  text.copy(buffer_.get(), text.size());
  separators.copy(separators_.get(), separators.size());
}

StrTokenizer::StrTokenizer(const char* text, const char* separators)
    : StrTokenizer(View(text), View(separators)) {
  IntTokenize();
}

StrTokenizer::StrTokenizer(const char* text, char separator)
    : StrTokenizer(View(text), std::string_view(&separator, 1)) {
  IntTokenize();
}

StrTokenizer::StrTokenizer(const char* text, std::size_t length, const char* separators)
    : StrTokenizer(text == nullptr ? std::string_view() : std::string_view(text, length),
                   View(separators)) {
  IntTokenize();
}

StrTokenizer::StrTokenizer(const char* text, char separator, int /*keep_empty*/)
    : StrTokenizer(View(text), std::string_view(&separator, 1)) {
  IntTokenize_Chr();
}

StrTokenizer::StrTokenizer(const StrTokenizer& other)
    : offsets_(other.offsets_),
      buffer_length_(other.buffer_length_),
      buffer_(Copy(other.buffer_.get(), other.buffer_length_, other.buffer_length_ + 4)),
      separators_length_(other.separators_length_),
      separators_(
          Copy(other.separators_.get(), other.separators_length_, other.separators_length_ + 1)) {}

void StrTokenizer::IntTokenize() {
  char* rest = nullptr;
  char* token = strtok_r(buffer_.get(), separators_.get(), &rest);
  while (token != nullptr) {
    offsets_.push_back(static_cast<std::int32_t>(token - buffer_.get()));
    token = strtok_r(nullptr, separators_.get(), &rest);
  }
}

void StrTokenizer::IntTokenize_Chr() {
  offsets_.push_back(0);
  const std::size_t text_length = buffer_length_ - 1;
  for (std::size_t i = 0; i < text_length; ++i) {
    if (buffer_[i] != separators_[0]) continue;
    buffer_[i] = '\0';
    offsets_.push_back(static_cast<std::int32_t>(i + 1));
  }
}

unsigned long StrTokenizer::GetCount() const noexcept { return offsets_.size(); }

const char* StrTokenizer::GetToken(unsigned long i) const noexcept {
  return i < offsets_.size() ? &buffer_[static_cast<std::size_t>(offsets_[i])] : nullptr;
}

unsigned long StrTokenizer::GetTokenLen(unsigned long i) const noexcept {
  if (i >= offsets_.size()) return 0;
  const std::size_t end =
      i + 1 < offsets_.size() ? static_cast<std::size_t>(offsets_[i + 1]) : buffer_length_ - 1;
  return end - static_cast<std::size_t>(offsets_[i]);
}

const char* StrTokenizer::LastToken() const {
  return &buffer_[static_cast<std::size_t>(offsets_.at(offsets_.size() - 1))];
}
