// SPDX-License-Identifier: Apache-2.0
#include "host/output/csv_field.h"

#include <string_view>

#include "host/base/printable.h"

namespace flow::host {
namespace {

bool IsFormula(std::string_view text) {
  const bool may_be = text.size() > 1 && std::string_view("=+-@").find(text[0]) != text.npos;
  return may_be && (text[0] == '=' || text[0] == '@' ||
                    text.find_first_not_of("0123456789.", 1) != text.npos);
}

}  // namespace

std::string CsvField(const std::string& raw) {
  std::string text = Utf8(raw);
  if (IsFormula(text)) text.insert(0, 1, '\'');
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted.push_back('"');
    quoted.push_back(c);
  }
  return quoted + '"';
}

}  // namespace flow::host
