#!/usr/bin/env python3
# Runs Kelmor under bad conditions, in groups, and prints a line per group. judge.py has the rules
# that every run is held to. Ends with status 1 after any fault. What a faulty run worked on is kept,
# with what it said.

import argparse
import ast
import collections
import concurrent.futures
import ctypes
import functools
import io
import json
import multiprocessing
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import time

import h5py
import numpy as np
from bad_inputs import bad_cases, least_checks, run_bad
from check import Options
from faults import call_cases, others_cases, run_calls, run_others
from judge import LIBRARY_CRASH, MB, Judge, in_child
from segments import ASCII, plain, random_plans, write_plain, write_random, write_table
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
    arguments = [*options.arguments(), *inputs]
    plan = json.loads(judge.inspect("-plan", "-json", *arguments, allowed=(0,)).out)
    planned = [f"{dataset['name']} keeping {dataset['kept']} steps out of {dataset['steps']},"
               for dataset in plan["datasets"] if dataset["kept"] is not None]
    if planned != re.findall(r"^/.* keeping \d+ steps out of \d+,", outcome.out, re.MULTILINE):
        judge.fault(f"the plan tells {planned}", outcome)
    if (judge.folder / "out.h5").exists():
        judge.inspect("-check", "out.h5", *arguments, allowed=(0,))


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


# Long series: more values than are in memory at a time, in runs that end anywhere. Chunks of a single
# column must not take more memory if there are more files.

def large_cases(share):
    return [(6, 1, 126), (2, 3, 80)]


def write_large(path, number, columns_of_chunk):
    ends, times = np.array([8, 15, 20]) * 10 ** 5, 1.5 * number + np.arange(3)
    with h5py.File(path, "w", libver=("v108", "latest")) as file:
        for group, values, columns in (("c.coef", "coefs.dat", []),
                                       ("m.tdm", "data.dat", [np.diff(ends, prepend=0)])):
            index = np.column_stack([times, ends, *columns])
            write_table(file, f"{group}/index.dat", index, ["t", "index", "n"][:index.shape[1]])
            write_table(file, f"{group}/{values}", (number + np.arange(ends[-1])).reshape(-1, 1),
                        ["v"], chunks=(7000, 1))
        file["m.tdm"].attrs.create("TensorSpec", [b"TensorDim=3; TensorSymm=; DataMeshDim=1;"],
                                   dtype=ASCII)
        write_table(file, "a.dat", (10 ** 6 * number + np.arange(1 << 21)).reshape(-1, 16),
                    ["x"] * 16, chunks=(7000, columns_of_chunk))


def run_large(judge, files, columns_of_chunk, most):
    # A parallel HDF5 keeps what it holds of a dataset until its file is closed.
    inputs, judge.memory = [f"{i}.h5" for i in range(files)], most * (6 if judge.is_parallel else 5) // 5 * MB
    for i, name in enumerate(inputs):
        # Here the process would grow, and with it the least memory that a run is seen to need.
        in_child(write_large, judge.folder / name, i, columns_of_chunk)
    how = {"seconds": 200, "cpu_seconds": 200, "environment": {"VEXA_THREADS": "2"}}
    judge.join(inputs, Options(NoGzip=files > 2), ["-cachesize", "1e6"], allowed=(0,), **how)
    judge.inspect("-check", "out.h5", *inputs, allowed=(0,), **how)


# Damaged files: ones that are cut, and ones whose words or bits are changed, within blocks that are
# given right checksums again, or anywhere.

lookup3 = ctypes.CDLL(h5py.defs.__file__).H5_checksum_lookup3
lookup3.restype = ctypes.c_uint32
SIGNATURES = re.compile(rb"\x89HDF\r\n\x1a\n|(OH|OC|FA|EA|BT|FR|FH|FS)[A-Z]{2}")
SMALL = {"legends": "S1"}
NEWEST = SMALL | {"libver": "latest"}
FILES = {  # what the store writes, old structures, and the newest ones
    "as the store writes": {},
    "small": SMALL | {"kinds": ("dat",)},
    "old": {"kinds": ("txt", "ver"), "libver": "earliest"},
    "contiguous": SMALL | {"kinds": ("tdm",), "filters": False, "maxshape": None, "chunks": None},
    "fixed arrays": NEWEST | {"maxshape": None, "steps": 9, "chunks": (1, 1)},
    "pages of fixed arrays": NEWEST | {"maxshape": None, "steps": 1100, "chunks": (1, 1),
                                       "kinds": ("dat",), "filters": False},
    "extensible arrays": NEWEST | {"steps": 60, "chunks": (1, 1)},
    "trees": NEWEST | {"maxshape": (None, None), "steps": 40, "chunks": (1, 1)},
    "dense groups": NEWEST | {"kinds": ("dat",), "tables": 30},
}


# Of a block whose own checksum is not counted where it is within it.
def checksum(content, start, end, at):
    protected = content[start:at] + bytes(4) + content[at + 4:end]
    return lookup3(bytes(protected[:end - start]), end - start, 0).to_bytes(4, "little")


# Tells where a block begins and ends and its checksum is, or gives None.
def block_at(content, start):
    if content.startswith(b"FHDB", start):
        candidates = [(start, start + (256 << i), start + 13 + j) for i in range(9) for j in (4, 5)]
    else:
        candidates = [(start, end, end) for end in range(start + 8, start + 9000)]
    return next((block for block in candidates if len(content) >= block[2] + 4 and
                 checksum(content, *block) == content[block[2]:block[2] + 4]), None)


# Gives a file, and lists of its blocks of one kind each.
@functools.cache
def intact(name):
    stream = io.BytesIO(plain(**FILES[name]))
    if FILES[name].get("libver") == "latest":
        with h5py.File(stream, "r+", libver="latest") as file:
            for i in range(12):  # more than an object's header takes
                file["A.dir/a.dat"].attrs[f"x{i}"] = i
    content, kinds = stream.getvalue(), {}
    starts = [(match.start(), match.group()) for match in SIGNATURES.finditer(content)]
    for start, signature in starts:
        if block := block_at(content, start):
            kinds.setdefault(signature, []).append(block)
            if signature in (b"FADB", b"page"):  # pages follow, and have no signature
                starts.append((block[2] + 4, b"page"))
    return content, list(kinds.values())


def damaged(how, name, seed):
    rng = random.Random(f"{name} {seed}")
    content, kinds = intact(name)
    content = bytearray(content)
    if how == "cut":
        return content[:rng.randrange(len(content))]
    if how == "flip":
        content[rng.randrange(len(content))] ^= 1 << rng.randrange(8)
        return content
    for kind in rng.choices(kinds, k=rng.choice((1, 1, 1, 2))):
        start, end, at = rng.choice(kind)
        for _ in range(rng.choice((1, 1, 2, 3))):
            size = rng.choice((1, 1, 2, 4, 8, 8))
            place = rng.randrange(start, end - size + 1)
            word = int.from_bytes(content[place:place + size], "little")
            word = rng.choice((0, 1, 1 << 31, (1 << 32) - 1, 1 << 63, -1, start, len(content),
                               rng.choice(rng.choice(kinds))[0], word - 1, word + 1,
                               word ^ 1 << rng.randrange(8 * size), rng.randrange(256)))
            content[place:place + size] = (word % (1 << 8 * size)).to_bytes(size, "little")
        content[at:at + 4] = checksum(content, start, end, at)
    return content


def damage_cases(share):
    return [(how, name, range(round(count * share))[first:first + 25])
            for how, count in (("cut", 200), ("flip", 1000), ("checksums", 1200))
            for name in FILES if how != "checksums" or intact(name)[1]
            for first in range(0, round(count * share), 25)]


# KelmorInfo agrees with each join; a plan, a listing and a check take turns.
def run_damage(judge, how, name, seeds):
    judge.memory, judge.library_may_crash = 512 * MB, how != "cut"
    path, whole = judge.folder / "in.h5", judge.folder / "whole.h5"
    path.write_bytes(intact(name)[0])
    reference = judge.reference(["in.h5"])
    whole.write_bytes(reference)
    for seed in seeds:
        judge.case = f"damage{(how, name, [seed])}"
        path.write_bytes(damaged(how, name, seed))
        judge.clear("out.h5", "Errors000.txt")
        status = judge.join(["in.h5"], about=("in.h5",), reference=reference).status
        joined = "whole.h5" if status else "out.h5"
        arguments, failed = [(["-plan"], (0, 1)), ([], (0, 255)),
                             (["-check", joined], (1, 255))][seed % 3]
        if how == "checksums" and (judge.folder / joined).exists():
            judge.inspect(*arguments, "in.h5", allowed=failed if status else (0,))


GROUPS = {  # name: its cases, what runs one, share of them in a quick run
    "random": (random_cases, run_random, 0.04),
    "bad": (bad_cases, run_bad, 1),
    "calls": (call_cases, run_calls, 0.1),
    "damage": (damage_cases, run_damage, 0.01),
    "large": (large_cases, run_large, 1),
    "limits": (limit_cases, run_limits, 0.1),
    "others": (others_cases, run_others, 0.02),
    "soak": (soak_cases, run_soak, 0.1),
}
MOST_LIBRARY_CRASHES = {"limits": 0.1, "damage": 0.02}


def prepare(settings, scratch):
    global judge
    judge = Judge(settings, scratch)


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
    for task in [pool.submit(run_case, group, case) for case in cases]:
        more_statuses, more_notes, more_faults = task.result()
        statuses, notes, faults = statuses + more_statuses, notes + more_notes, faults + more_faults
    runs, most = sum(statuses.values()), MOST_LIBRARY_CRASHES.get(group, 0)
    checks = {note for note in notes if note.startswith("check ")}
    if notes[LIBRARY_CRASH] > 2 + most * runs:
        faults.append(f"{group}: more than {most:.0%} of the runs {LIBRARY_CRASH}")
    if len(cases) > 1 and group == "bad" and len(checks) < least_checks(notes):
        faults.append(f"bad: {len(checks)} checks fail, not {least_checks(notes)}")
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
    parser.add_argument("groups", nargs="*", choices=[*GROUPS, []], metavar="group",
                        help=", ".join(GROUPS))
    parser.add_argument("--quick", action="store_true", help="a sample of each group")
    parser.add_argument("--case", help="one case, as a fault shows it: \"random(263,)\"")
    settings = parser.parse_intermixed_args()
    settings.build = settings.build.resolve()
    memory, found = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None, 0
    with tempfile.TemporaryDirectory(prefix="stress", dir=memory) as scratch:
        subprocess.run(["cc", "-shared", "-fPIC", "-O2", "-o", f"{scratch}/faults.so",
                        pathlib.Path(__file__).with_name("faults.c"), "-ldl"], check=True)
        # A case that its worker does not survive ends all of it, rather than being waited for.
        with concurrent.futures.ProcessPoolExecutor(
                len(os.sched_getaffinity(0)), multiprocessing.get_context("fork"), prepare,
                (settings, scratch)) as pool:
            if settings.case:
                group, _, case = settings.case.partition("(")
                return run_group(pool, group, [ast.literal_eval("(" + case)]) > 0
            for group in settings.groups or GROUPS:
                cases, _, share = GROUPS[group]
                found += run_group(pool, group, cases(share if settings.quick else 1))
    return found > 0


if __name__ == "__main__":
    sys.exit(main())
