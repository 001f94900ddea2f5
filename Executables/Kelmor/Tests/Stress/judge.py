# Runs Kelmor in a folder of its own, and holds every run to the same rules:
#
# - It ends in time with status 0 or 255, never with a signal that it was not sent, and needs no more
#   memory than its data account for.
# - Status 0 means that the output is what check.py makes of the inputs.
# - Status 255 means a framed report on standard error and in Errors000.txt.
# - Inputs and an existing output stay as they were, to the time of modification. No other file
#   appears.
# - After a failure or a kill, the output is whole, or cannot be read.
#
# Damaged files and failing allocations may crash HDF5 itself. Where a group allows it, such an end is
# counted and is no fault, if the program's own backtrace begins in HDF5 or if h5py dies of the same
# inputs; stress.py bounds their share.

import collections
import contextlib
import hashlib
import itertools
import os
import pathlib
import pickle
import re
import signal
import stat
import subprocess
import tempfile
import threading
import typing

import check
import h5py

MB = 1 << 20
LIBRARY_CRASH = "crashed within HDF5"
DIAGNOSTICS = re.compile(r"^(HDF5-DIAG|  #\d|    (major|minor)).*\n", re.MULTILINE)
BACKTRACE = re.compile(r"^(?:\S+ +\S.* \+ 0?x?[0-9a-f]+|/\S+\(.*\) ?\[0x[0-9a-f]+\])$", re.MULTILINE)
C_LIBRARY = re.compile(r"/lib(c|stdc\+\+|gcc_s)\.so|faults\.so")
HANGS = (-signal.SIGQUIT, -signal.SIGXCPU)
FRAME = re.compile(r"^(#{4}|={4})", re.MULTILINE)


class Outcome(typing.NamedTuple):
    status: int  # exit status, or -signal
    out: str
    err: str
    rss: int  # peak, in bytes


# Runs a program, with a limit as prlimit has it, for example "--as=1000000:". One that takes too long
# gets SIGQUIT, for its backtrace, and one that computes too long SIGXCPU. The system never reports a
# peak memory below that of the process that starts it, which therefore must stay small.
def run(command, folder, environment=None, limit="--core=0:0", seconds=30, cpu_seconds=10):
    process = subprocess.Popen(
        ["prlimit", f"--cpu={cpu_seconds}:{cpu_seconds + 5}", limit, *command], cwd=folder,
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, pipesize=MB,
        env=os.environ | (environment or {}))
    late = threading.Timer(seconds, os.kill, (process.pid, signal.SIGQUIT))
    late.start()
    _, status, usage = os.wait4(process.pid, 0)
    late.cancel()
    process.returncode = os.waitstatus_to_exitcode(status)
    with process.stdout, process.stderr:
        out, err = (os.read(stream.fileno(), MB).decode(errors="replace")
                    for stream in (process.stdout, process.stderr))
    return Outcome(process.returncode, out, err, usage.ru_maxrss * 1024)


class Died(Exception):
    """A child ended before it had an answer."""


# Calls a function that may crash, hang, or leave the HDF5 library in disorder.
def in_child(function, *arguments, seconds=60):
    readable, writable = os.pipe()
    child = os.fork()
    if child == 0:
        with contextlib.suppress(BaseException):
            os.dup2(os.open(os.devnull, os.O_WRONLY), 2)
            signal.alarm(seconds)
            with os.fdopen(writable, "wb") as stream:
                pickle.dump(function(*arguments), stream)
        os._exit(0)
    os.close(writable)
    with os.fdopen(readable, "rb") as stream:
        answer = stream.read()
    os.waitpid(child, 0)
    if not answer:
        raise Died
    return pickle.loads(answer)


# What check.py makes of the inputs and the output: why they cannot be joined, and the differences of
# the output, if there is one.
def verdict(folder, inputs, options, output):
    try:
        objects = check.join([check.read(os.path.join(folder, name)) for name in inputs], options)
    except Exception as error:  # also h5py's own, on damaged files
        return repr(error), []
    path = os.path.join(folder, output)
    try:
        if os.path.exists(path):
            return "", check.differences(path, objects)
        return "", ["no output"] * (len(objects) > 1)
    except Exception as error:
        return "", [repr(error)]


def is_readable(path):
    with contextlib.suppress(Exception), h5py.File(path, "r") as file:
        return list(file) is not None
    return False


def snapshot(folder):
    def state_of(path):
        info = path.lstat()
        with open(path if stat.S_ISREG(info.st_mode) else os.devnull, "rb") as file:
            return (info.st_mode, info.st_size, info.st_mtime_ns, info.st_ino,
                    hashlib.file_digest(file, "sha1").digest())

    return {path.name: state_of(path) for path in pathlib.Path(folder).iterdir()}


class Judge:
    def __init__(self, settings, scratch):
        self.program, self.info, self.run, self.simulation = (
            settings.build / "Executables" / name for name in (
                "Kelmor/Kelmor", "KelmorInfo/KelmorInfo", "KelmorRun/kelmor-run",
                "Kelmor/Tests/Stress/Simulate"))
        self.kept = settings.build / "faults"
        program = self.program.read_bytes()
        self.is_sanitized = b"__asan_init" in program
        self.is_parallel = b"libhdf5_mpi" in program or b"libhdf5_openmpi" in program
        self.shim, self.trace = (pathlib.Path(scratch, name) for name in (
            "faults.so", f"trace{os.getpid()}"))
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="judge", dir=scratch))

    def begin(self, case):
        self.case, self.faults = case, []
        self.memory, self.library_may_crash = 100 * MB, False
        self.statuses, self.notes = collections.Counter(), collections.Counter()
        self.clear()

    # Removes what is in the folder, or these names from it.
    def clear(self, *names):
        subprocess.run(["rm", "-rf", *(self.folder / name for name in names or os.listdir(
            self.folder))], check=True)

    # Keeps the folder as it is, under the name of the case, for the first faults of one.
    def fault(self, what, outcome=None):
        self.faults.append(f"{self.case}: {what}")
        place = self.kept / re.sub(r"[^\w.-]+", "_", f"{self.case} {len(self.faults)}")[:120]
        if len(self.faults) <= 3:
            subprocess.run(["rm", "-rf", place], check=True)
            self.kept.mkdir(exist_ok=True)
            subprocess.run(["cp", "-a", self.folder, place], check=True)
            (place / "run.txt").write_text(f"{what}\n{self.command}\n{outcome}\n")

    # Runs any program, which may write `output`, or any file if that is None, and Errors000.txt.
    def watch(self, command, allowed, output="", **how):
        before, self.command = snapshot(self.folder), command
        outcome = run(command, self.folder, **how)
        after = snapshot(self.folder)
        changed = {name for name in {*before, *after} - {"Errors000.txt"} if before.get(name) !=
                   after.get(name) and not (name == output and name not in before)}
        if changed and output is not None:
            self.fault(f"files changed or new: {sorted(changed)}", outcome)
        self.statuses[outcome.status] += 1
        if outcome.status not in allowed:
            if self.library_may_crash and self.is_library_crash(outcome):
                self.notes[LIBRARY_CRASH] += 1
            else:
                self.fault(f"status {outcome.status}, not one of {allowed}", outcome)
        if outcome.rss > self.memory and not self.is_sanitized:
            self.fault(f"{outcome.rss // MB} MB of memory, more than {self.memory // MB}", outcome)
        return outcome

    def is_library_crash(self, outcome):
        frames = BACKTRACE.findall(outcome.err.partition("Received signal")[2])
        if "libhdf5" in next(itertools.dropwhile(C_LIBRARY.search, frames), ""):
            return True
        inputs = [name for name in self.command if name[-3:] == ".h5"]
        with contextlib.suppress(Died):
            return in_child(verdict, self.folder, inputs, check.Options(), "") is None
        return outcome.status not in HANGS

    # Runs one join and judges it, by its inputs unless `reference` is the output that there must be.
    def join(self, inputs, options=check.Options(), more=(), output="out.h5", about=(), names="",
             allowed=(0, 255), reference=None, reports_to_file=True, **how):
        is_new = output not in os.listdir(self.folder)
        outcome = self.watch([str(self.program), *options.arguments(), *more, "-o", output, *inputs],
                             allowed, output, **how)
        path = self.folder / output
        exists = output in os.listdir(self.folder)
        is_right = reference is not None and is_new and exists and path.read_bytes() == reference
        if outcome.status == 0 and not is_right:
            self.judge_output(outcome, inputs, options, output)
        elif outcome.status == 255 and (outcome.err or not self.library_may_crash):
            self.judge_report(outcome, about, reports_to_file, names)
        if outcome.status != 0 and is_new and exists and not is_right and in_child(is_readable, path):
            # A file that was not closed says so, and may be whole all the same.
            refusal, found = in_child(verdict, self.folder, inputs, options, output)
            found = [line for line in found if not line.startswith("superblock")]
            if refusal or found:
                self.fault(f"what is left can be read: {refusal} {found[:3]}", outcome)
        return outcome

    # Runs KelmorInfo, which may write nothing but reports.
    def inspect(self, *arguments, allowed, **how):
        self.clear("Errors000.txt")
        return self.watch([str(self.info), *arguments], allowed, **how)

    def judge_report(self, outcome, about, reports_to_file, names=""):
        message = DIAGNOSTICS.sub("", outcome.err)
        report = message[FRAME.search(message).start():] if FRAME.search(message) else ""
        if not report:
            self.fault("status 255 without a framed report", outcome)
        elif not all(text in report for text in about) or not re.search(names, outcome.err):
            self.fault(f"the report does not name {about} or {names}", outcome)
        errors = self.folder / "Errors000.txt"
        kept = errors.read_text(errors="replace") if reports_to_file and errors.exists() else ""
        # A report that memory has run out needs no memory, and so no file.
        if reports_to_file and "std::bad_alloc" not in report and not all(
                line in kept for line in report.splitlines()):
            self.fault("the report is not in Errors000.txt", outcome)

    def judge_output(self, outcome, inputs, options, output):
        try:
            refusal, found = in_child(verdict, self.folder, inputs, options, output)
        except Died:
            self.notes[LIBRARY_CRASH] += 1
            return
        if refusal:
            self.fault(f"status 0, but the inputs cannot be joined: {refusal}", outcome)
        elif found:
            self.fault(f"the output is wrong: {found[:3]}", outcome)

    # Gives the output of a join without trouble, which is judged too.
    def reference(self, inputs, options=check.Options(), **how):
        self.join(inputs, options, allowed=(0,), output="reference.h5", **how)
        content = (self.folder / "reference.h5").read_bytes()
        self.clear("reference.h5")
        return content
