// SPDX-License-Identifier: Apache-2.0
// The policy file of a component: where it is, and what the component has made of it so far.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace flow::host {

class PolicyFile {
 public:
  // The component is about to read the file for the first time.
  void UseAt(const std::filesystem::path& path);

  // Hear takes a line of the component's log: there it says when it has read the file again, and
  // how often it looks for a change.
  void Hear(std::string_view line);

  // None, for a component that has asked for no file.
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  // How often the component looks for a newer file, in seconds; 0: never.
  [[nodiscard]] std::uint32_t interval() const { return interval_; }

  // How often it has read the file again.
  [[nodiscard]] std::uint64_t reloads() const { return reloads_; }

  // Whether the file is the one that the component has read last.
  [[nodiscard]] bool IsInForce() const;

  // WhyNotReloaded says why the component that was just made to look, where it does so, has kept to
  // what it had read.
  [[nodiscard]] std::string WhyNotReloaded() const;

 private:
  // What tells one edition of a file from another; all 0 for none.
  struct Edition {
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
    std::int64_t size = 0;
    std::uint64_t inode = 0;

    friend bool operator==(const Edition&, const Edition&) = default;
  };
  // False, with errno, when the file cannot be read.
  bool Look(Edition* edition) const;

  std::filesystem::path path_;
  std::uint32_t interval_ = 0;
  std::uint64_t reloads_ = 0;
  Edition in_force_;
};

}  // namespace flow::host
