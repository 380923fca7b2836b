// SPDX-License-Identifier: Apache-2.0
#include "capi/home_networks.h"

#include <arpa/inet.h>

#include <charconv>
#include <optional>

namespace flow::capi {
namespace {

std::optional<kit::Network> ReadNetwork(std::string_view text) {
  const std::size_t slash = text.find('/');
  const std::string address(text.substr(0, slash));
  unsigned length = 32;
  if (slash != std::string_view::npos) {
    const std::string_view digits = text.substr(slash + 1);
    const char* const end = digits.data() + digits.size();
    const auto read = std::from_chars(digits.data(), end, length);
    if (read.ec != std::errc() || read.ptr != end || length > 32) return std::nullopt;
  }
  in_addr bytes{};
  if (inet_pton(AF_INET, address.c_str(), &bytes) != 1) return std::nullopt;
  const std::uint32_t mask = length == 0 ? 0 : ~std::uint32_t{0} << (32 - length);
  return kit::Network{ntohl(bytes.s_addr) & mask, mask};
}

}  // namespace

bool ReadHomeNetworks(std::string_view text, std::vector<kit::Network>* networks,
                      std::string* fault) {
  networks->clear();
  while (!text.empty()) {
    const std::string_view part = text.substr(0, text.find(','));
    const std::optional<kit::Network> network = ReadNetwork(part);
    if (!network) {
      *fault = "'" + std::string(part) + "' is no network";
      return false;
    }
    networks->push_back(*network);
    text.remove_prefix(std::min(part.size() + 1, text.size()));
  }
  return true;
}

}  // namespace flow::capi
