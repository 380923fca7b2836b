// SPDX-License-Identifier: Apache-2.0
// Traffic over time: stacked areas, with gaps hatched and losses ticked under the axis.
/* global Chart */
import { byId, make, show, strange } from "./elements.js";
import { colourName } from "./colours.js";
import { clockText, dayText, inUnit, timeText, unitFor, whole } from "./format.js";

const TICKS = [60, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, 86400, 172800, 604800,
  2592000];
const TICK_WIDTH = 74;
const LINE_HEIGHT = 6;

const styleOf = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

// Where the clock on the wall shows round times.
function ticksFor(from, to, width) {
  const most = Math.max(2, Math.floor(width / TICK_WIDTH));
  const length = TICKS.find((each) => (to - from) / each <= most) ?? TICKS[TICKS.length - 1];
  const shift = -new Date(from * 1000).getTimezoneOffset() * 60;
  const ticks = [];
  for (let at = Math.ceil((from + shift) / length) * length - shift; at <= to; at += length) {
    ticks.push({ value: at });
  }
  return ticks;
}

const tickText = (at) => (clockText(at) === "00:00" ? dayText(at).slice(5) : clockText(at));

function hatch(context, colour) {
  const tile = document.createElement("canvas");
  tile.width = tile.height = 8;
  const pen = tile.getContext("2d");
  pen.strokeStyle = colour;
  pen.lineWidth = 1;
  pen.beginPath();
  pen.moveTo(0, 8);
  pen.lineTo(8, 0);
  pen.stroke();
  return context.createPattern(tile, "repeat");
}

// Behind the areas: when nobody listened. Under the axis: steps in which something was lost.
const marks = {
  id: "marks",
  beforeDatasetsDraw({ ctx, chartArea, scales }, _, { gaps }) {
    ctx.save();
    ctx.fillStyle = hatch(ctx, styleOf("--hatch"));
    for (const gap of gaps ?? []) {
      const left = Math.max(scales.x.getPixelForValue(gap.from), chartArea.left);
      const right = Math.min(scales.x.getPixelForValue(gap.to), chartArea.right);
      if (right <= left) continue;
      ctx.fillRect(left, chartArea.top, Math.max(right - left, 2), chartArea.height);
    }
    ctx.restore();
  },
  afterDraw({ ctx, chartArea, scales }, _, { lost, step }) {
    ctx.save();
    ctx.fillStyle = styleOf("--lost");
    for (const from of lost ?? []) {
      const left = scales.x.getPixelForValue(from);
      const right = scales.x.getPixelForValue(from + step);
      ctx.fillRect(left, chartArea.bottom + 1, Math.max(right - left, 3), LINE_HEIGHT);
    }
    ctx.restore();
  },
};

// A step's start and end, and how much of it something is known of: rates are of that.
function stepAt({ from, to, step, gaps }, place) {
  const start = from + place * step;
  const end = Math.min(start + step, to);
  const missing = gaps.reduce((sum, gap) =>
    sum + Math.max(0, Math.min(gap.to, end) - Math.max(gap.from, start)), 0);
  return { start, end, known: end - start - missing };
}

const rateOf = (value, known, bits) =>
  (value === null || known <= 0 ? null : value * bits / known);

export class TimeChart {
  #chart = null;
  #shown = null;  // {from, to, step, series, gaps, lost, unit, bits}
  #onSpan;

  constructor(onSpan) {
    this.#onSpan = onSpan;
    const box = byId("chart");
    box.addEventListener("pointermove", (event) => this.#hover(event));
    box.addEventListener("pointerleave", () => this.#leave());
  }

  // series: [{key, name, colour, line}], the first at the bottom.
  draw(shown) {
    this.#shown = shown;
    const { from, to, step, series } = shown;
    const unit = this.#unit();
    const background = styleOf("--panel");
    const datasets = series.map(({ key, colour, line }, i) => ({
      label: key,
      data: this.#points(line),
      fill: i === 0 ? "origin" : "-1",
      backgroundColor: styleOf(colourName(colour)),
      borderColor: background,
      borderWidth: line.length > 120 ? 0.3 : 0.75,
      pointRadius: 0,
      tension: 0,
    }));
    const options = {
      animation: false,
      responsive: true,
      maintainAspectRatio: false,
      parsing: false,
      normalized: true,
      events: [],
      plugins: {
        legend: { display: false },
        tooltip: { enabled: false },
        marks: { gaps: shown.gaps, lost: shown.lost, step },
      },
      scales: {
        x: {
          type: "linear", min: from, max: to,
          afterBuildTicks: (scale) => { scale.ticks = ticksFor(from, to, scale.width); },
          ticks: { callback: tickText, color: styleOf("--quiet"), maxRotation: 0, padding: 8 },
          grid: { color: styleOf("--line"), drawBorder: false, drawTicks: false },
        },
        y: {
          stacked: true, beginAtZero: true,
          ticks: {
            callback: (value) => (value === 0 ? "0" : `${inUnit(value, unit)} ${unit.text}`),
            color: styleOf("--quiet"), maxTicksLimit: 6,
          },
          grid: { color: styleOf("--line"), drawBorder: false, drawTicks: false },
        },
      },
    };
    if (this.#chart) {
      Object.assign(this.#chart.data, { datasets });
      this.#chart.options = options;
      this.#chart.update("none");
      return;
    }
    this.#chart = new Chart(byId("canvas"), { type: "line", data: { datasets }, options,
      plugins: [marks] });
  }

  get shown() { return this.#shown; }

  // One key stands out, or none.
  point(key) {
    if (!this.#chart) return;
    this.#chart.data.datasets.forEach((dataset, i) => {
      const colour = styleOf(colourName(this.#shown.series[i].colour));
      dataset.backgroundColor = key === null || dataset.label === key ? colour : `${colour}40`;
    });
    this.#chart.update("none");
  }

  timeAt(clientX) {
    const { left } = byId("canvas").getBoundingClientRect();
    const { from, to } = this.#shown;
    const value = this.#chart.scales.x.getValueForPixel(clientX - left);
    return Math.min(Math.max(value, from), to);
  }

  pixelOf(time) { return this.#chart.scales.x.getPixelForValue(time); }

  get area() { return this.#chart?.chartArea ?? null; }

  // A value in the middle of each step; the last step may be shorter.
  #points(line) {
    const points = [];
    line.forEach((value, i) => {
      const { start, end, known } = stepAt(this.#shown, i);
      if (end <= start) return;
      const rate = rateOf(value, known, this.#shown.bits) ?? NaN;
      if (i === 0) points.push({ x: start, y: rate });
      points.push({ x: (start + end) / 2, y: rate });
      if (end >= this.#shown.to) points.push({ x: end, y: rate });
    });
    return points;
  }

  #unit() {
    const { series, step, bits, unit } = this.#shown;
    let largest = 0;
    for (let i = 0; i < (series[0]?.line.length ?? 0); ++i) {
      largest = Math.max(largest, series.reduce((sum, each) => sum + (each.line[i] ?? 0), 0));
    }
    return unitFor(largest * bits / step, unit);
  }

  #hover(event) {
    if (!this.#chart || event.buttons !== 0 || event.pointerType === "touch") {
      this.#leave();
      return;
    }
    const { from, to, step, series, bits, lost, gaps } = this.#shown;
    const time = this.timeAt(event.clientX);
    const place = Math.min(Math.floor((time - from) / step), Math.ceil((to - from) / step) - 1);
    const { start, end, known } = stepAt(this.#shown, place);
    const cursor = byId("cursor");
    cursor.style.transform = `translateX(${this.pixelOf(time)}px)`;
    show(cursor, true);
    const unit = this.#unit();
    const rows = series.filter(({ line }) => line[place] > 0).reverse().map((each) =>
      make("tr", {},
        make("td", {}, swatch(each.colour), " ", strange(each.name || each.key)),
        make("td", { class: "number" },
          `${inUnit(rateOf(each.line[place], known, bits), unit)} ${unit.text}`)));
    const gap = gaps.find((each) => each.from < end && each.to > start);
    const wasLost = lost.includes(start);
    const box = byId("hover");
    box.replaceChildren(
      make("strong", {}, `${timeText(start)} to ${clockText(end)}`),
      make("table", {}, make("tbody", {}, ...rows)),
      gap ? make("p", {}, `no data: ${gap.reason}`) : "",
      wasLost ? make("p", { class: "lost" }, "datagrams or records were lost here") : "");
    show(box, true);
    const isRight = this.pixelOf(time) > byId("chart").clientWidth / 2;
    box.classList.toggle("left", isRight);
    box.style.transform = isRight
      ? `translateX(calc(${this.pixelOf(time)}px - 100% - 10px))`
      : `translateX(${this.pixelOf(time) + 10}px)`;
  }

  #leave() {
    show(byId("cursor"), false);
    show(byId("hover"), false);
  }
}

export function swatch(colour) {
  return make("span", {
    class: colour === null ? "swatch others" : `swatch colour-${colour}`, "aria-hidden": "true",
  });
}

// The same numbers for who cannot see the areas.
export function chartTable(shown) {
  const { series, bits, unit } = shown;
  const head = make("tr", {}, make("th", { scope: "col" }, "Time"),
    ...series.map(({ key, name }) => make("th", { scope: "col", class: "number" },
      strange(name || key), ` ${unit}`)));
  const rows = [];
  for (let i = 0; i < (series[0]?.line.length ?? 0); ++i) {
    const { start, known } = stepAt(shown, i);
    rows.push(make("tr", {}, make("th", { scope: "row" }, timeText(start)),
      ...series.map(({ line }) => {
        const rate = rateOf(line[i], known, bits);
        return make("td", { class: "number" }, rate === null ? "" : whole(rate));
      })));
  }
  return make("table", {}, make("caption", { class: "unseen" }, "Traffic over time"),
    make("thead", {}, head), make("tbody", {}, ...rows));
}
