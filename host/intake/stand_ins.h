// SPDX-License-Identifier: Apache-2.0
// IPv4 addresses that stand for exporters of IPv6 in front of the plug-in, which tells exporters by
// IPv4 addresses alone. Reports show the real ones.
//
// They come from 240.0.0.0/8, which no network uses, in the order in which the exporters show up.
// Kept across restarts, an exporter's templates in the archive stay its own. Any thread.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/base/endpoint.h"
#include "host/intake/state_file.h"

namespace flow::host {

class StandIns {
 public:
  // So many exporters have one, and one that sends nothing for as long has none after a restart.
  static constexpr std::size_t kMost = std::size_t{1} << 16;
  static constexpr std::int64_t kLongestSeconds = std::int64_t{7} * 86400;

  // Whether an address is, or could be, a stand-in.
  static bool IsOne(const IpAddress& address);

  // Of gives the stand-in of an IPv6 address that sends now, in seconds; nothing when too many have
  // one.
  std::optional<IpAddress> Of(const IpAddress& real, std::int64_t now);

  // RealOf gives whom an address stands for: itself, unless it is a stand-in. Find is the other way
  // round.
  [[nodiscard]] IpAddress RealOf(const IpAddress& address) const;
  [[nodiscard]] IpAddress Find(const IpAddress& real) const;

  // KeepIn has them kept in a directory, and reads those that are; a damaged file is set aside, and
  // *trouble says so. Save writes what is new; HostError when that fails.
  void KeepIn(const std::string& directory, std::int64_t now, std::string* trouble);
  void Save();

 private:
  static constexpr std::uint32_t kNetwork = 0xF0000000;

  struct Entry {
    IpAddress stand_in;
    std::int64_t seen = 0;     // seconds since 1970
    std::int64_t written = 0;  // what the file says of it
  };

  bool ReadLine(const std::string& line, std::int64_t now);
  [[nodiscard]] std::vector<std::string> TakeLines();

  mutable std::mutex mutex_;
  absl::flat_hash_map<IpAddress, Entry> by_real_;
  absl::flat_hash_map<IpAddress, IpAddress> reals_;  // by stand-in
  std::uint32_t last_ = kNetwork;                    // that was given away
  std::optional<StateFile> file_;
  bool has_news_ = false;
};

}  // namespace flow::host
