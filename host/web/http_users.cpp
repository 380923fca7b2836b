// SPDX-License-Identifier: Apache-2.0
#include "host/web/http_users.h"

#include <absl/strings/escaping.h>
#include <crypt.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <sstream>

#include "host/base/error.h"
#include "host/base/files.h"
#include "host/base/words.h"

namespace flow::host {
namespace {

// yescrypt, scrypt, bcrypt and the two of SHA.
constexpr std::string_view kSalted[] = {"$y$", "$gy$", "$7$", "$2b$", "$2y$", "$2a$", "$6$", "$5$"};

std::string HashOf(const std::string& password, const std::string& setting) {
  const auto data = std::make_unique<crypt_data>();
  const char* const hash = crypt_r(password.c_str(), setting.c_str(), data.get());
  return hash == nullptr || hash[0] == '*' ? "" : hash;
}

// How long it takes does not depend on where they differ.
bool IsSame(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned differs = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    differs |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return differs == 0;
}

}  // namespace

HttpUsers::HttpUsers(const std::string& path) {
  const auto text = ReadFile(path);
  if (!text) throw HostError(fmt::format("{}: {}", path, FileTrouble(errno)));
  std::size_t number = 0;
  std::istringstream lines(*text);
  for (std::string line; std::getline(lines, line);) AddLine(path, ++number, line);
  if (users_.empty()) throw HostError(fmt::format("{} names no user", path));
}

void HttpUsers::AddLine(const std::string& path, std::size_t number, std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (line.empty() || line.starts_with('#')) return;
  const std::size_t colon = line.find(':');
  if (colon == 0 || colon == std::string_view::npos) {
    throw UsageError(fmt::format("{}:{}: a line is NAME:HASH", path, number));
  }
  const std::string hash(line.substr(colon + 1));
  const bool is_salted = std::ranges::any_of(
      kSalted, [&](std::string_view prefix) { return hash.starts_with(prefix); });
  if (!is_salted || HashOf("", hash).empty()) {
    throw UsageError(fmt::format(
        "{}:{}: the hash is none that is salted and slow, as mkpasswd makes them", path, number));
  }
  users_.push_back({std::string(line.substr(0, colon)), hash});
}

bool HttpUsers::Knows(const std::string& authorization) {
  constexpr std::string_view kBasic = "Basic ";
  constexpr std::size_t kMostLetIn = 64;
  if (!SameWord(std::string_view(authorization).substr(0, kBasic.size()), kBasic)) return false;
  {
    const std::lock_guard lock(mutex_);
    bool is_known = false;
    for (const std::string& known : let_in_) is_known |= IsSame(known, authorization);
    if (is_known) return true;
  }
  std::string pair;
  if (!absl::Base64Unescape(authorization.substr(kBasic.size()), &pair)) return false;
  const std::size_t colon = pair.find(':');
  if (colon == std::string::npos || pair.find('\0') != std::string::npos) return false;
  if (!Verify(pair.substr(0, colon), pair.substr(colon + 1))) return false;
  const std::lock_guard lock(mutex_);
  if (let_in_.size() < kMostLetIn) let_in_.push_back(authorization);
  return true;
}

// Somebody who is not known takes as long as somebody who is.
bool HttpUsers::Verify(const std::string& name, const std::string& password) const {
  const auto found = std::ranges::find(users_, name, &User::name);
  const User& user = found == users_.end() ? users_.front() : *found;
  const bool is_right = IsSame(HashOf(password, user.hash), user.hash);
  return is_right && found != users_.end();
}

}  // namespace flow::host
