// SPDX-License-Identifier: Apache-2.0
// What is looked at, as the address of the page has it, so that a link shows somebody the same.

const USUAL = { from: "-6h", to: "now", by: "applications", unit: "bytes", filter: "" };

const LENGTHS = { m: 60, h: 3600, d: 86400 };
const STEPS = [60, 300, 600, 900, 1800, 3600, 7200, 14400, 21600, 43200, 86400, 604800];
const MOST_STEPS = 300;
const SHORTEST = 300;

// A time is "now", back from now as in "-6h", or a point in time: seconds here, in UTC in the
// address.
function parseTime(text) {
  if (/^-\d+[mhd]$/.test(text) || text === "now") return text;
  const ms = Date.parse(text);
  return Number.isNaN(ms) ? null : Math.floor(ms / 60000) * 60;
}

function formatTime(time) {
  if (typeof time === "string") return time;
  return new Date(time * 1000).toISOString().replace(/:00\.000Z$/, "Z");
}

export function readState(hash) {
  const said = new URLSearchParams(hash.replace(/^#/, ""));
  const state = { ...USUAL };
  for (const name of ["by", "unit", "filter"]) state[name] = said.get(name) ?? state[name];
  if (state.unit !== "packets") state.unit = "bytes";
  const from = parseTime(said.get("from") ?? "");
  const to = parseTime(said.get("to") ?? "now");
  if (from !== null && to !== null) Object.assign(state, { from, to });
  return state;
}

export function writeState(state) {
  const said = new URLSearchParams();
  for (const name of ["from", "to"]) {
    if (state[name] !== USUAL[name]) said.set(name, formatTime(state[name]));
  }
  for (const name of ["by", "unit", "filter"]) {
    if (state[name] !== USUAL[name]) said.set(name, state[name]);
  }
  if (state.to === "now" && said.has("from")) said.delete("to");
  return `#${said}`;
}

function resolve(time, now) {
  if (time === "now") return now;
  if (typeof time === "number") return time;
  return now - Number(time.slice(1, -1)) * LENGTHS[time.slice(-1)];
}

export const follows = (state) => state.to === "now";

// The span in seconds since 1970, in whole steps. now: the end of what there is; begin: where it
// begins, before which a view that follows does not reach.
export function spanOf(state, now, begin = 0) {
  const end = Math.floor(now / 60) * 60;
  let from = resolve(state.from, end);
  let to = resolve(state.to, end);
  if (follows(state)) from = Math.max(from, begin);
  if (to - from < SHORTEST) from = to - SHORTEST;
  const step = STEPS.find((length) => (to - from) / length <= MOST_STEPS) ?? 604800;
  const edge = Math.min(step, 3600);
  from = Math.floor(from / edge) * edge;
  if (!follows(state)) to = Math.ceil(to / edge) * edge;
  return { from, to, step };
}

// A part of time, or the same length further on.
export function withSpan(state, from, to, now) {
  const length = Math.max(to - from, SHORTEST);
  const end = Math.floor(now / 60) * 60;
  if (from + length >= end) {
    if (length < 86400 * 3650 && length % 60 === 0) {
      return { ...state, from: `-${Math.round(length / 60)}m`, to: "now" };
    }
  }
  const start = Math.floor(from / 60) * 60;
  return { ...state, from: start, to: start + Math.ceil(length / 60) * 60 };
}

export function moved(state, now, by) {
  const { from, to } = spanOf(state, now);
  const length = to - from;
  return withSpan(state, from + by * length, to + by * length, now);
}

export function zoomed(state, now, factor, middle = null) {
  const { from, to } = spanOf(state, now);
  const at = middle ?? (from + to) / 2;
  return withSpan(state, at - (at - from) * factor, at + (to - at) * factor, now);
}
