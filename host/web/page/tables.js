// SPDX-License-Identifier: Apache-2.0
// Tables of the largest, of flows, of exporters and of losses.
import { make, strange, table } from "./elements.js";
import { swatch } from "./timechart.js";
import { groupOf } from "./groups.js";
import { duration, inUnit, percent, short, timeText, unitFor, whole } from "./format.js";

const number = (text, title = null) => make("td", { class: "number", title }, text);

// A key opens as a part of the filter.
function keyCell(group, row, colour, narrow) {
  const part = group.part?.(row.key) ?? null;
  const text = [strange(row.key)];
  if (row.name) text.push(" ", strange(row.name, { class: "name" }));
  const inside = part === null
    ? make("span", { class: "key" }, ...text)
    : make("button", {
        type: "button", class: "key", click: () => narrow(part),
        title: row.name ? `${row.key} ${row.name}` : null,
      }, ...text);
  return make("th", { scope: "row" }, colour === undefined ? null : swatch(colour), inside);
}

// answer: as questions.js shapes it; colours: of the keys, where they are in the chart.
export function groupTable(answer, { unit, seconds, colours, narrow }) {
  const bits = unit === "bytes" ? 8 : 1;
  const rate = unit === "bytes" ? "b/s" : "pkt/s";
  const amount = unit === "bytes" ? "B" : "pkt";
  const largest = Math.max(...answer.rows.map((row) => row.value), 1);
  const rates = unitFor(largest * bits / seconds, rate);
  const amounts = unitFor(largest, amount);
  const line = (row, kind, colour) => {
    const share = Math.min(row.value / largest, 1);
    const cells = [
      kind === "key" ? keyCell(answer.group, row, colour, narrow)
        : make("th", { scope: "row" }, colour === undefined ? null : swatch(null),
          make("span", { class: "key" }, row.key.replace(/^\(|\)$/g, ""))),
      number(`${row.isLeast ? "\u2265\u202f" : ""}${inUnit(row.value * bits / seconds, rates)}`,
        `${whole(row.value)} ${unit}, ${answer.source}`),
      number(inUnit(row.value, amounts), `${whole(row.value)} ${unit}`),
      number(percent(row.share)),
    ];
    const element = make("tr", { class: kind }, ...cells);
    if (kind === "key") element.style.setProperty("--part", `${(share * 100).toFixed(1)}%`);
    return element;
  };
  const colourOf = (row) => (colours ? colours.of(answer.group.id, row.key) : undefined);
  const rows = answer.rows.map((row) => line(row, "key", colourOf(row)));
  if (answer.others) rows.push(line(answer.others, "sum", colours ? null : undefined));
  if (answer.total) rows.push(line(answer.total, "sum", undefined));
  return table(answer.group.title, [
    { title: answer.group.key },
    { title: rates.text, number: true, note: "on average over this span" },
    { title: amounts.text, number: true },
    { title: "%", number: true, note: "of all traffic in this span" },
  ], rows, { class: "ranking" });
}

function endCell(row, end, port, narrow) {
  const host = groupOf("hosts");
  const address = row[end];
  const name = row[`${end}_name`];
  const service = row[`${port}_name`];
  return make("td", {}, make("div", { class: "end" },
    make("button", { type: "button", class: "key", click: () => narrow(host.part(address)) },
      strange(address)),
    name ? strange(name, { class: "name" }) : null,
    make("span", { class: "quiet" }, `:${row[port]}`),
    service ? strange(service, { class: "name" }) : null));
}

export function flowTable(answer, narrow) {
  const rows = answer.rows.filter((row) => row.src !== "(others)");
  const unit = unitFor(Math.max(...rows.map((row) => row.bytes), 1), "B");
  return table("Flows", [
    { title: "Began" }, { title: "Lasted", number: true }, { title: "Protocol" },
    { title: "Source" }, { title: "Destination" },
    { title: unit.text, number: true }, { title: "Packets", number: true },
    { title: "Rate", number: true }, { title: "Exporter" }, { title: "In" }, { title: "Out" },
  ], rows.map((row) => make("tr", {},
    make("td", { class: "time" }, timeText(row.first_ms / 1000, true)),
    number(duration(row.duration_ms), `${whole(row.duration_ms)} ms`),
    make("td", {}, row.proto),
    endCell(row, "src", "sport", narrow), endCell(row, "dst", "dport", narrow),
    number(inUnit(row.bytes, unit), `${whole(row.bytes)} bytes`), number(whole(row.packets)),
    number(short(row.bits_per_second, "b/s")),
    make("td", {}, row.exporter === "-" ? "-" : make("button", {
      type: "button", class: "key", click: () => narrow(`exporter ${row.exporter}`),
    }, strange(row.exporter))),
    make("td", {}, row.in), make("td", {}, row.out))), { class: "flows" });
}

const seenText = (ms, now) => {
  const ago = now * 1000 - ms;
  return ago < 90000 ? "just now" : `${duration(ago)} ago`;
};

const ratesOf = (row) => (row.sampling_rate ? `1 in ${whole(row.sampling_rate)}` : "");

const clockText = (ms) => (ms == null ? "" : `${ms < 0 ? "\u2212" : "+"}${duration(Math.abs(ms))}`);

export function exporterTable(answer, now, narrow) {
  const has = (name) => answer.rows.some((row) => row[name]);
  const columns = [
    { title: "Exporter", cell: (row) => keyCell(groupOf("exporters"), row, undefined, narrow) },
    { title: "Exports", cell: (row) => make("td", {}, row.version ?? "") },
    { title: "Last seen", number: true, cell: (row) => number(seenText(row.last_seen_ms, now),
      timeText(row.last_seen_ms / 1000, true)) },
    { title: "Records/s", number: true, cell: (row) => number(
      row.records_per_second < 10 ? row.records_per_second.toFixed(1)
        : whole(row.records_per_second), `${whole(row.records)} records`) },
    { title: "Lost %", number: true, cell: (row) => make("td",
      { class: row.lost_share > 0 ? "number lost" : "number" }, percent(row.lost_share)) },
    { title: "Templates", number: true, name: "templates",
      cell: (row) => number(whole(row.templates ?? 0)) },
    { title: "Sampled", number: true, name: "sampling_rate", cell: (row) => number(ratesOf(row)) },
    { title: "Clock", number: true, name: "clock_offset_ms",
      note: "ahead of this collector's, by the time in its datagrams",
      cell: (row) => number(clockText(row.clock_offset_ms)) },
    { title: "Sets without template", number: true, name: "sets_without_template",
      cell: (row) => number(whole(row.sets_without_template)) },
    { title: "Refused", number: true, name: "refused", cell: (row) => number(whole(row.refused)) },
    { title: "Silent", name: "silent", cell: (row) => make("td", {}, strange(row.silent ?? "")) },
  ].filter((column) => !column.name || has(column.name));
  return table("Exporters", columns,
    answer.rows.map((row) => make("tr", {}, ...columns.map((column) => column.cell(row)))));
}

export function lossTable(answer) {
  return table("Losses", [
    { title: "Exporter" }, { title: "What" }, { title: "From" }, { title: "To" },
    { title: "Count", number: true }, { title: "Of" }, { title: "%", number: true },
  ], answer.rows.map((row) => make("tr", {},
    make("th", { scope: "row" }, strange(row.key ?? "")), make("td", {}, strange(row.what)),
    make("td", { class: "time" }, timeText(row.from_ms / 1000)),
    make("td", { class: "time" }, timeText(row.to_ms / 1000)),
    number(whole(row.count)), make("td", {}, row.unit), number(percent(row.share)))));
}
