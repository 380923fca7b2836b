// SPDX-License-Identifier: Apache-2.0
#include "host/base/log_limit.h"

#include <absl/strings/ascii.h>
#include <fmt/format.h>

#include <algorithm>

#include "host/base/number_text.h"
#include "host/base/printable.h"

namespace flow::host {
namespace {

constexpr std::size_t kMostKinds = 256;  // all others are one
constexpr std::size_t kMostExporters = 1000;

bool IsOfWord(char c) {
  return absl::ascii_isalnum(static_cast<unsigned char>(c)) || c == '.' || c == ':' || c == '_';
}

std::string MoreOfIt(std::uint64_t count, std::size_t exporters, LogLimit::Clock::duration time) {
  std::string text = fmt::format("... and {} more like it", Thousands(count));
  if (exporters > 0) {
    text += fmt::format(" from {}{} exporter{}", exporters >= kMostExporters ? "at least " : "",
                        Thousands(exporters), exporters == 1 ? "" : "s");
  }
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(time).count();
  return fmt::format("{} in {} s", text, std::max<std::int64_t>(seconds, 1));
}

}  // namespace

std::string KindOf(std::string_view text) {
  std::string kind;
  for (std::size_t at = 0; at < text.size();) {
    const auto begin = text.begin() + static_cast<std::ptrdiff_t>(at);
    const auto length =
        static_cast<std::size_t>(std::find_if_not(begin, text.end(), IsOfWord) - begin);
    const std::string_view word = text.substr(at, std::max<std::size_t>(length, 1));
    const bool has_digit = word.find_first_of("0123456789") != std::string_view::npos;
    kind += has_digit ? "#" : word;
    at += word.size();
  }
  return kind;
}

std::string LogLine(const LogMessage& message) {
  return fmt::format("{}: {}: {}", message.component, message.level, Printable(message.text));
}

LogLimit::Kind& LogLimit::KindFor(const LogMessage& message, Clock::time_point now) {
  std::string key = KindOf(message.text);
  const auto known = kinds_.find(key);
  if (known != kinds_.end()) return known->second;
  if (kinds_.size() >= kMostKinds) key.clear();
  return kinds_.try_emplace(std::move(key), Kind{now, 0, 0, "", "", "", {}}).first->second;
}

bool LogLimit::Take(const LogMessage& message, Clock::time_point now) {
  Kind& kind = KindFor(message, now);
  const bool is_same = kind.text == message.text && kind.component == message.component;
  if (kind.shown < kMostShown && !is_same) {
    ++kind.shown;
    kind.component = message.component;
    kind.level = message.level;
    kind.text = message.text;
    return true;
  }
  ++kind.held_back;
  if (kind.held_back == 1 || !is_same) {
    kind.component = message.component;
    kind.level = message.level;
    kind.text = message.text;
  }
  if (message.exporter != nullptr && kind.exporters.size() < kMostExporters) {
    kind.exporters.insert(*message.exporter);
  }
  return false;
}

std::vector<std::string> LogLimit::Summaries(Clock::time_point now, bool at_end) {
  std::vector<std::string> lines;
  absl::erase_if(kinds_, [&](const auto& entry) {
    const Kind& kind = entry.second;
    if (now < kind.start + kStretch && !at_end) return false;
    if (kind.held_back > 0) {
      lines.push_back(fmt::format("{} {}", LogLine({kind.component, kind.level, kind.text}),
                                  MoreOfIt(kind.held_back, kind.exporters.size(),
                                           std::min<Clock::duration>(now - kind.start, kStretch))));
    }
    return true;
  });
  std::ranges::sort(lines);
  return lines;
}

}  // namespace flow::host
