#include "metering/flow_record.h"

namespace flow {

TimePair WallClock(const nf5_header& header, std::uint32_t uptime) noexcept {
  const auto distance = static_cast<std::int32_t>(uptime - header.SysUptime.ToHost());
  const std::int64_t milliseconds = std::int64_t{header.unix_secs.ToHost()} * 1000 + distance +
                                    header.unix_nsecs.ToHost() / 1'000'000;
  std::int64_t seconds = milliseconds / 1000;
  std::int64_t remainder = milliseconds % 1000;
  if (remainder < 0) {  // before 1970
    --seconds;
    remainder += 1000;
  }
  return {seconds, remainder};
}

}  // namespace flow
