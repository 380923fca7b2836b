// SPDX-License-Identifier: Apache-2.0
// Names of addresses from the DNS, for as long as somebody waits for an answer.
#pragma once

#include <chrono>
#include <map>
#include <string>

#include "host/base/endpoint.h"

namespace flow::host {

class DnsNames {
 public:
  // NameOf waits a second at most, and five in all: whoever asks a store must not wait for a
  // resolver that does not answer. Empty where there is no name.
  std::string NameOf(const IpAddress& address);

 private:
  std::map<IpAddress, std::string> known_;
  std::chrono::milliseconds left_{5000};
};

}  // namespace flow::host
