#!/usr/bin/env python3
"""Do the tests notice when a line of the code is wrong? Breaks random lines one at a time and sees.

    tools/mutate.py SEED COUNT PATH... [--sanitize] [--end-to-end]

PATH is a folder or a source. Each mutant is built in build/release and faces its module's own test
first, then every other unit test that it is linked into. With --sanitize a survivor also faces its
module's tests in build/sanitize, with --end-to-end those in build/release that run whole programs.
Both folders must be configured (./check makes them). Prints each mutant and the tally; a mutant that
does not compile is replaced by another, one that a static_assert rejects counts as killed. The source
is put back whatever happens. A survivor may be equivalent: that is for a reader to judge.
"""
import argparse
import pathlib
import random
import re
import signal
import subprocess

# The tests of sources without a test of their own name, by what that name begins with.
TESTS = {"inflate": "png", "fax": "tif", "packbits": "lbm|tif", "pixels": "picture|png", "bits": "tif|lbm",
         "pcx|pxm|spr|tga|xbm": "small_pictures", "sort|numeral|projection|colour|reason|local": "services",
         "sound": "wav|sounds", "field": "minefield", "session|timer": "frame"}
WHOLE_PROGRAMS = "end_to_end|completion|hostile"
SKIPPED = re.compile(r"#|//|static_assert|namespace|using|extern|struct|[\s{}()0-9xA-Fa-f,.;\-+]*$")
OPERATORS = [(re.compile(pattern), text) for pattern, text in [
    (" < ", " <= "), (" <= ", " < "), (" > ", " >= "), (" >= ", " > "), (" == ", " != "), (" != ", " == "),
    (r" \+ ", " - "), (" - ", " + "), (r" \* ", " / "), (" / ", " * "), (" << ", " >> "), (" >> ", " << "),
    (" && ", " || "), (r" \|\| ", " && "), (" & ", " | "), (r" \| ", " & "), (r" \+= ", " -= "),
    (r"\+\+", "--"), ("--", "++"), (r"\breturn true\b", "return false"), (r"\breturn false\b", "return true"),
    (r"if \(!", "if ("), (r"\b\d+\b", lambda number: str(int(number[0]) + 1))]]
STATEMENT = re.compile(r"(\s+)(?!return)[\w.\->\[\]()]+( [-+|&*]?= .*|\(.*\));$")


def mutants_of(line):
    """All single changes to a line, none inside its strings or its comment."""
    code = line.split("//")[0].rstrip()
    if SKIPPED.match(code.strip()):
        return []
    found = [line[:m.start()] + m.expand(text) + line[m.end():] if isinstance(text, str)
             else line[:m.start()] + text(m) + line[m.end():]
             for pattern, text in OPERATORS for m in pattern.finditer(code) if code[:m.start()].count('"') % 2 == 0]
    if statement := STATEMENT.match(code):
        found.append(statement[1] + ";")
    return found


def shell(command):
    return subprocess.run(command, shell=True, text=True, errors="replace",
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


def failing(folder, targets, tests):
    """Builds targets; then the first of the tests that fails, or None. No tests: those just linked."""
    build = shell(f"nice -n 5 ninja -j2 -C {folder} {targets}")
    if build.returncode:
        return "static_assert" if re.search("static.assertion failed", build.stdout) else "compiler"
    linked = set(re.findall(r"Linking CXX executable (?:tests/)?(\w+?)(?:_test)?\n", build.stdout + "\n"))
    tests = tests or "|".join(linked | ({"known"} if linked & {"digest", "tessview", "tessplay"} else set()))
    if not tests:
        return None
    limit = "" if "sanitize" in folder else "ulimit -v 8000000; "
    run = shell(f"{limit}nice -n 5 ctest --test-dir {folder} -j2 --timeout 120 --stop-on-failure -R '^({tests})'")
    failed = re.search(r"Test +#\d+: (\w+) \.*[\w ]*\*\*\*(?!Skipped|Not Run)", run.stdout)
    return None if not run.returncode else failed[1] if failed else "ctest"


def verdict(path, tests, options):
    """Which test fails now, or None."""
    names = next((names for stems, names in TESTS.items() if re.match(stems, path.stem)), path.stem.split("_")[0])
    own = [test for test in tests if re.match(f"({names})(_|$)", test)]
    targets = " ".join(f"{test}_test" for test in own)
    return (own and failing("build/release", targets, "|".join(own)) or failing("build/release", "all", "") or
            own and options.sanitize and failing("build/sanitize", targets, "|".join(own)) or
            options.end_to_end and failing("build/release", "all", WHOLE_PROGRAMS) or None)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("seed", type=int)
    parser.add_argument("count", type=int)
    parser.add_argument("paths", nargs="+", type=pathlib.Path)
    parser.add_argument("--sanitize", action="store_true")
    parser.add_argument("--end-to-end", action="store_true")
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: exit(1))
    random.seed(options.seed)

    files = [f for path in options.paths for f in (sorted(path.glob("*.[ch]*")) if path.is_dir() else [path])]
    places = [(f, i) for f in files for i, line in enumerate(f.read_text().split("\n")) if mutants_of(line)]
    random.shuffle(places)
    tests = re.findall(r"Test +#\d+: (\w+)", shell("ctest --test-dir build/release -N").stdout)
    if not tests or shell("ninja -j2 -C build/release").returncode:
        exit("build/release does not build")
    killed = survived = 0
    for path, i in places:
        if killed + survived == options.count:
            break
        before = path.read_text()
        lines = before.split("\n")
        old, lines[i] = lines[i], random.choice(mutants_of(lines[i]))
        try:
            path.write_text("\n".join(lines))
            killer = verdict(path, tests, options)
        finally:
            path.write_text(before)
        killed += killer not in (None, "compiler")
        survived += killer is None
        result = "does not compile" if killer == "compiler" else f"killed by {killer}" if killer else "SURVIVED"
        print(f"{result}: {path}:{i + 1}\n"
              f"    - {old.strip()}\n    + {lines[i].strip()}", flush=True)
    print(f"{killed} of {killed + survived} killed")


if __name__ == "__main__":
    main()
