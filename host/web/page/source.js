// SPDX-License-Identifier: Apache-2.0
// Where answers come from: the server, or what a report has in it.
import { byId } from "./elements.js";
import { Refusal } from "./refusal.js";
import { ReportSource } from "./report.js";

class Server {
  isReport = false;

  async ask(what, said, signal) {
    const query = new URLSearchParams();
    for (const [name, value] of Object.entries(said)) {
      if (value !== "" && value !== null && value !== undefined) query.set(name, value);
    }
    const response = await fetch(`api/${what}?${query}`, { signal, cache: "no-store" });
    const isJson = response.headers.get("content-type")?.startsWith("application/json");
    const body = isJson ? await response.json() : { error: await response.text() };
    if (response.ok) return body;
    throw new Refusal(body.error ?? `the server says ${response.status}`);
  }
}

export function openSource() {
  const embedded = byId("report-data");
  return embedded ? new ReportSource(JSON.parse(embedded.textContent)) : new Server();
}
