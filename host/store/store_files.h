// SPDX-License-Identifier: Apache-2.0
// The files of a store in its directory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace flow::host {

class Database;

// MakeDirectories makes the store's directories, MakeFile a file that a group may read, where they
// are missing. HostError when they cannot be made.
void MakeDirectories(const std::string& directory);
void MakeFile(const std::string& path);

// Two that write would take each other's minutes and flows for what a run has left behind. Makes
// the directory; HostError where another process writes there.
class WriterLock {
 public:
  explicit WriterLock(const std::string& directory);
  ~WriterLock();
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

 private:
  int file_;
};

struct FlowFileEntry {
  std::int64_t hour;
  std::string path;
  std::uint64_t bytes;  // with what is not yet merged into it
};
// The files of flows that there are, by hour.
std::vector<FlowFileEntry> ListFlowFiles(const std::string& directory);

// DropFile deletes a database and what stands beside it.
void DropFile(const std::string& path);

// LeaveAsItIs has closing a database take no time: all is kept, and whoever opens it next tidies
// up.
void LeaveAsItIs(Database* database);

}  // namespace flow::host
