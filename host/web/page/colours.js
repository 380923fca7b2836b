// SPDX-License-Identifier: Apache-2.0
// A key has one colour, in the chart and in the tables, for as long as it is among the largest.

export const COLOURS = 10;

export class Colours {
  #places = new Map();

  // Keys that stay keep theirs; those that come take what has become free.
  assign(group, keys) {
    const before = this.#places.get(group) ?? new Map();
    const now = new Map();
    for (const key of keys) {
      if (before.has(key)) now.set(key, before.get(key));
    }
    const taken = new Set(now.values());
    let next = 0;
    for (const key of keys) {
      if (now.has(key)) continue;
      while (taken.has(next)) ++next;
      now.set(key, next % COLOURS);
      taken.add(next);
    }
    this.#places.set(group, now);
  }

  // The number of a key's colour, or null.
  of(group, key) {
    return this.#places.get(group)?.get(key) ?? null;
  }
}

// What the style sheet calls it.
export const colourName = (number) => (number === null ? "--others" : `--colour-${number}`);
