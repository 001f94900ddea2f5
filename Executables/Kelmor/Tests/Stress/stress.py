#!/usr/bin/env python3
"""Runs Kelmor under bad conditions, in groups, and prints a line per group. judge.py has the rules
that every run is held to.

Ends with status 1 after any fault. What a faulty run worked on is kept, with what it said.
"""

import argparse
import ast
import collections
import contextlib
import errno
import json
import multiprocessing
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import h5py
import numpy as np
from bad_inputs import CASES
from check import Options
from checksums import FILES, damaged, intact
from judge import CALLS, LIBRARY_CRASH, MB, UNREADABLE, Judge, fault_environment
from others import others_cases, run_others
from run import Launcher
from segments import (ASCII, KINDS, plain, random_plans, write_plain, write_random,
                      write_table)
from sources import run_source, source_cases
from soak import run_soak, soak_cases

NOBODY = 65534
PAIR = ["first.h5", "second.h5"]


def spread(count, share, least=1):
    """Numbers below count: all, or that share of them at even distances."""
    step = max(1, round(count / max(count * share, least)))
    return range(0, count, step)


def chunked(items, size):
    items = list(items)
    return [items[i:i + size] for i in range(0, len(items), size)]


def write_pair(judge, **keywords):
    write_plain(judge.folder / PAIR[0], 0, **keywords)
    write_plain(judge.folder / PAIR[1], 2, **keywords)


# Random segments and options.

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
    compare_with_info(judge, outcome, [*options.arguments(), *inputs])


def compare_with_info(judge, outcome, arguments):
    """A plan tells what the join did, and a check proves it."""
    plan = json.loads(judge.inspect("-plan", "-json", *arguments, allowed=(0,)).out)
    planned = [f"{dataset['name']} keeping {dataset['kept']} steps out of {dataset['total']},"
               for dataset in plan["datasets"] if "kept" in dataset]
    joined = re.findall(r"^/.* keeping \d+ steps out of \d+,", outcome.out, re.MULTILINE)
    output, size = judge.folder / "out.h5", 0
    if output.exists():
        size = bytes_in(output)
        judge.inspect("-check", output.name, *arguments, allowed=(0,))
    if (planned, plan["bytes"]) != (joined, size):
        judge.fault(f"the plan tells {planned} and {plan['bytes']} bytes, not {size}", outcome)


def bytes_in(output):
    sizes = []

    def add_size(_, node):
        if isinstance(node, h5py.Dataset):
            sizes.append(node.nbytes if node.dtype == "f8" else sum(map(len, np.ravel(node[()]))))

    with h5py.File(output, "r") as file:
        file.visititems(add_size)
    return sum(sizes)


# Bad inputs, and outputs and reports that have no place.

def bad_cases(share):
    places = range(3)
    cases = [("input", name, place) for number, name in enumerate(CASES) for place in places
             if share == 1 or place == number % 3]
    return cases + [("surroundings", name) for name in SURROUNDINGS]


def patience(judge):
    """Groups may be nested deeply, and a sanitizer makes that slow."""
    if not judge.is_sanitized:
        return {}
    return {"seconds": 60, "cpu_seconds": 30, "environment": {"VEXA_NO_BACKTRACE": "1"}}


def run_bad(judge, what, name, place=None):
    write_pair(judge)
    if what == "surroundings":
        SURROUNDINGS[name](judge)
        return
    case, inputs = CASES[name], list(PAIR)
    inputs.insert(place, "bad.h5")
    os.chdir(judge.folder)
    case.write("bad.h5")
    # Two inputs disagree, or are the same one: any of them may be named.
    outcome = judge.join(inputs, more=["-cachesize", "1e6"], about=(case.about, case.says),
                         allowed=(0,) if case.joins else (255,),
                         names=r"(bad|first|second)\.h5|/dev/", **patience(judge))
    if place == 0:
        listing_of_bad(judge, case)
    elif place == 1:
        if outcome.status == 255:
            judge.require_unreadable("out.h5")
        if not case.in_values:
            plan_of_bad(judge, case, inputs)


def plan_of_bad(judge, case, inputs):
    """What a join refuses, a plan refuses, and names it."""
    is_missing = case.says == "not found"
    outcome = judge.inspect("-plan", *inputs, allowed=(0 if case.joins else 1 + is_missing,),
                            **patience(judge))
    told = ("Kelmor would refuse these files:\n", case.about) if outcome.status == 1 else ()
    judge.require_told(outcome, told)


def listing_of_bad(judge, case):
    """Which reads no values, and goes on after what it cannot read."""
    outcome = judge.inspect("bad.h5", "second.h5", allowed=(0, 255), **patience(judge))
    if outcome.status == 255:
        judge.judge_report(outcome, ("bad.h5",), reports_to_file=True)
    if case.says != "not found":
        judge.require_told(outcome, ("second.h5  (", "  3 steps  t = 2 ... 4 "))


def existing_output(write, says="out.h5 already exists.\nCowardly refusing"):
    def run(judge):
        write(judge.folder / "out.h5")
        judge.join(PAIR, allowed=(255,), about=("out.h5", says))
    return run


def output_with_slash(judge):
    """Which is no other name of a file."""
    write_plain(judge.folder / "mine.h5", kinds=("txt",))
    judge.join(PAIR, output="mine.h5/", allowed=(255,), about=("'mine.h5/' is not the name of a",))


def output_at(output, allowed=(255,), **how):
    def run(judge):
        judge.join(PAIR, output=output, allowed=allowed, **how)
    return run


def errors_file(make, inputs, allowed, **how):
    def run(judge):
        make(judge.folder / "Errors000.txt")
        judge.join(inputs, allowed=allowed, reports_to_file=False, **how)
    return run


def errors_appended(judge):
    errors = judge.folder / "Errors000.txt"
    errors.write_text("older\n")
    judge.join(["none.h5"], allowed=(255,), about=("none.h5",))
    if not errors.read_text().startswith("older\n#") and "older" not in errors.read_text():
        judge.fault("older reports are gone")


def as_nobody(inputs, folder_mode=0o777, **how):
    """Without the rights of the superuser."""
    def run(judge):
        for path in judge.folder.iterdir():
            path.chmod(0o644)
        (judge.folder / PAIR[1]).chmod(0o600 if "unreadable" in how else 0o644)
        judge.folder.chmod(folder_mode)
        judge.join(inputs, allowed=how.get("allowed", (255,)), about=how.get("about", ()),
                   user=None if os.geteuid() else NOBODY, reports_to_file=folder_mode == 0o777)
        judge.folder.chmod(0o755)
    return run


def input_twice(again):
    def run(judge):
        (judge.folder / "A.dir").mkdir()
        (judge.folder / "A.dir/link.h5").symlink_to("../" + PAIR[0])
        judge.join([PAIR[0], again], allowed=(255,), about=(PAIR[0], "**multiple** instances"))
    return run


def nothing_to_join(judge):
    h5py.File(judge.folder / "empty.h5", "w").close()
    judge.join(["empty.h5"], more=["-v"], allowed=(0,))
    judge.join([], allowed=(0, 255))


SURROUNDINGS = {
    "output is a text": existing_output(lambda path: path.write_text("mine")),
    "output is a whole file": existing_output(write_plain),
    "output is a folder": existing_output(lambda path: path.mkdir()),
    "output is a FIFO": existing_output(os.mkfifo),
    "output is a device": existing_output(lambda path: path.symlink_to("/dev/null")),
    "output is a link to an input": existing_output(lambda path: path.symlink_to(PAIR[0])),
    "output is an input by another name": existing_output(
        lambda path: os.link(path.parent / PAIR[0], path)),
    "output is a dangling link": existing_output(lambda path: path.symlink_to("nowhere.h5"),
                                                 "H5Fcreate("),
    "output is an input": output_at(PAIR[0]),
    "output in no folder": output_at("none/out.h5", about=("in nonexistent directory",)),
    "output in a file": output_at(PAIR[0] + "/out.h5"),
    "output is an existing file with a slash": output_with_slash,
    "output has a long name": output_at("n" * 300),
    "output has no name": output_at(""),
    "errors are appended": errors_appended,
    "errors into a FIFO": errors_file(os.mkfifo, ["none.h5"], (255,)),
    "errors into a FIFO, without errors": errors_file(os.mkfifo, PAIR, (0,)),
    "errors into a folder": errors_file(pathlib.Path.mkdir, ["none.h5"], (255,)),
    "errors into a folder, without errors": errors_file(pathlib.Path.mkdir, PAIR, (0,)),
    "errors onto a full disk": errors_file(lambda path: path.symlink_to("/dev/full"), ["none.h5"],
                                           (255,)),
    "nothing to join": nothing_to_join,
    "unreadable input": as_nobody(PAIR, unreadable=True, about=(PAIR[1],)),
    "folder that cannot be written to": as_nobody(PAIR, 0o755),
    "another user": as_nobody(PAIR, allowed=(0,)),
}
for again in PAIR[0], "./" + PAIR[0], "A.dir/../" + PAIR[0], "A.dir/link.h5":
    SURROUNDINGS["an input twice, then as " + again] = input_twice(again)


# Failing calls.

ERRORS = {"EIO": errno.EIO, "ENOSPC": errno.ENOSPC, "EINTR": errno.EINTR, "short": 0}


def count_calls(judge, call):
    """Of a join without a fault; and the output of that join."""
    with tempfile.NamedTemporaryFile("r") as file:
        reference = judge.reference(
            PAIR, environment=fault_environment(judge, call, 0, count=file.name))
        return int(file.read()), reference


def call_cases(share):
    # Interrupted for ever is no state that a system is in.
    return [(call, error, always, share) for call in CALLS for error in ERRORS
            for always in (False, True)
            if not (error == "EINTR" and always) and
            not (error == "short" and call not in ("read", "pread", "write", "pwrite"))]


def run_calls(judge, call, error, always, share):
    write_pair(judge)
    count, reference = count_calls(judge, call)
    if count == 0 and call in ("open", "pread", "pwrite", "close", "fsync"):
        judge.fault(f"no calls of {call}: the faults do not reach the program")
    for i in spread(count, share):
        judge.clear("out.h5", "Errors000.txt")
        outcome = judge.join(
            PAIR, is_broken_off=True, reference=reference, reports_to_file=not always,
            allowed=(0,) if error == "short" else (0, 255),
            names=r"(first|second|out)\.h5|[Ff]lushing directory /",
            environment=fault_environment(judge, call, i + 1, ERRORS[error], always))
        if outcome.status == 0 and error in ("EIO", "ENOSPC") and call in ("pwrite", "fsync"):
            judge.fault(f"the failure of {call} {i + 1} goes unnoticed", outcome)


def allocation_cases(share):
    # Of memory that is exhausted for good every seventh: it leaves little to tell apart.
    return [(always, part, 20, share / (7 if always else 1)) for always in (False, True)
            for part in range(20)]


def run_allocations(judge, always, part, parts, share):
    write_pair(judge)
    count, reference = count_calls(judge, "malloc")
    judge.library_may_crash = True
    if count < 1000:
        judge.fault("hardly any allocations: the faults do not reach the program")
    for i in list(spread(count, share))[part::parts]:
        judge.clear("out.h5", "Errors000.txt")
        judge.case = f"allocations of which number {i + 1}{' and all later' * always} fails"
        with tempfile.NamedTemporaryFile() as caller:
            judge.join(PAIR, is_broken_off=True, reference=reference, reports_to_file=False,
                       environment=fault_environment(judge, "malloc", i + 1, errno.ENOMEM, always,
                                                     caller=caller.name))


# Damage.

DAMAGED = {  # small files, whose structures differ
    "dat": {"kinds": ("dat",), "legends": "S1"},
    "coef": {"kinds": ("coef",), "legends": "S1", "libver": "latest", "maxshape": None},
    "tdm": {"kinds": ("tdm",), "legends": "S1", "filters": False, "maxshape": None,
            "chunks": None},
    "txt": {"kinds": ("txt",)},
    "ver": {"kinds": ("ver",), "libver": "earliest"},
}


def undamaged(kind):
    return plain(**DAMAGED[kind])


def join_damaged(judge, content, pieces, **how):
    """pieces: cases, in which ways to run KelmorInfo, and what the input is."""
    path, whole = judge.folder / "in.h5", judge.folder / "whole.h5"
    path.write_bytes(content)
    whole.write_bytes(judge.reference(["in.h5"]))
    with judge.server(["in.h5"]) as server:
        for judge.case, ways, piece in pieces:
            path.write_bytes(piece)
            judge.join_and_inspect(["in.h5"], ways, "whole.h5", about=("in.h5",),
                                   reference=whole.read_bytes(), launchers=(server,), **how)


def truncation_cases(share):
    return [(kind, lengths) for kind in ("dat", "tdm", "txt")
            for lengths in chunked(spread(len(undamaged(kind)), share, 64), 64)]


def run_truncation(judge, kind, lengths):
    content = undamaged(kind)
    join_damaged(judge, content, ((f"truncation{(kind, [length])}", (), content[:length])
                                  for length in lengths), allowed=(255,))


def flip_cases(share):
    return [(kind, bits) for kind in DAMAGED
            for bits in chunked(spread(8 * len(undamaged(kind)), share), 512)]


def run_flips(judge, kind, bits):
    content = undamaged(kind)
    number = int.from_bytes(content, "little")
    join_damaged(judge, content, ((f"flips{(kind, [bit])}", (),
                                   (number ^ 1 << bit).to_bytes(len(content), "little"))
                                  for bit in bits), cpu_seconds=3)


def checksum_cases(share):
    return [(name, seeds) for name in FILES
            for seeds in chunked(range(round(10_000 * share / len(FILES))), 50)]


def run_checksums(judge, name, seeds):
    judge.memory, judge.library_may_crash = 512 * MB, True
    join_damaged(judge, intact(name)[0], ((f"checksums{(name, [seed])}", [seed],
                                           damaged(name, seed)) for seed in seeds))


# Objects changed through the interface of HDF5.

def random_object(rng, file):
    names = []
    file.visit(names.append)
    return file[rng.choice(names)] if names else None


def random_number(rng):
    return rng.choice((0, 1, -1, 2, 0.5, 7, 1e3, 2.0**31, 2.0**32, 2.0**63, 2.0**64, -(2.0**31),
                       1e300, np.nan, np.inf, -np.inf, rng.randrange(100)))


def random_array(rng):
    shape = rng.choice(((), (0,), (1,), (2,), (3,), (4, 1), (3, 2), (3, 4), (0, 2), (2, 2, 2)))
    dtype = rng.choice(("f8", "f4", ">f8", "i4", "u1", "i1", "u8", "S3", ASCII, "c16", "?"))
    value = rng.randrange(5)
    if dtype in ("S3", ASCII):
        value = rng.choice(("x", "TensorDim=3; TensorSymm=11; DataMeshDim=2;", ""))
    return {"data": np.full(shape, value, object if dtype == ASCII else dtype), "dtype": dtype}


def change_attribute(rng, file, node):
    name = rng.choice(list(node.attrs) + ["Legend", "TensorSpec", "Version"])
    if name in node.attrs:
        del node.attrs[name]
    if rng.random() < 0.8:
        node.attrs.create(name, **random_array(rng))


def change_extents(rng, file, node):
    if isinstance(node, h5py.Dataset) and node.chunks and None in node.maxshape:
        axis = node.maxshape.index(None)
        node.resize(rng.choice((0, 1, 2, node.shape[axis] + 1, 1000, 1 << 33)), axis)


def change_value(rng, file, node):
    if isinstance(node, h5py.Dataset) and node.size and node.dtype.kind in "fiu":
        at = tuple(rng.randrange(min(extent, 1000)) for extent in node.shape)
        with np.errstate(all="ignore"):
            node[at] = np.float64(random_number(rng)).astype(node.dtype)
    elif isinstance(node, h5py.Dataset) and node.size and node.dtype.kind == "O":
        at = tuple(rng.randrange(min(extent, 1000)) for extent in node.shape)
        node[at] = rng.choice(("", "x", "long " * 100))


def change_type(rng, file, node):
    name = node.name
    if isinstance(node, h5py.Dataset) and node.dtype.kind in "fiu" and node.size < 10000:
        data, attributes = node[()], dict(node.attrs)
        del file[name]
        with np.errstate(all="ignore"):
            made = file.create_dataset(name, data=data.astype(
                rng.choice(("f4", "f2", ">f8", "i4", "u2", "i1", "c8", "S5"))))
        for key, value in attributes.items():
            made.attrs[key] = value


def replace_object(rng, file, node):
    name = node.name
    del file[name]
    choice = rng.randrange(3)
    if choice == 0:
        file.create_group(name)
    elif choice == 1:
        file.create_dataset(name, **random_array(rng))


def add_link(rng, file, node):
    parent = random_object(rng, file)
    if isinstance(parent, h5py.Group):
        name = f"x{rng.randrange(3)}." + rng.choice((*KINDS, "dir", "h5"))
        if name not in parent:
            parent[name] = rng.choice((node, h5py.SoftLink(node.name), h5py.SoftLink("/none"),
                                       h5py.SoftLink("/"), h5py.ExternalLink(PAIR[0], node.name)))


def move_object(rng, file, node):
    """Or exchanges two objects."""
    name = node.name
    target = rng.choice((random_object(rng, file).name, name + rng.choice((".dat", ".txt"))))
    if not name.startswith(target) and not target.startswith(name + "/"):
        other = file.get(target)
        if other is not None:
            del file[target]
        del file[name]
        file[target] = node
        if other is not None:
            file[name] = other


MUTATIONS = (change_attribute, change_extents, change_value, change_value, change_type,
             replace_object, add_link, move_object)


def mutation_cases(share):
    return [(seeds,) for seeds in chunked(range(round(20000 * share)), 50)]


def run_mutation(judge, seeds):
    for seed in seeds:
        rng = random.Random(seed)
        judge.clear()
        judge.case = f"mutation{([seed],)}"
        write_pair(judge, filters=rng.random() < 0.5,
                   libver=rng.choice(("earliest", "v108", "latest")))
        with h5py.File(judge.folder / PAIR[rng.randrange(2)], "r+") as file:
            for _ in range(rng.choice((1, 1, 2, 4))):
                node = random_object(rng, file)
                with contextlib.suppress(OSError, TypeError, ValueError):  # what h5py refuses
                    if node is not None:
                        rng.choice(MUTATIONS)(rng, file, node)
        inputs = PAIR if rng.random() < 0.7 else [PAIR[0]]
        judge.join(inputs, Options(NoWipe=rng.random() < 0.5), names=r"(first|second)\.h5")


# Disks, memory, signals, races: a join of some tenths of a second.

TRIO = ["s0.h5", "s1.h5", "s2.h5"]
LIMITED = ["-cachesize", "2000"]


def write_trio(judge):
    for i, name in enumerate(TRIO):
        write_plain(judge.folder / name, 300 * i, steps=400, tables=20)


def disk_cases(share):
    kilobytes = [4 + 12 * i for i in range(64)]
    cases = [("tmpfs", kilobytes[i], gzip) for i in spread(64, share) for gzip in (True, False)]
    cases += [("limit", kilobytes[i] * 1000 - 3999, gzip) for i in spread(64, share)
              for gzip in (True, False)]
    return cases + [("read-only", 0, True)]


def run_disk(judge, what, size, gzip):
    write_trio(judge)
    options = Options(NoGzip=not gzip)
    reference = judge.reference(TRIO, options)
    common = {"options": options, "more": LIMITED if size % 3 else [], "reference": reference,
              "is_broken_off": True}
    if what == "limit":
        judge.join(TRIO, limits={"FSIZE": size}, reports_to_file=size > 20000, **common)
        return
    place = pathlib.Path(tempfile.mkdtemp(prefix="disk"))
    mounted = subprocess.run(
        ["mount", "-t", "tmpfs", "-o", f"size={size}k" if size else "ro", "none", place],
        stderr=subprocess.PIPE)
    if mounted.returncode:
        judge.notes["skipped, for mounting is not permitted"] += 1
    else:
        judge.join(TRIO, output=str(place / "out.h5"), **common)
        subprocess.run(["umount", place], check=True)
    place.rmdir()


def memory_cases(share):
    return [(i,) for i in spread(64, share)]


def run_memory(judge, i):
    """From what the program needs to start, to more than the join needs."""
    judge.library_may_crash = True
    write_trio(judge)
    least = next(size for size in range(8 * MB, 1000 * MB, MB) if judge.launcher.run(
        [judge.program, "-h"], judge.folder, limits={"AS": size}).status == 0)
    judge.join(TRIO, more=LIMITED if i % 2 else [], is_broken_off=True,
               reference=judge.reference(TRIO), reports_to_file=False,
               limits={"AS": least + i * MB // 2})


SIGNALS = {"KILL": 200, "TERM": 40, "INT": 40, "HUP": 40, "USR2": 40}


def signal_cases(share):
    return [(name, numbers) for name, count in SIGNALS.items()
            for numbers in chunked(range(round(count * share)), 10)]


def run_signals(judge, name, numbers):
    write_trio(judge)
    reference = judge.reference(TRIO)
    number = getattr(signal, "SIG" + name)
    seconds = min(judge.join(TRIO, output=f"{i}.h5", allowed=(0,), reference=reference).seconds
                  for i in range(3))
    judge.clear("0.h5", "1.h5", "2.h5")
    for i in numbers:
        judge.clear("out.h5", "Errors000.txt")
        signals = {"number": number, "after": random.Random(f"{name}{i}").random() * seconds,
                   "every": None}
        if name == "USR2":
            signals |= {"after": None, "every": 0.0002}
        judge.join(TRIO, more=(["-v"] if name == "USR2" else []) + (LIMITED if i % 2 else []),
                   is_broken_off=True, reference=reference, signals=signals,
                   allowed=(0,) if name == "USR2" else (0, 255, -number))


def race_cases(share):
    return [("outputs", i) for i in range(round(50 * share))] + [("writer", 0)]


def run_races(judge, what, i):
    write_trio(judge)
    if what == "writer":
        with h5py.File(judge.folder / TRIO[1], "r+") as file:
            file["A.dir/a.dat"][0, 1] = 1
            judge.join(TRIO, allowed=(255,), about=(TRIO[1],))
        return
    launchers = [Launcher() for _ in range(4)]
    outcomes = judge.join(TRIO, launchers=launchers, more=LIMITED if i % 2 else [])
    winners = [outcome for outcome in outcomes if outcome.status == 0]
    if len(winners) != 1:
        judge.fault(f"{len(winners)} of 4 processes made the same output", outcomes[0])


# Loads.

def load_cases(share):
    if share < 1:
        return [("inputs", 1100), ("tables", 1000)]
    return [("inputs", 2000), ("tables", 5000), ("rows", 1_000_000), ("rows", 100_000_000),
            ("rows", 1_000_000_000)]


def run_load(judge, what, size):
    how = {"allowed": (0,), "seconds": 300, "cpu_seconds": 300}
    judge.reading_seconds = 600
    if what == "inputs":
        inputs = [f"{i}.h5" for i in range(size)]
        for i, name in enumerate(inputs):
            write_plain(judge.folder / name, 3 * i, kinds=("dat",))
        judge.join(inputs, limits={"NOFILE": 1024}, **how)
    elif what == "tables":
        inputs = [f"{i}.h5" for i in range(10)]
        write_plain(judge.folder / inputs[0], kinds=("dat",), tables=size, filters=False)
        for name in inputs[1:]:
            shutil.copy(judge.folder / inputs[0], judge.folder / name)
        judge.join(inputs, Options(NoWipe=True), more=["-cachesize", "1e6"], **how)
    else:
        rng, rows = np.random.default_rng(size), 10_000_000
        with h5py.File(judge.folder / "in.h5", "w") as file:
            values = rng.standard_normal((rows, 10))
            values[:, 0] = np.arange(rows)
            write_table(file, "a.dat", values, [f"c{i}" for i in range(10)], chunks=(rows, 1))
            del values
        # Times, a column, and that column's chunk in the file.
        judge.memory += 3 * 8 * rows + size
        judge.join(["in.h5"], Options(NoGzip=size < 1e9), more=["-cachesize", str(size)], **how)
    if judge.statuses[0] and judge.notes[UNREADABLE]:
        judge.fault("the output could not be checked")


GROUPS = {  # name: its cases, what runs one, whether a program with sanitizers can
    "random": (random_cases, run_random, True),
    "bad": (bad_cases, run_bad, True),
    "calls": (call_cases, run_calls, False),
    "allocations": (allocation_cases, run_allocations, False),
    "truncation": (truncation_cases, run_truncation, True),
    "flips": (flip_cases, run_flips, True),
    "checksums": (checksum_cases, run_checksums, True),
    "disk": (disk_cases, run_disk, True),
    "memory": (memory_cases, run_memory, False),
    "signals": (signal_cases, run_signals, True),
    "races": (race_cases, run_races, True),
    "others": (others_cases, run_others, False),
    "load": (load_cases, run_load, False),
    "mutation": (mutation_cases, run_mutation, True),
    "sources": (source_cases, run_source, False),
    "soak": (soak_cases, run_soak, True),
}
# Of its cases, in a quick run.
QUICK = collections.defaultdict(lambda: 0.1, random=0.08, allocations=0.02, truncation=0.03,
                                flips=0.01, checksums=0.03, mutation=0.02, signals=0.15, races=0.2,
                                others=0.02)


def prepare(settings, scratch):
    global judge
    judge = Judge(settings.program, settings.info, scratch, settings.keep, settings.sanitized)
    judge.simulation, judge.run = settings.simulation, settings.run
    judge.shim = pathlib.Path(scratch) / "faults.so"
    judge.server_shim = pathlib.Path(scratch) / "server.so"


def run_case(group, case):
    judge.begin(f"{group}{case}")
    try:
        GROUPS[group][1](judge, *case)
    except Exception as error:
        judge.faults.append(f"{judge.case}: the test itself failed: {error!r}")
    return judge.statuses, judge.notes, judge.faults


def run_group(pool, group, cases):
    begin = time.monotonic()
    statuses, notes, kinds = (collections.Counter() for _ in range(3))
    faults = []
    tasks = [pool.apply_async(run_case, (group, case)) for case in cases]
    for task in tasks:
        more_statuses, more_notes, more_faults = task.get()
        statuses += more_statuses
        notes += more_notes
        faults += more_faults
        for fault in more_faults:
            kind = re.sub(r"0x[0-9a-f]+|\d{4,}|\d+ MB", "", fault.partition(": ")[2])
            kinds[kind] += 1
            if kinds[kind] == 1:
                print("  fault:", ascii(fault)[1:-1][:600], flush=True)
    runs = sum(statuses.values())
    most = 0.1 if group in ("allocations", "memory") else 0.02
    if notes[LIBRARY_CRASH] > most * runs:
        faults.append(f"{group}: more than {most:.0%} of the runs {LIBRARY_CRASH}")
        print("  fault:", faults[-1])
    told = [f"{count} x {status}" for status, count in
            sorted(statuses.items(), key=lambda item: str(item[0]))]
    told += [f"{count} {note}" for note, count in sorted(notes.items())]
    print(f"{group}: {runs} runs ({', '.join(told)}), {len(faults)} faults "
          f"of {len(kinds)} kinds, {time.monotonic() - begin:.0f} s", flush=True)
    return len(faults)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("groups", nargs="*", metavar="group", help=", ".join(GROUPS))
    parser.add_argument("--program", type=pathlib.Path, required=True, help="the Kelmor to run")
    parser.add_argument("--info", type=pathlib.Path, required=True, help="the KelmorInfo to run")
    parser.add_argument("--simulation", type=pathlib.Path, required=True,
                        help="the Simulate to break off")
    parser.add_argument("--run", type=pathlib.Path, required=True, help="the kelmor-run to run")
    parser.add_argument("--keep", type=pathlib.Path, default="stress-faults",
                        help="folder for what faulty runs worked on")
    parser.add_argument("--without", metavar="group", help="one that does not run")
    parser.add_argument("--quick", action="store_true", help="a sample of each group")
    parser.add_argument("--sanitized", action="store_true",
                        help="the program has sanitizers: what they rule out is left out")
    parser.add_argument("--case", help="one case, as a fault shows it: \"mutation([2636],)\"")
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)))
    settings = parser.parse_args()
    if unknown := set(settings.groups) - set(GROUPS):
        parser.error(f"no group {', '.join(unknown)}")
    for name in "program", "info", "simulation", "run", "keep":
        setattr(settings, name, getattr(settings, name).resolve())

    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    found = 0
    with tempfile.TemporaryDirectory(prefix="stress", dir=memory) as scratch:
        os.chmod(scratch, 0o755)
        for shim in "faults", "server":
            subprocess.run(["cc", "-shared", "-fPIC", "-O2", "-o", f"{scratch}/{shim}.so",
                            pathlib.Path(__file__).with_name(shim + ".c"), "-ldl"], check=True)
        with multiprocessing.Pool(settings.jobs, prepare, (settings, scratch)) as pool:
            if settings.case:
                group, _, case = settings.case.partition("(")
                return run_group(pool, group, [ast.literal_eval("(" + case)]) > 0
            for group in settings.groups or GROUPS:
                cases, _, runs_sanitized = GROUPS[group]
                if group == settings.without:
                    continue
                if settings.sanitized and not runs_sanitized:
                    print(f"{group}: skipped, for the program has sanitizers")
                    continue
                selected = cases(QUICK[group] if settings.quick else 1)
                found += run_group(pool, group, selected)
    return found > 0


if __name__ == "__main__":
    sys.exit(main())
