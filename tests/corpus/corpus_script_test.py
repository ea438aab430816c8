#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""scripts/corpus, with a program in the place of kvz that goes wrong in every way."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CORPUS = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "corpus"

# Does what the model's file name says.
FAKE = '''#!/usr/bin/python3
import json, os, signal, sys, time
from PIL import Image
command = sys.argv[1]
if command == "formats":
    print(json.dumps({"models": [{"suffixes": ["obj"]}]}))
    sys.exit(0)
model = [argument for argument in sys.argv[2:] if "/parts/" in argument][0]
name = os.path.basename(model)
def say(line):
    print(line.replace("FILE", model), file=sys.stderr)
if command == "info":
    if name == "liar.obj":
        print("{")
    elif name == "refused.obj":
        say("kvz: FILE: no triangles")
        sys.exit(1)
    elif name in ("odd.obj", "skin.png"):
        say("kvz: FILE: unknown type of model file (OBJ, among others)")
        sys.exit(1)
    else:
        print(json.dumps({"items": 1, "triangles": 0 if name in ("points.obj", "hollow.obj") else 12, "bounds": {}}))
    sys.exit(0)
if name == "crashed.obj":
    os.kill(os.getpid(), signal.SIGSEGV)
if name == "greedy.obj":
    bytearray(3 << 30)
if name == "hung.obj":
    time.sleep(100)
if name in ("refused.obj", "points.obj"):
    say("kvz: FILE: no triangles")
    sys.exit(1)
if name in ("odd.obj", "skin.png"):
    say("kvz: FILE: unknown type of model file (OBJ, among others)")
    sys.exit(1)
if name == "mute.obj":
    sys.exit(1)
if name == "talkative.obj":
    say("kvz: FILE: one")
    say("kvz: FILE: two")
    sys.exit(1)
if name == "warned.obj":
    say("kvz: warning: FILE: a texture")
image = Image.new("RGBA", (320, 180))
for y in range(180):
    image.paste((y, y, y, 255), (0, y, 320, y + 1))
if name != "empty.obj":
    image.paste((7, 0, 0, 255) if name == "black.obj" else (255, 0, 0, 255), (100, 60, 140, 100))
if name == "dark.obj":
    image.paste((0, 0, 0, 255), (100, 60, 139, 100))
image.save(sys.argv[sys.argv.index("-o") + 1])
'''

VERDICTS = {
    "black": "black",
    "crashed": "crashed\tstatus -11",
    "dark": "drawn",
    "drawn": "drawn",
    "empty": "empty",
    "hung": "hung",
    "mute": "crashed\tstatus 1",
    "odd": "other",
    "points": "refused\tno triangles",
    "refused": "refused\tno triangles",
    "talkative": "crashed\tstatus 1: one | two",
    "warned": "warned\ta texture",
}


class CorpusScriptTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.path = pathlib.Path(self.folder.name)
        self.addCleanup(self.folder.cleanup)
        (self.path / "kvz").write_text(FAKE)
        (self.path / "kvz").chmod(0o755)
        (self.path / "parts").mkdir()

    def add(self, *names):
        for name in names:
            (self.path / "parts" / f"{name}.obj").write_text("")

    def run_corpus(self, *arguments):
        command = [CORPUS, "--kvz", self.path / "kvz", "--seconds", "5", self.path / "parts", *arguments]
        return subprocess.run(command, capture_output=True, text=True)

    def test_verdicts(self):
        self.add(*VERDICTS)
        done = self.run_corpus()
        lines = {f"parts/{name}.obj\t{verdict}" for name, verdict in VERDICTS.items()}
        self.assertEqual(set(done.stdout.splitlines()[:-1]), lines, done.stderr)
        self.assertEqual(done.returncode, 1)

    def test_what_info_says_is_compared(self):
        self.add("liar", "hollow")
        done = self.run_corpus()
        self.assertIn("parts/liar.obj: untrue: info: ", done.stderr)
        self.assertIn("parts/hollow.obj: untrue: info: 0 triangles, and yet a picture", done.stderr)
        self.assertEqual(done.returncode, 1)

    def test_every_file_is_drawn_if_asked_for(self):
        self.add("drawn")
        for name in ("skin.png", "drawn"):
            (self.path / "parts" / name).write_text("")
        self.assertEqual(self.run_corpus().stdout.splitlines()[:-1], ["parts/drawn.obj\tdrawn"])
        done = self.run_corpus("--every")
        self.assertEqual(done.stdout.splitlines()[:-1],
                         ["parts/drawn\tdrawn", "parts/drawn.obj\tdrawn", "parts/skin.png\tother"])
        self.assertEqual(done.returncode, 0)
        self.assertEqual(self.run_corpus("--every", "-o", self.path / "sheet.png").returncode, 0)
        from PIL import Image
        with Image.open(self.path / "sheet.png") as image:
            self.assertEqual(image.getpixel((640 + 120, 80))[:3], (255, 255, 255), "what is no model is not on the sheet")

    def test_memory_is_limited(self):
        self.add("greedy")
        self.assertTrue(self.run_corpus("--gigabytes", "1").stdout.startswith("parts/greedy.obj\tcrashed\tstatus 1: "))

    def test_table(self):
        self.add("drawn", "refused")
        table = self.path / "table.txt"
        self.assertEqual(self.run_corpus("--table", table, "--update").returncode, 0)
        self.assertEqual(table.read_text().splitlines()[1:], ["parts/drawn.obj\tdrawn", "parts/refused.obj\trefused\tno triangles"])
        self.assertEqual(self.run_corpus("--table", table).returncode, 0)

        table.write_text(table.read_text().replace("no triangles", "damaged"))
        done = self.run_corpus("--table", table)
        self.assertEqual(done.returncode, 1)
        self.assertIn("parts/refused.obj: was 'refused\\tdamaged', now 'refused\\tno triangles'", done.stderr)

        self.add("warned")
        (self.path / "parts" / "drawn.obj").unlink()
        done = self.run_corpus("--table", table)
        self.assertIn("parts/warned.obj: not in the table", done.stderr)
        self.assertIn("parts/drawn.obj: in the table, and not found", done.stderr)

    def test_contact_sheet(self):
        self.add("drawn", "refused", "warned")
        sheet = self.path / "sheet.png"
        self.assertEqual(self.run_corpus("-o", sheet).returncode, 0)
        from PIL import Image
        with Image.open(sheet) as image:
            self.assertEqual(image.getpixel((120, 80))[:3], (255, 0, 0), "the first picture is there")
            self.assertEqual(image.getpixel((320 + 120, 80))[:3], (255, 255, 255), "the second is none")
            self.assertEqual(image.getpixel((640 + 120, 80))[:3], (255, 0, 0), "the third is there")


if __name__ == "__main__":
    unittest.main(argv=sys.argv)
