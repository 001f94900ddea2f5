"""Runs what the README and the man pages show, draws the README's picture, and starts eight small
joins in each way that docs/cluster.md shows, with its own scripts and commands.

    TestPages.py SOURCES KELMOR_RUN KELMOR KELMORINFO WRITE_SEGMENTS [TEST ...]
"""

import os
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCES = pathlib.Path(sys.argv[1])
*PROGRAMS, WRITE_SEGMENTS = sys.argv[2:6]

# What the examples of a page print, or part of it, and the files that they make.
EXAMPLES = {
    "Kelmor": [("/Run.dir/energy.dat keeping 176 steps out of 192", "joined.h5"), ("", "thin.h5"),
               ("", "all.h5")],
    "KelmorInfo": [("kinetic", ""), ("Kelmor would join 3 files", "plan.svg"),
                   ("run.h5 is the join of 3 files", "run.h5"),
                   ("segment1.h5\nsegment2.h5\nsegment3.h5\n", ""),
                   ("/BodyB.dir/speed.dat\n/Run.dir/energy.dat\n", ""),
                   ("whole3.h5 has what is whole of segment3.h5: ", "whole3.h5"),
                   ("time,total\n20,", ""), ("step 7, t = 7: ", ""),
                   ("all.h5 is a view of 2 files: ", "all.h5 sofar.h5")],
    "kelmor-run": [("", "run.h5 run.h5.json"), ("", "thin.h5 thin.h5.json"), ("segment3.h5: OK", ""),
                   ("", " ".join(f"one-segment{i}.h5 one-segment{i}.h5.json" for i in (1, 2, 3)))],
}

CLUSTER_PAGE = (SOURCES / "docs/cluster.md").read_text(encoding="utf-8")
SCRIPTS = dict(re.findall(r"`([\w.-]+)`[^`]*\n\n```\w+\n(.*?)^```$", CLUSTER_PAGE,
                          re.MULTILINE | re.DOTALL))
VERSION = ".".join(re.findall(r"^#define VEXA_VERSION_[A-Z]+ (\d+)$",
                              (SOURCES / "Utils/Process/Version.hpp").read_text(), re.MULTILINE))
RUNS = ["a", "b", "c", "d", "e", "f", "g", "with blank"]
BROKEN = "d"


def processor_time():
    """Of all programs that were started and have ended, in seconds."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


class WithPrograms(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.top = pathlib.Path(holder.name)
        self.data = self.top / "data"
        for folder in (self.top / "bin", self.data):
            folder.mkdir()
        for program in PROGRAMS:
            (self.top / "bin" / pathlib.Path(program).name).symlink_to(program)
        self.start(self.top, WRITE_SEGMENTS, self.data)

    def start(self, folder, *command, **environment):
        """The status with which the command ends in the folder, and what it prints."""
        path = f"{self.top}/bin:{os.environ['PATH']}"
        environment = dict(os.environ, PATH=path, HOME=str(self.top), VEXA_NO_BACKTRACE="1", **environment)
        result = subprocess.run(command, cwd=folder, env=environment, text=True, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT)
        return result.returncode, result.stdout


class TestPages(WithPrograms):
    def run_line(self, line):
        """What it prints; the files that it makes in data, where the segments are."""
        before = set(self.data.iterdir())
        status, text = self.start(self.data, "bash", "-euo", "pipefail", "-c", line)
        self.assertEqual(status, 0, text)
        return text, " ".join(sorted(path.name for path in set(self.data.iterdir()) - before))

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
            self.assertRegex(text, rf'^\.TH {page.upper()} 1 "\d{{4}}-\d\d-\d\d" "Kelmor {re.escape(VERSION)}" ')
            examples = re.findall(r"^\.EX\n(.*?)^\.EE$", text, re.MULTILINE | re.DOTALL)
            self.assertEqual(len(examples), len(expected), page)
            for example, (printed, made) in zip(examples, expected):
                line = example.replace(r"\-", "-").replace(r"\e", "\\")
                if "jq " not in line or shutil.which("jq"):
                    output, files = self.run_line(line)
                    self.assertIn(printed, output, line)
                    self.assertEqual(files, made, line)
            for path in set(self.data.iterdir()) - set(self.data.glob("segment*")):
                path.unlink()


class TestCluster(WithPrograms):
    def setUp(self):
        super().setUp()
        for name, text in SCRIPTS.items():
            (self.top / name).write_text(text)
        for run in RUNS:
            shutil.copytree(self.data, self.top / "runs" / run)

    def start_line(self, program):
        """Runs the line that starts a program, as the page has it."""
        line = re.search(rf"^    ({program} .*)$", CLUSTER_PAGE, re.MULTILINE)[1]
        return self.start(self.top, "bash", "-c", line)

    def results(self, runs, text):
        """Those that are there must be these; with what changes if they are made again."""
        found = {path.name: (path.stat().st_ino, path.stat().st_mtime_ns)
                 for path in (self.top / "joined").iterdir() if path.name != "log.tsv"}
        self.assertEqual(set(found), {run + suffix for run in runs for suffix in (".h5", ".h5.json")}, text)
        return found.items()

    def check(self, start):
        """One of eight fails and says so; once it is mended, it alone is joined."""
        broken = self.top / "runs" / BROKEN / "segment2.h5"
        os.truncate(broken, 2000)
        status, text = start()
        before = self.results([run for run in RUNS if run != BROKEN], text)
        self.assertNotEqual(status, 0)
        self.assertEqual(re.findall(r"kelmor-run: (.*): no .*/joined/(.*)", text),
                         [("Kelmor ended with status 255", f"{BROKEN}.h5")])

        shutil.copy(self.data / "segment2.h5", broken)
        status, text = start()
        self.assertEqual(status, 0, text)
        self.assertLessEqual(before, self.results(RUNS, text))

    @unittest.skipUnless(shutil.which("snakemake"), "snakemake is not installed")
    def test_snakemake(self):
        self.check(lambda: self.start_line("snakemake"))

    @unittest.skipUnless(shutil.which("parallel"), "GNU parallel is not installed")
    def test_parallel(self):
        self.check(lambda: self.start(self.top, "bash", "join-all.sh"))

    @unittest.skipUnless(shutil.which("snakemake"), "snakemake is not installed")
    def test_snakemake_with_200_runs(self):
        runs = [f"run{number}" for number in range(200)]
        shutil.rmtree(self.top / "runs")
        for run in runs:
            (self.top / "runs" / run).mkdir(parents=True)
            for name in ("segment1.h5", "segment2.h5"):
                os.link(self.data / name, self.top / "runs" / run / name)
        before = processor_time()
        status, text = self.start_line("snakemake")
        self.assertEqual(status, 0, text)
        self.results(runs, text)
        # A minute of the two processors, however much of that others take meanwhile.
        self.assertLess(processor_time() - before, 120)

    def start_jobs(self, jobs, script):
        """The jobs of an array one after the other, as a node would run them."""
        ends = [self.start(self.top, "bash", script, SLURM_ARRAY_TASK_ID=str(job),
                           SLURM_ARRAY_TASK_COUNT=str(len(jobs)), SLURM_CPUS_PER_TASK="2") for job in jobs]
        return max(status for status, _ in ends), "".join(text for _, text in ends)

    def test_slurm(self):
        sbatch = self.top / "bin/sbatch"
        sbatch.write_text('#!/bin/sh\necho "$@"\n')
        sbatch.chmod(0o755)
        submitted = self.start_line("sbatch")[1]
        first, last, script = re.fullmatch(r"--array=(\d+)-(\d+) ([\w.]+)\n", submitted).groups()
        self.check(lambda: self.start_jobs(range(int(first), int(last) + 1), script))

    def test_slurm_with_several_runs_in_a_job(self):
        self.check(lambda: self.start_jobs(range(1, 4), "join-many.sbatch"))
        # A job that is ended takes its join along.
        shutil.rmtree(self.top / "joined")
        (self.top / "bin/kelmor-run").unlink()
        (self.top / "bin/kelmor-run").write_text('#!/bin/sh\ntrap "echo ended; exit 1" TERM\nkill $PPID\nsleep 9 & wait')
        (self.top / "bin/kelmor-run").chmod(0o755)
        self.assertEqual(self.start_jobs([1], "join-many.sbatch"), (1, "ended\n"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[6:], verbosity=2)
