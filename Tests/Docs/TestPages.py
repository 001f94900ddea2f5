"""Runs what the README and the man pages show, and draws the README's picture.

    TestPages.py SOURCES KELMOR_RUN KELMOR KELMORINFO WRITE_SEGMENTS
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCES = pathlib.Path(sys.argv[1])
KELMOR_RUN, KELMOR, KELMORINFO, WRITE_SEGMENTS = sys.argv[2:]

# What the examples of a page print, or part of it, and the files that they make.
EXAMPLES = {
    "Kelmor": [
        ("/Run.dir/energy.dat keeping 176 steps out of 192", {"joined.h5"}),
        ("", {"thin.h5"}),
        ("", {"all.h5"})],
    "KelmorInfo": [
        ("kinetic", set()),
        ("Kelmor would join 3 files", {"plan.svg"}),
        ("run.h5 is the join of 3 files", {"run.h5"}),
        ("/BodyB.dir/speed.dat\n/Run.dir/energy.dat\n", set())],
    "kelmor-run": [
        ("", {"run.h5", "run.h5.json"}),
        ("", {"thin.h5", "thin.h5.json"}),
        ("segment3.h5: OK", set()),
        ("", {f"one-segment{i}.h5{suffix}" for i in (1, 2, 3) for suffix in ("", ".json")})],
}


class TestPages(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.data = pathlib.Path(holder.name) / "data"
        programs = pathlib.Path(holder.name) / "bin"
        for folder in (self.data, programs):
            folder.mkdir()
        for program in (KELMOR_RUN, KELMOR, KELMORINFO):
            (programs / pathlib.Path(program).name).symlink_to(program)
        self.environment = dict(os.environ, PATH=f"{programs}:{os.environ['PATH']}")
        subprocess.run([WRITE_SEGMENTS, self.data], check=True, stdout=subprocess.DEVNULL)

    def run_line(self, line):
        """What it prints; the files that it makes."""
        before = set(self.data.iterdir())
        result = subprocess.run(["bash", "-euo", "pipefail", "-c", line], cwd=self.data, text=True,
                                env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout, {path.name for path in set(self.data.iterdir()) - before}

    def test_readme(self):
        page = (SOURCES / "README.md").read_text(encoding="utf-8")
        shown = re.findall(r"^    \$ (.*)\n((?:(?!    \$)    .*\n|\n(?=    ))*)", page, re.MULTILINE)
        self.assertEqual(len(shown), 3)
        for line, output in shown:
            self.assertEqual(self.run_line(line)[0], re.sub("(?m)^    ", "", output), line)
        self.assertEqual((self.data / "plan.svg").read_text(), (SOURCES / "docs/plan.svg").read_text(),
                         "docs/plan.svg is to be drawn again")

    def test_man_pages(self):
        for page, expected in EXAMPLES.items():
            text = (SOURCES / f"man/{page}.1").read_text()
            examples = re.findall(r"^\.EX\n(.*?)^\.EE$", text, re.MULTILINE | re.DOTALL)
            self.assertEqual(len(examples), len(expected), page)
            for example, (printed, made) in zip(examples, expected):
                line = example.replace(r"\-", "-").replace(r"\e", "\\")
                if "jq " in line and not shutil.which("jq"):
                    continue
                output, files = self.run_line(line)
                self.assertIn(printed, output, line)
                self.assertEqual(files, made, line)
            for path in set(self.data.iterdir()) - set(self.data.glob("segment*")):
                path.unlink()


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
