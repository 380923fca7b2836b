// SPDX-License-Identifier: Apache-2.0
#include "util/bounded_text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

int Print(char* dst, std::size_t capacity, const char* format, std::va_list arguments) {
  if (capacity == 0) return 0;
  const int wanted = std::vsnprintf(dst, capacity, format, arguments);
  if (wanted < 0) {
    dst[0] = '\0';
    return 0;
  }
  return static_cast<int>(std::min(static_cast<std::size_t>(wanted), capacity - 1));
}

}  // namespace

int _stprintf_s(char* dst, std::size_t capacity, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int stored = Print(dst, capacity, format, arguments);
  va_end(arguments);
  return stored;
}

int sprintf_s(char* dst, std::size_t capacity, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int stored = Print(dst, capacity, format, arguments);
  va_end(arguments);
  return stored;
}

char* _tcscpy_s(char* dst, std::size_t capacity, const char* src) {
  if (capacity == 0) return dst;
  const std::size_t length = src == nullptr ? 0 : strnlen(src, capacity - 1);
  std::memmove(dst, src == nullptr ? "" : src, length);
  dst[length] = '\0';
  return dst;
}

char* _tcscat_s(char* dst, std::size_t capacity, const char* src) {
  if (capacity == 0) return dst;
  // A destination that came without a terminator gets one, in place of its last character.
  const std::size_t used = strnlen(dst, capacity - 1);
  _tcscpy_s(dst + used, capacity - used, src);
  return dst;
}

int _stscanf_s(const char* text, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int fields = std::vsscanf(text, format, arguments);
  va_end(arguments);
  return fields;
}
