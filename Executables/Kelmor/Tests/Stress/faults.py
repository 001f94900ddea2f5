# What happens at any of the calls by which a program reaches its files: the call fails, a signal
# comes, or others change the files: another join of the same output runs, something else takes a
# name, an input changes. The preloaded faults.c brings it about.
#
# Who ends with status 0 has the join under the output's name. Nothing but the output changes, and
# what others put in its place stays. An input's change between its opening and a later read is found.

import collections
import errno
import functools
import math
import os
import random
import re
import signal
import subprocess
import sys
import tempfile

from judge import in_child, is_readable, snapshot
from segments import write_plain

PAIR = ["first.h5", "second.h5"]
INPUTS = {"Kelmor": ("in0.h5", "in1.h5"), "kelmor-run": ("in0.h5", "in1.h5"),
          "many": tuple(f"in{i}.h5" for i in range(40))}
STAND_INS = {name: f"mv {name} {{}}" for name in ("link", "dangling", "copy")}
ON_OUTPUT = STAND_INS | {"removed": "rm {}", "truncated": "truncate -s 700 {}"}
ON_INPUT = {"changed": "sed s/step/Step/ {0} | dd of={0} conv=notrunc", "touched": "touch {}"}
# Calls after which nothing is made: a last look, and cleaning up.
LAST = {"close", "fstat", "unlink", "realpath", "stat", "lstat", "read", "pread"}
TRANSFERS = {"read", "pread", "write", "pwrite"}
FAILING = TRANSFERS | {"open", "ftruncate", "close", "fsync"}
SIGNALS = ("KILL", "TERM", "INT", "HUP", "USR2")


def write_pair(judge, **keywords):
    for i, name in enumerate(PAIR):
        write_plain(judge.folder / name, 2 * i, **keywords)


def shim(judge, at=-1, run="", error=0, always=False):
    judge.trace.write_text("")
    return {"LD_PRELOAD": str(judge.shim), "FAULT_FOLDER": str(judge.folder),
            "FAULT_TRACE": str(judge.trace), "FAULT_AT": str(at), "FAULT_RUN": run,
            "FAULT_ERROR": str(error), "FAULT_ALWAYS": str(int(always)), "VEXA_THREADS": "1",
            "VEXA_NO_READ_AHEAD": "1"}  # whose calls have no order


# The calls of a run, as pairs of function and file.
def traced(judge):
    return [line.rstrip().split(maxsplit=1) for line in judge.trace.read_text().splitlines()]


def call_cases(share):
    # Interrupted for ever is no state that a system is in.
    return [(what, always, share) for what in ("EIO", "ENOSPC", "EINTR", "short", *SIGNALS)
            for always in (False, True) if not (always and what in ("EINTR", *SIGNALS))]


def run_calls(judge, what, always, share):
    write_pair(judge)
    reference, calls = judge.reference(PAIR, environment=shim(judge)), traced(judge)
    if not {"open", "pread", "pwrite", "close", "fsync"} <= {call for call, _ in calls}:
        judge.fault("the faults do not reach the program")
    kinds, rng = collections.defaultdict(list), random.Random(judge.case)
    for i, (call, _) in enumerate(calls):
        if call in (TRANSFERS if what == "short" else FAILING):
            kinds[call].append(i)
    for i in [i for one in kinds.values() for i in rng.sample(one, math.ceil(len(one) * share))]:
        call, judge.case = calls[i][0], f"calls{(what, always, share)}: call {i}, {calls[i]}"
        judge.clear("out.h5", "Errors000.txt")
        how, allowed = {"error": getattr(errno, what, 0), "always": always}, (0, 255)
        if what in SIGNALS:
            how = {"run": f"kill -{what} $PPID"}
            allowed = (0,) if what == "USR2" else (0, 255, -getattr(signal, "SIG" + what))
        outcome = judge.join(
            PAIR, reference=reference, reports_to_file=not always,
            allowed=(0,) if what == "short" and not always else allowed,
            names=r"(first|second|out)\.h5|[Ff]lushing directory " * (what not in SIGNALS),
            environment=shim(judge, i, **how))
        if outcome.status == 0 and what in ("EIO", "ENOSPC") and call in ("pwrite", "fsync"):
            judge.fault("the failure goes unnoticed", outcome)


def others_cases(share):
    join = [(what, "out.h5") for what in [*ON_OUTPUT, "join"]] + [
        (what, "in0.h5") for what in ON_INPUT]
    others = {"Kelmor": join, "kelmor-run": join, "many": [(what, "in36.h5") for what in ON_INPUT]}
    return [(program, *other, locks, share) for program in others for other in others[program]
            for locks in ("TRUE", "FALSE")]


def write_all(judge, inputs):
    judge.clear()
    for i, name in enumerate(dict.fromkeys(("other.h5", *inputs))):
        write_plain(judge.folder / name, 2 * i, filters=False)
    for name in "precious.h5", "copy":
        write_plain(judge.folder / name, kinds=("txt",))
    (judge.folder / "link").symlink_to("precious.h5")
    (judge.folder / "dangling").symlink_to("nowhere.h5")


# The output of a join that both checks find right.
@functools.cache
def right_output(judge, inputs, changed=""):
    write_all(judge, inputs)
    if changed:
        subprocess.run(["sh", "-c", ON_INPUT["changed"].format(judge.folder / changed)], stderr=-3)
    judge.join(inputs, allowed=(0,))
    judge.inspect("-check", "out.h5", *inputs, allowed=(0,))
    return (judge.folder / "out.h5").read_bytes()


# Of each kind of call the first two and the last five, for each file: the further inputs and all
# temporary names count as one.
@functools.cache
def moments(judge, program, locks):
    kinds = collections.defaultdict(list)
    for number, (call, name) in enumerate(disturb(judge, program, "", "", locks, -1)):
        kinds[call, re.sub(r"^in(?!0|36)\d+|[0-9a-f]{16}", "", name)].append(number)
    return sorted({number for one in kinds.values() for number in one[:2] + one[-5:]})


# share: of all moments, or a list of these.
def run_others(judge, program, what, target, locks, share):
    every = moments(judge, program, locks)
    if not isinstance(share, list):
        share = random.Random(judge.case).sample(every, max(1, round(share * len(every))))
    for moment in share:
        judge.case = f"others{(program, what, target, locks, [moment])}"
        disturb(judge, program, what, target, locks, moment)


# Judges one run, and returns the calls that it made.
def disturb(judge, program, what, target, locks, moment):
    inputs, output, is_run = INPUTS[program], judge.folder / "out.h5", program == "kelmor-run"
    right = {right_output(judge, inputs), right_output(judge, inputs, target * (what == "changed"))}
    right_of_other = right_output(judge, ("other.h5",))
    start = [sys.executable, judge.run, output] if is_run else [judge.program, "-o", output]
    settings = {"HDF5_USE_FILE_LOCKING": locks, "KELMOR": str(judge.program),
                "KELMORINFO": str(judge.info)}
    write_all(judge, inputs)
    before = snapshot(judge.folder)
    with tempfile.TemporaryDirectory() as place:
        other = ["cd", place, "&& env -u LD_PRELOAD", *map("=".join, settings.items()), *start,
                 judge.folder / "other.h5", "&& >won"]
        action = (ON_OUTPUT | ON_INPUT).get(what, " ".join(map(str, other))).format(target)
        run = f"exec >/dev/null 2>&1; cd {judge.folder}; {action}"
        outcome = judge.watch([*start, *inputs], (0, 1 if is_run else 255), None,
                              environment=settings | shim(judge, moment, run))
        has_other_won = os.path.exists(f"{place}/won")
    trace, after = traced(judge), snapshot(judge.folder)
    found = output.read_bytes() if output.is_file() else None
    has_won, is_taken = outcome.status == 0, what in STAND_INS and what not in after
    is_late = moment >= 0 and LAST.issuperset(call for call, _ in trace[moment:])
    opened, later = ({call for call, name in calls if name == target}
                     for calls in (trace[:moment], trace[moment:]))
    # A write after the loss of what was before it hides that loss, as it would another writer.
    is_hidden = what == "truncated" and "open" in opened and "pwrite" in later
    may_differ = {"out.h5", "Errors000.txt", target, what * is_taken,
                  "out.h5.json" * (has_won or has_other_won)}
    differ = {name for name in {*before, *after} - may_differ if before.get(name) != after.get(name)}
    if outcome.status == 255:
        judge.judge_report(outcome, (".h5",), reports_to_file=True)
    if has_won and not is_late and not is_hidden and found not in right:
        judge.fault("status 0, but not with the join", outcome)
    if has_other_won and found != right_of_other:
        judge.fault("another's status 0, but not its join", outcome)
    if has_won and what in ON_INPUT and "open" in opened and later & {"read", "pread"}:
        judge.fault("status 0, but an input changed while it was read", outcome)
    if is_taken and after.get(target) != before[what]:
        judge.fault("what others put into the place of the output is changed", outcome)
    if not (has_won or has_other_won or is_taken) and (is_run or found not in right) and (
            found and in_child(is_readable, output)):
        judge.fault("a failure leaves a readable output", outcome)
    if differ:
        judge.fault(f"files changed or new: {sorted(differ)}", outcome)
    return trace
