// SPDX-License-Identifier: Apache-2.0
// The counter groups that the host knows: their names, what their keys mean and their meters.
//
// The host's own groups stand in one table; the plug-in's are added from its own description.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/timestamp.h"
#include "host/engine/group_info.h"

namespace flow::host {

struct GroupDescription;

// HostGroupIds gives the ids of the host's own groups.
std::vector<std::string_view> HostGroupIds();

class GroupCatalog {
 public:
  // The host's groups and, in the place that the host gives them, the plug-in's.
  explicit GroupCatalog(std::span<const GroupDescription> plugin_groups);

  // In the order in which a summary shows them.
  [[nodiscard]] const std::vector<GroupInfo>& groups() const { return groups_; }

  // HearRecords says what the keys of groups tell of the record that they are counted for.
  void HearRecords();

  // The length of the shortest time bucket of a group, in microseconds.
  [[nodiscard]] Timestamp ShortestBucket() const;

  // Find takes an id or a title, case ignored; null when there is no such group.
  [[nodiscard]] const GroupInfo* Find(const std::string& name) const;

 private:
  std::vector<GroupInfo> groups_;
};

}  // namespace flow::host
