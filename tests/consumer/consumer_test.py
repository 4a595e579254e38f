#!/usr/bin/env python3
"""consumer_test.py PREFIX...: the installed library as used by other programs, from another folder.

The README's program is built against each prefix by CMake and by pkg-config, and must decode a PNG
file and a WAV file. Each header must compile alone. A shared library must show nothing but what the
headers declare.
"""
import os, pathlib, re, shutil, struct, subprocess, sys, tempfile, zlib
from concurrent.futures import ThreadPoolExecutor

HERE = pathlib.Path(__file__).resolve().parent
WARNINGS = ["-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror"]
PIXELS = bytes(range(24))
SAMPLES = struct.pack("<6h", 0, 1, -1, 32767, -32768, 300)


def run(*command, **options):
    done = subprocess.run(command, stdout=subprocess.PIPE, **options)
    if done.returncode != 0:
        sys.exit(f"failed: {' '.join(map(str, command))}\n{done.stdout.decode(errors='replace')}")
    return done.stdout


def png():
    rows = b"".join(b"\0" + PIXELS[i:i + 12] for i in (0, 12))
    chunks = ((b"IHDR", struct.pack(">2I5B", 3, 2, 8, 6, 0, 0, 0)), (b"IDAT", zlib.compress(rows)), (b"IEND", b""))
    return b"\x89PNG\r\n\x1a\n" + b"".join(
        struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))
        for name, data in chunks)


def wav():
    body = b"WAVEfmt " + struct.pack("<IHHIIHH", 16, 1, 1, 8000, 16000, 2, 16)
    body += b"data" + struct.pack("<I", len(SAMPLES)) + SAMPLES
    return b"RIFF" + struct.pack("<I", len(body)) + body


def check_headers(include):
    def compile_alone(header):
        run("g++", *WARNINGS, "-fsyntax-only", "-I", include, "-x", "c++", "-",
            input=f'#include "{header}"\n'.encode())

    headers = [h.relative_to(include) for h in include.rglob("*.h")]
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(compile_alone, headers))
    return len(headers)


def check_exports(library, include):
    known = set(re.findall(r"\w+", " ".join(h.read_text() for h in include.rglob("*.h"))))
    names = [line.split(maxsplit=2)[2] for line in
             run("nm", "-DC", "--defined-only", library).decode().splitlines() if " V " not in line and " u " not in line]
    own = [name for name in names if not re.match(r"(void |bool )?std::|__", name)]
    private = [name for name in own
               if not set(re.findall(r"\w+", re.sub(r"[(<\[].*", "", name).split()[-1])) <= known]
    if private or len(own) < 100:
        sys.exit(f"{library} shows what no header declares, or next to nothing: {len(own)} names, {private}")
    return len(own)


def check_prefix(prefix, folder):
    library = next(prefix.rglob("libtessaruvinel.[as]*"))
    where = {**os.environ, "LD_LIBRARY_PATH": str(library.parent),
             "PKG_CONFIG_PATH": str(library.parent / "pkgconfig")}
    shutil.copytree(HERE, folder)
    run("cmake", "-S", folder, "-B", folder / "cmake", f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", folder / "cmake")
    flags = run("pkg-config", "--cflags", "--libs", "tessaruvinel-picture", "tessaruvinel-audio", env=where)
    run("g++", *WARNINGS, folder / "decode.cpp", "-o", folder / "decode", *flags.decode().split())
    want = b"3 x 2 \n" + PIXELS + b"%d bytes, 8000 Hz \n" % len(SAMPLES) + SAMPLES
    for program in (folder / "decode", folder / "cmake" / "decode"):
        got = run(program, folder.parent / "picture.png", folder.parent / "sound.wav", env=where)
        if got != want:
            sys.exit(f"{program}: {got!r} is not {want!r}")
    include = prefix / "include" / "tessaruvinel"
    shown = f", shows {check_exports(library, include)} names" if library.suffix != ".a" else ""
    print(f"{library.name}: decodes by CMake and by pkg-config{shown}")
    return include


def main():
    source = (HERE / "decode.cpp").read_text()
    if f"```cpp\n{source}```" not in (HERE.parent.parent / "README.md").read_text():
        sys.exit("README.md does not show tests/consumer/decode.cpp as it is")
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "picture.png").write_bytes(png())
        (folder / "sound.wav").write_bytes(wav())
        for i, prefix in enumerate(sys.argv[1:]):
            include = check_prefix(pathlib.Path(prefix).resolve(), folder / str(i))
    print(f"{check_headers(include)} headers compile alone")


main()
