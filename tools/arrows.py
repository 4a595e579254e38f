#!/usr/bin/env python3
"""Who may include whom: checks every #include of the tree against this table and names violations.

A row: its name, the modules in it, and the rows and system headers that they may include. A module is a
path without its extension; it belongs to the first row that matches. It may always include itself, the
parts that carry its name (jpg: jpg_scan), and what its row lists. A row that lists itself allows includes
within the row, but modules must never include each other in a circle.

With --mermaid it prints the table as the graph in CONTRIBUTING.md, without the arrows that follow from
others; the check compares the two.
"""
import fnmatch, pathlib, re, sys

TABLE = [
    ("ground", "platform/system platform/state extra/*", "ground"),
    ("pixels", "picture/pixels", "ground"),
    ("coders", "picture/inflate picture/fax picture/packbits picture/bits", "ground pixels coders"),
    ("jpg", "picture/jpg picture/jpg_*", "ground pixels"),
    ("picture", "picture/picture", "ground pixels jpg decoders"),
    ("raster", "picture/picture_* picture/graphics picture/draw picture/charset picture/charset_* "
               "picture/charsets/*", "ground pixels picture raster"),
    ("decoders", "picture/*", "ground pixels coders jpg"),
    ("sound_file", "audio/sound_file audio/sound_frames audio/g711", "ground sound_file"),
    ("audio_module", "audio/audio_module", "ground sound_file sounds mp3"),
    ("audio", "audio/audio", "ground sound_file audio_module audio"),
    ("stream", "audio/audio_stream", "ground sound_file audio_module audio <portaudio.h>"),
    ("mp3", "audio/mp3 audio/mp3_*", "ground sound_file"),
    ("sounds", "audio/*", "ground sound_file mp3"),
    ("window", "platform/*", "ground pixels picture raster window <GL/*> <GLFW/*>"),
    ("rules", "game/minefield game/moves", "ground rules"),
    ("game", "game/*", "ground picture raster audio mp3 window rules game <GL/*>"),
    ("tools", "tools/*", "ground pixels coders jpg picture raster decoders sound_file audio_module "
                         "audio mp3 sounds window tools <CLI/*>"),
]
GUARDED = re.compile(r"<(portaudio|GL/|GLFW/|CLI/)")
INCLUDE = re.compile(r'^\s*#\s*include\s+("[^"]+"|<[^>]+>)', re.M)


def row_of(module):
    return next(row for row in TABLE if any(fnmatch.fnmatch(module, f) for f in row[1].split()))


def main():
    wrong, arrows = [], {}
    files = [f for folder in ("extra", "platform", "picture", "audio", "game", "tools")
             for f in sorted(pathlib.Path(folder).rglob("*")) if f.suffix in (".h", ".cpp")]
    for file in files:
        module = str(file.with_suffix(""))
        name, _, allowed = row_of(module)
        for target in INCLUDE.findall(file.read_text()):
            if target[0] == "<":
                if GUARDED.match(target) and not any(fnmatch.fnmatch(target, a) for a in allowed.split()):
                    wrong.append(f"{file} ({name}) may not include {target}")
                continue
            other = str(pathlib.Path(target[1:-1]).with_suffix(""))
            if other == module:
                continue
            arrows.setdefault(module, set()).add(other)
            if not other.startswith(module + "_") and row_of(other)[0] not in allowed.split() + [
                    name] * module.startswith(other.split("_")[0] + "_"):
                wrong.append(f"{file} ({name}) may not include {target} ({row_of(other)[0]})")
    wrong += circles(arrows)
    if graph() not in pathlib.Path("CONTRIBUTING.md").read_text():
        wrong.append("CONTRIBUTING.md does not show the graph of tools/arrows.py --mermaid")
    print("\n".join(wrong) or f"{len(files)} files: every arrow points down")
    return bool(wrong)


def graph():
    rows = {name: {row for row in allowed.split() if row[0] != "<" and row != name}
            for name, _, allowed in TABLE}
    below = {}
    for name in rows:
        below[name] = set()
        todo = list(rows[name])
        while todo:
            row = todo.pop()
            if row not in below[name]:
                below[name].add(row)
                todo += rows[row]
    return "graph TD\n" + "".join(
        f"    {name} --> {row}\n" for name in rows for row in sorted(rows[name])
        if not any(row in below[other] for other in rows[name]))


def circles(arrows):
    def reach(start):
        seen, todo = set(), [start]
        while todo:
            for other in arrows.get(todo.pop(), ()):
                if other not in seen:
                    seen.add(other)
                    todo.append(other)
        return seen

    reached = {module: reach(module) for module in arrows}
    rings = {frozenset({a} | {b for b in reached[a] if a in reached.get(b, ())})
             for a in arrows if a in reached[a]}
    return ["include each other: " + ", ".join(sorted(ring)) for ring in rings]


if "--mermaid" in sys.argv:
    print(graph(), end="")
else:
    sys.exit(main())
