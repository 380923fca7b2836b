// SPDX-License-Identifier: Apache-2.0
// A span in a few numbers.
import { byId, make } from "./elements.js";
import { percent, short } from "./format.js";

const sumOf = (rows) => ({ bytes: rows.reduce((sum, { row }) => sum + row.bytes, 0) });

export function showHeadline(totals, exporters, charted, hasFilter) {
  const seconds = totals.to - totals.from;
  const rate = (bytes) => short(bytes * 8 / seconds, "b/s");
  const parts = [["all traffic", rate(totals.total?.bytes ?? 0)]];
  if (hasFilter) {
    const { row, bytes = row?.bytes } = charted.total ?? sumOf(charted.rows);
    parts.unshift(["this filter", rate(bytes)]);
  }
  for (const row of totals.rows.filter(({ key, bytes }) => key !== "all" && bytes > 0)) {
    parts.push([row.key, rate(row.bytes)]);
  }
  const records = exporters.rows.reduce((sum, row) => sum + row.records_per_second, 0);
  const silent = exporters.rows.filter((row) => (row.silent ?? "").startsWith("since"));
  const lost = exporters.rows.filter((row) => row.lost_share > 0);
  parts.push(["records", `${records < 10 ? records.toFixed(1) : short(records, "")}/s`]);
  parts.push(["exporters", silent.length === 0 ? String(exporters.rows.length)
    : `${exporters.rows.length - silent.length} of ${exporters.rows.length}`]);
  const worst = Math.max(0, ...lost.map((row) => row.lost_share));
  parts.push(["lost at worst", lost.length === 0 ? "none" : `${percent(worst)} %`]);
  byId("headline").replaceChildren(...parts.map(([title, value]) =>
    make("div", {}, make("dt", {}, title), make("dd", {}, value))));
}
