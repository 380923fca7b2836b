// SPDX-License-Identifier: Apache-2.0
// What the page asks for a state, and its answers in one form.
import { groupOf, keyOf, subjectOf } from "./groups.js";

const TOP = 10;

const times = (span) => ({ from: `@${span.from}`, to: `@${span.to}` });

// By counters, or by flows where there is a filter.
export function askGroup(source, state, span, id, { top = TOP, hasLines = false }, signal) {
  const group = groupOf(id);
  const said = { ...times(span), top, by: state.unit };
  if (hasLines) said.step = `${span.step / 60}m`;
  if (state.filter !== "" || group.flows) {
    return source.ask("flows", { ...said, filter: state.filter, "group-by": group.fields }, signal)
      .then((answer) => shape(group, answer, state.unit));
  }
  return source.ask("top", { ...said, group: group.group ?? id, top: group.group ? 50 : top },
    signal).then((answer) => shape(group, answer, state.unit));
}

// rows: {key, name, value, share, line, isLeast, row}, `others` and `total` likewise.
function shape(group, answer, unit) {
  const rows = answer.rows.map((row) => ({
    ...keyOf(group, row), value: row[unit] ?? 0, share: row.share, line: row.line ?? null,
    isLeast: row.at_least === true, row,
  }));
  const isOthers = (row) => row.key === "(others)";
  const shaped = {
    ...answer,
    group,
    rows: rows.filter((row) => !isOthers(row)),
    others: rows.find(isOthers) ?? null,
    total: null,
  };
  if (answer.total) {
    shaped.total = {
      key: answer.total.key, name: "", value: answer.total[unit] ?? 0, share: answer.total.share,
      line: answer.total.line ?? null, isLeast: false, row: answer.total,
    };
  }
  if (group.id === "direction") shaped.rows = shaped.rows.filter((row) => row.key !== "all");
  return shaped;
}

// The two directions of what a filter is about, each a series.
export async function askDirections(source, state, span, signal) {
  const subject = subjectOf(state.filter);
  const answers = [];
  for (const [key, filter] of subject.directions) {
    answers.push([key, await source.ask("series",
      { ...times(span), step: `${span.step / 60}m`, by: state.unit, filter }, signal)]);
  }
  const [, first] = answers[0];
  const rows = answers.map(([key, answer]) => ({
    key, name: "", value: answer.total[state.unit] ?? 0, share: answer.total.share,
    line: answer.rows.map((row) => row[state.unit]), isLeast: false, row: answer.total,
  }));
  const seconds = first.rows.length > 1
    ? (first.rows[1].time_ms - first.rows[0].time_ms) / 1000 : span.step;
  return {
    ...first,
    group: groupOf("direction"),
    rows,
    others: null,
    total: null,
    steps: { from: first.rows[0].time_ms / 1000, seconds, lost: [] },
  };
}

export function askFlows(source, state, span, order, top, signal) {
  return source.ask("flows", { ...times(span), filter: state.filter, sort: order, top }, signal);
}

export const askExporters = (source, span, signal) => source.ask("exporters", times(span), signal);
export const askLosses = (source, span, signal) => source.ask("losses", times(span), signal);
export const askTotals = (source, span, signal) =>
  source.ask("top", { ...times(span), group: "totals", top: 50 }, signal);
