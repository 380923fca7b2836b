// SPDX-License-Identifier: Apache-2.0
// Elements of the page. Texts that came in datagrams are strangers' texts: they become text nodes
// alone, never markup, are cut where they are long, and have a direction of their own.

const LONGEST = 160;

export const byId = (id) => document.getElementById(id);

// make("td", { class: "number" }, "text", element...)
export function make(name, attributes = {}, ...inside) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (typeof value === "function") element.addEventListener(key, value);
    else if (value === true) element.setAttribute(key, "");
    else if (value !== false && value !== null && value !== undefined) {
      element.setAttribute(key, value);
    }
  }
  element.append(...inside.filter((part) => part !== null && part !== undefined));
  return element;
}

export function show(element, isShown) {
  element.hidden = !isShown;
}

// Puts something else into a box. Who was at a control by keyboard stays at the one of its name.
export function fill(box, ...inside) {
  const active = document.activeElement;
  const name = box.contains(active) ? active.textContent : null;
  box.replaceChildren(...inside);
  if (name === null) return;
  [...box.querySelectorAll("button")].find((button) => button.textContent === name)
    ?.focus({ preventScroll: true });
}

// A stranger's text: by itself, whatever its marks of direction say, and whole on its title.
export function strange(text, attributes = {}) {
  const isLong = text.length > LONGEST;
  const cut = isLong ? `${[...text.slice(0, LONGEST * 2)].slice(0, LONGEST).join("")}\u2026` : text;
  return make("bdi", isLong ? { title: text, ...attributes } : attributes, cut);
}

// rows: lists of cells; columns: {title, number, note}.
export function table(caption, columns, rows, attributes = {}) {
  const head = columns.map((column) => make("th", {
    scope: "col", class: column.number ? "number" : null, title: column.note,
  }, column.title));
  return make("table", attributes,
    make("caption", { class: "unseen" }, caption),
    make("thead", {}, make("tr", {}, ...head)),
    make("tbody", {}, ...rows));
}
