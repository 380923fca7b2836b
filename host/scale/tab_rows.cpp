// SPDX-License-Identifier: Apache-2.0
// Texts of ClickHouse: literals in queries, and answers in the form TabSeparated.
#include <algorithm>

#include "host/scale/clickhouse_client.h"

namespace flow::host {

std::string SqlText(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '\'';
}

bool TakeTabRow(std::string_view* answer, TabRow* row) {
  row->clear();
  if (answer->empty()) return false;
  std::string_view line = answer->substr(0, answer->find('\n'));
  answer->remove_prefix(std::min(line.size() + 1, answer->size()));
  for (;;) {
    const std::size_t tab = line.find('\t');
    row->push_back(line.substr(0, tab));
    if (tab == std::string_view::npos) return true;
    line.remove_prefix(tab + 1);
  }
}

std::string TabText(std::string_view field) {
  constexpr std::string_view kEscapes = "bfrnt0";
  constexpr std::string_view kMeant("\b\f\r\n\t\0", 6);
  std::string text;
  for (std::size_t at = 0; at < field.size(); ++at) {
    if (field[at] != '\\' || at + 1 == field.size()) {
      text += field[at];
      continue;
    }
    const std::size_t place = kEscapes.find(field[++at]);
    text += place == std::string_view::npos ? field[at] : kMeant[place];
  }
  return text;
}

}  // namespace flow::host
