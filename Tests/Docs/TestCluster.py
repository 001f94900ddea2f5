"""Starts eight small joins in each way that docs/cluster.md shows, with its own scripts and commands.

    TestCluster.py SOURCES KELMOR_RUN KELMOR KELMORINFO WRITE_SEGMENTS
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCES, KELMOR_RUN, KELMOR, KELMORINFO, WRITE_SEGMENTS = sys.argv[1:]
PAGE = (pathlib.Path(SOURCES) / "docs/cluster.md").read_text(encoding="utf-8")
SCRIPTS = dict(re.findall(r"`([\w.-]+)`[^`]*\n\n```\w+\n(.*?)^```$", PAGE, re.MULTILINE | re.DOTALL))
RUNS = ["a", "b", "c", "d", "e", "f", "g", "with blank"]
BROKEN = "d"


def line_of(program):
    """The line that starts a program, as the page has it."""
    return re.search(rf"^    ({program} .*)$", PAGE, re.MULTILINE)[1]


class TestCluster(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.top = pathlib.Path(holder.name)
        programs = self.top / "bin"
        programs.mkdir()
        for program in (KELMOR_RUN, KELMOR, KELMORINFO):
            (programs / pathlib.Path(program).name).symlink_to(program)
        for name, text in SCRIPTS.items():
            (self.top / name).write_text(text)
        for run in RUNS:
            folder = self.top / "runs" / run
            folder.mkdir(parents=True)
            subprocess.run([WRITE_SEGMENTS, folder], check=True, stdout=subprocess.DEVNULL)
        self.broken = self.top / "runs" / BROKEN / "segment2.h5"
        os.truncate(self.broken, 2000)
        self.environment = dict(os.environ, PATH=f"{programs}:{os.environ['PATH']}", HOME=str(self.top),
                                VEXA_NO_BACKTRACE="1")

    def start(self, *command, **environment):
        result = subprocess.run(command, cwd=self.top, env=dict(self.environment, **environment),
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        return result.returncode, result.stdout

    def results(self):
        """Those that are there, with what changes if they are made again."""
        found = {path.name: (path.stat().st_ino, path.stat().st_mtime_ns)
                 for path in (self.top / "joined").iterdir() if path.name != "log.tsv"}
        runs = sorted(name.removesuffix(".h5") for name in found if name.endswith(".h5"))
        self.assertEqual(set(found), {run + suffix for run in runs for suffix in (".h5", ".h5.json")})
        return runs, found

    def check(self, start):
        """One of eight fails and says so; once it is mended, it alone is joined."""
        status, text = start()
        runs, before = self.results()
        self.assertEqual(runs, [run for run in RUNS if run != BROKEN], text)
        self.assertNotEqual(status, 0)
        self.assertEqual(text.count("REQUIRE  FAILED"), 1, text)
        self.assertEqual(re.findall(r"kelmor-run: (.*): no .*/joined/(.*)", text),
                         [("Kelmor ended with status 255", f"{BROKEN}.h5")])

        shutil.copy(self.top / "runs/a/segment2.h5", self.broken)
        status, text = start()
        self.assertEqual(status, 0, text)
        runs, after = self.results()
        self.assertEqual(runs, RUNS)
        self.assertEqual(before, {name: after[name] for name in before})

    @unittest.skipUnless(shutil.which("snakemake"), "snakemake is not installed")
    def test_snakemake(self):
        def start():
            return self.start("bash", "-c", line_of("snakemake"))
        self.check(start)

        before = self.results()[1]
        shutil.copy(self.top / "runs/b/segment2.h5", self.top / "runs/b/segment3.h5")
        status, text = start()
        self.assertEqual(status, 0, text)
        after = self.results()[1]
        self.assertEqual({name for name in before if before[name] != after[name]},
                         {"b.h5", "b.h5.json"})

    @unittest.skipUnless(shutil.which("parallel"), "GNU parallel is not installed")
    def test_parallel(self):
        self.check(lambda: self.start("bash", "join-all.sh"))

    def test_slurm(self):
        """The jobs of the array one after the other, as a node would run them."""
        sbatch = self.top / "bin/sbatch"
        sbatch.write_text('#!/bin/sh\necho "$@"\n')
        sbatch.chmod(0o755)
        submitted = self.start("bash", "-c", line_of("sbatch"))[1]
        first, last, script = re.fullmatch(r"--array=(\d+)-(\d+) ([\w.]+)\n", submitted).groups()

        def start():
            ends = [self.start("bash", script, SLURM_ARRAY_TASK_ID=str(job), SLURM_CPUS_PER_TASK="2")
                    for job in range(int(first), int(last) + 1)]
            return max(status for status, _ in ends), "".join(text for _, text in ends)
        self.check(start)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
