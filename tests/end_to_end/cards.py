"""Programs in a folder of each test's own, and sound cards that are emulated by files."""

import os
import subprocess
import tempfile
import unittest

NULL = "type null"
MONO = "type multi slaves.a { pcm { type null } channels 1 } bindings.0 { slave a channel 0 }"
ABSENT = "type hw card 31"
FILE = 'type file file "FOLDER/captured" format raw slave.pcm { type null }'


class Programs(unittest.TestCase):
    """Each test's own folder, in which the programs run."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.environment = dict(os.environ)

    def tearDown(self):
        self.folder.cleanup()

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def write(self, name, data):
        with open(self.path(name), "wb") as file:
            file.write(data)
        return file.name

    def run_program(self, *words):
        """Returns the status, the output, and the errors."""
        run = subprocess.run([*map(str, words)], env=self.environment, cwd=self.folder.name, capture_output=True,
                             text=True, timeout=300)
        return run.returncode, run.stdout, run.stderr


class Cards(Programs):
    """The same with cards that write there."""

    def setUp(self):
        super().setUp()
        self.environment.update(ALSA_CONFIG_PATH=self.path("alsa.conf"), JACK_NO_START_SERVER="1")

    def devices(self, **devices):
        cards = "".join(f"pcm.!{name} {{ {device} }}\n" for name, device in devices.items())
        self.write("alsa.conf", cards.replace("FOLDER", self.folder.name).encode())
