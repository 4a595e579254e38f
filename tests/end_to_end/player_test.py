"""The player on files of every format and on emulated sound cards: player_test.py PLAYER DATA [LOST_DEVICE]"""

import array
import json
import os
import pty
import signal
import struct
import sys
import termios
import threading
import time
import unittest

from cards import ABSENT, FILE, NULL, Cards
from sound_files import aiff, au, module, noise, svx, swapped, voc, wav

PLAYER = os.path.abspath(sys.argv[1])
DATA = os.path.abspath(sys.argv[2])
LOST_DEVICE = "".join(sys.argv[3:4])

NOISE = noise(150000)


def mp3(track, number, picture=b""):
    def text(name, value):
        return struct.pack(">4sIH", name, len(value), 0) + value

    frames = text(b"TIT2", b"\1\xfe\xff" + "Żółw".encode("utf-16-be")) + text(b"TRCK", track)
    frames += text(b"TPE1", b"\0Someone") + picture
    with open(os.path.join(DATA, "mp3_joint.mp3"), "rb") as file:
        music = file.read()
    older = b"TAG" + b"shadowed".ljust(30) + bytes([*bytes(93), number, 0])
    size = bytes(len(frames) >> shift & 127 for shift in (21, 14, 7, 0))
    return b"ID3\3\0\0" + size + frames + music + older


FILES = {
    "stereo.wav": wav(NOISE),
    "deep.wav": wav(NOISE, 24),
    "bytes.wav": wav(NOISE, 8, 1),
    "alaw.wav": wav(b"\x55\xd5" * 2000, 8, 1, 6),
    "three.au": au(NOISE, 3, 3),
    "float.wav": wav(array.array("f", [0, 0.5, -2.5, 0.25]).tobytes(), 32, 2, 3),
    "odd.wav": wav(NOISE[:6000], 12),
    "cut.au": au(NOISE[:4003]),
    "short.aiff": aiff(NOISE[:4000]),
    "small.8svx": svx(NOISE[:3000]),
    "small.voc": voc(NOISE[:3000]),
    "song.mod": module(),
    "tagged.mp3": mp3(b"\0007", 12),
    "wide.mp3": mp3(b"\1\xfe\xff\0007", 0),
    "cover.mp3": mp3(b"\0007", 12, b"APIC" + b"\xff\xfb\x50\xc4" * 5000 + bytes(99)),
}
FRAMEWORK_REFUSES = {
    "float.wav": "RIFF WAVE with codec 3 is not decoded",
    "odd.wav": "RIFF WAVE of 2 channels of 12 bits at 44100 Hz is not decoded",
}
UNPLAYABLE = {
    "text.txt": (b"text " * 1000, "not a sound of a known format (--raw takes it for samples)"),
    "tiny.mod": (b"tiny", "not a sound of a known format (--raw takes it for samples)"),
    "empty.wav": (wav(b""), "there is no sound in it"),
    "layer2.mp3": ((b"\xFF\xFD\x14\0" + bytes(92)) * 3, "MPEG audio Layer II"),
}


class Stage(Cards):
    def setUp(self):
        super().setUp()
        for name, data in (FILES | {name: data for name, (data, _) in UNPLAYABLE.items()}).items():
            self.write(name, data)
        self.devices(first=NULL, second=NULL, default=FILE)

    def run_player(self, *words):
        return self.run_program(PLAYER, *words)

    def listed(self, *words, complaint=None):
        """What --info --json prints."""
        status, printed, errors = self.run_player("--info", "--json", *words)
        self.assertEqual((status, errors), (1, f"tessplay: {complaint}\n") if complaint else (0, ""))
        return [json.loads(line) for line in printed.splitlines()]

    def convert(self, *words):
        """The samples of a conversion, after a header that matches them."""
        self.assertEqual(self.run_player("--convert", *words, "out.wav"), (0, "", ""))
        out = self.read("out.wav")
        fields = struct.unpack("<4sI8sIHHIIHH4sI", out[:44])
        size, frame = fields[-1], fields[5] * fields[9] // 8
        self.assertEqual((fields[1], fields[7:9]), (len(out) - 8, (fields[6] * frame, frame)))
        self.assertEqual(len(out), 44 + size + size % 2)
        return out[44:44 + size]


class Player(Stage):
    def test_info(self):
        rows = {
            "stereo.wav": "RIFF WAVE|linear|44100 Hz|2|16|0:00.850",
            "deep.wav": "RIFF WAVE|linear|44100 Hz|2|24|0:00.566",
            "alaw.wav": "RIFF WAVE|A-law|44100 Hz|1|16|0:00.090",
            "three.au": "Sun/NeXT audio|linear|11025 Hz|2|16|0:02.267|stored 3 channels, mixed to two",
            "short.aiff": "AIFF|linear|22050 Hz|2|16|0:00.045|frames 1000",
            "small.8svx": "IFF 8SVX|linear|8363 Hz|1|8|0:00.358|annotation Hi !|octaves 1",
            "small.voc": "Creative Voice|linear|8000 Hz|1|8|0:00.375|version 1.10",
            "song.mod": "tracker module|4 voices|44100 Hz|2|16|0:00.060|title A song|positions 1|instruments 31|"
                        "instrument 1 naïve",
            "tagged.mp3": "MPEG audio|MPEG Version 1 Layer III|44100 Hz|2|16|0:00.208|title Żółw|artist Someone|"
                          "track 7|genre Blues|bit rate 64 kbit/s|mode Joint stereo",
        }
        rows["cover.mp3"] = rows["wide.mp3"] = rows["tagged.mp3"]
        usual = ["format", "codec", "rate", "channels", "bits", "length"]
        framework = {name: rows[name].replace("track 7|", track) for name, track in
                     {"tagged.mp3": "track 12|", "cover.mp3": "track 12|", "wide.mp3": "", "small.voc": "", "song.mod": ""}.items()}
        for words, name, values in [((), *row) for row in rows.items()] + [(("--framework",), *row) for row in framework.items()]:
            with self.subTest(name):
                status, printed, errors = self.run_player("--info", *words, name)
                self.assertEqual((status, errors), (0, ""))
                values = values.split("|")
                expected = [name] + [f"{what} {value}" for what, value in zip(usual, values)] + values[6:]
                self.assertEqual([" ".join(line.split()) for line in printed.splitlines()], expected)
        with open(os.path.join(DATA, "sounds/expected_sounds.tsv")) as file:
            known = [line.split("\t")[:5] for line in sorted(file) if "/" in line.split("\t")[0]]
        sounds = self.listed("-r", os.path.join(DATA, "sounds"))
        self.assertEqual([(sound["path"], sound["channels"], sound["rate"], sound["length"]) for sound in sounds],
                         [(os.path.join(DATA, "sounds", name), int(channels), int(rate), int(frames) * 1000 // int(rate) / 1000)
                          for name, _, channels, rate, frames in known])
        facts = {"positions": "1", "instruments": "31", "instrument 1": "naïve"}
        song = {"path": self.path("song.mod"), "format": "tracker module", "codec": "4 voices", "rate": 44100,
                "channels": 2, "bits": 16, "length": 0.06, "title": "A song", "facts": facts, "truncated": False}
        self.assertEqual(self.listed(self.path("song.mod"), "absent", complaint="absent: No such file or directory"),
                         [song, {"path": "absent", "reason": "No such file or directory"}])

    def test_folders_and_playlists(self):
        for folder, name in (("a", "two%4z.wav"), ("a", "one.wav"), ("a/b", "three.wav"), ("a", "notes.txt")):
            os.makedirs(self.path(folder), exist_ok=True)
            self.write(f"{folder}/{name}", b"text" if name == "notes.txt" else wav(NOISE[:400]))
        self.write("a/list.m3u8", b"\xef\xbb\xbf#EXTM3U\r\n#EXTINF:1,x\r\ntwo%4z.wav\r\n\r\n../stereo.wav")
        self.write("list.PLS", f"[playlist]\nFile1=a/one.wav\nTitle1=x\nFile2={self.path('bytes.wav')}\n".encode())
        self.write("outer.m3u", f"a\\one.wav\nlist.PLS\nouter.m3u\nfile://{self.folder.name}/%61/two%4z.wav\n".encode())
        inner = "a/one.wav " + self.path("bytes.wav")
        sounds = self.listed("outer.m3u", complaint="outer.m3u: a playlist in itself, or too deep in others")
        self.assertEqual([sound["path"] for sound in sounds], ("a/one.wav " + inner).split() + [self.path("a/two%4z.wav")])
        rows = {("a",): "a/one.wav a/two%4z.wav",
                ("-r", "a"): "a/b/three.wav a/one.wav a/two%4z.wav",
                ("alaw.wav", "a/list.m3u8"): "alaw.wav a/two%4z.wav a/../stereo.wav",
                ("list.PLS",): inner}
        for words, expected in rows.items():
            self.assertEqual([sound["path"] for sound in self.listed(*words)], expected.split())

    def test_convert(self):
        rows = {  # to the last sample
            ("stereo.wav",): NOISE,
            ("--loop", "3", "stereo.wav"): NOISE * 3,
            ("deep.wav",): NOISE,
            ("bytes.wav",): NOISE,
            ("alaw.wav",): struct.pack("<hh", -8, 8) * 2000,
            ("--framework", "three.au"): swapped(NOISE),
            ("float.wav",): array.array("i", [0, 1 << 30, -1 << 31, 1 << 29]).tobytes(),
            ("odd.wav",): NOISE[:6000],
            ("--loop", "2", "cut.au"): swapped(NOISE[:4000]) * 2,
            ("--framework", "short.aiff"): bytes(8) + swapped(NOISE[:4000]),
            ("short.aiff",): swapped(NOISE[:4000]),
            ("--framework", "small.8svx"): bytes((128 - byte) % 256 for byte in NOISE[:3000]),
            ("small.8svx",): bytes(byte ^ 128 for byte in NOISE[:3000]),
            ("small.voc",): NOISE[:3000],
            ("--raw", "16,2,8000", "text.txt"): swapped(b"text " * 1000),
            ("--start", "0:00.25", "--length", "0.5", "--loop", "2", "stereo.wav"): NOISE[44100:132300] * 2,
            ("--bits", "24", "--length", "0.1", "stereo.wav"): b"".join(b"\0" + NOISE[i:i + 2] for i in range(0, 17640, 2)),
        }
        for words, expected in rows.items():
            with self.subTest(words):
                self.assertTrue(self.convert(*words) == expected, "the samples differ")
        for words in ("cat stereo.wav | $0 --convert - - | cat > out", "$0 --convert - - < stereo.wav > out",
                      "$0 --info - - < stereo.wav > twice && $0 --convert stereo.wav - > out"):
            self.assertEqual(self.run_program("sh", "-c", words, PLAYER), (0, "", ""))
            self.assertTrue(self.read("out")[44:] == NOISE, "the samples differ")
        self.assertEqual(self.run_player("--convert", "--bits", "float", "float.wav", "out.wav"), (0, "", ""))
        self.assertEqual(self.read("out.wav")[20:22] + self.read("out.wav")[-16:],
                         b"\3\0" + array.array("f", [0, 0.5, -2.5, 0.25]).tobytes())
        self.assertEqual(self.run_player("--convert", "stereo.wav", "out.RAW"), (0, "", ""))
        self.assertTrue(self.read("out.RAW") == NOISE, "the samples differ")
        song = self.convert("song.mod")
        self.assertEqual(len(song), 3 * 882 * 4)
        self.assertGreater(max(array.array("h", song)), 2000)
        self.assertTrue(self.convert("--loop", "2", "song.mod") == song * 2, "the second pass differs")
        self.assertTrue(self.convert("cover.mp3") == self.convert("tagged.mp3"), "the picture is heard")
        music = array.array("h", self.convert("tagged.mp3"))[::31]
        expected = array.array("h", self.read(os.path.join(DATA, "mp3_joint.s16")))
        self.assertLessEqual(max(abs(a - b) for a, b in zip(music, expected, strict=True)), 1)

    def test_statuses_and_messages(self):
        rows = [(("--info", "absent"), 1, "absent: No such file or directory"),
                (("--info", "no.pls"), 1, "no.pls: No such file or directory"),
                (("--convert", "stereo.wav", "folder.wav"), 1, "folder.wav: Is a directory"),
                (("--convert", "folder.wav", "out.wav"), 1, "folder.wav: Is a directory"),
                (("--convert", "stereo.wav", "out.flac"), 2, "--convert: writes only .wav, .raw and .pcm"),
                (("--convert", "stereo.wav", "no/out.wav"), 1, "no/out.wav: No such file or directory"),
                (("--convert", "--loop", "1000000", "stereo.wav", "out.wav"), 1, "out.wav: more than 4 GiB of sound"),
                ((), 2, "FILE is required"),
                (("--convert", "stereo.wav"), 2, "--convert: needs two files, IN and OUT"),
                (("--convert", "--loop", "0", "a", "b.wav"), 2, "--loop: 0 cannot be converted: a file has an end"),
                (("--convert", "--start", "1:00", "stereo.wav", "out.wav"), 1, "stereo.wav: it ends before the start time"),
                (("--start", "1:x", "a"), 2, "--start: needs a time: 83, 1:23.5 or 1:02:03"),
                (("--device", "absent", "a"), 1, 'no sound device "absent" (--devices lists them)'),
                (("--raw", "9,1,1", "a"), 2, "--raw: needs 8 or 16 bits, 1 to 32 channels, 1 to 768000 Hz")]
        rows += [((name,), 1, f"{name}: {reason}") for name, (_, reason) in UNPLAYABLE.items()]
        rows += [(("--framework", name), 1, f"{name}: {reason}") for name, reason in FRAMEWORK_REFUSES.items()]
        os.mkdir(self.path("folder.wav"))
        for words, status, line in rows:
            with self.subTest(words):
                self.assertEqual(self.run_player(*words), (status, "", f"tessplay: {line}{' (see --help)' if status == 2 else ''}\n"))
        self.devices(default=ABSENT)
        status, _, errors = self.run_player("stereo.wav")
        line = "tessplay: no sound device: "
        self.assertEqual((status, errors[:len(line)], errors.count("\n")), (1, line, 1))
        self.assertEqual(self.run_player("--help")[0], 0)
        self.assertRegex(self.run_player("--version")[1], r"^tessplay \d+\.\d+")
        self.assertEqual(self.run_program("sh", "-c", '"$0" --info stereo.wav > /dev/full', PLAYER),
                         (1, "", "tessplay: standard output: No space left on device\n"))

    def test_the_only_device(self):
        """The engine itself opens no stream with fewer than two devices."""
        self.devices(default=FILE, spare=NULL)
        self.assertEqual(self.run_player("stereo.wav"), (0, "stereo.wav: 0:00\n", ""))
        self.assertIn(NOISE, self.read("captured"))
        self.assertRegex(self.run_player("--devices")[1], r"(?m)^\d: default \(default\)$")
        self.write("captured", b"")
        self.run_player("--device", "SPARE", "stereo.wav")
        self.assertEqual(self.read("captured"), b"")

    def test_what_is_played_is_what_is_converted(self):
        """Each file after one of another format, so that the stream is opened anew."""
        for name in FILES:
            with self.subTest(name):
                expected = self.convert("--loop", "2", name)
                # song.mod leaves the engine's buffers used; each stream starts the captured file anew.
                status, printed, errors = self.run_player("--loop", "2", "song.mod", name)
                self.assertEqual((status, errors, len(printed.splitlines())), (0, "", 2))
                heard = self.read("captured")
                if name == "small.voc":  # a whole buffer of the track would last seconds, which a pause would wait for
                    self.assertLess(len(heard), 20000)
                silence = b"\x80" if name in ("bytes.wav", "small.8svx", "small.voc") else b"\0"
                start = heard.find(expected)
                self.assertGreaterEqual(start, 0, "what was heard differs")
                self.assertEqual(heard[:start].strip(silence) + heard[start + len(expected):].strip(silence), b"")


class OnTerminal(Stage):
    """The player on a terminal, with a sound card at its real speed."""

    def start(self, *words, program=PLAYER):
        os.mkfifo(self.path("captured"))
        fresh = pty.openpty()
        self.before = termios.tcgetattr(fresh[0])  # the player may change its terminal at once
        for end in fresh:
            os.close(end)
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.chdir(self.folder.name)
            os.execve(program, [program, *words], self.environment)
        self.heard = b""
        self.shown, self.seen = "", 0  # of the output, and how much has been waited for
        threading.Thread(target=self.listen, daemon=True).start()
        threading.Thread(target=self.look, daemon=True).start()

    def listen(self):
        with open(self.path("captured"), "r+b", buffering=0) as card:  # its own writer, too: it outlives a stream
            while chunk := card.read(65536):
                self.heard += chunk
                time.sleep(0.01)

    def look(self):
        try:
            while chunk := os.read(self.terminal, 4096):
                self.shown += chunk.decode()
        except OSError:
            pass

    def wait_for(self, what, happened):
        deadline = time.monotonic() + 20
        while not happened():
            self.assertLess(time.monotonic(), deadline, f"no {what} in {self.shown[-300:]!r}")
            time.sleep(0.02)

    def wait_for_line(self, text):
        self.wait_for(text, lambda: text in self.shown[self.seen:])
        self.seen = self.shown.index(text, self.seen) + len(text)

    def press(self, keys, *lines):
        """Types keys and waits for each of the texts."""
        os.write(self.terminal, keys)
        for line in lines:
            self.wait_for_line(line)

    def silent(self):
        before = len(self.heard)
        time.sleep(0.5)
        return len(self.heard) == before

    def end(self):
        status = os.waitstatus_to_exitcode(os.waitpid(self.process, 0)[1])
        self.assertEqual(termios.tcgetattr(self.terminal), self.before)
        os.close(self.terminal)
        return status

    def test_keys(self):
        self.start("--loop", "0", "stereo.wav", "absent", "song.mod")
        self.wait_for_line("/ 0:00 [")
        self.wait_for_line("stereo.wav (1 of 3)")
        self.assertFalse(self.silent())
        self.press(b" ", "paused: stereo.wav")
        self.wait_for("silence", self.silent)
        self.press(b" ")
        self.wait_for("sound", lambda: not self.silent())
        heard = bytes(self.heard).replace(bytes(4), b"")
        self.assertTrue((NOISE * (len(heard) // len(NOISE) + 1)).startswith(heard), "the pause is heard")
        self.press(b">", "tessplay: absent: No such file or directory", "A song (2 of 2)")
        self.press(b"v", "row ", "of pattern 0, 1/1, speed 3 at 125")
        self.press(b"v<", "stereo.wav (1 of 2)")
        self.press(b"n<\x1bOQ", "A song (2 of 2)", "stereo.wav (1 of 2)")  # forth and back; the last key is F2, not Q
        self.press(b"xq")
        self.assertEqual(self.end(), 1)  # because of the missing file

    def test_seeking_and_volume(self):
        self.write("long.wav", wav(bytes(44100 * 4 * 180)))
        self.start("long.wav")
        self.wait_for_line(" / 3:00 [")
        self.press(b" ", "paused: long.wav")
        for keys, shown in ((b"9", "2:42 "), (b"\x1b[H", "0:00 "), (b"\x1b[A", "1:00 "), (b"\x1b[C", "1:05 "), (b"5", "1:30 "),
                            (b"\x1b", ""), (b"[D", "1:25 "), (b"\x1bOB", "0:25 "), (b"\x1b[6~", "0:00 "), (b"--", "paused: 90%: long.wav"), (b"m", "paused: muted: long.wav"),
                            (b"m+", "paused: 95%: long.wav"), (b"?", "shows this")):
            self.press(keys, shown)
            time.sleep(0.1 if shown == "" else 0)
        self.press(b"9 \x1b[5~")  # past the end
        self.assertEqual(self.end(), 0)

    @unittest.skipUnless(LOST_DEVICE, "needs the library that loses devices")
    def test_lost_device(self):
        self.environment.update(LD_PRELOAD=os.path.abspath(LOST_DEVICE), LOST_OPENINGS="1000000")
        self.assertEqual(self.run_player("--loop", "0", "stereo.wav"), (1, "stereo.wav: 0:00\n",
            "tessplay: stereo.wav: the sound device was lost and did not come back in ten seconds\n"))
        os.remove(self.path("captured"))
        self.environment["LOST_OPENINGS"] = "3"
        self.write("long.wav", wav(bytes(range(256)) * 689 * 60))
        self.start("--start", "0:30", "long.wav")
        self.press(b"", "device lost, trying again: ", "0:30 / 0:59 [")
        self.wait_for("sound", lambda: not self.silent())
        self.press(b"q")
        self.assertEqual(self.end(), 0)

    def test_signals(self):
        self.start("--loop", "0", "stereo.wav")
        self.wait_for_line("stereo.wav")
        os.kill(self.process, signal.SIGTSTP)
        self.assertTrue(os.WIFSTOPPED(os.waitpid(self.process, os.WUNTRACED)[1]))
        self.assertEqual(termios.tcgetattr(self.terminal), self.before)
        os.kill(self.process, signal.SIGCONT)
        self.wait_for_line("stereo.wav")
        self.press(b"\x03")  # Ctrl-C
        self.assertEqual(self.end(), -signal.SIGINT)

    def test_in_the_background(self):
        self.start("-i", program="/bin/sh")
        self.press(f"{PLAYER} --loop 0 stereo.wav\n".encode(), "/ 0:00 [")
        self.press(b"\x1a")  # Ctrl-Z
        self.wait_for("silence", self.silent)
        self.press(b"bg\n")
        self.wait_for("sound", lambda: not self.silent())
        self.assertFalse(self.silent())
        self.press(b"fg\n")
        self.press(b" ", "paused: stereo.wav")
        self.press(b"q")
        self.wait_for("prompt", lambda: self.shown.endswith(("$ ", "# ")))
        self.press(b"exit\n")
        self.assertEqual(self.end(), 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
