// SPDX-License-Identifier: Apache-2.0
// Filter texts: "src net 10.0.0.0/8 and not dst port 443".
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/ask/expression.h"
#include "host/base/error.h"

namespace flow::host {

// What is wrong with a filter, and where. The text of the exception has several lines: what is
// wrong, the filter, and under the place what could stand there.
class FilterError : public UsageError {
 public:
  struct Place {
    std::size_t offset = 0;
    std::size_t length = 0;
  };

  FilterError(std::string_view filter, Place where, const std::string& wrong,
              const std::string& expected);

  [[nodiscard]] Place place() const { return place_; }

 private:
  Place place_;
};

// ParseFilter throws FilterError. Only blanks are a filter that every flow passes.
//
//   filter     conditions with and, or, not, &&, ||, ! and parentheses; not binds first, or last
//   condition  [src|dst|src or dst|src and dst] WORD [COMPARISON] VALUE[,VALUE...]
//              an address or network alone, with or without src or dst
//              tcp, udp, icmp and the like, ipv4, ipv6, alone or in front of another condition
//              [in|out] interface N, or interface N in
Expression ParseFilter(std::string_view text);

}  // namespace flow::host
