"""Endurance of the programs, by hand: endurance.py BUILD DATAS [MINUTES]

The game under random input for so many minutes (10), its clock across a stop and a change of the time of
day, the viewer through 2,000 pictures, the player through 400 sounds. Prints memory and descriptors as
they change; fails if they grow without end.
"""

import os
import random
import re
import subprocess
import sys
import tempfile
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path.insert(0, os.path.join(ROOT, "tests", "end_to_end"))
from stage import Display, Folder, Game, silent_sound  # noqa: E402

BUILD, DATAS = (os.path.abspath(path) for path in sys.argv[1:3])
MINUTES = float((sys.argv + ["10"])[3])


class Watch:
    """A process's memory (KB, without shared pages) and descriptors over time."""

    def __init__(self, what, process):
        self.what, self.pid, self.samples, self.start = what, process.pid, [], time.monotonic()

    def sample(self):
        with open(f"/proc/{self.pid}/smaps_rollup") as file:
            memory = sum(int(line.split()[1]) for line in file if line.startswith(("Private_Dirty", "Private_Clean")))
        self.samples.append((time.monotonic() - self.start, memory, len(os.listdir(f"/proc/{self.pid}/fd"))))

    def report(self):
        """The slope of the second half, by least squares."""
        half = self.samples[len(self.samples) // 2:]
        times, memories, descriptors = zip(*half)
        middle, mean = sum(times) / len(half), sum(memories) / len(half)
        spread = sum((t - middle) ** 2 for t in times) or 1
        slope = sum((t - middle) * (m - mean) for t, m in zip(times, memories)) / spread * 60
        print(f"{self.what}: {len(self.samples)} samples in {self.samples[-1][0]:.0f} s; memory {self.samples[0][1]} to "
              f"{self.samples[-1][1]} KB, at most {max(s[1] for s in self.samples)}, lately {slope:+.0f} KB a minute; "
              f"descriptors {min(s[2] for s in self.samples)} to {max(s[2] for s in self.samples)}, lately "
              f"{min(descriptors)} to {max(descriptors)}", flush=True)
        # Threads' heaps keep a few freed pictures each, so memory rises in steps before it stays.
        quarter = len(half) // 2
        late = sum(memories[quarter:]) / len(memories[quarter:])
        early = sum(s[1] for s in self.samples[quarter:2 * quarter]) / quarter
        assert late < 1.5 * early and max(descriptors) - min(descriptors) < 20


def clock(display):
    """Seconds that the game's title shows."""
    title = display.xdotool("getwindowname", display.xdotool("search", "--name", "flags .* of").split()[0])
    minutes, seconds = re.search(r" - (\d+):(\d\d)", title).groups()
    return 60 * int(minutes) + int(seconds)


def random_input(display, game, until, watch):
    keys = ["Left", "Right", "Up", "Down", "space", "plus", "minus", "F11", "a", "0", "Tab", "Home", "n", "m", "p"]
    while time.monotonic() < until and game.process.poll() is None:
        for _ in range(20):
            game.press((random.randrange(game.window[0]), random.randrange(game.window[1])), random.choice((1, 1, 1, 2, 3, 3, 4, 5)))
            if random.random() < 0.3:
                game.key(random.choice(keys))
        if random.random() < 0.5:
            game.resize(random.randrange(200, 1200), random.randrange(200, 1000))
        while game.read(0):
            pass
        watch.sample()


def game_under_input():
    with Display() as display, Folder(DATAS) as folder:
        game = Game(os.path.join(BUILD, "Tessaruvinel"), display, folder, (20, 15, 20), silent_sound(folder))
        game.wait_for("OK, let's play.\n\n", 60)
        watch = Watch("game", game.process)
        random_input(display, game, time.monotonic() + 60 * MINUTES, watch)
        if game.process.poll() is None:
            game.process.terminate()
        watch.report()


def game_clock(stopped):
    """The clock counts the time for which the process was stopped, and no change of the time of day."""
    with Display() as display, Folder(DATAS) as folder:
        stamp = folder.file("now")
        with open(stamp, "w") as file:
            file.write("2026-01-01 12:00:00\n")
        environment = dict(silent_sound(folder), LD_PRELOAD="/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1",
                           FAKETIME_TIMESTAMP_FILE=stamp, FAKETIME_NO_CACHE="1", FAKETIME_DONT_FAKE_MONOTONIC="1")
        game = Game(os.path.join(BUILD, "Tessaruvinel"), display, folder, (9, 9, 5), environment)
        game.wait_for("OK, let's play.\n\n", 60)
        display.await_game()
        for cell in ((1, 1), (2, 1)):  # the first step resets the clock
            game.click(cell, 3)
        start, before = time.monotonic(), clock(display)
        time.sleep(5)
        seen = [clock(display) - before]
        with open(stamp, "w") as file:
            file.write("2031-05-05 05:05:05\n")
        time.sleep(5)
        seen.append(clock(display) - before)
        os.kill(game.process.pid, 19)
        time.sleep(stopped)
        os.kill(game.process.pid, 18)
        time.sleep(5)
        seen.append(clock(display) - before)
        print(f"game clock: {seen} s after 5 s, after 5 more with another year, after a stop of {stopped} s and 5 more; "
              f"{time.monotonic() - start:.0f} s have passed", flush=True)
        game.process.terminate()
        assert abs(seen[2] - (time.monotonic() - start)) < 3


def viewer(count):
    names = [os.path.join(folder, name) for folder, _, names in os.walk(os.path.join(ROOT, "tests", "data")) for name in names
             if name.endswith((".png", ".gif", ".jpg", ".bmp", ".tif", ".tiff", ".tga", ".pcx"))]
    with Display() as display, tempfile.TemporaryDirectory() as folder:
        for i in range(count):
            os.symlink(names[i % len(names)], os.path.join(folder, f"{i:04d}-{os.path.basename(names[i % len(names)])}"))
        with subprocess.Popen([os.path.join(BUILD, "tessview"), folder], env=dict(os.environ, DISPLAY=display.name)) as process:
            display.xdotool("search", "--sync", "--onlyvisible", "--name", "0000-")
            watch = Watch(f"viewer, {count} pictures", process)
            for _ in range(count // 20):
                display.xdotool("key", "--delay", "60", *["Right"] * 20)
                watch.sample()
            display.xdotool("key", "Left")  # from the first, where the last leads, to the last
            display.xdotool("search", "--sync", "--onlyvisible", "--name", f"{count - 1:04d}-")
            process.terminate()
            watch.report()


def player(count):
    names = [os.path.join(folder, name) for folder, _, names in os.walk(os.path.join(ROOT, "tests", "data", "sounds"))
             for name in names if not name.endswith(".tsv")]
    with Folder(DATAS) as folder:
        words = [os.path.join(BUILD, "tessplay")] + (names * (count // len(names) + 1))[:count]
        with subprocess.Popen(words, env=dict(os.environ, **silent_sound(folder)), stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
            watch = Watch(f"player, {count} sounds", process)
            while process.poll() is None and time.monotonic() - watch.start < 600:
                try:
                    watch.sample()
                except (FileNotFoundError, ProcessLookupError, PermissionError):
                    break
                time.sleep(0.5)
            process.terminate()
            watch.report()


if __name__ == "__main__":
    game_clock(60)
    player(400)
    viewer(2000)
    game_under_input()
