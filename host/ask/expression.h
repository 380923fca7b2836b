// SPDX-License-Identifier: Apache-2.0
// Which flows are asked for: a tree of conditions, as a filter text says it.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "host/base/endpoint.h"

namespace flow::host {

// What a condition looks at.
enum class FilterField : std::uint8_t {
  kAddress,
  kPort,
  kAs,
  kMac,
  kInterface,
  kExporter,
  kNextHop,
  kBgpNextHop,
  kProtocol,
  kFamily,
  kVrf,
  kApplication,
  kUser,
  kTag,
  kBytes,
  kPackets,
  kDuration,
  kBitRate,
  kPacketRate,
};

// Which end of a flow a condition means. Interfaces are at the end where the flow comes in or goes
// out.
enum class Side : std::uint8_t { kEither, kSource, kDestination, kBoth };

enum class Comparison : std::uint8_t { kIs, kIsNot, kLess, kAtMost, kMore, kAtLeast };

// A range of addresses, both ends included.
struct AddressRange {
  IpAddress first;
  IpAddress last;
};
// A range of numbers, both ends included.
struct NumberRange {
  std::int64_t first = 0;
  std::int64_t last = 0;
};

// What a field is compared with. MAC addresses are texts of six bytes.
using FilterValue = std::variant<NumberRange, AddressRange, std::string>;

struct Condition {
  FilterField field = FilterField::kAddress;
  Side side = Side::kEither;
  Comparison comparison = Comparison::kIs;
  std::vector<FilterValue> values;  // any of them; one number where it is neither kIs nor kIsNot
};

struct Expression {
  enum class Kind : std::uint8_t { kCondition, kNot, kAnd, kOr };

  Kind kind = Kind::kAnd;
  Condition condition;
  std::vector<Expression> parts;  // of kNot one; an empty kAnd holds for every flow
};

}  // namespace flow::host
