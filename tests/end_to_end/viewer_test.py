"""The real viewer: viewer_test.py VIEWER DATA"""

import json
import os
import struct
import subprocess
import sys
import tempfile
import time
import unittest

from stage import Display

VIEWER, DATA = (os.path.abspath(path) for path in sys.argv[1:3])
RED, GREEN, BLUE, WHITE = b"\xff\0\0", b"\0\xff\0", b"\0\0\xff", b"\xff\xff\xff"


def ppm(width, height, pixels):
    return b"P6\n#\n%d %d\n255\n" % (width, height) + pixels


def pages(*colours):
    file = b"II*\0\x08\0\0\0"
    for n, colour in enumerate(colours):
        end = len(file) + 90
        tags = [(256, 1), (257, 1), (258, 8), (262, 2), (273, end), (277, 3), (279, 3)]
        file += struct.pack("<H", 7) + b"".join(struct.pack("<HHII", tag, 4, 1, value) for tag, value in tags) + \
            struct.pack("<I", (end + 4) * (n + 1 < len(colours))) + colour + b"\0"
    return file


def segment(marker, content):
    return struct.pack(">BBH", 255, marker, 2 + len(content)) + content


def exif(thumbnail):
    """Little-endian Exif data: 1.5 degrees south, 2.25 west, and a thumbnail."""
    def ifd(following, *entries):
        return struct.pack("<H", len(entries)) + b"".join(struct.pack("<HHII", *entry) for entry in entries) + \
            struct.pack("<I", following)
    places = struct.pack("<12I", 1, 1, 30, 1, 0, 1, 2, 1, 15, 1, 0, 1)
    return b"Exif\0\0II*\0\x08\0\0\0" + ifd(80, (34853, 4, 1, 26)) + \
        ifd(0, (1, 2, 2, ord("S")), (2, 5, 3, 110), (3, 2, 2, ord("W")), (4, 5, 3, 134)) + \
        ifd(0, (513, 4, 1, 158), (514, 4, 1, len(thumbnail))) + places + thumbnail


class Viewer(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.environment = {"ASAN_OPTIONS": "detect_leaks=0"}  # the graphics drivers leak

    def tearDown(self):
        self.folder.cleanup()

    def file(self, name, content=None):
        path = os.path.join(self.folder.name, name)
        if content is not None:
            with open(path, "wb") as file:
                file.write(content)
        return path

    def run_viewer(self, *words):
        return self.run_program(VIEWER, *words)

    def run_program(self, *words):
        run = subprocess.run(words, env=dict(os.environ, **self.environment), capture_output=True,
                             text=True, timeout=60)
        return run.returncode, run.stdout, run.stderr

    def test_info(self):
        def changed(name, at, inserted):
            with open(os.path.join(DATA, name), "rb") as file:
                content = file.read()
            return self.file(os.path.basename(name), content[:at] + inserted + content[at:])

        with open(os.path.join(DATA, "jpg/3x2.jpg"), "rb") as file:
            photograph = file.read()
        rows = {
            "tiff/seq-3c-8b-lzw-8743c999.tiff": ["TIFF, 16x16, 24 bits a pixel\n"],
            # A name that would control the terminal and a text in Latin-1; a segment that the decoder traces.
            changed("png/basn0g01.png", 33, b"\0\0\0\x08tEXtA\x1bB\0caf\xe9CRC!"): ["1 bit a pixel\n", "  A B: café\n"],
            changed("jpg/3x2.jpg", 20, b"\xff\xee\0\x03\x01"): ["JPEG, 33x27, 24 bits a pixel\n"],
            # The picture's facts, not the thumbnail's; a comment that would control the terminal in two ways.
            changed("jpg/grey.jpg", 20, segment(0xE1, exif(photograph[:20] + segment(0xFE, b"thumb?") + photograph[20:])) +
                    segment(0xFE, b"A\xc2\x9bB C\xc3\x9b?")):
                ["  comment: A B CÛ\n", "  latitude: 1.50000 S\n", "  longitude: 2.25000 W\n", "  thumbnail: 33x27\n"],
            "png/ct1n0g04.png": ["PNG, 32x32, 4 bits a pixel\n", "  Title: PngSuite\n", "  colour: Grayscale\n"],
            "jpg/progressive_420.jpg": ["JPEG, 33x27, 24 bits a pixel\n", "  identifier: JFIF\n"],
        }
        for name, lines in rows.items():
            path = os.path.join(DATA, name)
            status, printed, errors = self.run_viewer("--info", path)
            self.assertTrue(printed.startswith(path), printed)
            self.assertEqual((status, errors), (0, ""))
            for line in lines:
                self.assertIn(line, printed)

    def test_json(self):
        with open(os.path.join(DATA, "png/ct1n0g04.png"), "rb") as file:
            whole = file.read()
        # A name that would control the terminal and is not UTF-8; a truncated file; a photograph; no picture.
        names = [self.file("a\x1b[2J\udc9b.png", whole), self.file("cut.png", whole[:-200]),
                 self.file("p.jpg", self.photograph()), self.file("no.txt", b"no picture")]
        status, printed, errors = self.run_viewer("--info", "--json", *names)
        steering, cut, photograph, none = map(json.loads, printed.splitlines())
        self.assertEqual(status, 1)
        self.assertNotIn("\x1b", printed + errors)
        self.assertTrue(steering["path"].endswith("/a\x1b[2J\ufffd.png"))
        self.assertEqual((steering["format"], steering["width"], steering["depth"], steering["truncated"]),
                         ("PNG", 32, 4, False))
        self.assertIn({"name": "Title", "text": "PngSuite"}, steering["texts"])
        self.assertTrue(cut["truncated"] and cut["reason"])
        self.assertEqual(photograph["orientation"], 6)
        self.assertEqual(photograph["exif"], {"date": "2026:01:31 12:30:00", "exposure": "1/250 s, f/2.8, ISO 200"})
        self.assertEqual(set(none), {"path", "reason"})

    def photograph(self):
        """A JPEG file of 33 by 27 pixels with big-endian Exif data: orientation and exposure."""
        with open(os.path.join(DATA, "jpg/3x2.jpg"), "rb") as file:
            content = file.read()
        entries = [(274, 3, 1, 6 << 16), (306, 2, 20, 74), (33434, 5, 1, 94), (33437, 5, 1, 102), (34855, 3, 1, 200 << 16)]
        tiff = b"MM\0*\0\0\0\x08" + struct.pack(">H", len(entries)) + \
            b"".join(struct.pack(">HHII", *entry) for entry in entries) + struct.pack(">I", 0)
        tiff += b"2026:01:31 12:30:00\0" + struct.pack(">4I", 1, 250, 28, 10)
        return content[:20] + segment(0xE1, b"Exif\0\0" + tiff) + content[20:]

    def test_convert(self):
        picture = self.file("in.ppm", ppm(2, 1, RED + b"\x10\x20\x30"))
        out = self.file("out.pam")
        self.assertEqual(self.run_viewer("--convert", picture, out), (0, "", ""))
        with open(out, "rb") as file:
            self.assertEqual(file.read(), b"P7\nWIDTH 2\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\n"
                                          b"ENDHDR\n\xff\0\0\xff\x10\x20\x30\xff")
        sprites = self.file("in.spr", b"SPRITES\x02\x01\x01" + b"\x01\x02\x03" + b"\x0a\x0b\x0c")
        self.assertEqual(self.run_viewer("--convert", "--frame", "1", sprites, out), (0, "", ""))
        with open(out, "rb") as file:
            self.assertTrue(file.read().endswith(b"ENDHDR\n\x0c\x0b\x0a\xff"))
        bits = self.file("in.xbm", b"#define x_width 9\n#define x_height 2\nstatic char x_bits[] = {1, 1, 0, 0};")
        inks = b"\0\0\0\xff", b"\xff\xff\xff\xff"
        for picture, words, pixels in [(bits, [], inks[0] + inks[1] * 7 + inks[0] + inks[1] * 9),
                                       (self.file("in.tif", pages(RED, BLUE)), ["--frame", "1"], BLUE + b"\xff")]:
            self.assertEqual(self.run_viewer("--convert", picture, out, *words), (0, "", ""))
            with open(out, "rb") as file:
                self.assertEqual(file.read().split(b"ENDHDR\n")[1], pixels)
        sizes = []
        for words in [["out.ham6"], ["out.ham8"], ["out.ham8", "--compress"]]:
            out = self.file(words[0])
            large = self.file("large.ppm", ppm(64, 64, BLUE * 64 * 64))
            self.assertEqual(self.run_viewer("--convert", large, out, *words[1:]), (0, "", ""))
            self.assertIn("HAM, 64x64", self.run_viewer("--info", out)[1])
            sizes.append(os.path.getsize(out))
        self.assertTrue(sizes[2] < sizes[0] < sizes[1], sizes)
        odd = self.file("odd.ppm", ppm(15, 1, BLUE * 15))
        self.assertEqual(self.run_viewer("--convert", odd, out),
                         (0, "", f"tessview: {out}: only the first 8 of 15 columns were written, a multiple of 8\n"))
        self.assertIn("HAM, 8x1", self.run_viewer("--info", out)[1])

    def test_converting_many(self):
        first, second = self.file("x.ppm", ppm(1, 1, RED)), self.file("x.pgm", b"P5 1 1 255 \x80")
        sprites = self.file("in.spr", b"SPRITES\x0b\x01\x01" + bytes(range(33)))
        folder = self.file("out")
        os.mkdir(folder)
        status, _, errors = self.run_viewer("--convert", first, "absent", second, sprites, folder, "--to", "bmp")
        self.assertEqual((status, errors.count("\n")), (1, 1))
        self.assertEqual(sorted(os.listdir(folder)), ["in.bmp", "x.bmp", "x.pgm.bmp"])
        out = self.file("all.png")
        self.assertEqual(self.run_viewer("--convert", "--frame", "all", sprites, out), (0, "", ""))
        for n in (0, 3, 10):
            pam = self.file("frame.pam")
            self.assertEqual(self.run_viewer("--convert", self.file(f"all-{n:02}.png"), pam), (0, "", ""))
            with open(pam, "rb") as file:
                self.assertTrue(file.read().endswith(bytes([3 * n + 2, 3 * n + 1, 3 * n, 255])))

    def test_files_are_replaced_whole(self):
        photograph = self.file("p.jpg", self.photograph())
        pam = self.file("p.pam")
        self.assertEqual(self.run_viewer("--convert", "--upright", photograph, pam), (0, "", ""))
        with open(pam, "rb") as file:
            before = file.read()
        self.assertIn(b"WIDTH 27\nHEIGHT 33\n", before)
        self.assertEqual(self.run_viewer("--convert", pam, pam), (0, "", ""))  # onto itself
        with open(pam, "rb") as file:
            self.assertEqual(file.read(), before)
        self.assertEqual(sorted(os.listdir(self.folder.name)), ["p.jpg", "p.pam"])

    def test_standard_input(self):
        out = self.file("x.pam")
        run = subprocess.run([VIEWER, "--convert", "-", out], input=ppm(1, 1, RED), capture_output=True)
        self.assertEqual((run.returncode, run.stderr), (0, b""))
        os.mkdir(self.file("f"))
        os.mkdir(self.file("f/inner"))
        for name in ("f/b10.ppm", "f/b9.ppm", "f/inner/c.ppm"):
            self.file(name, ppm(1, 1, RED))
        self.file("f/notes.txt", b"no picture")
        run = subprocess.run([VIEWER, "--info", "-r", "-f", out], input=self.file("f\n").encode(), capture_output=True)
        found = [line.split(b": ")[0].decode() for line in run.stdout.splitlines()]
        self.assertEqual(found, [out] + [self.file(name) for name in ("f/b9.ppm", "f/b10.ppm", "f/inner/c.ppm")])
        self.assertEqual(self.run_program("sh", "-c", '"$0" --info -f < "$1"', VIEWER, self.folder.name),
                         (1, "", "tessview: standard input: Is a directory\n"))
        self.assertEqual(self.run_program("sh", "-c", '"$0" --help > /dev/full', VIEWER),
                         (1, "", "tessview: standard output: No space left on device\n"))

    def test_failures(self):
        picture = self.file("in.ppm", ppm(1, 1, RED))
        text = self.file("text", b"no picture")
        cut = self.file("cut.png", b"\x89PNG\r\n\x1a\n")
        pipe, outlet = self.file("pipe"), self.file("pipe.pam")  # no process writes to it or reads from it
        os.mkfifo(pipe)
        os.mkfifo(outlet)
        sprites = self.file("cut.spr", b"SPRITES\x03\x01\x01" + b"\x01\x02\x03" * 2)  # the third is missing
        rows = [
            (["--info", "absent", picture], 1, "tessview: absent: cannot be opened: No such file or directory\n"),
            (["--info", self.folder.name + "/none"], 1, "No such file or directory\n"),
            (["--info", self.file("empty", b"")], 1, "\n"),
            (["--info", pipe], 1, "\n"),
            (["--convert", pipe, self.file("x.pam")], 1, "\n"),
            (["--convert", picture, outlet], 1, f"tessview: {outlet}: it is not a regular file\n"),
            (["--info", text], 1, f"tessview: {text}: not a picture of a known format\n"),
            (["--info", cut], 1, "\n"),
            (["--convert", text, self.file("x.pam")], 1, "not a picture of a known format\n"),
            (["--convert", picture, "/absent/x.pam"], 1, "tessview: /absent/x.pam: No such file or directory\n"),
            (["--convert", "--frame", "1", picture, self.file("x.pam")], 1, "it has one frame, number 0\n"),
            (["--convert", picture, self.file("x.ham6")], 1, "too narrow for .ham6 and .ham8\n"),
            (["--convert", "--frame", "2", sprites, self.file("x.pam")], 1, "it has 2 frames, counted from 0\n"),
            (["--convert", picture, "x.jpg"], 2, ""),
            (["--convert", picture, "x.pam", "y.pam"], 2, ""),
            (["--convert", picture], 2, ""),
            (["--info", "--frame", "1", picture], 2, ""),
            (["--frame", "all", picture], 2, ""),
            (["--frame", "-1", picture], 2, ""),
            (["--json", picture], 2, ""),
            (["--charset", "15"], 2, ""),
            (["--no-such-option"], 2, ""),
            ([], 2, ""),
        ]
        for words, status, errors in rows:
            with self.subTest(words):
                result = self.run_viewer(*words)
                self.assertEqual((result[0], result[2].count("\n")), (status, 1))
                self.assertTrue(result[2].endswith(errors), result[2])

    def test_in_a_window(self):
        quarters = self.file("quarters.ppm", ppm(2, 2, RED + GREEN + BLUE + WHITE))
        clear = self.file("clear.gif", b"GIF89a\x02\0\x02\0\x80\0\0\xff\0\0\0\0\xff"
                                       b"\x21\xf9\x04\x01\0\0\x01\0" b"\x2c\0\0\0\0\x02\0\x02\0\0\x02\x03\x0c\x10\x05\0;")
        sprites = self.file("two.spr", b"SPRITES\x02\x01\x01" + BLUE + RED)  # of B G R
        with Display() as display:
            self.environment["DISPLAY"] = display.name
            self.assertEqual(self.run_viewer("--frame", "2", sprites),
                             (1, "", f"tessview: {sprites}: it has 2 frames, counted from 0\n"))
            viewer = subprocess.Popen([VIEWER, quarters, clear, sprites, "absent"], stderr=subprocess.PIPE,
                                      env=dict(os.environ, **self.environment))

            def await_pixels(expected):
                deadline = time.monotonic() + 30
                while (seen := display.pixels(points)) != expected:
                    self.assertLess(time.monotonic(), deadline, seen)
                    time.sleep(0.2)

            # 2 by 2 pixels become 768 by 768 in the window's centre.
            points = [(300, 100), (700, 100), (300, 600), (700, 600), (50, 400)]
            fitted = [RED, GREEN, BLUE, WHITE, b"\x30\x30\x34"]
            await_pixels(fitted)
            for key, turned in [("r", [BLUE, RED, WHITE, GREEN]), ("m", [RED, BLUE, GREEN, WHITE]),
                                ("R", [BLUE, WHITE, RED, GREEN]), ("m", [WHITE, BLUE, GREEN, RED]), ("r", None), ("r", fitted)]:
                display.xdotool("key", key)
                if turned:
                    await_pixels(turned[:4] + fitted[4:])
            window = display.xdotool("search", "--name", "quarters.ppm - PNM, 2x2, 24 bits").split()
            self.assertEqual(len(window), 1)
            # What is under the pointer stays there.
            display.xdotool("mousemove", "200", "100", "click", "--repeat", "4", "4")
            await_pixels([RED] * 5)
            display.xdotool("key", "0")
            await_pixels(fitted)
            for _ in range(4):
                display.xdotool("key", "equal")
                time.sleep(0.3)
            await_pixels([RED, GREEN, BLUE, WHITE, BLUE])
            for step in [("mousemove", "600", "200"), ("mousedown", "1"), ("mousemove", "200", "500"), ("mouseup", "1")]:
                display.xdotool(*step)
                time.sleep(0.3)
            await_pixels([GREEN, GREEN, GREEN, GREEN, RED])
            points = [(512, 384)]
            for key, color in [("Left", RED), ("Next", BLUE), ("Next", RED), ("Prior", BLUE)]:  # skipping the missing file
                display.xdotool("key", key)
                await_pixels([color])
            display.xdotool("key", "Left")
            # The contact sheet, with the first picture centred in the first cell.
            display.xdotool("key", "Tab", "Left")
            points = [(167, 91)]
            await_pixels([RED])
            display.xdotool("key", "Tab")
            # Squares of 8, white and grey.
            points = [(304, 104), (312, 104)]
            deadline = time.monotonic() + 30
            while set(display.pixels(points)) != {WHITE, b"\xcc\xcc\xcc"}:
                self.assertLess(time.monotonic(), deadline)
                time.sleep(0.2)
            points = [(2, 766)]  # the caption, over the window's grey
            await_pixels([b"\x0a\x0a\x0b"])
            display.xdotool("key", "c")
            await_pixels([b"\x30\x30\x34"])
            display.xdotool("key", "Escape")
            self.assertEqual(viewer.wait(30), 1)  # one file was missing
            with viewer.stderr as stream:
                self.assertEqual(stream.read(), b"tessview: absent: cannot be opened: No such file or directory\n")

    def test_keys(self):
        def animation(*colours):  # of one pixel, red or green, ten seconds a frame
            return b"GIF89a\1\0\1\0\x80\0\0\xff\0\0\0\xff\0" + b"".join(
                b"!\xf9\4\0\xe8\3\0\0,\0\0\0\0\1\0\1\0\0\2\2" + struct.pack("<HB", 4 | c << 3 | 5 << 6, 0)
                for c in colours) + b";"

        for name, content in [("1.gif", animation(0, 1)), ("2.tif", pages(BLUE, GREEN)), ("3.txt", b"no picture"),
                              ("4.ppm", ppm(2, 64, RED * 64 + BLUE * 64))]:
            self.file(name, content)
        middle, help_line, grey, dark, black = (512, 384), (740, 505), b"\x30\x30\x34", b"\x0a\x0a\x0b", b"\0\0\0"
        rows = [
            ("sleep 0", {middle: RED}), ("key period", {middle: GREEN}), ("key comma", {middle: RED}), ("key a", {middle: RED}),
            ("key Right", {middle: BLUE}), ("key Next", {middle: GREEN}), ("key Right", {(512, 100): RED, (512, 700): BLUE}),
            ("key w", {(10, 384): RED, (1000, 700): RED}), ("key 0 1", {(512, 370): RED, (512, 400): BLUE, (520, 384): grey}),
            ("key d", {(2, 2): dark}), ("key d", {(2, 2): grey}), ("key z", {help_line: dark}), ("sleep 2.2", {help_line: grey}),
            ("key h", {help_line: dark}), ("key question", {help_line: grey}), ("key s", {middle: BLUE}), ("sleep 5", {middle: RED}),
            ("key s", {middle: RED}), ("key End", {(512, 700): BLUE}), ("key Tab", {(512, 700): grey, (167, 91): RED}),
            ("mousemove 340 91 click 5 click 4 click 1", {middle: BLUE}), ("key Home", {middle: RED}),
            ("key n", {middle: BLUE}), ("key p", {middle: RED}), ("key space", {middle: BLUE}), ("key BackSpace", {middle: RED}),
            ("key Tab End Return", {(501, 100): RED}), ("key minus", {(501, 100): grey, (503, 100): RED}),
            ("key plus", {(501, 100): RED}), ("key Down i", {(501, 100): grey}), ("key Up i", {(501, 100): RED}),
            ("key Tab Home Right Left space", {middle: RED}), ("key Tab Right Return", {middle: BLUE}),
            ("key Tab Down KP_Enter", {(501, 100): RED}), ("key Tab Up Return", {middle: RED}),
            ("key Tab Next Return", {(501, 100): RED}), ("key Tab Prior Return", {middle: RED}),
            ("key Tab z", {help_line: dark}), ("mousemove 1020 760 click 1 key Tab sleep 2", {middle: RED, help_line: RED}),
            ("key f", {(1200, 384): grey}), ("key F11", {(1200, 384): black}),
            ("mousemove 512 100 click --repeat 2 --delay 40 1", {(1200, 384): grey}),
        ]
        starts = [  # and what is seen at first
            (["--charset", "0"], {(2, 2): grey}), (["--fullscreen", "4.ppm"], {(1200, 384): grey}),
            (["--grid", "."], {(167, 91): RED}), (["--slideshow", "0.5", "."], {middle: BLUE}),
            (["--frame", "1", "1.gif"], {middle: GREEN}), (["--frame", "1", "2.tif"], {middle: GREEN}),
        ]
        def await_pixels(expected, words):
            deadline = time.monotonic() + 30
            while (seen := display.pixels(expected)) != list(expected.values()):
                self.assertLess(time.monotonic(), deadline, (words, seen))
                time.sleep(0.1)

        def start(*words):
            viewer = subprocess.Popen([VIEWER, *words], cwd=self.folder.name, stderr=subprocess.DEVNULL,
                                      env=dict(os.environ, **self.environment, DISPLAY=display.name))
            self.addCleanup(viewer.kill)
            return viewer

        with Display() as display:
            viewer = start(self.folder.name)
            for words, expected in rows:
                display.xdotool(*words.split())
                await_pixels(expected, words)
            for words, expected in starts:
                display.xdotool("key", "q")
                self.assertEqual(viewer.wait(30), 0)
                viewer = start(*words)
                await_pixels(expected, words)
            self.assertEqual(start("absent").wait(30), 1)
        self.assertEqual(viewer.wait(30), 1)  # without its display


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
