"""The sound engine on emulated sound cards: sound_test.py PLAY_SOUND MUSIC [thread]

With "thread" the program is one that was built for the thread sanitizer.
"""

import array
import os
import sys
import unittest

import sound_files
from cards import ABSENT, FILE, MONO, NULL, Cards
from sound_files import noise, swapped

PLAY_SOUND = os.path.abspath(sys.argv[1])
MUSIC = os.path.abspath(sys.argv[2])
SEES_RACES = sys.argv[3:] == ["thread"]
BUFFER = 65536
MUSIC_BUFFERS = 320  # two minutes

SPARE = {"first": NULL, "second": NULL}  # for indices 0 and 1


def refills(sound):
    """The engine's refills for big-endian 16-bit samples, one buffer each."""
    return [swapped(sound[i:i + BUFFER]) for i in range(0, len(sound), BUFFER)]


class Sound(Cards):
    def play(self, devices, *words):
        """Runs the program on these devices; returns its status, its output, and its errors."""
        self.devices(**devices)
        return self.run_program(PLAY_SOUND, *words)

    def play_well(self, devices, *words):
        """The same, asserting that there are no errors."""
        status, printed, errors = self.play(devices, *words)
        self.assertEqual((status, errors), (0, ""), errors)
        return printed

    def test_what_is_heard(self):
        """Every sample of a sound, three times over, on each kind of device that is accepted."""
        sound = noise(5 * BUFFER + 20000)
        self.write("sound", sound)
        buffers = refills(sound)
        buffers[-1] += bytes(BUFFER - len(buffers[-1]))  # the device's buffer is filled up with silence
        expected = b"".join(buffers) * 3
        rows = {
            "by its name": (SPARE | {"TheOutput": FILE, "default": NULL}, 2),
            "the default": (SPARE | {"third": NULL, "default": FILE}, 4),
            "the default where the named one is absent": (SPARE | {"Output": ABSENT, "default": FILE}, None),
            "the default where the named one is mono": (SPARE | {"MonoOutput": MONO, "default": FILE}, None),
        }
        for what, (devices, index) in rows.items():
            with self.subTest(what):
                printed = self.play_well(devices, "sound", 18, 0)
                self.assertIn("error 0, stream open, callbacks enough, playing 1", printed)
                if index is not None:
                    self.assertIn(f"device {index} of", printed)
                heard = self.read("captured").lstrip(b"\0")  # the device is primed with silence
                self.assertTrue(heard.startswith(expected), "what was heard differs")
                os.remove(self.path("captured"))

    def test_music_is_heard_over_the_seam(self):
        self.play_well(SPARE | {"default": FILE}, MUSIC, 2 * MUSIC_BUFFERS + 10, 0)
        heard = array.array("h", self.read("captured"))
        size = MUSIC_BUFFERS * BUFFER // 2
        start = 3 * BUFFER // 2  # after the silence that the device is primed with
        one, other = heard[start:start + size:101], heard[start + size:start + 2 * size:101]
        self.assertLessEqual(max(abs(a - b) for a, b in zip(one, other)), 1, "the rounds differ")
        self.assertGreater(max(one), 1000)

    def test_silence_is_no_failure(self):
        """No device, or one with too low an index: no sound and no message."""
        self.write("sound", noise(2 * BUFFER))
        for what, devices in {"none": {"default": ABSENT}, "low": {"Output": FILE, "default": NULL}}.items():
            with self.subTest(what):
                self.assertIn("stream none", self.play_well(devices, "sound", 3, 0))
                self.assertFalse(os.path.exists(self.path("captured")))

    def test_sounds_come_and_go_while_one_plays(self):
        """Loads sounds of every format while each format that is refilled from its file plays."""
        for kind, make in {"wav": sound_files.wav, "voc": sound_files.voc, "au": sound_files.au,
                           "8svx": sound_files.svx, "aiff": sound_files.aiff, "raw": bytes}.items():
            for name, size in ("short", 3000), ("long", 3 * BUFFER):
                self.write(f"{name}.{kind}", make(noise(size)))
        self.write("long.mod", sound_files.module(command=0))
        others = sorted(name for name in os.listdir(self.folder.name) if name.startswith(("short", "long")))
        others += [MUSIC, "absent"]
        for playing in [name for name in others if not name.startswith(("short", "absent"))]:
            with self.subTest(playing):
                words = (playing, 60, 0, *others)
                self.assertIn("callbacks enough", self.play_well(SPARE | {"default": NULL}, *words))
        if SEES_RACES:  # proved by a planted race
            status, _, errors = self.play(SPARE | {"default": NULL}, *words, "race")
            self.assertNotEqual(status, 0)
            self.assertIn("planted", errors)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
