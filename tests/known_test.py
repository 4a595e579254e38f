#!/usr/bin/env python3
"""known_test.py BUILD [write]: all files of tests/data, fuzz/seeds and fuzz/corpora come out as recorded.

Most of them are damaged, so that nothing else says what they give. tests/data/known.txt has a line for each: its
name and CRCs of what the program `digest` prints under either rules and of what both tools' --info print as
lines and as JSON. A change must be meant: `write` then records it.
"""
import base64, collections, pathlib, re, subprocess, sys, tempfile, zlib

ROOT = pathlib.Path(__file__).resolve().parent.parent
KNOWN = ROOT / "tests/data/known.txt"
BUILD = pathlib.Path(sys.argv[1]).resolve()
DIGEST = BUILD / "tests/digest", "."
INFO = [(BUILD / tool, "--info", *json) for tool in ("tessview", "tessplay") for json in ((), ("--json",))]


def files():
    """The names and bytes of all files that hold pictures or sounds."""
    for path in sorted(ROOT.glob("tests/data/**/*.*")) + sorted(ROOT.glob("fuzz/seeds/*/*")):
        if path.suffix not in (".md", ".txt", ".tsv", ".s16"):
            yield path.relative_to(ROOT).as_posix().replace("/", "-"), path.read_bytes()
    for path in sorted(ROOT.glob("fuzz/corpora/*.txt")):
        for number, line in enumerate(path.read_text().split()):
            yield f"{path.stem}-{number}", base64.b64decode(line)


def outputs(names, folder):
    """By name, what each program prints about it."""
    found = collections.defaultdict(lambda: [""] * (1 + len(INFO)))
    start = re.compile(rf'(?:\{{"path":")?({"|".join(map(re.escape, sorted(names, reverse=True)))})[",:\n]')
    for column, command in enumerate((DIGEST, *((*info, *names) for info in INFO))):
        run = subprocess.run(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        if run.returncode not in (0, 1) or b"Sanitizer" in run.stderr:
            sys.exit(f"{command[:3]} failed: {run.stderr[-5000:].decode(errors='replace')}")
        name = None
        for line in run.stdout.decode(errors="replace").splitlines(keepends=True):
            name = match[1] if (match := start.match(line)) else name
            found[name][column] += line
    return found


with tempfile.TemporaryDirectory() as folder:
    names = []
    for name, data in files():
        (pathlib.Path(folder) / name).write_bytes(data)
        names.append(name)
    found = outputs(names, folder)
now = {name: " ".join(f"{zlib.crc32(text.encode()):08x}" for text in found[name]) for name in names}
if sys.argv[2:] == ["write"]:
    KNOWN.write_text("".join(f"{name} {crcs}\n" for name, crcs in now.items()))
known = dict(line.split(" ", 1) for line in KNOWN.read_text().splitlines())
changed = [name for name in known | now if known.get(name) != now.get(name)]
for name in changed[:10]:
    print(f"{name}: recorded {known.get(name)}, now {now.get(name)}\n{''.join(found.get(name, []))}")
print(f"{len(changed)} of {len(now)} files come out otherwise than recorded")
sys.exit(bool(changed) or len(now) < 1000)
