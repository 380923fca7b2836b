// SPDX-License-Identifier: Apache-2.0
// What sequence numbers tell over all collectors.
#pragma once

#include <string_view>

namespace flow::host {

// Each stream's numbers by minute and run, whichever collectors they came to: where collectors
// share a minute, from the first that any has to the last. Differences are made to signed 32 bits,
// so that numbers may wrap around.
inline constexpr std::string_view kStreamNumbers =
    "SELECT exporter, port, version, unit, stream, bucket, segment, toUInt32(firsts[1] + "
    "arrayReduce('min', arrayMap(n -> toInt32(n - firsts[1]), firsts))) AS first, "
    "toUInt32(firsts[1] + arrayReduce('max', arrayMap(n -> toInt32(n - firsts[1]), nexts))) AS "
    "next, r_came AS came, collectors\n"
    "FROM (SELECT exporter, port, version, unit, stream, bucket, segment, groupArray(r_first) AS "
    "firsts, groupArray(r_next) AS nexts, sum(r_came) AS r_came, groupUniqArray(collector) AS "
    "collectors\n"
    "      FROM (SELECT exporter, port, version, unit, stream, bucket, segment, collector, first "
    "AS r_first, next AS r_next, came AS r_came FROM raw_streams FINAL)\n"
    "      GROUP BY exporter, port, version, unit, stream, bucket, segment)";

// What lies between the minute before and the end of this one, less what came. Numbers further
// ahead than the stream can have gone, 64 times faster than before, or behind, began anew. Summed
// up over some time, what came late in one minute is taken off what another misses.
inline constexpr std::string_view kStreamLosses =
    "SELECT exporter, port, version, unit, stream, m.1 AS bucket, m.5 AS came, "
    "multiIf(toInt32(m.3 - p.4) > 65536 + 64 * p.5 * (1 + intDiv(m.1 - p.1, 60)), "
    "toInt64(toUInt32(m.4 - m.3)), toInt32(m.3 - p.4) >= 0, toInt64(toUInt32(m.4 - m.3)) + "
    "toInt32(m.3 - p.4), toInt32(m.4 - p.4) >= 0 AND toInt32(p.4 - m.3) <= toUInt32(m.4 - m.3), "
    "toInt64(toInt32(m.4 - p.4)), toInt64(toUInt32(m.4 - m.3))) - toInt64(m.5) AS lost\n"
    "FROM (SELECT exporter, port, version, unit, stream, arraySort(groupArray((bucket, segment, "
    "first, next, came))) AS minutes, arrayPushFront(arrayPopBack(minutes), (minutes[1].1, "
    "minutes[1].2, minutes[1].3, minutes[1].3, minutes[1].5)) AS before\n"
    "      FROM stream_numbers GROUP BY exporter, port, version, unit, stream)\n"
    "ARRAY JOIN minutes AS m, before AS p";

}  // namespace flow::host
