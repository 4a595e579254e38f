"""A table of the lines and branches that tests ran, by file and folder: coverage.py BUILD LINES BRANCHES

BUILD was compiled by g++ with --coverage. Fails if less than so many percent of all lines or branches
ran. Left out are branches that only exceptions take, those of lines that hold nothing but the end of a
block, where destructors run, and those that no run reached on lines that ran: nearly all of them clean
up after exceptions, and the branch that would lead to any other counts as one that was not taken.
"""

import collections
import os
import pathlib
import re
import subprocess
import sys

FOLDERS = ("picture", "audio", "extra", "game", "platform", "tools")
LINE = re.compile(r" *([-#=]+|\d+\*?): *(\d+):(.*)")
BRANCH = re.compile(r"branch +\d+ (?:never executed|taken (\d+))( \(throw\))?")


def listings(build):
    """gcov's listings of all objects, line by line."""
    objects = [str(path.resolve()) for path in pathlib.Path(build).rglob("*.gcno")]
    options = ["--stdout", "--branch-probabilities", "--branch-counts"]
    for at in range(0, len(objects), 20):
        yield from subprocess.run(["gcov", *options, *objects[at:at + 20]], cwd=build, stdout=subprocess.PIPE,
                                  text=True).stdout.splitlines()
        yield "-: 0:Source:"


def count(build):
    """For each file its lines, those that ran, its branches, those taken. Copies of templates and headers count together."""
    lines, reached, missed = (collections.defaultdict(collections.Counter) for _ in range(3))
    name, ways, copied = "", {}, False
    for text in listings(build):
        if match := LINE.match(text):
            ran, number, source, nth = match[1], int(match[2]), match[3], 0
            if number == 0 and source.startswith("Source:"):
                for key, taken in ways.items():  # of the listing that ends here
                    (missed if taken is None else reached)[name][key] += taken or 0
                path = os.path.relpath(os.path.join(build, source[7:]), root)
                name = path if path.split("/")[0] in FOLDERS else ""
                ways, copied = {}, False
            elif name and ran != "-":
                lines[name][number] += int(ran.strip("*#=") or 0)
                if copied and (number, 0) not in ways:  # a template's copies follow their sum
                    ways = {key: taken for key, taken in ways.items() if key[0] != number} | {(number, 0): None}
        elif name and (match := BRANCH.match(text)):
            nth += 1
            if not match[2] and source.strip(" }();,"):
                before, taken = ways.get((number, nth)), match[1]
                ways[number, nth] = before if taken is None else int(taken) + (before or 0)
        elif text.startswith("------"):
            copied = True
    counts = {}
    for name in sorted(lines):
        idle = {key for key in missed[name] if not lines[name][key[0]] and key[1]}
        counts[name] = [len(lines[name]), sum(map(bool, lines[name].values())), len(idle | set(reached[name])),
                        sum(map(bool, reached[name].values()))]
    return counts


def percent(part, whole):
    return 100 * part / whole if whole else 100.0


def row(name, counts):
    whole, ran, ways, taken = counts
    return f"{name:32} {whole:6} lines {percent(ran, whole):6.1f} %   {ways:6} branches {percent(taken, ways):6.1f} %"


root = pathlib.Path(__file__).resolve().parent.parent
sums = collections.defaultdict(lambda: [0] * 4)
for name, counts in count(sys.argv[1]).items():
    print(row(name, counts))
    for total in (name.split("/")[0] + "/", "all"):
        sums[total] = [a + b for a, b in zip(sums[total], counts)]
print()
for name in (*(folder + "/" for folder in FOLDERS), "all"):
    print(row(name, sums[name]))
lines, ran, branches, taken = sums["all"]
if percent(ran, lines) < float(sys.argv[2]) or percent(taken, branches) < float(sys.argv[3]):
    sys.exit(f"below {sys.argv[2]} % of lines or {sys.argv[3]} % of branches")
