// SPDX-License-Identifier: Apache-2.0
// A file that is kept across restarts: lines of text between a first line that names the format and
// a last one that says how many there are.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace flow::host {

class StateFile {
 public:
  // The file of this name in the directory; format is its first line.
  StateFile(const std::string& directory, std::string_view name, std::string_view format);

  // Load gives the lines to take, until one that it refuses. A damaged file is set aside: then
  // *trouble says so. False when there is none, or a damaged one; HostError when it cannot be read.
  bool Load(std::int64_t now, const std::function<bool(const std::string& line)>& take,
            std::string* trouble) const;

  // Save has a new file, synced to the disk, take the old one's place. False, with errno set, when
  // that fails.
  [[nodiscard]] bool Save(const std::vector<std::string>& lines) const;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::string format_;
};

}  // namespace flow::host
