// SPDX-License-Identifier: Apache-2.0
// Who may ask: names and salted hashes of their passwords, as mkpasswd and htpasswd -B write them.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace flow::host {

class HttpUsers {
 public:
  // Lines "NAME:HASH"; empty ones and those that begin with # are left out. HostError where the
  // file cannot be read or has no user, UsageError where a line is none or a hash is a weak one.
  explicit HttpUsers(const std::string& path);

  // Knows tells whether a header "Basic ..." names a user with the password. A hash is meant to
  // take its time; who was let in once is known by the header from then on.
  [[nodiscard]] bool Knows(const std::string& authorization);

 private:
  struct User {
    std::string name;
    std::string hash;
  };

  void AddLine(const std::string& path, std::size_t number, std::string_view line);
  [[nodiscard]] bool Verify(const std::string& name, const std::string& password) const;

  std::vector<User> users_;
  std::mutex mutex_;
  std::vector<std::string> let_in_;
};

}  // namespace flow::host
