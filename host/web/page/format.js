// SPDX-License-Identifier: Apache-2.0
// Numbers, times and texts as people read them.

const STEPS = [
  [1e15, "P"], [1e12, "T"], [1e9, "G"], [1e6, "M"], [1e3, "k"], [1, ""],
];

// A unit that suits the largest of a column: one for all of its values.
export function unitFor(largest, unit) {
  const [factor, prefix] = STEPS.find(([least]) => largest >= least) ?? [1, ""];
  return { factor, text: prefix + unit };
}

// Three digits that count, as far as there are any behind the point.
export function inUnit(value, unit) {
  if (value === null || value === undefined) return "";
  const scaled = value / unit.factor;
  if (scaled === 0) return "0";
  const digits = scaled >= 100 ? 0 : scaled >= 10 ? 1 : 2;
  if (scaled < 0.005) return "<0.01";
  return scaled.toLocaleString("en", {
    minimumFractionDigits: unit.factor === 1 && Number.isInteger(scaled) ? 0 : digits,
    maximumFractionDigits: digits,
  });
}

export function short(value, unit) {
  const fitting = unitFor(value, unit);
  return `${inUnit(value, fitting)} ${fitting.text}`.trim();
}

export function whole(value) {
  return Math.round(value).toLocaleString("en");
}

export function percent(share) {
  if (share === null || share === undefined) return "";
  const value = share * 100;
  if (value === 0) return "0";
  if (value < 0.01) return "<0.01";
  return value.toFixed(value < 1 ? 2 : 1);
}

export function duration(ms) {
  if (ms === null || ms === undefined) return "";
  const seconds = ms / 1000;
  if (seconds < 60) return `${seconds.toFixed(seconds < 10 ? 2 : 0)} s`;
  if (seconds < 3600) return `${Math.round(seconds / 60)} min`;
  if (seconds < 172800) return `${(seconds / 3600).toFixed(1)} h`;
  return `${Math.round(seconds / 86400)} days`;
}

const two = (number) => String(number).padStart(2, "0");

export function dayText(seconds) {
  const at = new Date(seconds * 1000);
  return `${at.getFullYear()}-${two(at.getMonth() + 1)}-${two(at.getDate())}`;
}

export function clockText(seconds, withSeconds = false) {
  const at = new Date(seconds * 1000);
  const clock = `${two(at.getHours())}:${two(at.getMinutes())}`;
  return withSeconds ? `${clock}:${two(at.getSeconds())}` : clock;
}

export function timeText(seconds, withSeconds = false) {
  return `${dayText(seconds)} ${clockText(seconds, withSeconds)}`;
}

// "2026-11-25 02:00 to 03:00 CET"
export function spanText(from, to) {
  const end = dayText(from) === dayText(to) ? clockText(to) : timeText(to);
  return `${timeText(from)} to ${end} ${zoneName(from)}`;
}

export function zoneName(seconds) {
  const parts = new Intl.DateTimeFormat("en", { timeZoneName: "short" })
    .formatToParts(new Date(seconds * 1000));
  return parts.find((part) => part.type === "timeZoneName")?.value ?? "";
}
