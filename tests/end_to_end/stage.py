"""The environment of the real program: a virtual display, a working folder, a console and a mouse."""

import os
import pty
import re
import select
import struct
import subprocess
import tempfile
import time
import tty

SCREEN = (1280, 1024)
WINDOW = (1024, 768)


class Display:
    """A virtual display (Xvfb) for the duration of a `with` block. Its keys do not repeat: a busy machine would hold them long."""

    def __enter__(self):
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", "1", "-screen", "0", "{}x{}x24".format(*SCREEN), "-noreset", "-r", "-nolisten", "tcp"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.name = ":" + self.server.stdout.readline().decode().strip()
        self.environment = {"DISPLAY": self.name}
        return self

    def __exit__(self, *_):
        self.server.terminate()
        self.server.wait()
        self.server.stdout.close()

    def run(self, *words):
        return subprocess.run(words, env=dict(os.environ, DISPLAY=self.name), check=True, capture_output=True).stdout

    def xdotool(self, *arguments):
        return self.run("xdotool", *map(str, arguments)).decode()

    def pixels(self, points):
        """Pixels of the screen, from a window dump (X11/XWDFile.h): the blue byte comes first."""
        dump = self.run("xwd", "-root", "-silent")
        header = struct.unpack(">25I", dump[:100])
        start = header[0] + header[19] * 12
        places = [start + y * header[12] + x * (header[11] // 8) for x, y in points]
        return [bytes(reversed(dump[at:at + 3])) for at in places]

    def await_pixels(self, expected, what=None):
        """Waits until the screen shows these colours by their points."""
        deadline = time.monotonic() + 30
        while (seen := self.pixels(expected)) != list(expected.values()):
            assert time.monotonic() < deadline, (what, expected, seen)
            time.sleep(0.03)

    def search(self, *words):
        """The windows that fit, as soon as there are any. xdotool's own waiting looks twice a second."""
        deadline = time.monotonic() + 30
        while True:
            try:
                return self.xdotool("search", *words).split()
            except subprocess.CalledProcessError:  # none, or one closed meanwhile
                assert time.monotonic() < deadline, words
            time.sleep(0.05)

    def await_game(self):
        """Waits for a game's first frame."""
        self.search("--name", "flags 0 of")


class Wayland(Display):
    """The same with a Wayland compositor (weston) as its only window and as the programs' only display.

    Needs a folder with GLFW's Wayland library if the system has the one for X11."""

    def __init__(self, library):
        self.library = library

    def __enter__(self):
        super().__enter__()
        self.folder = tempfile.TemporaryDirectory()
        settings = os.path.join(self.folder.name, "weston.ini")
        with open(settings, "w") as file:
            file.write("[shell]\nbackground-color=0xff000000\npanel-position=none\nlocking=false\nanimation=none\nstartup-animation=none\n")
        width, height = WINDOW
        self.environment = {"WAYLAND_DISPLAY": "stage", "XDG_SESSION_TYPE": "wayland", "DISPLAY": "",
                            "XDG_RUNTIME_DIR": self.folder.name, "LD_LIBRARY_PATH": self.library}
        self.compositor = subprocess.Popen(
            ["weston", "--backend=x11-backend.so", "--use-pixman", f"--config={settings}", "--socket=stage",
             f"--width={width}", f"--height={height}", "--idle-time=0"],
            env=dict(os.environ, DISPLAY=self.name, XDG_RUNTIME_DIR=self.folder.name),
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.xdotool("windowfocus", "--sync", self.search("--onlyvisible", "--class", "weston")[0])
        return self

    def __exit__(self, *_):
        self.compositor.kill()
        self.compositor.wait()
        super().__exit__()
        self.folder.cleanup()

    def await_corner(self, colour):
        self.await_pixels({(WINDOW[0] - 2, WINDOW[1] - 2): colour})

    def await_game(self):
        self.await_corner(b"\xff\xff\0")
        # The compositor sums relative motions; it reads the position only when the pointer enters.
        self.xdotool("mousemove", *SCREEN, "sleep", 0.2, "mousemove", 300, 300)


class Folder(tempfile.TemporaryDirectory):
    """A fresh working folder with the game's files in datas/, for the duration of the block."""

    def __init__(self, datas):
        super().__init__(prefix="tessaruvinel_")
        self.path = self.name
        os.mkdir(self.file(""))
        for name in os.listdir(datas):
            if name.endswith((".ham8", ".mp3")):
                os.symlink(os.path.join(datas, name), self.file(name))

    def __enter__(self):
        return self

    def file(self, name):
        return os.path.join(self.path, "datas", name)


def silent_sound(folder, card="type null"):
    """An environment whose sound cards discard their input as fast as it comes, or whose last is another."""
    path = os.path.join(folder.path, "alsa.conf")
    with open(path, "w") as file:
        for name in ("first", "second", "default"):  # the engine accepts devices from the third on
            file.write(f"pcm.!{name} {{ {card if name == 'default' else 'type null'} }}\n")
    return {"ALSA_CONFIG_PATH": path, "JACK_NO_START_SERVER": "1"}


class Game:
    """The running game. Its console is a terminal, so that lines arrive as the player sees them."""

    def __init__(self, program, display, folder, size, environment=None):
        self.display = display
        self.size = size
        self.window = WINDOW
        self.console, slave = pty.openpty()
        tty.setraw(slave)
        environment = dict(os.environ, **display.environment, **(environment or {}))
        self.process = subprocess.Popen([program, *map(str, size)], cwd=folder.path, env=environment,
                                        stdin=slave, stdout=slave, stderr=subprocess.PIPE)
        os.close(slave)
        self.printed = ""
        self.seen = 0  # how much of the output has been waited for
        self.pressed_again = set()  # cells on which a press was repeated

    def read(self, seconds):
        """Reads output, waiting at most so long for it; False if none came."""
        if not select.select([self.console], [], [], seconds)[0]:
            return False
        try:
            chunk = os.read(self.console, 65536).decode("latin-1")
        except OSError:  # the game has ended
            chunk = ""
        self.printed += chunk
        return chunk != ""

    def wait_for(self, text, seconds=30):
        """Waits until the console shows the text after the one waited for last."""
        deadline = time.monotonic() + seconds
        while text not in self.printed[self.seen:]:
            if time.monotonic() > deadline:
                raise AssertionError(f"no {text!r} after {self.printed[-600:]!r}")
            self.read(0.1)
        self.seen = self.printed.index(text, self.seen) + len(text)

    def point(self, cell):
        """The centre of a cell, counted from 1, in window pixels."""
        columns, rows = self.size[0], self.size[1]
        longest = max(columns, rows)
        return tuple(int(side / 2 + (at - (cells + 1) / 2) * (side // longest))
                     for side, at, cells in zip(self.window, cell, (columns, rows)))

    def looks(self):
        """The cells' appearance, row by row: '#' covered, 'F' flagged, '.' empty, '1' to '3', else '?'."""
        size = [side // max(self.size[:2]) for side in self.window]
        cells = [self.point((x + 1, y + 1)) for y in range(self.size[1]) for x in range(self.size[0])]
        shares = [(-0.36, -0.3)] + [(x / 20, y / 20) for x in range(-4, 5) for y in range(-4, 5)]
        seen = self.display.pixels([(int(cell[0] + x * size[0]), int(cell[1] + y * size[1]))
                                    for cell in cells for x, y in shares])

        def look(ground, *middle):
            marks = [name for name, is_it in (("3", lambda r, g, b: r > 150 and r > 2 * max(g, b)),
                                              ("1", lambda r, g, b: b > 180 and b > 2 * max(r, g)),
                                              ("2", lambda r, g, b: g > 90 and g > 1.3 * max(r, b)))
                     if any(is_it(*pixel) for pixel in middle)]
            if min(ground) > 200:
                return "".join(marks) or "."
            return "?" if ground[2] <= 1.5 * ground[1] else "F" if marks == ["3"] else "#"

        return [look(*seen[i:i + len(shares)]) for i in range(0, len(seen), len(shares))]

    def press(self, point, button):
        x, y = point
        self.display.xdotool("mousemove", x, y, "mousedown", button)
        time.sleep(0.05)
        self.display.xdotool("mouseup", button)

    def click(self, cell, button=1):
        """Clicks on a cell, again while cubes still turn. Button 3 marks."""
        side = {1: "LEFT", 3: "RIGHT"}[button]
        for attempt in range(40):
            start = len(self.printed)
            self.press(self.point(cell), button)
            if attempt > 0:
                self.pressed_again.add(tuple(cell))  # on a slow display both presses may count
            deadline = time.monotonic() + 0.4
            while time.monotonic() < deadline:
                self.read(0.05)
                for x, y in re.findall(rf"step: \S+ {side} Mouse button at \((\d+),(\d+)\)\n",
                                       self.printed[start:]):
                    if (int(x), int(y)) == tuple(cell):
                        return
                    assert (int(x), int(y)) in self.pressed_again, (cell, x, y)
        raise AssertionError(f"no step at {cell} after {self.printed[-600:]!r}")

    def key(self, name):
        self.display.xdotool("key", name)

    def type(self, text):
        os.write(self.console, text.encode("latin-1"))

    def resize(self, width, height):
        window = self.display.search("--onlyvisible", "--name", "Tessaruvinel")[0]
        self.display.xdotool("windowsize", "--sync", window, width, height)
        self.window = (width, height)
        time.sleep(0.5)

    def finish(self, seconds=30):
        """Waits for the end; returns the exit status and standard error."""
        deadline = time.monotonic() + seconds
        while self.process.poll() is None and time.monotonic() < deadline:
            self.read(0.1)
        while self.read(0.1):
            pass
        if self.process.poll() is None:
            self.process.kill()
            raise AssertionError("the game did not end")
        with self.process.stderr as stream:
            errors = stream.read().decode("latin-1")
        os.close(self.console)
        return self.process.returncode, errors
