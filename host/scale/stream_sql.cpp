// SPDX-License-Identifier: Apache-2.0
#include "host/scale/stream_sql.h"

#include <fmt/format.h>

namespace flow::host {

// Where collectors share a minute, from the first number that any has to the last. Differences are
// made to signed 32 bits, so that numbers may wrap around.
std::string StreamNumbersSql(std::string_view condition) {
  return fmt::format(
      "SELECT exporter, port, version, unit, stream, bucket, segment, toUInt32(firsts[1] + "
      "arrayReduce('min', arrayMap(n -> toInt32(n - firsts[1]), firsts))) AS first, "
      "toUInt32(firsts[1] + arrayReduce('max', arrayMap(n -> toInt32(n - firsts[1]), nexts))) AS "
      "next, r_came AS came, collectors, runs\n"
      "FROM (SELECT exporter, port, version, unit, stream, bucket, segment, groupArray(r_first) AS "
      "firsts, groupArray(r_next) AS nexts, sum(r_came) AS r_came, groupUniqArray(collector) AS "
      "collectors, groupUniqArray(r_run) AS runs\n"
      "      FROM (SELECT exporter, port, version, unit, stream, bucket, segment, collector, run "
      "AS r_run, first AS r_first, next AS r_next, came AS r_came FROM raw_streams FINAL WHERE "
      "1{})\n"
      "      GROUP BY exporter, port, version, unit, stream, bucket, segment)",
      condition);
}

// Numbers further ahead than the stream can have gone, 64 times faster than before, or behind,
// began anew. Summed up over some time, what came late in one minute is taken off what another
// misses. A collector that is late may have in this minute what came in front of all that others
// had in the one before.
std::string StreamLossesSql(std::string_view condition) {
  return fmt::format(
      "SELECT exporter, port, version, unit, stream, bucket, came, multiIf(hole > most, own, hole "
      ">= 0, own + hole, is_overlap, own_behind + own_before, own) - toInt64(came) AS lost, "
      "if(hole > 0 AND "
      "hole <= most AND NOT hasAny(m.6, p.6), toUInt64(hole), toUInt64(0)) AS between\n"
      "FROM (SELECT exporter, port, version, unit, stream, m, p, m.1 AS bucket, m.5 AS came, "
      "toInt64(toInt32(m.3 - p.4)) AS hole, 65536 + 64 * p.5 * (1 + intDiv(m.1 - p.1, 60)) AS "
      "most, toInt64(toUInt32(m.4 - m.3)) AS own, toInt64(toInt32(m.4 - p.4)) AS own_behind, "
      "own_behind >= 0 AND toInt32(p.4 - m.3) <= toUInt32(m.4 - m.3) AS is_overlap, "
      "if((p.1, p.2) = head, toInt64(greatest(toInt32(p.3 - m.3), 0)), 0) AS own_before\n"
      "      FROM (SELECT exporter, port, version, unit, stream, arraySort(groupArray((bucket, "
      "segment, first, next, came, runs))) AS minutes, arrayPushFront(arrayPopBack(minutes), "
      "(minutes[1].1, minutes[1].2, minutes[1].3, minutes[1].3, minutes[1].5, minutes[1].6)) AS "
      "before, (minutes[1].1, minutes[1].2) AS head\n"
      "            FROM ({}) GROUP BY exporter, port, version, unit, stream)\n"
      "      ARRAY JOIN minutes AS m, before AS p)",
      StreamNumbersSql(condition));
}

}  // namespace flow::host
