// SPDX-License-Identifier: Apache-2.0
// The decoded flow record: what every decoder fills and metering reads, whatever the export
// version.
#pragma once

#include <cstdint>

#include "flowhandlers/host_interfaces.h"

namespace flow {

// Host byte order; addresses of 6 and 16 bytes as on the wire. Texts are NUL-terminated. All bytes
// are zero of what was not decoded.
struct FlowRecord {
  bool has_times;          // start and end are known
  std::uint8_t direction;  // 0 ingress, 1 egress
  std::uint8_t tcp_flags;
  std::uint8_t protocol;
  std::uint32_t src_addr;
  std::uint32_t dst_addr;
  std::uint16_t src_port;
  std::uint16_t dst_port;
  std::uint32_t in_ifindex;
  std::uint32_t out_ifindex;
  std::uint64_t packets;
  std::uint64_t rev_packets;
  std::uint64_t bytes;
  std::uint64_t rev_bytes;
  std::uint32_t first;
  std::uint32_t last;
  std::uint16_t src_vlan;
  std::uint16_t dst_vlan;
  std::uint32_t src_as;
  std::uint32_t dst_as;
  std::uint32_t ip_nexthop;
  std::uint32_t bgp_nexthop;
  std::uint32_t enterprise_id;  // as element 346 gives it
  std::uint8_t src_addr6[16];
  std::uint8_t dst_addr6[16];
  std::uint8_t src_mask;  // prefix length
  std::uint8_t dst_mask;
  std::uint8_t ip_version;  // 4 or 6; with any other value the addresses are no use for keys
  bool has_two_way_key;     // RecordMetering::MakeTwoWayKey was asked for this record
  bool has_extras;          // what few records have, below or in the context, may not be empty
  char vendor_text32[33];   // a text is at most two characters shorter than its member
  char vendor_text64[65];
  std::uint8_t src_mac[6];
  std::uint8_t dst_mac[6];
  char if_name[129];
  char if_desc[129];
  TimePair start;  // where the record has absolute times and ExactTimes is on
  TimePair end;
};

// The clock of an exporter, as the header of one of its packets tells it.
class ExportClock {
 public:
  ExportClock() = default;
  ExportClock(std::uint32_t uptime, std::uint32_t seconds, std::uint32_t milliseconds) noexcept
      : uptime_(uptime) {
    const std::int64_t farthest = std::int64_t{seconds} * 1000 + milliseconds - kFarthest;
    seconds_ = farthest / 1000;
    milliseconds_ = farthest % 1000;
    if (milliseconds_ >= 0) return;
    --seconds_;  // before 1970
    milliseconds_ += 1000;
  }

  // Uptime is when the exporter sent the packet, in milliseconds since it booted.
  [[nodiscard]] std::uint32_t Uptime() const noexcept { return uptime_; }

  // SysUpTimeToTimeVal is the time at which the exporter's uptime was `uptime`, which may lie
  // before or after the packet's own. The remainder is in milliseconds, 0 to 999.
  [[nodiscard]] TimePair SysUpTimeToTimeVal(std::uint32_t uptime) const noexcept {
    const std::int64_t time = milliseconds_ + (uptime - uptime_ + kFarthest);
    // Divided in two steps: a number of 32 bits takes a single multiplication.
    const std::uint32_t seconds = static_cast<std::uint32_t>(time / 8) / 125;
    return {seconds_ + seconds, time - std::int64_t{seconds} * 1000};
  }

 private:
  static constexpr std::uint32_t kFarthest = 0x80000000;  // how far back an uptime may lie

  std::uint32_t uptime_ = 0;
  std::int64_t seconds_ = 0;  // since 1970, of the farthest time back
  std::int64_t milliseconds_ = 0;
};

// What the records of a datagram or a data set have in common.
struct RecordOrigin {
  std::uint32_t exporter = 0;       // host byte order
  std::uint32_t sampling_rate = 1;  // how many packets an exported one stands for
  ExportClock clock;
};

}  // namespace flow
