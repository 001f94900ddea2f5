"""What others do to the files of a join, just before a call that concerns them: another join of
the same output runs, something else takes a name, or an input changes.

Who ends with status 0 has the join under the output's name. Nothing but the output changes, and
what others put in its place stays. An input's change between its opening and a later read is found.
"""

import collections
import functools
import hashlib
import os
import random
import re
import subprocess
import sys
import tempfile

from judge import fault_environment, in_child, is_readable, snapshot
from segments import write_plain

INPUTS = {"Kelmor": ("in0.h5", "in1.h5"), "kelmor-run": ("in0.h5", "in1.h5"),
          "many": tuple(f"in{i}.h5" for i in range(40))}
STAND_INS = {name: f"mv {name} {{}}" for name in ("link", "dangling", "copy")}
ON_OUTPUT = STAND_INS | {"removed": "rm {}", "truncated": "truncate -s 700 {}"}
ON_INPUT = {"changed": "sed s/step/Step/ {0} | dd of={0} conv=notrunc", "touched": "touch {}"}
TEMPORARY = "$(ls -d .kelmor-run-*5)"
# Calls after which nothing is made: a last look, and cleaning up.
LAST = {"close", "fstat", "unlink", "realpath", "stat", "lstat", "read", "pread"}


def others_cases(share):
    join = [(what, "out.h5") for what in [*ON_OUTPUT, "join"]] + [
        (what, "in0.h5") for what in ON_INPUT]
    others = {"Kelmor": join, "many": [(what, "in36.h5") for what in ON_INPUT], "kelmor-run":
              join + [("copy", "out.h5.json")] + [(what, TEMPORARY) for what in ON_OUTPUT]}
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


@functools.cache
def reference(judge, inputs, changed=""):
    """The output of a join that both checks find right."""
    write_all(judge, inputs)
    if changed:
        subprocess.run(["sh", "-c", ON_INPUT["changed"].format(judge.folder / changed)], stderr=-3)
    judge.join(inputs, allowed=(0,))
    judge.inspect("-check", "out.h5", *inputs, allowed=(0,))
    return (judge.folder / "out.h5").read_bytes()


@functools.cache
def moments(judge, program, locks):
    # Of each kind of call the first two and the last five, for each file: the further inputs and
    # all temporary names count as one.
    kinds = collections.defaultdict(list)
    for number, (call, name) in enumerate(disturb(judge, program, "", "", locks, -1)):
        kinds[call, re.sub(r"^in(?!0|36)\d+|[0-9a-f]{16}", "", name)].append(number)
    return sorted({number for one in kinds.values() for number in one[:2] + one[-5:]})


def run_others(judge, program, what, target, locks, share):
    """share: of all moments, or a list of these."""
    every = moments(judge, program, locks)
    if not isinstance(share, list):
        share = random.Random(judge.case).sample(every, max(1, round(share * len(every))))
    for moment in share:
        judge.case = f"others{(program, what, target, locks, [moment])}"
        disturb(judge, program, what, target, locks, moment)


def disturb(judge, program, what, target, locks, moment):
    """Judges one run, and returns the calls that it made."""
    inputs, output, is_run = INPUTS[program], judge.folder / "out.h5", program == "kelmor-run"
    right = {reference(judge, inputs), reference(judge, inputs, target * (what == "changed"))}
    right_of_other = reference(judge, ("other.h5",))
    start = [sys.executable, judge.run, output] if is_run else [judge.program, "-o", output]
    settings = {"HDF5_USE_FILE_LOCKING": locks, "VEXA_THREADS": "1",
                "KELMOR": str(judge.program), "KELMORINFO": str(judge.info)}
    write_all(judge, inputs)
    before = snapshot(judge.folder)
    with tempfile.TemporaryDirectory() as place:
        other = ["cd", place, "&&", "env", *map("=".join, settings.items()), *start,
                 judge.folder / "other.h5", "&& >won"]
        action = (ON_OUTPUT | ON_INPUT).get(what, " ".join(map(str, other))).format(target)
        judge.command = [*start, *inputs]
        outcome = judge.launcher.run(judge.command, judge.folder, seconds=30, environment={
            **settings, **fault_environment(judge, ""), "FAULT_FOLDER": str(judge.folder),
            "FAULT_TRACE": f"{place}/trace", "FAULT_MOMENT": str(moment),
            "FAULT_RUN": f"exec >/dev/null 2>&1; cd {judge.folder}; {action}"})
        has_other_won = os.path.exists(f"{place}/won")
        trace = [line.rstrip().split(maxsplit=1) for line in open(f"{place}/trace")]
    after, found = snapshot(judge.folder), output.read_bytes() if output.is_file() else None
    has_won, is_taken = outcome.status == 0, what in STAND_INS and what not in after
    is_late = moment >= 0 and LAST.issuperset(call for call, _ in trace[moment:])
    opened, later = ({call for call, name in calls if name == target}
                     for calls in (trace[:moment], trace[moment:]))
    # A write after the loss of what was before it hides that loss, as it would another writer.
    is_hidden = what == "truncated" and "open" in opened and "pwrite" in later
    may_differ = {"out.h5", "Errors000.txt", target, what * is_taken,
                  "out.h5.json" * (has_won or has_other_won)}
    differ = {name for name in {*before, *after} - may_differ
              if before.get(name) != after.get(name) and
              not (target == TEMPORARY and name.startswith(".kelmor-run-"))}
    judge.judge_status(outcome, (0, 1 if is_run else 255))
    if outcome.status == 255:
        judge.judge_report(outcome, (".h5",), reports_to_file=True)
    for is_fault, what_is_wrong in (
            (has_won and not is_late and not is_hidden and found not in right,
             "status 0, but not with the join"),
            (has_other_won and found != right_of_other, "another's status 0, but not its join"),
            (has_won and what in ON_INPUT and "open" in opened and later & {"read", "pread"},
             "status 0, but an input changed while it was read"),
            (is_taken and target != TEMPORARY and after.get(target) != before[what],
             "what others put into the place of the output is changed"),
            (not (has_won or has_other_won or is_taken) and (is_run or found not in right) and
             found and in_child(is_readable, output), "a failure leaves a readable output"),
            (differ, f"files changed or new: {sorted(differ)}"),
            (has_won and is_run and not is_late and found in right and
             hashlib.sha256(found).hexdigest().encode() not in open(f"{output}.json", "rb").read(),
             "the record is of another file")):
        if is_fault:
            judge.fault(what_is_wrong, outcome)
    return trace
