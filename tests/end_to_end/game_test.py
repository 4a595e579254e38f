"""Whole games with the real program in a real window: game_test.py BUILD DATAS [1/2 | 2/2 | TEST...]"""

import array
import os
import re
import shutil
import signal
import subprocess
import sys
import time
import unittest
from pathlib import Path

from stage import Display, Folder, Game, Wayland, silent_sound

BUILD, DATAS = (os.path.abspath(path) for path in sys.argv[1:3])
HALVES = {"1/2": slice(0, None, 2), "2/2": slice(1, None, 2), None: slice(None)}
HALF = sys.argv.pop(3) if sys.argv[3:4] and sys.argv[3] in HALVES else None
PROGRAM = os.path.join(BUILD, "Tessaruvinel")
FIELD = os.path.join(BUILD, "tests", "field")

# The time of day stands still, so that the field is known; the other clocks run. Sanitizers must be
# loaded first, which this setting waives; the graphics drivers leak.
FIXED_TIME = {
    "LD_PRELOAD": "libfaketime.so.1",
    "FAKETIME": "2026-01-01 12:00:00",
    "FAKETIME_DONT_FAKE_MONOTONIC": "1",
    "ASAN_OPTIONS": "verify_asan_link_order=0:detect_leaks=0:" + os.environ.get("ASAN_OPTIONS", ""),
}

INTRODUCTION = """
Welcome to the latest VELMORANDIS production!

Minefield properties:
X dimension : {0}
Y dimension : {1}
Mines       : {2}

BTW: Tessaruvinel.exe xDim yDim nMines

Generate minefield...
"""
LOST = "Game Over - You have stepped on a mine!\n"
WON = "Game Over - You have detected all mines!\n"
QUESTION = "What is your name? "
AGAIN = "Enter closes, a new game: n "
GOODBYE = "\nThank you for the playing. See U next time!\n\n"
DEFAULT = ["NoName", "59:59:59:1000, 10000"]


def faketime_library():
    for folder in ("/usr/lib/x86_64-linux-gnu", "/usr/lib/aarch64-linux-gnu", "/usr/lib"):
        path = os.path.join(folder, "faketime", FIXED_TIME["LD_PRELOAD"])
        if os.path.exists(path):
            return path
    raise unittest.SkipTest("libfaketime is not installed")


def cells(size):
    return [(x + 1, y + 1) for y in range(size[1]) for x in range(size[0])]


def table(entries, size):
    lines = [f"{i + 1:2d}.: {name:>16s} [{record} steps]\n" for i, (name, record) in enumerate(entries)]
    return "TopTen ({}x{}-{})\n".format(*size) + "".join(lines)


class Games(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.display = Display().__enter__()
        cls.addClassCleanup(cls.display.__exit__)

    def setUp(self):
        self.folder = Folder(DATAS)
        self.addCleanup(lambda: self.folder.cleanup())
        self.environment = dict(FIXED_TIME, LD_PRELOAD=faketime_library())

    def start(self, *size, program=PROGRAM):
        game = Game(program, self.display, self.folder, size, self.environment)
        self.addCleanup(game.process.kill)  # a window left by a failed test would take the next one's clicks
        game.wait_for("OK, let's play.\n\n")
        self.display.await_game()
        return game

    def mines(self, *size):
        rows = subprocess.run([FIELD, *map(str, size)], env=dict(os.environ, **self.environment),
                              check=True, capture_output=True, text=True).stdout.split()
        return [cell for cell in cells(size) if rows[cell[1] - 1][cell[0] - 1] == "*"]

    def win(self, *size, program=PROGRAM, until=GOODBYE):
        """Plays a game without mines, where the first click wins, and waits for a text printed at the end."""
        game = self.start(*size, program=program)
        game.click((1, 1))
        game.wait_for(WON)
        if until != WON:
            game.key("Escape")
            game.wait_for(until)
        return game

    def end(self, game):
        status, errors = game.finish()
        self.assertEqual((status, errors), (0, ""), errors)
        return game.printed

    def leave(self, game, *answers):
        """Closes the window and answers the questions that follow; returns all that was printed."""
        game.key("Escape")
        for question, answer in answers:
            game.wait_for(question)
            game.type(answer)
        return self.end(game)

    def names(self, count, *size):
        """The first names in the table's file."""
        return self.hiscores(*size).decode().split("\n")[:2 * count:2]

    def windows(self):
        """The game's windows on the screen."""
        try:
            return self.display.xdotool("search", "--onlyvisible", "--name", "^Tessaruvinel").split()
        except subprocess.CalledProcessError:  # none was found
            return []

    def hiscores(self, *size):
        return Path(self.folder.file("topten_{}x{}_{}.txt".format(*size))).read_bytes()

    def flag_and_uncover(self, game, size, mines):
        """Wins a game, and looks at the board after each step but the last."""
        def number(cell):
            return str(sum(abs(cell[0] - x) < 2 > abs(cell[1] - y) for x, y in mines) or ".")

        def uncover(cell):
            if cell in uncovered or cell in mines:
                return
            uncovered.add(cell)
            for other in cells(size) if number(cell) == "." else []:
                if abs(cell[0] - other[0]) < 2 > abs(cell[1] - other[1]):
                    uncover(other)

        for mine in mines:
            game.click(mine, 3)
        game.click(mines[0], 1)  # a flagged cell is unchanged, but it counts as a step
        uncovered = set()
        for cell in cells(size):
            if cell in mines or cell in uncovered:
                continue
            game.click(cell)
            uncover(cell)
            expected = ["F" if c in mines else number(c) if c in uncovered else "#" for c in cells(size)]
            deadline = time.monotonic() + 10
            while WON not in game.printed and (seen := game.looks()) != expected:  # cubes turn
                self.assertLess(time.monotonic(), deadline, (seen, expected))
                game.read(0.1)
        game.wait_for(WON)

    def test_a_game_won_by_flagging(self):
        size = (5, 4, 3)
        mines = self.mines(*size)
        game = self.start(*size)
        first = mines[0]
        game.click(first, 3)
        game.click(first, 3)  # question mark
        game.click(first, 3)  # covered
        self.flag_and_uncover(game, size, mines)
        game.type("Mallory\n")  # too early to count as the answer
        game.key("Escape")
        game.wait_for(QUESTION)
        self.assertEqual(self.windows(), [])
        self.assertRegex(self.hiscores(*size), rb"\A\?{6}\n00:")
        game.type("Anna Bell 99\n")
        printed = self.end(game)

        steps = re.findall(r"^ {4}\d\.step|^ {3}\d\d\.step", printed, re.M)
        self.assertEqual([int(s.strip().split(".")[0]) for s in steps], list(range(1, len(steps) + 1)))
        progress = "".join("Generate object at ({}, {})\r".format(*cell) * 6 for cell in cells(size))
        self.assertTrue(printed.startswith(INTRODUCTION.format(*size) + progress + "\n\nOK, let's play.\n\nTitle: "), printed[:400])
        music = printed[printed.index("Title: "):printed.index("    1.step")]
        self.assertRegex(music, r"\ATitle: [^\n]+\nArtist: [^\n]+\nYear: [^\n]+\nComment: [^\n]+\n\n\Z")
        self.assertRegex(printed, r"\n\n    1\.step: 00:00:00:0000 RIGHT Mouse button at \({},{}\)\n".format(*first))

        record = re.search(r" 1\.: +\?{6} \[(.*) steps\]", printed)[1]
        self.assertRegex(record, r"\A00:00:\d\d:\d\d\d0, {:05d}\Z".format(len(steps) + 1))
        self.assertTrue(printed.endswith(
            WON + GOODBYE + "WoW! You may be managed to climb up to the hiscore table...\n"
            + table([("??????", record)] + [DEFAULT] * 9, size)
            + "What is your name? Have a good day dear Anna Bell 99!\n\n"), printed[-1500:])
        expected = f"Anna Bell 99\n{record}\n" + "NoName\n59:59:59:1000, 10000\n" * 9
        self.assertEqual(self.hiscores(*size), expected.encode())

    def test_a_game_lost(self):
        size = (4, 4, 3)
        mines = self.mines(*size)
        game = self.start(*size)
        other = [cell for cell in cells(size) if cell not in mines][0]
        game.click(other, 3)
        self.display.search("--name", "^Tessaruvinel v3.23 - 4x4 - flags 1 of 3 - 0:0[2-9]$")
        game.click(mines[0])
        game.wait_for(LOST)
        self.assertIn("1024x768", self.display.xdotool("getwindowgeometry", self.windows()[0]))
        self.assertEqual(self.display.xdotool("search", "--class", "^tessaruvinel$").split(), self.windows())  # the class in the menu entry
        self.display.search("--name", "flags 1 of 3 - 0:[0-9]+ - lost - Escape ends$")
        game.press(game.point(other), 1)
        time.sleep(0.5)
        printed = self.leave(game)
        self.assertEqual(printed.count(".step:"), 2)
        self.assertTrue(printed.endswith(LOST + GOODBYE), printed[-300:])  # no file: no table
        self.assertEqual([n for n in os.listdir(self.folder.file("")) if n.startswith("topten")], [])

    def test_results_are_ranked(self):
        size = (3, 2, 0)
        for typed, name in [("a-b\n", "a"), ("\n", ""), ("SixteenLetters16s\n", "SixteenLetters16")]:
            printed = self.leave(self.win(*size, until=WON), (QUESTION, typed))
            self.assertTrue(printed.endswith(f"What is your name? Have a good day dear {name}!\n\n"), printed[-200:])
            record = re.search(r"\d\.: +\?{6} \[(00:00:\d\d:\d{4}, 00002) steps\]\n", printed)[1]
            self.assertIn(f"{name}\n{record}\n".encode(), self.hiscores(*size))

        # A lost game (closed before it was decided) shows the table and leaves the file unchanged.
        before = self.hiscores(*size)
        lines = before.decode().splitlines()
        entries = list(zip(lines[::2], lines[1::2]))
        self.assertEqual((sorted(lines[1::2]), entries[3:]), (lines[1::2], [tuple(DEFAULT)] * 7))
        printed = self.leave(self.start(*size))
        self.assertTrue(printed.endswith(GOODBYE + table(entries, size) + "\n"), printed[-1000:])
        self.assertEqual(self.hiscores(*size), before)

        best = b"Quick\n00:00:00:0000, 00001\n" * 10  # for all that follow
        Path(self.folder.file("topten_3x2_0.txt")).write_bytes(best)
        printed = self.end(self.win(*size))
        self.assertTrue(printed.endswith(table([("Quick", "00:00:00:0000, 00001")] * 10, size)
                                         + "It does not seem like that, sorry.\n\n"), printed[-1000:])
        self.assertEqual(self.hiscores(*size), best)

    def test_a_press_counts_where_it_was_made(self):
        cells = [(3, 3), (4, 3)]
        for size, window in ((10, 9, 1), (900, 500)), ((64, 63, 1), (1024, 768)):
            game = self.start(*size)
            game.resize(*window)
            for cell in cells:
                game.click(cell, 3)  # a flagged cell takes any number of steps
                time.sleep(1.2)
            start = len(game.printed)
            expected = []
            for delay in (0, 0.005, 0.03):
                for here, there in [cells, cells[::-1]] * 2:
                    game.display.xdotool("mousemove", *game.point(here), "mousedown", 1, "sleep", delay,
                                         "mousemove", *game.point(there), "mouseup", 1)
                    expected.append(f"({here[0]},{here[1]})")
                    game.wait_for("LEFT Mouse button at ")
            time.sleep(0.5)
            game.read(0.1)
            self.assertEqual(re.findall(r"LEFT Mouse button at (\S+)\n", game.printed[start:]), expected)
            self.leave(game)

    def test_interrupt_stops_the_clock_only(self):
        game = self.start(3, 3, 0)
        game.click((1, 1), 3)
        time.sleep(2.2)  # the first tick, and the turning
        game.process.send_signal(signal.SIGINT)
        time.sleep(0.3)
        times = []
        for _ in range(2):
            start = len(game.printed)
            # The next mark is accepted, but cubes no longer turn, so all later clicks are dropped.
            game.press(game.point((2, 2)), 3)
            time.sleep(0.8)
            game.read(0.1)
            times.append(game.printed[start:])
        self.assertEqual([t.count(".step:") for t in times], [1, 0])
        self.assertIsNone(game.process.poll())
        self.leave(game)

    def test_a_won_result_is_never_lost(self):
        size = (3, 2, 0)
        ends = [(signal.SIGHUP, QUESTION), (signal.SIGINT, QUESTION), (signal.SIGTERM, WON), (None, QUESTION)]
        for count, (end, until) in enumerate(ends, 1):
            game = self.win(*size, until=until)
            if end:
                game.process.send_signal(end)
                self.assertEqual(game.finish(), (-end, ""))
                self.assertTrue(game.printed.endswith(QUESTION + "Have a good day dear !\n\n"), game.printed[-300:])
            else:
                os.close(game.console)  # closes the terminal; its signal goes to other processes
                self.assertEqual((game.process.wait(10), game.process.stderr.read()), (0, b""))
                game.process.stderr.close()
            self.assertEqual(self.names(10, *size), [""] * count + ["NoName"] * (10 - count), (end, until))

    def test_a_lost_display(self):
        size = (3, 2, 0)
        game = self.win(*size, until=WON)
        self.display.xdotool("windowkill", self.windows()[0])  # like "Force quit"
        self.assertEqual(game.finish(), (1, "The display is lost\n"))
        self.assertEqual(self.names(2, *size), ["", "NoName"])
        usual = self.display
        with Display() as self.display:
            game = self.win(*size, until=QUESTION)
            self.display.server.terminate()
            self.assertEqual(game.finish(), (1, "The display is lost\n"))
        self.display = usual
        self.assertEqual(self.names(3, *size), ["", "", "NoName"])

    def test_on_wayland(self):
        """Clicks map to the visible board; the end of the compositor loses no result."""
        library = os.path.join(BUILD, "wayland")
        if not os.path.isdir(library) or not shutil.which("weston"):
            raise unittest.SkipTest("no weston, or no libglfw3-wayland in " + library)
        usual, size = self.display, (4, 3, 1)
        with Wayland(library) as self.display:
            mines = self.mines(*size)
            game = self.start(*size)
            self.flag_and_uncover(game, size, mines)
            game.key("Escape")
            game.wait_for(QUESTION)
            self.display.await_corner(b"\0\0\0")
            game.type("Anna\n")
            self.end(game)
            game = self.win(3, 2, 0, until=WON)
            self.display.compositor.kill()
            self.assertEqual(game.finish(), (1, "The display is lost\n"))
        self.display = usual
        self.assertEqual(self.names(2, *size), ["Anna", "NoName"])
        self.assertEqual(self.names(2, 3, 2, 0), ["", "NoName"])

    def test_closed_standard_streams(self):
        game = subprocess.Popen(["sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh", PROGRAM, "3", "2", "0"],
                                cwd=self.folder.path, env=dict(os.environ, **self.environment, DISPLAY=self.display.name))
        self.addCleanup(game.kill)
        self.display.search("--name", "3x2 - flags 0 of 0 - 0:00")
        self.display.xdotool("mousemove", 512, 384, "mousemove_relative", 60, 60, "click", 1)
        self.display.search("--name", "won$")
        self.display.xdotool("key", "Escape")
        self.assertEqual(game.wait(30), 0)
        self.assertEqual(self.names(2, 3, 2, 0), ["", "NoName"])

    def test_what_is_missing_is_named(self):
        def damage(name, content):
            path = Path(self.folder.file(name))
            path.unlink()
            if content:
                path.write_bytes(content)

        gone = "no picture: cannot be opened: No such file or directory"
        for prepare, line in [
            (lambda: damage("Mine.ham8", None), f"datas/Mine.ham8: {gone}"),
            (lambda: damage("Mine.ham8", b"no tile"), "datas/Mine.ham8: no picture: [^\n]+"),
            (lambda: damage("ShadowOfTheBeast.mp3", None), f"datas/ShadowOfTheBeast.mp3: {gone.replace('picture', 'music')}"),
            (lambda: os.rename(self.folder.file(""), self.folder.path + "/elsewhere"),
             f"datas/Base.ham8: {gone}, nor of 12 other tiles"),
        ]:
            self.folder.cleanup()
            self.folder = Folder(DATAS)
            prepare()
            game = self.start(2, 2, 1)
            game.key("Escape")
            status, errors = game.finish()
            self.assertEqual(status, 0)
            self.assertRegex(errors, rf"\A{line}(; looked for in {self.folder.path})?\n\Z")

    def test_what_is_heard(self):
        """The music has no gaps; half the volume halves every sample; at 0 no sound card is opened."""
        heard = []
        for volume in 100, 50, 0:
            captured = os.path.join(self.folder.path, f"captured{volume}")
            cards = silent_sound(self.folder, f'type file file "{captured}" format raw slave.pcm {{ type null }}')
            self.environment.update(cards, TESSARUVINEL_VOLUME=str(volume))
            game = self.start(2, 2, 1)
            late = time.monotonic() + 20
            while volume != 0 and time.monotonic() < late and (not os.path.exists(captured) or os.path.getsize(captured) < 400000):
                game.read(0.1)
            self.leave(game)
            self.assertEqual(os.path.exists(captured), volume != 0)
            if volume != 0:
                heard.append(array.array("h", Path(captured).read_bytes()[:400000]))
        whole, half = heard
        music = self.folder.file("ShadowOfTheBeast.mp3")
        subprocess.run([os.path.join(BUILD, "tessplay"), "--framework", "--convert", music, music + ".wav"], check=True, capture_output=True)
        converted = Path(music + ".wav").read_bytes()[44:200000]  # after the header; the encoder's delay is dropped there
        self.assertTrue(converted in whole.tobytes())
        self.assertGreater(max(whole), 1000)
        self.assertEqual([int(sample / 2) for sample in whole], list(half))

    def test_without_sound(self):
        """Without a default device an assertion of the sound library would end the program."""
        self.environment.update(ALSA_CONFIG_PATH="/dev/null", TESSARUVINEL_VOLUME="101")
        game = self.start(2, 2, 1)
        game.key("Escape")
        self.assertEqual(game.finish(), (0, "TESSARUVINEL_VOLUME is not 0 to 100: 100 is taken\nNo sound: the sound system cannot be started\n"))

    def test_races(self):
        """A game won and one lost, with music: for the thread sanitizer, in none of the halves."""
        # Keeps the software rasteriser from starting threads, which the sanitizer cannot see into.
        self.environment = dict(silent_sound(self.folder), LP_NUM_THREADS="0")
        game = self.start(4, 3, 0)
        time.sleep(2)
        for button in (3, 3, 3, 1):
            game.click((1, 1), button)
        game.wait_for(WON)
        time.sleep(2)
        self.leave(game, (QUESTION, "me\n"))
        game = self.start(2, 2, 3)
        for cell in [(1, 1), (2, 1)]:  # three of four cells are mines
            if LOST not in game.printed:
                game.click(cell)
                late = time.monotonic() + 10
                while LOST not in game.printed and time.monotonic() < late:
                    game.read(0.2)
        game.wait_for(LOST)
        time.sleep(5)
        self.leave(game)

    def install(self):
        prefix, home = os.path.join(self.folder.path, "prefix"), os.path.join(self.folder.path, "home")
        subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True, capture_output=True)
        return prefix, home, os.path.join(prefix, "bin", "tessaruvinel")

    def test_the_installed_game(self):
        prefix, home, launcher = self.install()
        share = os.path.join(prefix, "share")
        # The player's own folder: the shared one, as with a prefix of ~/.local, and a separate one.
        for name, data, own in [("owner", share, share), ("other", "", os.path.join(home, ".local/share"))]:
            # Without the fixed time, which deadlocks with a sanitizer in the started program.
            self.environment = {"HOME": home, "XDG_DATA_HOME": data, "ASAN_OPTIONS": FIXED_TIME["ASAN_OPTIONS"]}
            game = self.win(3, 3, 0, program=launcher, until=WON)
            self.assertIn("Title: ", self.leave(game, (QUESTION, name + "\n"), (AGAIN, "\n")))
            results = Path(own, "tessaruvinel/datas/topten_3x3_0.txt").read_text()
            self.assertEqual(results.split("\n")[:3:2], [name, "NoName"])
        # The player's own tile stays, an old link is renewed; then another game of the same field.
        datas = os.path.join(own, "tessaruvinel/datas")
        for tile, link in [("Flag", os.path.join(DATAS, "Flag.ham8")), ("Mine", "/old/share/tessaruvinel/datas/Mine.ham8")]:
            os.remove(f"{datas}/{tile}.ham8")
            os.symlink(link, f"{datas}/{tile}.ham8")
        game = self.start("--small", program=launcher)
        self.assertEqual(os.readlink(f"{datas}/Flag.ham8"), os.path.join(DATAS, "Flag.ham8"))
        self.assertEqual(os.readlink(f"{datas}/Mine.ham8"), os.path.join(share, "tessaruvinel/datas/Mine.ham8"))
        game.key("Escape")
        game.wait_for(AGAIN)
        game.type("n\n")
        game.wait_for("OK, let's play.")
        self.display.search("--name", "flags 0 of 10")
        self.assertEqual(self.leave(game, (AGAIN, "\n")).count("X dimension : 8\nY dimension : 8\nMines       : 10\n"), 2)

        for name in ["applications/tessaruvinel.desktop", "man/man6/tessaruvinel.6",
                     "icons/hicolor/256x256/apps/tessaruvinel.png", "tessaruvinel/datas/Base.ham8"]:
            self.assertTrue(os.path.exists(os.path.join(share, name)), name)
        self.assertIn("Terminal=true\n", Path(share, "applications/tessaruvinel.desktop").read_text())

    def test_what_the_launcher_says(self):
        launcher = self.install()[2]
        play = os.path.join(os.path.dirname(DATAS), "play")

        def run(arguments, program=launcher, **environment):
            result = subprocess.run([program, *arguments.split()], cwd=self.folder.path, capture_output=True, text=True,
                                    env={"PATH": os.environ["PATH"], "HOME": self.folder.path, **environment})
            return result.returncode, result.stdout, result.stderr

        for program in launcher, play:
            self.assertEqual(run("--version", program), (0, "Tessaruvinel 3.23\n", ""))
            status, printed, errors = run("5 5 --help", program)
            self.assertEqual((status, errors), (0, ""))
            self.assertRegex(printed, r"\AUsage: (\./play|tessaruvinel) \[OPTION...\] \[xDim yDim nMines\]\n")
        nowhere = (1, "", "tessaruvinel: no HOME: where to keep the tables is unknown\n")
        self.assertEqual(run("", HOME=""), nowhere)
        for environment in {"XDG_DATA_HOME": "share"}, {"HOME": "home"}:
            status, printed, errors = run("", **environment)
            self.assertEqual((status, printed), (1, ""))
            self.assertRegex(errors, r"\Atessaruvinel: '[^\n]*' is not an absolute path: [^\n]+\n\Z")
        for arguments, why in [
            ("3 3", "not three numbers, but 2"), ("a 3 4", "'a' is not a number or option"),
            ("--large 5", "not three numbers, but 4"), ("1 10 5", "the width 1 is not 2 to 64"),
            ("10 0065 5", "the height 0065 is not 2 to 64"), ("3 3 9", "9 mines are too many for 3 by 3"),
            ("266 08 300", None), ("--medium", None), ("", None),  # accepted by the game, which has no display
        ]:
            status, printed, errors = run(arguments)
            lines = errors.splitlines()
            self.assertEqual((status, printed), (1, ""))
            self.assertRegex(lines.pop(), "^No window: .*DISPLAY")
            self.assertEqual(lines, [f"tessaruvinel: {why}: playing 10 by 10 with 20 mines"] if why else [])


def load_tests(_loader, tests, _pattern):
    """Every second test, from the first or the second on, if a half was asked for."""
    return unittest.TestSuite([test for suite in tests for test in suite if not (HALF and "races" in test.id())][HALVES[HALF]])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v", *sys.argv[3:]])
