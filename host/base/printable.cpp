#include "host/base/printable.h"

#include <fmt/format.h>

namespace flow::host {

std::string Printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    if (c >= ' ' && c <= '~') {
      out.push_back(c);
    } else {
      out += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
    }
  }
  return out;
}

}  // namespace flow::host
