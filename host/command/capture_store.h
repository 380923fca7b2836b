// SPDX-License-Identifier: Apache-2.0
// A store of captures, for as long as questions are asked.
#pragma once

#include <string>
#include <vector>

namespace flow::host {

struct CaptureOptions {
  std::vector<std::string> captures;
  std::string plugin;
  std::vector<std::string> ports;  // as replay takes them
  std::vector<std::string> home;
};

class CaptureStore {
 public:
  // Replays the captures into a store of its own, in another process: what that prints is of no
  // interest, but for what goes wrong. HostError when it cannot.
  explicit CaptureStore(const CaptureOptions& options);
  CaptureStore(const CaptureStore&) = delete;
  CaptureStore& operator=(const CaptureStore&) = delete;
  ~CaptureStore();

  [[nodiscard]] const std::string& directory() const { return directory_; }

 private:
  std::string directory_;
};

}  // namespace flow::host
