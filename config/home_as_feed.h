// SPDX-License-Identifier: Apache-2.0
// The feed of home AS numbers: text files, one number a line, that some other process drops into a
// directory under names that tell the newest, incoming_NUMBER_FEEDNAME.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "flowhandlers/host_interfaces.h"
#include "util/flat_set.h"

namespace flow {

// Where the feed's deliverer announces new files, whatever the data directory is. Where the
// two differ, every check loads the data directory's newest file again.
inline constexpr char kAvailabilityDirectory[] = "/usr/local/share/ombrel-probe/plugins";

class HomeAsFeed {
 public:
  explicit HomeAsFeed(std::string availability_directory = kAvailabilityDirectory)
      : availability_directory_(std::move(availability_directory)) {}

  // SetDataDirectory names the directory from which feed files are loaded.
  void SetDataDirectory(const char* directory) { DataDirectory = directory; }

  // LoadHomeNetsFromLatestFile replaces `numbers` by those of the newest feed file. A feed without
  // a single usable number, or none at all, leaves them as they are. False only when the file
  // cannot be opened.
  bool LoadHomeNetsFromLatestFile(const std::string& feed, IOmbrelContainer* site,
                                  FlatSet<std::uint32_t>* numbers);

  // Check looks for a newer feed file every half hour and moves to it. It is called for every
  // datagram, with the engine's time in seconds; the first call starts the clock. What is newer is
  // seen in the availability directory, what is loaded comes from the data directory.
  void Check(std::uint64_t now, const std::string& feed, IOmbrelContainer* site,
             FlatSet<std::uint32_t>* numbers);

 private:
  [[nodiscard]] bool NewHomenetASNFileAvailable(const std::string& feed,
                                                IOmbrelContainer* site) const;

  std::string availability_directory_;
  std::string DataDirectory;
  std::string CurrentHomeASFile;      // last taken into use
  std::uint64_t LastHomeASCheck = 0;  // 0: not yet
};

// GetLatestFile is the path of the newest feed file in a directory, empty (and logged) when there
// is none. Deliverers of feeds have named their files by how the number is read: in base 0, so that
// a leading zero makes it octal, from behind the first "incoming_" of the whole path; of equal
// numbers the last in glob's order wins.
std::string GetLatestFile(const std::string& directory, const std::string& feed,
                          IOmbrelContainer* site);

}  // namespace flow
