#!/usr/bin/python3
"""Prints what the laboratory found as a table, and then every fault. Exits 1 when there is one.

Usage: report.py RESULTS [FILE-SYSTEM ...]
"""

import json
import sys
from pathlib import Path

from laboratory import FILE_SYSTEMS, READ_ONLY

ORDER = *FILE_SYSTEMS, READ_ONLY
COLUMNS = {"owner": "Owner", "mode": "Mode", "date": "Dates", "links": "Links",
           "hard links": "Hard links", "attributes": "Attributes", "lists": "ACLs", "holes": "Holes"}


def main():
    results, chosen = Path(sys.argv[1]), sys.argv[2:]

    def read(pattern):
        return [row for file in results.glob(pattern) for row in json.loads(file.read_text())]

    matrix = sorted(read("matrix.*.json"), key=lambda row: (ORDER.index(row["name"]), row["user"]))
    cuts = read("cut.json")
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
        beside = (f"{len(row['faults'])} faults" if row["faults"]
                  else "as whole" if row["kept"] else "")  # where nothing can be copied
        cut = "" if row["name"] not in lost or row["user"] != "root" else (
            "lost" if lost[row["name"]] else "whole")
        refusals = str(len(row["refusals"])) if row["refusals"] else ""
        print(f"| {row['name']} | {row['user']} |", " | ".join(cells),
              f"| {beside} | {refusals} | {cut} |")
    print()
    if len(list(results.glob("finished.*"))) < 2 or not (cuts or chosen and "cut" not in chosen):
        faults.append("the machine did not come to the end")
    for text in faults + blind:
        print("FAULT", text)
    print(f"{len(faults + blind)} faults in {len(matrix)} rows and {len(cuts)} power cuts")
    return 1 if faults or blind else 0


if __name__ == "__main__":
    sys.exit(main())
