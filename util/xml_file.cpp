// SPDX-License-Identifier: Apache-2.0
// Reading documents from files: what a file's bytes are taken for, and the way out of a program
// that cannot do without one.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "util/xmlParser.h"
#include "util/xml_node_data.h"
#include "util/xml_scanner.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::uint32_t kWideByteOrderMark = 0xFEFF;
constexpr std::uint32_t kSwappedByteOrderMark = 0xFFFE;
constexpr std::size_t kGuessBytes = 200;  // of a file that openFileHelper looks at

struct CloseFile {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Opens for reading in byte mode; null with errno set when that fails. A directory can be opened
// too, but nothing can be read from it; a pipe is empty, and its other end is not waited for. A
// null name is that of no file.
File Open(const char* file_name) {
  const int descriptor =
      open(file_name == nullptr ? "" : file_name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  File file(fdopen(descriptor, "rb"));
  struct stat status = {};
  if (file != nullptr && fstat(fileno(file.get()), &status) == 0 && S_ISDIR(status.st_mode)) {
    file.reset();
    errno = EISDIR;
  }
  return file;
}

// Reads the size that the file has now. One that shrinks meanwhile yields what is left.
bool ReadAll(std::FILE* file, std::string* content) {
  struct stat status = {};
  if (fstat(fileno(file), &status) != 0) return false;
  content->resize(static_cast<std::size_t>(status.st_size));
  content->resize(std::fread(content->data(), 1, content->size(), file));
  return std::ferror(file) == 0;
}

std::uint32_t WideUnit(std::string_view text, std::size_t i) {
  std::uint32_t unit = 0;
  std::memcpy(&unit, text.data() + i * sizeof unit, sizeof unit);
  return unit;
}

// Whether the bytes are rather 32-bit characters than text of single bytes.
bool IsWideText(std::string_view text) {
  if (text.size() < sizeof(std::uint32_t) || text.size() % 2 != 0) return false;
  const std::uint32_t first = WideUnit(text, 0);
  if (first == kSwappedByteOrderMark) return false;
  if (first == kWideByteOrderMark) return true;

  const std::size_t units = std::min<std::size_t>(text.size() / sizeof first, 256);
  std::size_t small_units = 0;
  for (std::size_t i = 0; i < units; ++i) {
    const std::uint32_t unit = WideUnit(text, i);
    if (unit == 0) return true;
    small_units += unit < 256 ? 1 : 0;
  }
  return 2 * small_units > units;
}

// Converts as the process's locale does; nothing when it cannot express a character.
std::optional<std::string> FromWideText(std::string_view text) {
  static_assert(sizeof(wchar_t) == sizeof(std::uint32_t));
  std::vector<wchar_t> wide(text.size() / sizeof(wchar_t) + 1);  // the last one ends the text
  std::memcpy(wide.data(), text.data(), (wide.size() - 1) * sizeof(wchar_t));
  const wchar_t* start = wide.data();
  if (static_cast<std::uint32_t>(*start) == kWideByteOrderMark) ++start;

  constexpr auto kFailed = static_cast<std::size_t>(-1);
  std::mbstate_t state = {};
  const wchar_t* rest = start;
  const std::size_t length = std::wcsrtombs(nullptr, &rest, 0, &state);
  if (length == kFailed) return std::nullopt;
  std::string narrow(length, '\0');
  rest = start;
  state = {};
  std::wcsrtombs(narrow.data(), &rest, length, &state);
  return narrow;
}

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Whether every lead byte has its continuation bytes, as far as the text goes.
bool IsSoundUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = flow::XmlCharLength(text, true);
    const std::string_view tail = text.substr(1, length - 1);
    if (!std::all_of(tail.begin(), tail.end(), IsContinuation)) return false;
    text.remove_prefix(length);
  }
  return true;
}

void SkipSpace(std::string_view* text) {
  while (!text->empty() && flow::IsXmlSpace(text->front())) text->remove_prefix(1);
}

// Whether an encoding="..." among the first bytes names UTF-8; true without one.
bool EncodingIsUtf8(std::string_view text) {
  const std::size_t found = text.substr(0, kGuessBytes).find("encoding");
  if (found == std::string_view::npos) return true;
  text.remove_prefix(found + std::strlen("encoding"));
  SkipSpace(&text);
  if (!text.starts_with('=')) return true;
  text.remove_prefix(1);
  SkipSpace(&text);
  if (!text.starts_with('"') && !text.starts_with('\'')) return true;
  text.remove_prefix(1);
  SkipSpace(&text);
  return flow::EqualNoCase(text.substr(0, 5), "utf-8") ||
         flow::EqualNoCase(text.substr(0, 4), "utf8");
}

// What the first bytes say about the file's encoding goes into the thread's option.
void GuessUtf8(const char* file_name) {
  const File file = Open(file_name);
  if (file == nullptr) {
    std::fprintf(stderr, "error xmlParser %s\n", std::strerror(errno));
    return;
  }
  char start[kGuessBytes];
  const std::size_t length = std::fread(start, 1, sizeof start, file.get());
  flow::GlobalXmlOptions().strict_utf8 =
      XMLNode::guessUTF8ParsingParameterValue(start, static_cast<int>(length), 1);
}

std::string ErrorMessage(const char* file_name, const char* tag, const XMLResults& results) {
  std::string message =
      "XML Parsing error inside file '" + std::string(file_name == nullptr ? "" : file_name) +
      "'.\n" + XMLNode::getError(results.error) + "\nAt line " + std::to_string(results.line) +
      ", column " + std::to_string(results.column) + ".\n";
  if (results.error == kXmlFirstTagNotFound) {
    message += "First Tag should be '" + std::string(tag) + "'.\n";
  }
  return message;
}

}  // namespace

XMLNode XMLNode::parseFile(const char* file_name, const char* tag, XMLResults* results) {
  XMLResults unread;
  XMLResults& outcome = results == nullptr ? unread : *results;
  const auto fail = [&outcome](XMLError error) {
    outcome = {error, 0, 0};
    return XMLNode();
  };

  std::string content;
  {
    const File file = Open(file_name);
    if (file == nullptr || !ReadAll(file.get(), &content)) return fail(kXmlFileNotFound);
  }
  if (content.empty()) return fail(kXmlNoXmlTag);
  if (flow::GlobalXmlOptions().guess_wide_chars && IsWideText(content)) {
    std::optional<std::string> narrow = FromWideText(content);
    if (!narrow) return fail(kXmlCharConversion);
    content = *std::move(narrow);
  } else if (content.starts_with(kByteOrderMark)) {
    content.erase(0, kByteOrderMark.size());
  }
  return parseString(content.c_str(), tag, &outcome);
}

XMLNode XMLNode::tryFile(const char* file_name, const char* tag, std::string* fault) {
  GuessUtf8(file_name);
  XMLResults results;
  XMLNode node = parseFile(file_name, tag, &results);
  *fault = results.error == kXmlNone ? "" : ErrorMessage(file_name, tag, results);
  return node;
}

XMLNode XMLNode::openFileHelper(const char* file_name, const char* tag) {
  std::string fault;
  XMLNode node = tryFile(file_name, tag, &fault);
  if (fault.empty()) return node;

  std::fputs(fault.c_str(), stdout);
  std::fflush(stdout);
  // Not _exit: the host's streams are flushed and its exit handlers run, as when it ends itself.
  std::exit(255);
}

bool XMLNode::guessUTF8ParsingParameterValue(const void* text, int length,
                                             char use_encoding_attribute) {
  if (text == nullptr || length < 25) return false;
  const std::string_view view(static_cast<const char*>(text), static_cast<std::size_t>(length));
  if (IsWideText(view)) return false;
  if (view.starts_with(kByteOrderMark)) return true;
  if (!IsSoundUtf8(view)) return false;
  return use_encoding_attribute == 0 || EncodingIsUtf8(view);
}
