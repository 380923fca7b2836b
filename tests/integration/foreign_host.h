// SPDX-License-Identifier: Apache-2.0
// The other side of the border: a host made of plain tables of functions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/integration/foreign_abi.h"

namespace foreign {

// Writes down each call into the statistics engine and the log as the operation's name and those of
// its arguments that are numbers, texts or identifiers (the first eight digits of the registry
// form).
class Host {
 public:
  explicit Host(std::string policy_path);

  Object* Site() { return &site_.object; }

  // Count and GenerateParse on a datagram from 192.0.2.1:50000.
  Status Count(Object* meter, const std::vector<std::uint8_t>& payload);
  Status GenerateParse(Object* handler, const std::vector<std::uint8_t>& payload,
                       std::uint32_t* disposition);

  std::vector<std::string> lines;
  int site_references = 0;

 private:
  friend struct Operations;

  // What a host object is behind its table.
  struct Part {
    Object object;
    Host* host;
    std::uint8_t* data = nullptr;
    std::uint32_t length = 0;
  };

  void SetPacket(const std::vector<std::uint8_t>& payload);

  std::string policy_path_;
  std::vector<std::uint8_t> packet_;
  Part site_;
  Part engine_;
  Part context_;
  Part ip_;
  Part udp_;
};

}  // namespace foreign
