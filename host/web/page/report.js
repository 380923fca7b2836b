// SPDX-License-Identifier: Apache-2.0
// Answers of a report: all of them are in the page. Parts of its time are added up from lines.
import { Refusal } from "./refusal.js";

const isOthers = (row) => row.key === "(others)";
const sum = (line) => line.reduce((all, value) => all + value, 0);

function added(a, b) {
  return a.map((value, i) => value + b[i]);
}

// The first rows of an answer; those beyond them are of the others.
function firstRows(rows, top, by) {
  const kept = rows.filter((row) => !isOthers(row));
  kept.sort((a, b) => b[by] - a[by]);
  const others = rows.find(isOthers) ?? null;
  const beyond = kept.splice(top);
  if (!others && beyond.length === 0) return kept;
  const line = beyond.reduce((all, row) => added(all, row.line),
    others?.line ?? beyond[0].line.map(() => 0));
  const value = beyond.reduce((all, row) => all + row[by], others?.[by] ?? 0);
  const share = beyond.reduce((all, row) => all + (row.share ?? 0), others?.share ?? 0);
  return [...kept, { ...(others ?? { key: "(others)" }), line, [by]: value, share }];
}

const overlaps = (from, to) => (part) => part.from < to && part.to > from;

// A part of an answer's time, in whole steps.
function partOf(answer, span, top, by) {
  const { from: start, seconds, lost } = answer.steps;
  const first = Math.max(Math.floor((span.from - start) / seconds), 0);
  const last = Math.min(Math.ceil((span.to - start) / seconds), lost.length);
  const isWhole = first === 0 && last === lost.length;
  const from = start + first * seconds;
  const to = Math.min(start + last * seconds, answer.to);
  const cut = (row) => {
    const line = row.line.slice(first, last);
    return isWhole ? { ...row, line } : { ...row, line, [by]: sum(line), at_least: undefined };
  };
  const total = answer.total ? cut(answer.total) : null;
  const withShare = (row) => ({
    ...row, share: isWhole || !total ? row.share : row[by] / Math.max(total[by], 1),
  });
  return {
    ...answer, from, to, total: total ? withShare(total) : undefined,
    steps: { from, seconds, lost: lost.slice(first, last) },
    rows: firstRows(answer.rows.map(cut).map(withShare), top, by),
    gaps: answer.gaps.filter(overlaps(from, to)),
    losses: answer.losses.filter(overlaps(from, to)),
  };
}

function partOfSeries(answer, span, by) {
  const rows = answer.rows.filter(({ time_ms }) =>
    time_ms >= span.from * 1000 && time_ms < span.to * 1000);
  const from = rows.length > 0 ? rows[0].time_ms / 1000 : span.from;
  const total = { ...answer.total, [by]: sum(rows.map((row) => row[by] ?? 0)) };
  return { ...answer, rows, total, from, to: Math.min(span.to, answer.to) };
}

const ORDERS = {
  bytes: (a, b) => b.bytes - a.bytes,
  packets: (a, b) => b.packets - a.packets,
  duration: (a, b) => b.duration_ms - a.duration_ms,
  first: (a, b) => a.first_ms - b.first_ms,
  last: (a, b) => a.first_ms + a.duration_ms - b.first_ms - b.duration_ms,
};

export class ReportSource {
  isReport = true;
  #data;

  constructor(data) {
    this.#data = data;
  }

  async ask(what, said) {
    if (what === "status") return this.#data.status;
    if (what === "exporters" || what === "losses") return this.#find(what);
    const span = { from: Number(said.from.slice(1)), to: Number(said.to.slice(1)) };
    const by = said.by ?? "bytes";
    if (what === "top") return partOf(this.#find(`top ${said.group} ${by}`), span, said.top, by);
    if (what === "series") {
      return partOfSeries(this.#find(`series ${said.filter} ${by}`), span, by);
    }
    if (said["group-by"]) {
      const answer = this.#find(`flows ${said["group-by"]} ${by} ${said.filter}`);
      return partOf(answer, span, said.top, by);
    }
    return this.#flows(this.#find(`flows ${said.filter}`.trim()), span, said);
  }

  #find(question) {
    const answer = this.#data.answers[question];
    if (answer) return answer;
    throw new Refusal("This report does not have that. Ask the store: flowhost flows, top, series.");
  }

  // The largest of all of the time, as far as they are of this part of it.
  #flows(answer, span, said) {
    const rows = answer.rows.filter((row) => row.first_ms !== null
      && row.first_ms < span.to * 1000 && row.first_ms + row.duration_ms >= span.from * 1000);
    rows.sort(ORDERS[said.sort] ?? ORDERS.bytes);
    return { ...answer, rows };
  }
}
