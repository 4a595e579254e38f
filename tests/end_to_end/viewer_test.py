"""The real viewer: viewer_test.py VIEWER DATA"""

import json
import os
import struct
import subprocess
import sys
import unittest

from cards import Programs
from stage import Display

VIEWER, DATA = (os.path.abspath(path) for path in sys.argv[1:3])
RED, GREEN, BLUE, WHITE = b"\xff\0\0", b"\0\xff\0", b"\0\0\xff", b"\xff\xff\xff"


def ppm(width, height, pixels):
    return b"P6\n#\n%d %d\n255\n" % (width, height) + pixels


def ifd(order, entries, following=0):
    return struct.pack(order + "H", len(entries)) + \
        b"".join(struct.pack(order + "HHII", *entry) for entry in entries) + struct.pack(order + "I", following)


def pages(*colours):
    file = b"II*\0\x08\0\0\0"
    for n, colour in enumerate(colours):
        end = len(file) + 90
        tags = [(256, 1), (257, 1), (258, 8), (262, 2), (273, end), (277, 3), (279, 3)]
        following = (end + 4) * (n + 1 < len(colours))
        file += ifd("<", [(tag, 4, 1, value) for tag, value in tags], following) + colour + b"\0"
    return file


def segment(marker, content):
    return struct.pack(">BBH", 255, marker, 2 + len(content)) + content


def exif(thumbnail):
    """Little-endian Exif data: 1.5 degrees south, 2.25 west, and a thumbnail."""
    places = struct.pack("<12I", 1, 1, 30, 1, 0, 1, 2, 1, 15, 1, 0, 1)
    return b"Exif\0\0II*\0\x08\0\0\0" + ifd("<", [(34853, 4, 1, 26)], 80) + \
        ifd("<", [(1, 2, 2, ord("S")), (2, 5, 3, 110), (3, 2, 2, ord("W")), (4, 5, 3, 134)]) + \
        ifd("<", [(513, 4, 1, 158), (514, 4, 1, len(thumbnail))]) + places + thumbnail


class Viewer(Programs):
    def setUp(self):
        super().setUp()
        self.environment["ASAN_OPTIONS"] = "detect_leaks=0"  # the graphics drivers leak

    def run_viewer(self, *words):
        return self.run_program(VIEWER, *words)

    def converted(self, *words):
        """The file, the last of the words, that a conversion without a complaint writes."""
        self.assertEqual(self.run_viewer("--convert", *words), (0, "", ""))
        return self.read(words[-1])

    def start(self, display, *words, errors=subprocess.DEVNULL):
        viewer = subprocess.Popen([VIEWER, *words], cwd=self.folder.name, stderr=errors,
                                  env=dict(self.environment, DISPLAY=display.name))
        self.addCleanup(viewer.kill)
        return viewer

    def see(self, display, rows):
        """Gives input, words of xdotool's, and awaits what is seen then."""
        for words, expected in rows:
            display.xdotool(*words.split())
            display.await_pixels(expected, words)

    def test_info(self):
        def changed(name, at, inserted):
            content = self.read(os.path.join(DATA, name))
            return self.write(os.path.basename(name), content[:at] + inserted + content[at:])

        photograph = self.read(os.path.join(DATA, "jpg/3x2.jpg"))
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
        whole = self.read(os.path.join(DATA, "png/ct1n0g04.png"))
        # A name that would control the terminal and is not UTF-8; a truncated file; a photograph; no picture.
        names = [self.write("a\x1b[2J\udc9b.png", whole), self.write("cut.png", whole[:-200]),
                 self.write("p.jpg", self.photograph()), self.write("no.txt", b"no picture")]
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
        content = self.read(os.path.join(DATA, "jpg/3x2.jpg"))
        entries = [(274, 3, 1, 6 << 16), (306, 2, 20, 74), (33434, 5, 1, 94), (33437, 5, 1, 102), (34855, 3, 1, 200 << 16)]
        tiff = b"MM\0*\0\0\0\x08" + ifd(">", entries) + b"2026:01:31 12:30:00\0" + struct.pack(">4I", 1, 250, 28, 10)
        return content[:20] + segment(0xE1, b"Exif\0\0" + tiff) + content[20:]

    def test_convert(self):
        picture = self.write("in.ppm", ppm(2, 1, RED + b"\x10\x20\x30"))
        self.assertEqual(self.converted(picture, "out.pam"),
                         b"P7\nWIDTH 2\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\n"
                         b"ENDHDR\n\xff\0\0\xff\x10\x20\x30\xff")
        sprites = self.write("in.spr", b"SPRITES\x02\x01\x01" + b"\x01\x02\x03" + b"\x0a\x0b\x0c")
        bits = self.write("in.xbm", b"#define x_width 9\n#define x_height 2\nstatic char x_bits[] = {1, 1, 0, 0};")
        inks = b"\0\0\0\xff", b"\xff\xff\xff\xff"
        for words, pixels in [(["--frame", "1", sprites], b"\x0c\x0b\x0a\xff"),
                              ([bits], inks[0] + inks[1] * 7 + inks[0] + inks[1] * 9),
                              (["--frame", "1", self.write("in.tif", pages(RED, BLUE))], BLUE + b"\xff")]:
            self.assertEqual(self.converted(*words, "out.pam").split(b"ENDHDR\n")[1], pixels)
        large = self.write("large.ppm", ppm(64, 64, BLUE * 64 * 64))
        sizes = []
        for words in [["out.ham6"], ["out.ham8"], ["--compress", "out.ham8"]]:
            sizes.append(len(self.converted(large, *words)))
            self.assertIn("HAM, 64x64", self.run_viewer("--info", words[-1])[1])
        self.assertTrue(sizes[2] < sizes[0] < sizes[1], sizes)
        out = self.path("out.ham8")
        odd = self.write("odd.ppm", ppm(15, 1, BLUE * 15))
        self.assertEqual(self.run_viewer("--convert", odd, out),
                         (0, "", f"tessview: {out}: only the first 8 of 15 columns were written, a multiple of 8\n"))
        self.assertIn("HAM, 8x1", self.run_viewer("--info", out)[1])

    def test_converting_many(self):
        first, second = self.write("x.ppm", ppm(1, 1, RED)), self.write("x.pgm", b"P5 1 1 255 \x80")
        sprites = self.write("in.spr", b"SPRITES\x0b\x01\x01" + bytes(range(33)))
        folder = self.path("out")
        os.mkdir(folder)
        status, _, errors = self.run_viewer("--convert", first, "absent", second, sprites, folder, "--to", "bmp")
        self.assertEqual((status, errors.count("\n")), (1, 1))
        self.assertEqual(sorted(os.listdir(folder)), ["in.bmp", "x.bmp", "x.pgm.bmp"])
        self.assertEqual(self.run_viewer("--convert", "--frame", "all", sprites, "all.png"), (0, "", ""))
        for n in (0, 3, 10):
            frame = self.converted(f"all-{n:02}.png", "frame.pam")
            self.assertTrue(frame.endswith(bytes([3 * n + 2, 3 * n + 1, 3 * n, 255])))

    def test_files_are_replaced_whole(self):
        before = self.converted("--upright", self.write("p.jpg", self.photograph()), "p.pam")
        self.assertIn(b"WIDTH 27\nHEIGHT 33\n", before)
        self.assertEqual(self.converted("p.pam", "p.pam"), before)  # onto itself
        self.assertEqual(sorted(os.listdir(self.folder.name)), ["p.jpg", "p.pam"])

    def test_standard_input(self):
        self.write("x.ppm", ppm(1, 1, RED))
        self.assertEqual(self.run_program("sh", "-c", '"$0" --convert - x.pam < x.ppm', VIEWER), (0, "", ""))
        os.makedirs(self.path("f/inner"))
        for name in ("f/b10.ppm", "f/b9.ppm", "f/inner/c.ppm"):
            self.write(name, ppm(1, 1, RED))
        self.write("f/notes.txt", b"no picture")
        printed = self.run_program("sh", "-c", 'echo f | "$0" --info -r -f x.pam', VIEWER)[1]
        self.assertEqual([line.split(": ")[0] for line in printed.splitlines()],
                         ["x.pam", "f/b9.ppm", "f/b10.ppm", "f/inner/c.ppm"])
        self.assertEqual(self.run_program("sh", "-c", '"$0" --info -f < .', VIEWER),
                         (1, "", "tessview: standard input: Is a directory\n"))
        self.assertEqual(self.run_program("sh", "-c", '"$0" --help > /dev/full', VIEWER),
                         (1, "", "tessview: standard output: No space left on device\n"))

    def test_failures(self):
        for name, content in [("in.ppm", ppm(1, 1, RED)), ("text", b"no picture"), ("empty", b""), ("cut.png", b"\x89PNG\r\n\x1a\n"),
                              ("cut.spr", b"SPRITES\x03\x01\x01" + b"\x01\x02\x03" * 2)]:  # the third is missing
            self.write(name, content)
        for name in "pipe", "pipe.pam":  # no process writes to it or reads from it
            os.mkfifo(self.path(name))
        rows = [
            ("--info absent in.ppm", 1, "tessview: absent: cannot be opened: No such file or directory\n"),
            ("--info ./none", 1, "No such file or directory\n"),
            ("--info text", 1, "tessview: text: not a picture of a known format\n"),
            ("--info empty", 1, "\n"), ("--info cut.png", 1, "\n"), ("--info pipe", 1, "\n"), ("--convert pipe x.pam", 1, "\n"),
            ("--convert in.ppm pipe.pam", 1, "tessview: pipe.pam: it is not a regular file\n"),
            ("--convert text x.pam", 1, "not a picture of a known format\n"),
            ("--convert in.ppm /absent/x.pam", 1, "tessview: /absent/x.pam: No such file or directory\n"),
            ("--convert --frame 1 in.ppm x.pam", 1, "it has one frame, number 0\n"),
            ("--convert in.ppm x.ham6", 1, "too narrow for .ham6 and .ham8\n"),
            ("--convert --frame 2 cut.spr x.pam", 1, "it has 2 frames, counted from 0\n"),
        ] + [(words, 2, "") for words in ("--info --frame 1 in.ppm", "--json in.ppm", "--charset 15", "--no-such-option", "")]
        for words, status, errors in rows:
            with self.subTest(words):
                result = self.run_viewer(*words.split())
                self.assertEqual((result[0], result[2].count("\n")), (status, 1))
                self.assertTrue(result[2].endswith(errors), result[2])

    def test_in_a_window(self):
        quarters = self.write("quarters.ppm", ppm(2, 2, RED + GREEN + BLUE + WHITE))
        clear = self.write("clear.gif", b"GIF89a\x02\0\x02\0\x80\0\0\xff\0\0\0\0\xff"
                                       b"\x21\xf9\x04\x01\0\0\x01\0" b"\x2c\0\0\0\0\x02\0\x02\0\0\x02\x03\x0c\x10\x05\0;")
        sprites = self.write("two.spr", b"SPRITES\x02\x01\x01" + BLUE + RED)  # of B G R
        points = [(300, 100), (700, 100), (300, 600), (700, 600), (50, 400)]
        middle, grey, dark = (512, 384), b"\x30\x30\x34", b"\x0a\x0a\x0b"

        def view(*colours):
            return dict(zip(points, colours))

        fitted = view(RED, GREEN, BLUE, WHITE, grey)  # 2 by 2 pixels become 768 by 768 in the window's centre
        rows = [
            ("sleep 0", fitted), ("key r", view(BLUE, RED, WHITE, GREEN, grey)), ("key m", view(RED, BLUE, GREEN, WHITE, grey)),
            ("key R", view(BLUE, WHITE, RED, GREEN, grey)), ("key m", view(WHITE, BLUE, GREEN, RED, grey)), ("key r r", fitted),
            # What is under the pointer stays there.
            ("mousemove 200 100 click --repeat 4 4", view(*[RED] * 5)), ("key 0", fitted),
            ("key equal sleep 0.3 " * 4, view(RED, GREEN, BLUE, WHITE, BLUE)),
            ("mousemove 600 200 sleep 0.3 mousedown 1 sleep 0.3 mousemove 200 500 sleep 0.3 mouseup 1", view(*[GREEN] * 4, RED)),
            # The missing file is skipped; the first picture is centred in the contact sheet's first cell.
            ("key Left", {middle: RED}), ("key Next", {middle: BLUE}), ("key Next", {middle: RED}), ("key Prior", {middle: BLUE}),
            ("key Left sleep 0.3 key Tab Left", {(167, 91): RED}),
            ("key Tab", {(304, 104): WHITE, (312, 104): b"\xcc\xcc\xcc"}),  # squares of 8
            ("sleep 0", {(2, 766): dark}), ("key c", {(2, 766): grey}),  # the caption
        ]
        with Display() as display:
            self.environment["DISPLAY"] = display.name
            self.assertEqual(self.run_viewer("--frame", "2", sprites),
                             (1, "", f"tessview: {sprites}: it has 2 frames, counted from 0\n"))
            viewer = self.start(display, quarters, clear, sprites, "absent", errors=subprocess.PIPE)
            window = display.search("--name", "quarters.ppm - PNM, 2x2, 24 bits")
            self.assertEqual(len(window), 1)
            self.see(display, rows)
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
            self.write(name, content)
        middle, help_line, grey, dark, black = (512, 384), (740, 505), b"\x30\x30\x34", b"\x0a\x0a\x0b", b"\0\0\0"
        rows = [
            ("sleep 0", {middle: RED}), ("key period", {middle: GREEN}), ("key comma", {middle: RED}), ("key a", {middle: RED}),
            ("key Right", {middle: BLUE}), ("key Next", {middle: GREEN}), ("key Right", {(512, 100): RED, (512, 700): BLUE}),
            ("key w", {(10, 384): RED, (1000, 700): RED}), ("key 0 1", {(512, 370): RED, (512, 400): BLUE, (520, 384): grey}),
            ("key d", {(2, 2): dark}), ("key d", {(2, 2): grey}), ("key z", {help_line: dark}), ("sleep 0", {help_line: grey}),
            ("key h", {help_line: dark}), ("key question", {help_line: grey}), ("key s", {middle: BLUE}), ("sleep 0", {middle: RED}),
            ("key s", {middle: RED}), ("key End", {(512, 700): BLUE}), ("key Tab", {(512, 700): grey, (167, 91): RED}),
            ("mousemove 340 91 click 5 click 4 click 1", {middle: BLUE}), ("key Home", {middle: RED}),
            ("key n", {middle: BLUE}), ("key p", {middle: RED}), ("key space", {middle: BLUE}), ("key BackSpace", {middle: RED}),
            ("key Tab End Return", {(501, 100): RED}), ("key minus", {(501, 100): grey, (503, 100): RED}),
            ("key plus", {(501, 100): RED}), ("key Down i", {(501, 100): grey}), ("key Up i", {(501, 100): RED}),
            ("key Tab Home Right Left space", {middle: RED}), ("key Tab Right Return", {middle: BLUE}),
            ("key Tab Down KP_Enter", {(501, 100): RED}), ("key Tab Up Return", {middle: RED}),
            ("key Tab Next Return", {(501, 100): RED}), ("key Tab Prior Return", {middle: RED}),
            ("key Tab z", {help_line: dark}), ("mousemove 1020 760 click 1 key Tab", {middle: RED, help_line: RED}),
            ("key f", {(1200, 384): grey}), ("key F11", {(1200, 384): black}),
            ("mousemove 512 100 click --repeat 2 --delay 40 1", {(1200, 384): grey}),
        ]
        starts = [  # and what is seen at first
            (["--charset", "0"], {(2, 2): grey}), (["--fullscreen", "4.ppm"], {(1200, 384): grey}),
            (["--grid", "."], {(167, 91): RED}), (["--slideshow", "0.5", "."], {middle: BLUE}),
            (["--frame", "1", "1.gif"], {middle: GREEN}), (["--frame", "1", "2.tif"], {middle: GREEN}),
        ]
        with Display() as display:
            viewer = self.start(display, self.folder.name)
            self.see(display, rows)
            for words, expected in starts:
                display.xdotool("key", "q")
                self.assertEqual(viewer.wait(30), 0)
                viewer = self.start(display, *words)
                display.await_pixels(expected, words)
            self.assertEqual(self.start(display, "absent").wait(30), 1)
        self.assertEqual(viewer.wait(30), 1)  # without its display


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
