#!/usr/bin/env python3
"""Prints the results of benchmarks named "file/decoder" as one table: table.py JSON...
Times are the least processor time of all repetitions. A ratio above 1 means that ours is faster."""
import json, math, re, sys

FLOOR = "inflating alone"


def unit(nanoseconds):
    scale, name = (1e6, "ms") if nanoseconds >= 1e5 else (1e3, "us")
    return "%.*f %s" % (2 if nanoseconds / scale < 10 else 1, nanoseconds / scale, name)


def read(paths):
    """file: {decoder: nanoseconds}"""
    files, factors = {}, {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    for path in paths:
        with open(path) as results:
            for run in json.load(results)["benchmarks"]:
                if run["run_type"] != "iteration":
                    continue
                if run.get("error_occurred"):
                    print("%s: %s" % (run["name"], run["error_message"]), file=sys.stderr)
                    continue
                file, _, decoder = run["run_name"].rpartition("/")
                took = run["cpu_time"] * factors[run["time_unit"]]
                row = files.setdefault(file, {})
                row[decoder] = min(took, row.get(decoder, math.inf))
    return files


def main():
    formats = {}
    print("| file | ours | best peer | ratio | all peers |\n|---|---|---|---|---|")
    for file, row in sorted(read(sys.argv[1:]).items(), key=lambda f: (f[0].rpartition(".")[2], f[0])):
        ours, floor = row.pop("ours", None), row.pop(FLOOR, None)
        if ours is None or not row:
            continue
        best = min(row, key=row.get)
        kind = file.rpartition(".")[2] if "." in file else re.split("[_,]", file)[0]
        formats.setdefault(kind, []).append((row[best] / ours, file, floor and floor / ours))
        others = ", ".join("%s %.2f" % (peer, row[peer] / ours) for peer in sorted(row, key=row.get))
        print("| %s | %s | %s, %s | %.2f | %s%s |" %
              (file, unit(ours), best, unit(row[best]), row[best] / ours, others,
               "; %s %.2f" % (FLOOR, floor / ours) if floor else ""))
    print("\n| format | files | mean ratio | least | of %s |\n|---|---|---|---|---|" % FLOOR)
    for kind, ratios in sorted(formats.items()):
        floors = [f for _, _, f in ratios if f]
        mean = math.exp(sum(math.log(r) for r, _, _ in ratios) / len(ratios))
        print("| %s | %d | %.2f | %.2f %s | %s |" % (kind, len(ratios), mean, *min(ratios)[:2],
              "%.2f to %.2f" % (min(floors), max(floors)) if floors else ""))


main()
