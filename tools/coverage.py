"""A table of the lines and branches that tests ran, by file and folder: coverage.py BUILD LINES BRANCHES

BUILD was compiled by g++ with --coverage. Fails if less than so many percent of all lines or branches
ran. Branches that only exceptions take, and those of lines that hold nothing but the end of a block,
where destructors run, are left out.
"""

import collections
import gzip
import json
import pathlib
import subprocess
import sys
import tempfile

FOLDERS = ("picture", "audio", "extra", "game", "platform", "tools")


def reports(build):
    """gcov's reports about all objects, each a dictionary."""
    objects = [str(path.resolve()) for path in pathlib.Path(build).rglob("*.gcno")]
    with tempfile.TemporaryDirectory() as folder:
        for at in range(0, len(objects), 20):
            subprocess.run(["gcov", "--json-format", "--branch-probabilities", "--hash-filenames", *objects[at:at + 20]],
                           cwd=folder, check=True, capture_output=True)
            for path in pathlib.Path(folder).glob("*.json.gz"):
                with gzip.open(path) as file:
                    yield json.load(file)
                path.unlink()


def count(build):
    """How often each line and each branch ran, by file. Copies of templates and headers count together."""
    lines, branches = (collections.defaultdict(collections.Counter) for _ in range(2))
    texts = {}
    for report in reports(build):
        for file in report["files"]:
            path = pathlib.Path(report["current_working_directory"], file["file"]).resolve()
            name = path.relative_to(root).as_posix() if path.is_relative_to(root) else ""
            if name.split("/")[0] not in FOLDERS:
                continue
            text = texts.setdefault(name, path.read_text().split("\n"))
            for line in file["lines"]:
                number = line["line_number"]
                lines[name][number] += line["count"]
                if number <= len(text) and text[number - 1].strip(" }();,"):
                    for i, branch in enumerate(line["branches"]):
                        if not branch["throw"]:
                            branches[name][number, i] += branch["count"]
    return {name: [len(lines[name]), sum(map(bool, lines[name].values())), len(branches[name]),
                   sum(map(bool, branches[name].values()))] for name in sorted(lines)}


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
