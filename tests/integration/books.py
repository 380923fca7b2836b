# SPDX-License-Identifier: Apache-2.0
"""The books of a report in JSON: whatever arrived, and every record that it describes, is in a row."""


def faults(report):
    """what does not add up: datagrams, then records in total and for each exporter"""
    books, exporters, found = report["books"], report["exporters"], []

    def equal(what, *sums):
        if len(set(sums)) != 1:
            found.append(f"{what} do not add up: {sums}")

    rejected = sum(books.get("rejected_datagrams", {}).values())
    equal("datagrams", books["arrived_datagrams"],
          books["metered_datagrams"] + rejected + books["dropped_datagrams"],
          sum(e["datagrams"] + e["dropped_here"] for e in exporters))
    equal("rejected datagrams", rejected, sum(e["rejected"] for e in exporters))
    packets = report["packets"]
    equal("packets", packets["total"],
          books["arrived_datagrams"] + packets["udp_unclaimed"] + sum(packets["other"].values()))
    everybody = {"described": books["described_records"], "reverse": books["reverse_records"],
                 "records": books["metered_records"], "left_out": books.get("left_out", {})}
    for entry in [everybody] + exporters:
        left_out = entry.get("left_out", {})
        equal(f"records of {entry.get('address', 'all')}", entry["described"] + entry["reverse"],
              entry["records"] + sum(left_out.values()))
        if "unexplained" in left_out:
            found.append(f"records left out for no reason: {entry}")
    for what, key in (("described_records", "described"), ("metered_records", "records"), ("reverse_records", "reverse")):
        equal(what, books[what], sum(e[key] for e in exporters))
    return found
