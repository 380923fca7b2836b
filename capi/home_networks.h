// SPDX-License-Identifier: Apache-2.0
// Home networks as a caller writes them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "flowhandlers/kit/site.h"

namespace flow::capi {

// ReadHomeNetworks reads "192.0.2.0/24,10.0.0.0/8"; an address alone is one of length 32. False,
// and the part that is none in *fault.
bool ReadHomeNetworks(std::string_view text, std::vector<kit::Network>* networks,
                      std::string* fault);

}  // namespace flow::capi
