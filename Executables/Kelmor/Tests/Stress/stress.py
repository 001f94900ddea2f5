#!/usr/bin/env python3
# Runs Kelmor under bad conditions, in groups, and prints a line per group. judge.py has the rules
# that every run is held to. Ends with status 1 after any fault. What a faulty run worked on is kept,
# with what it said.

import argparse
import ast
import collections
import json
import multiprocessing
import os
import pathlib
import random
import re
import resource
import subprocess
import sys
import tempfile
import time

import h5py
import numpy as np
from bad_inputs import LEAST_CHECKS, bad_cases, run_bad
from check import Options, describe
from damage import damage_cases, run_damage, run_source, source_cases
from faults import call_cases, others_cases, run_calls, run_others
from judge import LIBRARY_CRASH, MB, Judge, in_child
from segments import random_plans, write_plain, write_random
from soak import run_soak, soak_cases

TRIO = ["s0.h5", "s1.h5", "s2.h5"]
LIMITED = ["-cachesize", "2000"]


def random_cases(share):
    return [(seed,) for seed in range(round(2000 * share))]


def run_random(judge, seed):
    rng = random.Random(seed)
    plans, start, inputs = random_plans(rng), rng.choice((0, 0, -20)), []
    for i in range(rng.choice((1, 2, 2, 3, 5, 9))):
        inputs.append(f"s{i}.h5")
        write_random(rng, judge.folder / inputs[-1], plans, start)
        start += rng.choice((0, 1, 5, 10, -2))
    options = Options(DeltaT=rng.choice((1e-10, 1e-10, 1e-10, 0.0, 0.5, 1.0, 1e-11, 3.0)),
                      NoWipe=rng.random() < 0.2, NoGzip=rng.random() < 0.3,
                      skip=rng.choice([""] * 8 + ["*a*", "*.txt", "/?0.dat|*.coef", "*",
                                                  "/A.dir/*", "*a*b?*"]))
    more = ["-v", "-cachesize", rng.choice(("1001", "5e3", "1e5", "1e9", "1e11"))]
    outcome = judge.join(inputs, options, more, allowed=(0,),
                         environment={"VEXA_THREADS": rng.choice("123")})
    if outcome.err:
        judge.fault("writes to standard error", outcome)
    # A plan tells what the join did, and a check proves it.
    arguments, size = [*options.arguments(), *inputs], 0
    plan = json.loads(judge.inspect("-plan", "-json", *arguments, allowed=(0,)).out)
    planned = [f"{dataset['name']} keeping {dataset['kept']} steps out of {dataset['total']},"
               for dataset in plan["datasets"] if "kept" in dataset]
    joined = re.findall(r"^/.* keeping \d+ steps out of \d+,", outcome.out, re.MULTILINE)
    if (judge.folder / "out.h5").exists():
        size = in_child(bytes_in, judge.folder / "out.h5")
        judge.inspect("-check", "out.h5", *arguments, allowed=(0,))
    if (planned, plan["bytes"]) != (joined, size):
        judge.fault(f"the plan tells {planned} and {plan['bytes']} bytes, not {size}", outcome)


def bytes_in(output):
    with h5py.File(output, "r") as file:
        names = []
        file.visit(names.append)
        contents = [describe(file[name]).get("content", np.empty(0)) for name in names]
        return sum(one.nbytes if one.dtype == "f8" else sum(map(len, one.flat)) for one in contents)


# Limits: a join of some tenths of a second.

def write_trio(judge):
    for i, name in enumerate(TRIO):
        write_plain(judge.folder / name, 300 * i, steps=400, tables=20)
    return judge.reference(TRIO)


# Of memory from what the program needs to start to more than the join needs, of the output's size from
# nothing to the whole, and of open files fewer than there are inputs.
def limit_cases(share):
    return [(what, i) for what in ("as", "fsize") for i in range(0, 100, round(1 / share))] + [
        ("nofile", 1024)]


def run_limits(judge, what, i):
    judge.library_may_crash, size, inputs = what == "as", i, TRIO
    if what == "nofile":
        inputs = [f"{i}.h5" for i in range(1100)]
        for i, name in enumerate(inputs):
            write_plain(judge.folder / name, 3 * i, kinds=("dat",))
        judge.join(inputs, allowed=(0,), limit=f"--nofile={size}:", seconds=300, cpu_seconds=300)
        return
    reference = write_trio(judge)
    if what == "fsize":
        size = 8000 * i + 1
    else:
        size = i * MB // 2 + next(size for size in range(8 * MB, 1000 * MB, MB) if subprocess.run(
            ["prlimit", f"--as={size}", judge.program, "-h"], stdout=-3, stderr=-3).returncode == 0)
    judge.join(TRIO, more=LIMITED if i % 2 else [], reference=reference,
               limit=f"--{what}={size}:", reports_to_file=what == "fsize" and size > 20000)


GROUPS = {  # name: its cases, what runs one, share of them in a quick run, whether with sanitizers
    "random": (random_cases, run_random, 0.08, True),
    "bad": (bad_cases, run_bad, 1, True),
    "calls": (call_cases, run_calls, 0.1, False),
    "damage": (damage_cases, run_damage, 0.01, False),
    "sources": (source_cases, run_source, 0, False),
    "limits": (limit_cases, run_limits, 0.1, False),
    "others": (others_cases, run_others, 0.02, False),
    "soak": (soak_cases, run_soak, 0.15, True),
}
MOST_LIBRARY_CRASHES = {"limits": 0.1, "damage": 0.02, "sources": 0.02}


def prepare(settings, scratch):
    global judge
    judge = Judge(settings, scratch)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run_case(group, case):
    judge.begin(f"{group}{case}")
    try:
        GROUPS[group][1](judge, *case)
    except Exception as error:
        judge.faults.append(f"{judge.case}: the test itself failed: {error!r}")
    return judge.statuses, judge.notes, judge.faults


def run_group(pool, group, cases):
    begin, faults = time.monotonic(), []
    statuses, notes = collections.Counter(), collections.Counter()
    for task in [pool.apply_async(run_case, (group, case)) for case in cases]:
        more_statuses, more_notes, more_faults = task.get()
        statuses, notes, faults = statuses + more_statuses, notes + more_notes, faults + more_faults
    runs, most = sum(statuses.values()), MOST_LIBRARY_CRASHES.get(group, 0)
    checks = {note for note in notes if note.startswith("check ")}
    if notes[LIBRARY_CRASH] > 2 + most * runs:
        faults.append(f"{group}: more than {most:.0%} of the runs {LIBRARY_CRASH}")
    if len(cases) > 1 and group == "bad" and len(checks) < LEAST_CHECKS:
        faults.append(f"bad: {len(checks)} checks fail, not {LEAST_CHECKS}")
    for fault in faults[:20]:
        print("  fault:", ascii(fault)[1:-1][:600])
    told = [f"{count} x {status}" for status, count in sorted(statuses.items(), key=str)]
    told += [f"{notes[note]} {note}" for note in sorted(notes.keys() - checks)]
    print(f"{group}: {runs} runs ({', '.join(told)}), {len(checks)} checks failed, {len(faults)} "
          f"faults, {time.monotonic() - begin:.0f} s", flush=True)
    return len(faults)


def main():
    parser = argparse.ArgumentParser(description="Runs Kelmor under bad conditions.")
    parser.add_argument("build", type=pathlib.Path, help="folder with the programs to run")
    parser.add_argument("groups", nargs="*", metavar="group", help=", ".join(GROUPS))
    parser.add_argument("--quick", action="store_true", help="a sample of each group")
    parser.add_argument("--sanitized", action="store_true", help="leaves out what sanitizers rule out")
    parser.add_argument("--case", help="one case, as a fault shows it: \"random(263,)\"")
    settings = parser.parse_intermixed_args()
    settings.build = settings.build.resolve()
    settings.keep = settings.build / "faults"
    if unknown := set(settings.groups) - set(GROUPS):
        parser.error(f"no group {', '.join(unknown)}")

    memory, found = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None, 0
    with tempfile.TemporaryDirectory(prefix="stress", dir=memory) as scratch:
        os.chmod(scratch, 0o755)
        subprocess.run(["cc", "-shared", "-fPIC", "-O2", "-o", f"{scratch}/faults.so",
                        pathlib.Path(__file__).with_name("faults.c"), "-ldl"], check=True)
        with multiprocessing.Pool(len(os.sched_getaffinity(0)), prepare, (settings, scratch)) as pool:
            if settings.case:
                group, _, case = settings.case.partition("(")
                return run_group(pool, group, [ast.literal_eval("(" + case)]) > 0
            for group in settings.groups or GROUPS:
                cases, _, share, runs_sanitized = GROUPS[group]
                share = share / (1 + settings.sanitized) if settings.quick else 1
                if runs_sanitized or not settings.sanitized:
                    found += run_group(pool, group, cases(share))
    return found > 0


if __name__ == "__main__":
    sys.exit(main())
