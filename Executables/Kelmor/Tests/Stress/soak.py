# A simulation that is killed, terminated, looked at, let run out of disk, and begun again in the same
# file. What it said to be in the file must be there.

import contextlib
import random
import signal
import subprocess
import time

import h5py
import numpy as np
from judge import in_child

ENDINGS = {"kill": -signal.SIGKILL, "time": -signal.SIGTERM, "disk": 255, "whole": 0}
PATIENCE = 60  # seconds


def soak_cases(share):
    return [(seed, round(100_000 * max(share, 0.4))) for seed in range(round(16 * share))]


# What the tables hold of the first steps.
def expected(count):
    steps = np.arange(count)

    def value(column, step=steps):
        return (7919 * step + 104729 * column) % 10007 / 7

    yield "Run.dir/a.dat", np.column_stack([0.125 * steps, value(1), value(2)])
    counts, two = 4 + steps % 2 * 4, np.full(count, 2)
    ends = np.cumsum(counts)
    columns = np.arange(counts.sum()) - np.repeat(ends - counts, counts)
    yield "m.tdm/index.dat", np.column_stack([0.125 * steps, ends, two, 1 + steps % 2])
    yield "m.tdm/data.dat", value(columns, np.repeat(steps, counts)).reshape(-1, 1)


# Tells what is missing or wrong of the first steps.
def damage(path, count):
    try:
        with h5py.File(path, "r") as file:
            for name, wanted in expected(count):
                rows = file[name][:len(wanted)]
                if not np.array_equal(rows, wanted):
                    return f"{name} differs in its first {len(wanted)} rows, of which {len(rows)}"
    except Exception as error:
        return repr(error)
    return ""


# Runs the simulation from where its file ends until it has flushed `target` steps, and ends it so.
def run_simulation(judge, rng, path, before, target, steps, ending):
    said, looks, late = judge.folder / "said.txt", rng.random() < 0.3, time.monotonic() + PATIENCE
    room = (path.stat().st_size if path.exists() else 0) + 1000 * rng.randrange(40, 1000)
    judge.command = ["prlimit", f"--fsize={room if ending == 'disk' else 1 << 40}:", *map(str, (
        judge.simulation, path, steps, rng.choice((20, 50, 300)), rng.choice(("live", "handles"))))]
    with open(said, "wb") as out, open(judge.folder / "told.txt", "wb") as err:
        process = subprocess.Popen(judge.command, cwd=judge.folder, stdout=out, stderr=err,
                                   restore_signals=False)  # so that writes fail at the limit

    def lines():
        return said.read_text().split("\n")[:-1]

    def flushed():
        return max([before] + [int(line[2:]) for line in lines() if line[0] == "f"])

    while process.poll() is None and time.monotonic() < late and (
            ending in ("disk", "whole") or flushed() < target):
        time.sleep(0.002)
        if looks and flushed():
            with contextlib.suppress(BlockingIOError), h5py.File(path, "r"):
                judge.notes["looks"] += 1
                if found := damage(path, flushed()):
                    judge.fault(f"a reader sees: {found}")
                time.sleep(0.02)
    time.sleep(rng.uniform(0, 0.01))
    process.send_signal(9 if time.monotonic() > late else -min(ENDINGS[ending], 0))
    status = process.wait(PATIENCE)
    judge.statuses[status] += 1
    if status != ENDINGS[ending] and (status != 0 or flushed() < steps):
        judge.fault(f"status {status} after '{ending}'")
    return flushed(), ending == "kill" and "".join(lines()[-1:])[:1] == "b"


def run_soak(judge, seed, steps):
    rng, path, flushed, lost = random.Random(seed), judge.folder / "0.h5", 0, "kills that lost steps"
    while flushed < steps and not judge.faults:
        target = flushed + rng.randrange(steps // 20) + 1
        ending = "whole" if target >= steps else rng.choice(("kill", "kill", "kill", "time", "disk"))
        flushed, is_within = run_simulation(judge, rng, path, flushed, target, steps, ending)
        judge.notes["kills within a flush"] += is_within
        if found := flushed and in_child(damage, path, flushed):
            judge.notes[lost] += is_within
            if not is_within or judge.notes[lost] > 3 + judge.notes["kills within a flush"] / 10:
                judge.fault(f"the first {flushed} steps after '{ending}': {found}")
            path.unlink(missing_ok=True)  # the run begins again
            flushed = 0
