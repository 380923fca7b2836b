// SPDX-License-Identifier: Apache-2.0
// The trace: every call that the plug-in makes into the host as one line, in order.
//
// Calls of the host into the plug-in frame them: a line that begins with ">" opens such a call, "<"
// closes it with its status, and what stands between is indented.
#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <map>
#include <string>
#include <string_view>

#include "flowhandlers/guid.h"
#include "flowhandlers/status.h"

namespace flow::host {

// Quoted is a text in double quotes with its unprintable bytes shown; null is shown as such.
std::string Quoted(const char* text);
std::string Quoted(std::string_view text);

class CallTrace {
 public:
  // Writes to the file PATH, or to standard output for "-". HostError when that cannot be.
  explicit CallTrace(const std::string& path);
  ~CallTrace();
  CallTrace(const CallTrace&) = delete;
  CallTrace& operator=(const CallTrace&) = delete;

  // Learn gives an identifier the name under which it is shown.
  void Learn(const GUID& guid, std::string name);
  [[nodiscard]] std::string Name(const GUID& guid) const;

  // Enter and Leave frame a call of the host into the plug-in.
  void Enter(std::string_view text);
  void Leave(Status status);

  template <class... Args>
  void Call(fmt::format_string<Args...> format, Args&&... args) {
    Line(' ', fmt::format(format, std::forward<Args>(args)...));
  }

 private:
  struct GuidLess {
    bool operator()(const GUID& a, const GUID& b) const {
      return std::memcmp(&a, &b, sizeof(GUID)) < 0;
    }
  };

  void Line(char mark, std::string_view text);

  std::FILE* file_;
  bool owned_;
  int depth_ = 0;
  std::map<GUID, std::string, GuidLess> names_;
};

}  // namespace flow::host
