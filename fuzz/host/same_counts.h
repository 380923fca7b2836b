// SPDX-License-Identifier: Apache-2.0
// Whether two hosts have counted the same.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "host/period/period.h"

namespace flow::fuzz {

// Difference says what the first difference is; empty where there is none. Of flows that several
// lanes have met, what a record says beside its counts is whoever's came last, and of lanes none
// comes last.
using OfSeveralLanes = std::function<bool(std::string_view flow)>;
std::string Difference(const host::Period& one, const host::Period& other,
                       const OfSeveralLanes& of_several_lanes);

}  // namespace flow::fuzz
