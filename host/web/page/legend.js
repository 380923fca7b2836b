// SPDX-License-Identifier: Apache-2.0
// What stands under the chart: its colours, and what is missing in it.
import { byId, fill, make, strange } from "./elements.js";
import { percent, spanText } from "./format.js";
import { swatch } from "./timechart.js";

// The colours' keys: pointing at one lets it stand out, and it opens as a part of the filter.
// on: {narrow(part), point(key), toggleOthers()}.
export function showLegend(answer, series, hasOthers, on) {
  const keys = series.filter(({ colour }) => colour !== null);
  const items = keys.map((each) => {
    const part = answer.group.part?.(each.key) ?? null;
    const inside = [swatch(each.colour), strange(each.key)];
    if (each.name) inside.push(" ", strange(each.name, { class: "name" }));
    const over = {
      pointerenter: () => on.point(each.key), pointerleave: () => on.point(null),
      focus: () => on.point(each.key), blur: () => on.point(null),
    };
    return make("li", {}, part === null ? make("span", over, ...inside)
      : make("button", { type: "button", class: "key", ...over, click: () => on.narrow(part) },
        ...inside));
  });
  if (answer.others?.line) {
    items.push(make("li", {}, make("button", { type: "button", class: hasOthers ? "key" : "key off",
      "aria-pressed": String(hasOthers), click: on.toggleOthers }, swatch(null), "others")));
  }
  fill(byId("legend"), ...items);
}

// Gaps and losses in words, for who cannot see hatching and ticks.
export function showMarks(answer) {
  const marks = answer.gaps.map((gap) =>
    make("li", { class: "gap" }, `no data ${spanText(gap.from, gap.to)}: ${gap.reason}`));
  for (const loss of answer.losses.filter(({ place }) => place === "way" || place === "here")) {
    const share = loss.share ? ` (${percent(loss.share)} %)` : "";
    const place = loss.place === "way" ? "lost on the way" : "lost here";
    marks.push(make("li", { class: "loss" }, `${place}: ${loss.count.toLocaleString("en")} ${
      loss.unit}${share}`, loss.exporter ? " from " : "", strange(loss.exporter)));
  }
  for (const note of answer.notes ?? []) marks.push(make("li", {}, strange(note)));
  byId("marks").replaceChildren(...marks.slice(0, 12),
    marks.length > 12 ? make("li", {}, `${marks.length - 12} more`) : "");
}
