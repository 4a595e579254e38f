"""A stage for the real program: a virtual display, a folder of its own, a console and a mouse."""

import os
import pty
import re
import select
import shutil
import subprocess
import tempfile
import time
import tty

WINDOW = (1024, 768)


class Display:
    """A virtual display (Xvfb), as long as the `with` block lasts."""

    def __enter__(self):
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", "1", "-screen", "0", "1280x1024x24", "-noreset", "-nolisten", "tcp"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.name = ":" + self.server.stdout.readline().decode().strip()
        return self

    def __exit__(self, *_):
        self.server.terminate()
        self.server.wait()
        self.server.stdout.close()

    def xdotool(self, *arguments):
        return subprocess.run(["xdotool", *map(str, arguments)], env=dict(os.environ, DISPLAY=self.name),
                              check=True, capture_output=True, text=True).stdout


class Folder:
    """A fresh working folder whose datas/ holds the game's own files, as long as the block lasts."""

    def __init__(self, datas):
        self.datas = datas

    def __enter__(self):
        self.path = tempfile.mkdtemp(prefix="tessaruvinel_")
        os.mkdir(os.path.join(self.path, "datas"))
        for name in os.listdir(self.datas):
            if name.endswith((".ham8", ".mp3")):
                os.symlink(os.path.join(self.datas, name), os.path.join(self.path, "datas", name))
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.path)

    def file(self, name):
        return os.path.join(self.path, "datas", name)


def silent_sound(folder):
    """An environment whose sound cards swallow what they get, as fast as it comes."""
    path = os.path.join(folder.path, "alsa.conf")
    with open(path, "w") as file:
        for name in ("first", "second", "default"):  # the engine wants one from the third on
            file.write(f"pcm.!{name} {{ type null }}\n")
    return {"ALSA_CONFIG_PATH": path, "JACK_NO_START_SERVER": "1"}


class Game:
    """The running game. Its console is a terminal, so that lines come as the player sees them."""

    def __init__(self, program, display, folder, size, environment=None):
        self.display = display
        self.size = size
        self.window = WINDOW
        self.console, slave = pty.openpty()
        tty.setraw(slave)
        environment = dict(os.environ, DISPLAY=display.name, **(environment or {}))
        self.process = subprocess.Popen([program, *map(str, size)], cwd=folder.path, env=environment,
                                        stdin=slave, stdout=slave, stderr=subprocess.PIPE)
        os.close(slave)
        self.printed = ""
        self.seen = 0  # how much of it has been waited for
        self.pressed_again = set()  # cells on which a press was repeated

    def read(self, seconds):
        """Takes in what is printed, waiting at most so long for it; False when nothing came."""
        if not select.select([self.console], [], [], seconds)[0]:
            return False
        try:
            chunk = os.read(self.console, 65536).decode("latin-1")
        except OSError:  # the game has ended
            chunk = ""
        self.printed += chunk
        return chunk != ""

    def wait_for(self, text, seconds=30):
        """Waits until the console shows the text, which counts from what was last waited for."""
        deadline = time.monotonic() + seconds
        while text not in self.printed[self.seen:]:
            if time.monotonic() > deadline:
                raise AssertionError(f"no {text!r} after {self.printed[-600:]!r}")
            self.read(0.1)
        self.seen = self.printed.index(text, self.seen) + len(text)

    def point(self, cell):
        """The middle of a cell, counted from 1, in window pixels."""
        columns, rows = self.size[0], self.size[1]
        longest = max(columns, rows)
        return tuple(int(side / 2 + (at - (cells + 1) / 2) * (side // longest))
                     for side, at, cells in zip(self.window, cell, (columns, rows)))

    def press(self, point, button):
        x, y = point
        self.display.xdotool("mousemove", x, y, "mousedown", button)
        time.sleep(0.05)
        self.display.xdotool("mouseup", button)

    def click(self, cell, button=1):
        """Makes a step on a cell: presses again while cubes still turn. Button 3 marks."""
        side = {1: "LEFT", 3: "RIGHT"}[button]
        for attempt in range(40):
            start = len(self.printed)
            self.press(self.point(cell), button)
            if attempt > 0:
                self.pressed_again.add(tuple(cell))  # on a slow display both may become steps
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
        window = self.display.xdotool("search", "--sync", "--onlyvisible", "--name", "Tessaruvinel").split()[0]
        self.display.xdotool("windowsize", "--sync", window, width, height)
        self.window = (width, height)
        time.sleep(0.5)

    def finish(self, seconds=30):
        """Waits for the end; gives the exit status and what came on standard error."""
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
