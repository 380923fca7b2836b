// SPDX-License-Identifier: Apache-2.0
// The seeds of a fuzz target, files of a folder.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/datagrams.h"
#include "tests/support/policy_file.h"

namespace flow::fuzz {

class SeedFolder {
 public:
  SeedFolder(const std::filesystem::path& root, std::string_view target,
             std::string prefix = "seed-")
      : folder_(root / target), prefix_(std::move(prefix)) {
    std::filesystem::create_directories(folder_);
  }
  void Add(std::string_view content) {
    test::WriteFile(folder_ / (prefix_ + std::to_string(++count_)), content);
  }
  void Add(const test::Bytes& content) {
    Add(std::string_view(reinterpret_cast<const char*>(content.data()), content.size()));
  }
  void Add(std::uint8_t policy, std::vector<Datagram> datagrams) {
    Add(Serialize({policy, std::move(datagrams)}));
  }

 private:
  std::filesystem::path folder_;
  std::string prefix_;
  int count_ = 0;
};

}  // namespace flow::fuzz
