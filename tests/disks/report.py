#!/usr/bin/python3
"""Prints what the laboratory found as a table, and then every fault. Exits 1 when there is one.

Usage: report.py RESULTS [FILE-SYSTEM ...]
"""

import json
import sys
from pathlib import Path

from laboratory import FILE_SYSTEMS, READ_ONLY

MACHINES = "first", "second"
ORDER = *FILE_SYSTEMS, *READ_ONLY

COLUMNS = {"owner": "Owner", "mode": "Mode", "date": "Dates", "links": "Links",
           "hard links": "Hard links", "attributes": "Attributes", "lists": "ACLs", "holes": "Holes"}


def read(path):
    return json.loads(path.read_text()) if path.exists() else []


def main():
    results, *chosen = sys.argv[1:]
    halves = [read(Path(results, f"matrix.{machine}.json")) for machine in MACHINES]
    matrix = sorted(sum(halves, []), key=lambda row: ORDER.index(row["name"]))
    cuts = read(Path(results, "cut.json"))
    faults = [f"{row['name']} ({row['user']}): {text}" for row in matrix for text in row["faults"]]
    blind = [f"{cut['name']}: what cp alone wrote outlives the power cut, which proves nothing"
             for cut in cuts if cut["kind"] == "control" and not cut["faults"]]
    lost = {}
    for cut in cuts:
        if cut["kind"] == "control":
            continue
        texts = cut["faults"] if cut["answer"] else ["was not made"]
        faults += [f"{cut['name']}: power cut, {cut['kind']}: {text}" for text in texts[:5]]
        lost.setdefault(cut["name"], []).extend(texts)

    print()
    print("| File system | As |", " | ".join(COLUMNS.values()),
          "| Beside `cp -a` | Refusals | Power cut |")
    print("|---" * (len(COLUMNS) + 5) + "|")
    for row in matrix:
        cells = [row["kept"].get(facet, "") for facet in COLUMNS]
        beside = (f"{len(row['faults'])} faults" if row["faults"] else "" if row["read-only"]
                  else "wholer" if row["wholer"] else "as whole")
        cut = "" if row["name"] not in lost or row["user"] != "root" else (
            "lost" if lost[row["name"]] else "whole")
        refusals = str(len(row["refusals"])) if row["refusals"] else ""
        print(f"| {row['name']} | {row['user']} |", " | ".join(cells),
              f"| {beside} | {refusals} | {cut} |")
    print()
    if not all(Path(results, f"finished.{machine}").exists() for machine in MACHINES) or not (
            cuts or chosen and "cut" not in chosen):
        faults.append("the machine did not come to the end")
    for text in faults + blind:
        print("FAULT", text)
    print(f"{len(faults + blind)} faults in {len(matrix)} rows and {len(cuts)} power cuts")
    return 1 if faults or blind else 0


if __name__ == "__main__":
    sys.exit(main())
