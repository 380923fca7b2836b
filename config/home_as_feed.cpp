// SPDX-License-Identifier: Apache-2.0
#include "config/home_as_feed.h"

#include <glob.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

#include "plugin/site_log.h"

namespace flow {
namespace {

constexpr std::uint64_t kCheckSeconds = 1800;
constexpr char kFilePrefix[] = "incoming_";

// The number that a line of the feed begins with. False when there is none or it exceeds 64 bits.
bool ParseNumber(const std::string& line, std::uint64_t* number) {
  char* end = nullptr;
  errno = 0;
  *number = std::strtoull(line.c_str(), &end, 10);
  return end != line.c_str() && errno == 0;
}

void ReadFeed(std::istream& file, IOmbrelContainer* site, FlatSet<std::uint32_t>* numbers) {
  std::string line;
  while (std::getline(file, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::uint64_t number = 0;
    if (!ParseNumber(line, &number)) {
      Log(site, kLogWarning,
          "FLOW: downstream_origin_as : skipping invalid as number [" + line + "] ");
      continue;
    }
    const auto as_number = static_cast<std::uint32_t>(number);
    if (as_number != 0) numbers->Insert(as_number);
  }
}

bool IsRegularFile(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

std::string GetLatestFile(const std::string& directory, const std::string& feed,
                          IOmbrelContainer* site) {
  const std::string pattern = directory + "/" + kFilePrefix + "*_" + feed;
  glob_t found{};
  if (glob(pattern.c_str(), GLOB_NOSORT, nullptr, &found) != 0) {
    globfree(&found);
    Log(site, kLogError, "Glob cannot find any data files for use");
    return {};
  }
  std::string best;
  unsigned long best_number = 0;
  for (std::size_t i = 0; i < found.gl_pathc; ++i) {
    const std::string path = found.gl_pathv[i];
    const std::size_t prefix = path.find(kFilePrefix);
    const unsigned long number =
        std::strtoul(path.c_str() + prefix + sizeof(kFilePrefix) - 1, nullptr, 0);
    if (number >= best_number) {
      best_number = number;
      best = path;
    }
  }
  globfree(&found);
  return best;
}

bool HomeAsFeed::NewHomenetASNFileAvailable(const std::string& feed, IOmbrelContainer* site) const {
  if (feed.empty()) return false;
  const std::string latest = GetLatestFile(availability_directory_, feed, site);
  return !latest.empty() && latest != CurrentHomeASFile;
}

bool HomeAsFeed::LoadHomeNetsFromLatestFile(const std::string& feed, IOmbrelContainer* site,
                                            FlatSet<std::uint32_t>* numbers) {
  const std::string latest = GetLatestFile(DataDirectory, feed, site);
  if (latest.empty()) {
    CurrentHomeASFile.clear();
    return true;
  }
  Log(site, kLogProgress, "FLOW: loading home as numbers from AS file " + latest);
  std::ifstream file;
  if (IsRegularFile(latest)) file.open(latest);  // a pipe would be waited for
  if (!file.is_open()) {
    Log(site, kLogError, "FLOW: Error loading home AS Number feed file");
    return false;
  }
  FlatSet<std::uint32_t> fresh;
  ReadFeed(file, site, &fresh);
  if (!fresh.Empty()) {
    Log(site, kLogProgress,
        "FLOW: loading Home and Downstream AS numbers count=" + std::to_string(fresh.Size()));
    *numbers = std::move(fresh);
  }
  CurrentHomeASFile = latest;
  return true;
}

void HomeAsFeed::Check(std::uint64_t now, const std::string& feed, IOmbrelContainer* site,
                       FlatSet<std::uint32_t>* numbers) {
  if (LastHomeASCheck == 0) {
    LastHomeASCheck = now;
    return;
  }
  if (now - LastHomeASCheck <= kCheckSeconds) return;  // unsigned: a clock set back looks at once
  Log(site, kLogProgress,
      "HOMEASREFRESH: Checking for new HomeASNumbersFile current=" + CurrentHomeASFile);
  if (NewHomenetASNFileAvailable(feed, site)) {
    LoadHomeNetsFromLatestFile(feed, site, numbers);
    Log(site, kLogProgress, "HOMEASREFRESH: Moved to newer HomeASNumbersFile=" + CurrentHomeASFile);
  } else {
    Log(site, kLogProgress,
        "HOMEASREFRESH: No new HomeASNumbersFile available, staying with " + CurrentHomeASFile);
  }
  LastHomeASCheck = now;
}

}  // namespace flow
