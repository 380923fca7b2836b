// SPDX-License-Identifier: Apache-2.0
// What traffic is grouped by: in counters, in flows, and as a part of a filter.

// group: of counters; fields: of flows; part: the filter of a key.
export const GROUPS = [
  {
    id: "applications", title: "Applications", key: "Application", fields: "service",
    part: (key) => (/^\d+$/.test(key) ? `port ${key}` : null),
  },
  {
    id: "hosts", title: "Hosts", key: "Host", fields: "host", ends: true,
    part: (key) => `host ${key}`,
  },
  {
    id: "interfaces", title: "Interfaces", key: "Interface", fields: "exporter,interface",
    ends: true,
    part: (key) => {
      const [, exporter, number] = key.match(/^(\S+) if (\d+)$/) ?? [];
      return exporter ? `exporter ${exporter} and interface ${number}` : null;
    },
  },
  {
    id: "as", title: "AS", key: "AS", fields: "as", ends: true,
    part: (key) => (/^AS\d+$/.test(key) ? `as ${key.slice(2)}` : null),
  },
  { id: "direction", title: "Direction", key: "Direction", group: "totals", fields: null },
  {
    id: "exporters", title: "Exporters", key: "Exporter", fields: "exporter",
    part: (key) => `exporter ${key}`,
  },
  {
    id: "protocols", title: "Protocols", key: "Protocol", fields: "proto",
    part: (key) => (/^[a-z0-9-]+$/i.test(key) ? `proto ${key.toLowerCase()}` : null),
  },
  {
    id: "application_tags", title: "Applications by name", key: "Application", fields: "app",
    part: (key) => (/^[^"\\\p{C}]{1,100}$/u.test(key) && key !== "-" ? `app "${key}"` : null),
  },
];
const ALIASES = new Map(Object.entries({
  as: "as_numbers", interfaces: "flowintfs", exporters: "flowgens", hosts6: "hosts",
}));

export const TABLES = ["hosts", "applications", "interfaces", "as"];

export const groupOf = (id) => GROUPS.find((group) => group.id === id)
  ?? { id, title: id, key: "Key", fields: null };

// What can be asked of a filter and a store: directions of a filter need a key that it is about;
// what only counters have needs there to be none.
export function groupsFor(filter, counted) {
  const known = new Set(counted.map((group) => group.id));
  const usual = GROUPS.filter((group) => {
    if (group.id === "direction") return filter === "" || subjectOf(filter)?.directions;
    const stored = group.group ?? group.id;
    return filter !== "" || known.has(stored) || known.has(ALIASES.get(stored));
  });
  if (filter !== "") return usual;
  const shown = new Set(["totals", "hosts6", ...ALIASES.values(), ...GROUPS.map(({ id }) => id)]);
  return [...usual, ...counted.filter(({ id, title }) => title && !shown.has(id))];
}

// A row's key and name, whether counters or flows gave it.
export function keyOf(group, row) {
  const parts = group.fields?.split(",") ?? [];
  if (row.key.startsWith("(")) return { key: row.key, name: row.name ?? "" };
  if (group.id === "interfaces" && row.interface !== undefined) {
    return { key: `${row.exporter} if ${row.interface}`, name: row.interface_name ?? "" };
  }
  return { key: row.key, name: row.name ?? row[`${parts[0]}_name`] ?? "" };
}

// What a filter of one key is about: its two directions, as filters.
const SUBJECTS = [
  [/^host (\S+)$/, "Host", (key) => [["sent", `src host ${key}`], ["received", `dst host ${key}`]]],
  [/^as (\d+)$/, "AS", (key) => [["sent", `src as ${key}`], ["received", `dst as ${key}`]]],
  [/^port (\d+)$/, "Application",
    (key) => [["to servers", `dst port ${key}`], ["from servers", `src port ${key}`]]],
  [/^exporter (\S+) and interface (\d+)$/, "Interface",
    (exporter, number) => [
      ["in", `exporter ${exporter} and in interface ${number}`],
      ["out", `exporter ${exporter} and out interface ${number}`]]],
  [/^exporter (\S+)$/, "Exporter", () => null],
];

export function subjectOf(filter) {
  for (const [form, title, directions] of SUBJECTS) {
    const [, ...keys] = filter.match(form) ?? [];
    if (keys.length > 0) return { title, key: keys.join(" if "), directions: directions(...keys) };
  }
  return null;
}

// The parts of a filter that are joined by "and" alone; one part where it is anything else.
export function partsOf(filter) {
  if (filter === "") return [];
  if (/["()|!&]|\bor\b|\bnot\b|\bsrc\s+and\s+dst\b/i.test(filter)) return [filter];
  return filter.split(/\s+and\s+/i);
}

export function withPart(filter, part) {
  if (filter === "") return part;
  if (partsOf(filter).includes(part)) return filter;
  return /\bor\b|\|\|/i.test(filter) ? `(${filter}) and ${part}` : `${filter} and ${part}`;
}
