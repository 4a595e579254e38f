#!/usr/bin/env python3
"""Prints the results of benchmarks named "file/decoder" as one table: table.py JSON...
Times are the least processor time of all repetitions. A ratio above 1 means that ours is faster."""
import json, math, re, sys

FLOOR = "inflating alone"
# Why a format's ratio ends where it ends.
LIMITS = {
    "8svx": "one read a refill; bytes are converted in place",
    "aiff": "one read a refill; G.711 is one look-up a sample",
    "au": "one read a refill; G.711 is one look-up a sample",
    "bmp": "the copy from the page cache and the writing of four bytes a pixel; mispredicted runs",
    "gif": "photos: each code waits for the length of the one before; screens: writing the pixels",
    "iff": "a look-up for each byte of each plane",
    "ima": "a look-up and two clamps, which each sample's successor waits for",
    "jpg": "quality 75: the inverse DCT, 41 %, and Huffman codes, 24 %; quality 95: Huffman codes, 54 %, mispredicted; small files: fixed costs",
    "MOD": "one gathered pair a sample; band-limited 16 multiplications",
    "MP3": "Huffman codes and the synthesis filter",
    "ms": "mono: the multiplications that each sample's successor waits for",
    "pbm": "text: the length of each number delays the next",
    "pcx": "mispredicting whether a byte is a run",
    "pgm": "text: the length of each number delays the next",
    "png": "photos: the inflater, which waits for each code's length; screens: zeroing and writing pixels",
    "ppm": "text: the length of each number delays the next",
    "tga": "the copy from the page cache and the writing of four bytes a pixel",
    "tif": "Deflate: 7 cycles a literal, the latency of one look-up, as in libdeflate, and reading the file",
    "voc": "one read a refill on either side",
    "wav": "one read a refill on either side; G.711 is one look-up a sample",
    "xbm": "large files: zeroing the pixels' pages",
}


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
        formats.setdefault(kind, []).append((row[best] / ours, file, unit(ours), "%s, %s" % (best, unit(row[best])),
                                             floor and floor / ours))
        others = ", ".join("%s %.2f" % (peer, row[peer] / ours) for peer in sorted(row, key=row.get))
        print("| %s | %s | %s, %s | %.2f | %s%s |" %
              (file, unit(ours), best, unit(row[best]), row[best] / ours, others,
               "; %s %.2f" % (FLOOR, floor / ours) if floor else ""))
    print("\n| format | files | mean ratio | least: file | ours | best peer | ratio | what limits it |"
          "\n|---|---|---|---|---|---|---|---|")
    for kind, lines in sorted(formats.items(), key=lambda f: f[0].lower()):
        mean = math.exp(sum(math.log(line[0]) for line in lines) / len(lines))
        floors = [line[4] for line in lines if line[4]]
        ratio, file, ours, peer, _ = min(lines)
        limit = LIMITS.get(kind, "")
        if floors:
            limit = "%.2f to %.2f of libdeflate's speed in inflating alone: %s" % (min(floors), max(floors), limit)
        print("| %s | %d | %.2f | %s | %s | %s | %.2f | %s |" %
              (kind, len(lines), mean, file, ours, peer, ratio, limit))


main()
