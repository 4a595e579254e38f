"""A scripted game for the thread sanitizer: race_test.py PROGRAM DATAS

Plays with music on silent sound cards: marks, uncovers, loses, watches the end views, plays again and
wins. Any report of a race makes the game end with the sanitizer's status.
"""

import os
import sys
import time
import unittest

from stage import Display, Folder, Game, silent_sound

PROGRAM, DATAS = (os.path.abspath(path) for path in sys.argv[1:3])


class Race(unittest.TestCase):
    def play(self, size, script):
        with Display() as display, Folder(DATAS) as folder:
            # Keeps the software rasteriser from starting threads, which the sanitizer cannot see into.
            environment = dict(silent_sound(folder), LP_NUM_THREADS="0")
            game = Game(PROGRAM, display, folder, size, environment)
            game.wait_for("OK, let's play.\n\n", 60)
            time.sleep(2)
            script(game)
            game.key("Escape")
            if "all mines" in game.printed:
                game.wait_for("What is your name? ")
                game.type("me\n")
            status, errors = game.finish(60)
            self.assertEqual((status, errors), (0, ""), errors)

    def test_a_game_won(self):
        def script(game):
            for _ in range(3):
                game.click((1, 1), 3)
            game.click((2, 2))
            game.wait_for("detected all mines!\n")
            time.sleep(2)

        self.play((4, 3, 0), script)

    def test_a_game_lost(self):
        def script(game):
            for cell in [(1, 1), (2, 1)]:  # three of four cells are mines
                if "stepped on" not in game.printed:
                    game.click(cell)
                    time.sleep(2.5)
                    game.read(0.1)
            game.wait_for("stepped on a mine!\n")
            time.sleep(5)

        self.play((2, 2, 3), script)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v"])
