// SPDX-License-Identifier: Apache-2.0
// Choosing a span on the chart: by mouse, finger, wheel and keys.
import { byId, show } from "./elements.js";
import { spanText } from "./format.js";

const LEAST_PIXELS = 5;
const KEY_PARTS = 24;  // of the span, that a step by key has

export class Drag {
  #chart;
  #on;        // {choose(from, to), move(parts), zoom(factor, middle)}
  #from = null;   // time, while something is being chosen
  #to = null;
  #pointer = null;

  constructor(chart, on) {
    this.#chart = chart;
    this.#on = on;
    const box = byId("chart");
    box.addEventListener("pointerdown", (event) => this.#down(event));
    box.addEventListener("pointermove", (event) => this.#move(event));
    box.addEventListener("pointerup", (event) => this.#up(event));
    box.addEventListener("pointercancel", () => this.#end());
    box.addEventListener("wheel", (event) => this.#wheel(event), { passive: false });
    box.addEventListener("keydown", (event) => this.#key(event));
    box.addEventListener("blur", () => this.#end());
  }

  #down(event) {
    if (event.button !== 0 || !this.#chart.area) return;
    this.#pointer = event.pointerId;
    byId("chart").setPointerCapture(event.pointerId);
    this.#from = this.#to = this.#chart.timeAt(event.clientX);
  }

  #move(event) {
    if (event.pointerId !== this.#pointer) return;
    this.#to = this.#chart.timeAt(event.clientX);
    this.#draw();
  }

  #up(event) {
    if (event.pointerId !== this.#pointer) return;
    const width = Math.abs(this.#chart.pixelOf(this.#to) - this.#chart.pixelOf(this.#from));
    if (width >= LEAST_PIXELS) this.#choose();
    this.#end();
  }

  #choose() {
    const from = Math.min(this.#from, this.#to);
    const to = Math.max(this.#from, this.#to);
    this.#end();
    this.#on.choose(from, to);
  }

  #end() {
    this.#from = this.#to = this.#pointer = null;
    show(byId("selection"), false);
  }

  #wheel(event) {
    // A page that is scrolled past is left alone.
    if (!this.#chart.area || document.activeElement !== byId("chart")) return;
    event.preventDefault();
    this.#on.zoom(event.deltaY > 0 ? 1.5 : 1 / 1.5, this.#chart.timeAt(event.clientX));
  }

  #key(event) {
    if (!this.#chart.shown || event.ctrlKey || event.altKey || event.metaKey) return;
    const { from, to } = this.#chart.shown;
    const step = (to - from) / KEY_PARTS;
    const way = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
    if (way && event.shiftKey) {
      this.#from ??= way > 0 ? from : to;
      this.#to = Math.min(Math.max((this.#to ?? this.#from) + way * step, from), to);
      this.#draw();
      byId("chart-summary").textContent =
        spanText(Math.min(this.#from, this.#to), Math.max(this.#from, this.#to));
    } else if (way) {
      this.#on.move(way / 4);
    } else if (event.key === "Enter" && this.#from !== null && this.#from !== this.#to) {
      this.#choose();
    } else if (event.key === "Escape") {
      this.#end();
    } else if (event.key === "+" || event.key === "=") {
      this.#on.zoom(1 / 2, null);
    } else if (event.key === "-") {
      this.#on.zoom(2, null);
    } else {
      return;
    }
    event.preventDefault();
  }

  #draw() {
    const area = this.#chart.area;
    const left = this.#chart.pixelOf(Math.min(this.#from, this.#to));
    const right = this.#chart.pixelOf(Math.max(this.#from, this.#to));
    const selection = byId("selection");
    selection.style.transform = `translate(${left}px, ${area.top}px)`;
    selection.style.width = `${right - left}px`;
    selection.style.height = `${area.height}px`;
    show(selection, true);
  }
}
