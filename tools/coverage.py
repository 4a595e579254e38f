"""A table of the lines and branches that the tests ran, by folder and file: coverage.py CSV LINES BRANCHES

CSV is gcovr's. Fails if less than so many percent of all lines or branches ran.
"""

import csv
import sys
from collections import defaultdict


def percent(part, whole):
    return 100 * part / whole if whole else 100.0


def row(name, counts):
    lines, ran, branches, taken = counts
    return f"{name:32} {lines:6} lines {percent(ran, lines):6.1f} %   {branches:6} branches {percent(taken, branches):6.1f} %"


with open(sys.argv[1], newline="") as file:
    files = {entry["filename"]: [int(entry[f"{what}_{kind}"]) for what in ("line", "branch") for kind in ("total", "covered")]
             for entry in csv.DictReader(file)}
sums = defaultdict(lambda: [0] * 4)
for name, counts in sorted(files.items()):
    print(row(name, counts))
    for total in (name.split("/")[0] + "/", "all"):
        sums[total] = [a + b for a, b in zip(sums[total], counts)]
print()
for name in sorted(sums, key=lambda name: (name == "all", name)):
    print(row(name, sums[name]))
lines, ran, branches, taken = sums["all"]
if percent(ran, lines) < float(sys.argv[2]) or percent(taken, branches) < float(sys.argv[3]):
    sys.exit(f"below {sys.argv[2]} % of lines or {sys.argv[3]} % of branches")
