// SPDX-License-Identifier: Apache-2.0
// The page: reads the address, asks, shows, and follows what arrives.
import { Colours } from "./colours.js";
import { Drag } from "./drag.js";
import { byId, fill, make, show, strange } from "./elements.js";
import { clockText, short, spanText, zoneName } from "./format.js";
import { TABLES, groupOf, groupsFor, partsOf, subjectOf, withPart } from "./groups.js";
import { showHeadline } from "./headline.js";
import { showLegend, showMarks } from "./legend.js";
import {
  askDirections, askExporters, askFlows, askGroup, askLosses, askTotals,
} from "./questions.js";
import { Refusal } from "./refusal.js";
import { openSource } from "./source.js";
import { follows, moved, readState, spanOf, withSpan, writeState, zoomed } from "./state.js";
import { exporterTable, flowTable, groupTable, lossTable } from "./tables.js";
import { TimeChart, chartTable } from "./timechart.js";

const FLOWS_AT_ONCE = 100;
const LOOK_MS = 5000;  // for a minute that is new

const source = openSource();
const colours = new Colours();
const chart = new TimeChart();
let state = readState(location.hash);
let status = null;
let asking = new AbortController();
let flowsShown = FLOWS_AT_ONCE;
let hasOthers = true;
let lastShown = 0;  // status.to of what is shown

const end = () => status.to ?? status.now;
const span = () => spanOf(state, end(), status.from);

function go(next) {
  const address = writeState(next);
  if (address === location.hash || (address === "#" && location.hash === "")) return;
  location.hash = address;  // and on with hashchange
}

// Who opens a key is then at its heading, also by keyboard.
function narrow(part) {
  go({ ...state, filter: withPart(state.filter, part) });
  show(byId("view-heading"), true);
  byId("view-heading").focus({ preventScroll: true });
  scrollTo({ top: 0 });
}

function showControls() {
  byId("filter").value = state.filter;
  showFilterError(null);
  show(byId("clear"), state.filter !== "");
  const parts = partsOf(state.filter);
  byId("chips").replaceChildren(...(parts.length < 2 ? [] : parts.map((part) => {
    const left = parts.filter((each) => each !== part).join(" and ");
    return make("li", {}, strange(part), make("button", {
      type: "button", "aria-label": `Without ${part}`,
      click: () => go({ ...state, filter: left }),
    }, "\u00d7"));
  })));
  const select = byId("span");
  select.querySelector("option.own")?.remove();
  if (![...select.options].some((option) => option.value === state.from && follows(state))) {
    const { from, to } = span();
    select.prepend(make("option", { class: "own", value: "own" }, spanText(from, to)));
    select.value = "own";
  } else {
    select.value = state.from;
  }
  const groups = groupsFor(state.filter, status.groups);
  if (!groups.some((group) => group.id === state.by)) state.by = groups[0].id;
  byId("group").replaceChildren(...groups.map((group) =>
    make("option", { value: group.id }, group.title)));
  byId("group").value = state.by;
  byId("unit").value = state.unit;
  byId("later").disabled = follows(state);
  const subject = subjectOf(state.filter);
  byId("view-heading").replaceChildren(...(subject ? [`${subject.title} `, strange(subject.key)]
    : state.filter ? ["Flows of ", strange(state.filter)] : []));
  show(byId("view-heading"), state.filter !== "");
  document.title = subject ? `${subject.key} \u2013 flowhost` : "flowhost";
}

function showFilterError(text) {
  byId("filter-error").textContent = text ?? "";
  show(byId("filter-error"), text !== null);
  byId("filter").toggleAttribute("aria-invalid", text !== null);
}

function showTrouble(error) {
  const isOurs = error instanceof Refusal;
  const isFilter = isOurs && state.filter !== "" && error.message.includes(state.filter);
  if (isFilter) showFilterError(error.message);
  byId("trouble").textContent = isOurs ? error.message
    : `The server does not answer (${error.message}). Is flowhost running? Trying again.`;
  show(byId("trouble"), !isFilter);
}

const gapsIn = (answer) => answer.gaps.map((gap) => ({ ...gap }));

function showChart(answer) {
  const { from, seconds } = answer.steps;
  const bits = state.unit === "bytes" ? 8 : 1;
  const rows = answer.rows.filter((row) => row.line);
  colours.assign(answer.group.id, rows.map((row) => row.key));
  const series = rows.map(({ key, name, line }) =>
    ({ key, name, line, colour: colours.of(answer.group.id, key) }));
  if (answer.others?.line && hasOthers) {
    series.push({ key: "others", name: "", colour: null, line: answer.others.line });
  }
  const lost = answer.steps.lost.flatMap((count, i) => (count > 0 ? [from + i * seconds] : []));
  chart.draw({
    from, to: answer.to, step: seconds, series, bits, gaps: gapsIn(answer), lost,
    unit: state.unit === "bytes" ? "b/s" : "pkt/s",
  });
  show(byId("nothing"), series.length === 0);
  byId("chart-span").textContent = spanText(from, answer.to);
  byId("chart-summary").textContent = `${answer.group.title}, ${spanText(from, answer.to)}: ${
    series.slice(0, 3).map((each) => each.name || each.key).join(", ")}`;
  byId("canvas").setAttribute("aria-label", `Traffic by ${answer.group.title.toLowerCase()}`);
  showLegend(answer, series, hasOthers, {
    narrow,
    point: (key) => chart.point(key),
    toggleOthers: () => { hasOthers = !hasOthers; showChart(answer); },
  });
  showMarks(answer);
  if (byId("chart-table").open) showChartTable();
}

function showChartTable() {
  if (chart.shown) byId("chart-table").querySelector("div").replaceChildren(chartTable(chart.shown));
}

// Hosts of a host's flows are those that it talked to.
function withoutSubject(id, answer) {
  const subject = subjectOf(state.filter);
  const isItself = ({ key }) => id === "hosts" && subject?.title === "Host" && key === subject.key;
  byId(`heading-${id}`).textContent =
    id === "hosts" && subject?.title === "Host" ? "Peers" : groupOf(id).title;
  return { ...answer, rows: answer.rows.filter((row) => !isItself(row)) };
}

function showTable(id, shaped) {
  const answer = withoutSubject(id, shaped);
  const seconds = answer.to - answer.from;
  const isCharted = id === state.by;
  fill(byId(`table-${id}`).querySelector(".body"), groupTable(answer,
    { unit: state.unit, seconds, colours: isCharted ? colours : null, narrow }));
}

async function showFlows(signal) {
  const answer = await askFlows(source, state, span(), byId("order").value, flowsShown, signal);
  const rows = answer.rows.filter((row) => row.src !== "(others)");
  const text = answer.total
    ? `${rows.length.toLocaleString("en")} rows of ${answer.total.flows.toLocaleString("en")} flows`
    : "no flows";
  byId("flows-count").textContent = `${text}, ${short(answer.total?.bytes ?? 0, "B")}`;
  fill(byId("flows").querySelector(".body"), flowTable(answer, narrow));
  show(byId("more-flows"), rows.length < (answer.total?.flows ?? 0) && rows.length === flowsShown);
}

// Flows are read when somebody has scrolled to them, and everything above them is there: over a day
// there are millions.
let flowsAreWanted = false;
const flowsWatch = new IntersectionObserver((entries) => {
  if (entries.at(-1).isIntersecting) loadFlows();
}, { rootMargin: "100px" });
function wantFlows() {
  flowsAreWanted = true;
  byId("flows").classList.add("loading");
  flowsWatch.unobserve(byId("flows"));  // it tells of changes, and first of how things are
  flowsWatch.observe(byId("flows"));
}
function loadFlows() {
  if (!flowsAreWanted) return;
  flowsAreWanted = false;
  const panel = byId("flows");
  const { signal } = asking;
  showFlows(signal).catch((error) => { if (!signal.aborted) showTrouble(error); })
    .finally(() => { if (!signal.aborted) panel.classList.remove("loading"); });
}

function askChart(signal) {
  if (state.by === "direction" && state.filter !== "") {
    return askDirections(source, state, span(), signal);
  }
  return askGroup(source, state, span(), state.by, { hasLines: true }, signal);
}

async function part(element, signal, work) {
  element.classList.add("loading");
  try {
    return await work();
  } finally {
    if (!signal.aborted) element.classList.remove("loading");
  }
}

// What the page has no table for says why. charted: the answer that the chart shows, once it does.
async function showGroup(id, charted, signal) {
  const box = byId(`table-${id}`);
  await part(box, signal, async () => {
    try {
      const answer = await (id === state.by ? charted
        : askGroup(source, state, span(), id, {}, signal));
      showTable(id, answer);
    } catch (error) {
      if (signal.aborted || !(error instanceof Refusal)) throw error;
      box.querySelector(".body").replaceChildren(make("p", { class: "quiet" }, error.message));
    }
  });
}

async function load() {
  asking.abort();
  asking = new AbortController();
  const { signal } = asking;
  try {
    status = await source.ask("status", {}, signal);
    show(byId("empty"), status.to === null);
    show(byId("whole"), status.to !== null);
    showLive();
    show(byId("trouble"), false);
    if (status.to === null) return;
    lastShown = status.to;
    showProgram();
    if (source.isReport && !location.hash.includes("from=")) state.from = reportStart();
    showControls();
    flowsAreWanted = false;
    byId("flows").classList.add("loading");
    const charted = part(byId("chart-panel"), signal, async () => {
      const answer = await askChart(signal);
      showChart(answer);
      return answer;
    });
    if (state.filter !== "") await charted;  // it may be wrong, and takes its time
    const [answer, totals, exporters, losses] = await Promise.all([
      charted, askTotals(source, span(), signal), askExporters(source, span(), signal),
      askLosses(source, span(), signal),
      ...TABLES.map((id) => showGroup(id, charted, signal)),
    ]);
    showHeadline(totals, exporters, answer, state.filter !== "");
    fill(byId("exporters").querySelector(".body"), exporterTable(exporters, status.now, narrow));
    byId("losses").querySelector(".body").replaceChildren(losses.rows.length > 0
      ? lossTable(losses) : make("p", { class: "quiet" }, "nothing"));
    document.body.dataset.shown = String(Number(document.body.dataset.shown ?? 0) + 1);
    wantFlows();
  } catch (error) {
    if (signal.aborted) return;
    showTrouble(error);
    for (const panel of document.querySelectorAll(".loading")) panel.classList.remove("loading");
  }
}

// A report is of one span, which is what one begins with.
function showProgram() {
  const made = source.isReport ? `report of ${spanText(status.from, status.to)}, by ` : "";
  byId("footer").textContent = `${made}${status.program}; times in ${zoneName(status.now)}`;
  if (!source.isReport || byId("span").dataset.isReport) return;
  byId("span").dataset.isReport = "true";
  byId("span").replaceChildren(make("option", { value: reportStart() }, "all of the report"));
}

const reportStart = () => `-${Math.round((status.to - status.from) / 60)}m`;

function showLive() {
  const isFollowing = !source.isReport && follows(state) && status.to !== null
    && status.now - status.to < 180;
  document.body.classList.toggle("follows", isFollowing);
  byId("live-text").textContent = source.isReport ? "report" : status.to === null ? "nothing yet"
    : `${isFollowing ? "live" : "up to"} ${clockText(status.to)} ${zoneName(status.to)}`;
}

// Asks small questions while somebody looks, and all of them when there is a new minute.
async function look() {
  if (document.hidden || source.isReport) return;
  try {
    const now = await source.ask("status", {});
    const isBack = status === null || !byId("trouble").hidden;
    status = now;
    showLive();
    if (isBack || (follows(state) && status.to !== lastShown)) load();
  } catch (error) {
    showTrouble(error);
  }
}

function begin() {
  for (const id of TABLES) {
    byId("tables").append(make("section", { id: `table-${id}`, class: "panel",
      "aria-labelledby": `heading-${id}` },
    make("div", { class: "bar" }, make("h2", { id: `heading-${id}` }, groupOf(id).title)),
    make("div", { class: "body wide" })));
  }
  new Drag(chart, {
    choose: (from, to) => go(withSpan(state, from, to, end())),
    move: (parts) => go(moved(state, end(), parts)),
    zoom: (factor, middle) => go(zoomed(state, end(), factor, middle)),
  });
  byId("earlier").addEventListener("click", () => go(moved(state, end(), -1)));
  byId("later").addEventListener("click", () => go(moved(state, end(), 1)));
  byId("wider").addEventListener("click", () => go(zoomed(state, end(), 2)));
  byId("closer").addEventListener("click", () => go(zoomed(state, end(), 1 / 2)));
  byId("span").addEventListener("change", (event) =>
    go({ ...state, from: event.target.value, to: "now" }));
  byId("group").addEventListener("change", (event) => go({ ...state, by: event.target.value }));
  byId("unit").addEventListener("change", (event) => go({ ...state, unit: event.target.value }));
  byId("order").addEventListener("change", wantFlows);
  byId("more-flows").addEventListener("click", () => {
    flowsShown += FLOWS_AT_ONCE;
    wantFlows();
  });
  byId("filter-form").addEventListener("submit", (event) => {
    event.preventDefault();
    const filter = byId("filter").value.trim();
    if (filter === state.filter) load();
    else go({ ...state, filter });
  });
  byId("clear").addEventListener("click", () => go({ ...state, filter: "" }));
  byId("chart-table").addEventListener("toggle", showChartTable);
  byId("skip").addEventListener("click", (event) => {
    event.preventDefault();
    byId("tables-heading").focus();
  });
  window.addEventListener("hashchange", () => {
    state = readState(location.hash);
    flowsShown = FLOWS_AT_ONCE;
    load();
  });
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
    if (chart.shown) chart.draw(chart.shown);
  });
  document.addEventListener("visibilitychange", look);
  if (!source.isReport) setInterval(look, LOOK_MS);
  load();
}

begin();
