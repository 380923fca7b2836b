// SPDX-License-Identifier: Apache-2.0
#include "host/engine/group_info.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/base/guid_text.h"

namespace flow::host {

std::size_t GroupInfo::Columns() const {
  int highest = 0;
  for (const MeterInfo& meter : meters) highest = std::max(highest, meter.index);
  return static_cast<std::size_t>(highest) + 1;
}

GroupInfo UnknownGroup(const GUID& guid) {
  constexpr int kMeters = 16;
  GroupInfo group;
  group.guid = guid;
  group.id = GuidText(guid);
  group.title = fmt::format("Group {{{}}}", GuidText(guid));
  group.key_title = "Key";
  group.key_kind = KeyKind::kGuess;
  group.ranking = {0};
  for (int i = 0; i < kMeters; ++i) {
    group.meters.push_back(
        {i, fmt::format("meter_{}", i), fmt::format("Meter {}", i), Unit::kCount});
  }
  return group;
}

}  // namespace flow::host
