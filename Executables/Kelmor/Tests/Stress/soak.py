"""A simulation that is killed, terminated, looked at, let run out of disk, and begun again, in the
same file or in a next one from an earlier checkpoint. What it said to be in a file must be there,
and every step once in the join.
"""

import contextlib
import os
import pathlib
import random
import signal
import subprocess
import tempfile
import time

import h5py
import numpy as np
from judge import in_child

ENDINGS = {"kill": -signal.SIGKILL, "time": -signal.SIGTERM, "disk": 255, "whole": 0}
PATIENCE = 60  # seconds


def soak_cases(share):
    return [(seed, round(100_000 * share)) for seed in range(round(16 * share))]


def expected(first, end):
    """What the tables of a segment that begins with the step `first` hold up to `end`."""
    steps = np.arange(first, end)

    def rows(*columns):
        return np.column_stack([0.125 * steps, *columns])

    def value(column, step=steps):
        return (7919 * step + 104729 * column + first) % 10007 / 7

    yield "Run.dir/a.dat", rows(value(1))
    yield "b.dat", rows(value(1), value(2), value(3))
    for index, values, counts, extents in (
            ("Run.dir/c.coef/index.dat", "Run.dir/c.coef/coefs.dat", 1 + steps % 5, []),
            ("m.tdm/index.dat", "m.tdm/data.dat", 4 + steps % 2 * 4,
             [np.full(len(steps), 2), 1 + steps % 2])):
        ends = np.cumsum(counts)
        columns = np.arange(counts.sum()) - np.repeat(ends - counts, counts)
        yield index, rows(ends, *extents)
        yield values, value(columns, np.repeat(steps, counts)).reshape(-1, 1)


def damage(path, first, end):
    """What is missing or wrong of the steps up to `end`."""
    if end == first:
        return ""
    try:
        with h5py.File(path, "r") as file:
            for name, wanted in expected(first, end):
                rows = file[name][:len(wanted)]
                if not np.array_equal(rows, wanted):
                    return f"{name} differs in its first {len(wanted)} rows, of which {len(rows)}"
    except Exception as error:
        return repr(error)
    return ""


@contextlib.contextmanager
def small_disk(path, kilobytes):
    """The file is on a disk that has so little left."""
    place = pathlib.Path(tempfile.mkdtemp(prefix="disk"))
    content = path.read_bytes() if path.exists() else b""
    subprocess.run(["mount", "-t", "tmpfs", "-o",
                    f"size={len(content) // 1024 + kilobytes}k", "none", place], check=True)
    try:
        if content:
            (place / path.name).write_bytes(content)
        yield place / path.name
        path.write_bytes((place / path.name).read_bytes())
    finally:
        subprocess.run(["umount", place], check=True)
        place.rmdir()


class Run:
    """Of the simulation, from where its file ends until it is ended."""

    def __init__(self, judge, rng, path, first, flushed, last):
        self.judge, self.path, self.first, self.before = judge, path, first, flushed
        self.said, self.told = judge.folder / "said.txt", judge.folder / "told.txt"
        judge.command = list(map(str, (judge.simulation, path, first, last, rng.choice(
            (20, 50, 300)), rng.choice(("live", "handles")))))
        with open(self.said, "wb") as out, open(self.told, "wb") as err:
            self.process = subprocess.Popen(judge.command, cwd=judge.folder, stdout=out, stderr=err)

    def lines(self):
        return self.said.read_text().split("\n")[:-1]

    def flushed(self):
        return max([self.before] + [int(line[2:]) for line in self.lines() if line[0] == "f"])

    def watch(self, target, is_looked_at):
        """Until it has flushed so many steps, or ended."""
        end = time.monotonic() + PATIENCE
        while self.process.poll() is None and self.flushed() < target and time.monotonic() < end:
            time.sleep(0.002)
            if is_looked_at and self.flushed() > self.first:
                with contextlib.suppress(BlockingIOError), h5py.File(self.path, "r"):
                    self.judge.notes["looks"] += 1
                    if found := damage(self.path, self.first, self.flushed()):
                        self.judge.fault(f"a reader sees: {found}")
                    time.sleep(0.02)

    def finish(self, wanted, steps):
        try:
            status = self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            status = self.process.wait() and "hang"
        self.judge.statuses[status] += 1
        if status != wanted and (status != 0 or self.flushed() < steps):
            self.judge.fault(f"status {status}, not {wanted}: {self.told.read_text()[-1000:]}")


def run_soak(judge, seed, steps):
    rng, names, first, flushed = random.Random(seed), ["0.h5"], 0, 0
    while flushed < steps and len(judge.faults) < 20:
        path, target = judge.folder / names[-1], flushed + rng.randrange(steps // 20) + 1
        ending = "whole" if target >= steps else rng.choice([*ENDINGS, "kill", "kill"])
        if ending == "disk" and os.geteuid():
            continue
        disk = contextlib.nullcontext(path)
        if ending == "disk":
            disk = small_disk(path, 40 + rng.randrange(steps // 100))
        with disk as place:
            run = Run(judge, rng, place, first, flushed,
                      min(target, steps) if ending == "whole" else steps)
            run.watch(target if ending in ("kill", "time") else 10**9, rng.random() < 0.3)
            time.sleep(rng.uniform(0, 0.01))
            if ending in ("kill", "time"):
                run.process.send_signal(-ENDINGS[ending])
            run.finish(ENDINGS[ending], steps)
        flushed, lines = run.flushed(), run.lines()
        is_within = ending == "kill" and bool(lines) and lines[-1][0] == "b"
        judge.notes["kills within a flush"] += is_within
        if found := in_child(damage, path, first, flushed):
            judge.notes["of these, kills that lost steps"] += is_within
            if not is_within:
                judge.fault(f"steps {first} to {flushed} after '{ending}': {found}")
            path.unlink(missing_ok=True)  # the segment is run again
            flushed = first
        elif ending in ("whole", "time") and first + 1 < flushed < steps:
            names.append(f"{len(names)}.h5")
            first = flushed = max(flushed - rng.randrange(100), first + 1)
    if judge.notes["of these, kills that lost steps"] > 3 + judge.notes["kills within a flush"] / 10:
        judge.fault("too many kills within a flush lose steps")
    judge.clear("Errors000.txt")
    judge.join(names, allowed=(0,), seconds=PATIENCE, cpu_seconds=PATIENCE)
    with h5py.File(judge.folder / "out.h5", "r") as file:
        for table in "Run.dir/a.dat", "b.dat", "Run.dir/c.coef/index.dat", "m.tdm/index.dat":
            if not np.array_equal(file[table][:, 0], 0.125 * np.arange(steps)):
                judge.fault(f"the join has not each step once in {table}")
