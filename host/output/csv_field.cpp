#include "host/output/csv_field.h"

namespace flow::host {

std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted.push_back('"');
    quoted.push_back(c);
  }
  return quoted + '"';
}

}  // namespace flow::host
