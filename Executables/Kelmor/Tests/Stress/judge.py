"""Runs Kelmor in a folder of its own, and holds every run to the same rules:

- It ends in time with status 0 or 255, never with a signal that it was not sent, and needs no more
  memory than its data account for.
- Status 0 means that the output is what check.py makes of the inputs.
- Status 255 means a framed report on standard error and in Errors000.txt.
- Inputs and an existing output stay as they were, to the time of modification. No other file
  appears.
- After a failure or a kill, the output is whole, or cannot be read.

Damage within HDF5's own global heap may crash the library, and so may a failing allocation, at once
or by the disorder that the library leaves the heap in: where the stack, or whose allocation it was,
says so, the run is counted and is no fault.
"""

import collections
import contextlib
import hashlib
import itertools
import os
import pathlib
import pickle
import re
import resource
import shutil
import signal
import stat
import tempfile

import check
import h5py
from run import Launcher, Server

MB = 1 << 20
CALLS = ("open", "read", "pread", "write", "pwrite", "ftruncate", "close", "fsync", "any")
LIBRARY_CRASH = "crashed within HDF5"
UNREADABLE = "unjudged, for h5py crashed"
DIAGNOSTICS = re.compile(r"^(HDF5-DIAG|  #\d|    (major|minor)).*\n", re.MULTILINE)
C_LIBRARY = re.compile(r"/lib(c|stdc\+\+|gcc_s)\.so| at \.|faults\.so|vgpreload|"
                       r"signal handler called")
BROKEN_HEAP = re.compile(r"^(malloc|free|realloc|munmap_chunk|corrupted|double free|"
                         r"Fatal glibc error: malloc).*$|"
                         # in the handler of the signal again
                         r"^Received signal 11(?s:.*)^Received signal 11", re.MULTILINE)
FRAME = re.compile(r"^(#{4}|={4})", re.MULTILINE)


class Died(Exception):
    """A child ended before it had an answer."""


def in_child(function, *arguments, seconds=60):
    """The result of a function that may crash, hang, or leave the HDF5 library in disorder."""
    readable, writable = os.pipe()
    child = os.fork()
    if child == 0:
        with contextlib.suppress(BaseException):
            os.dup2(os.open(os.devnull, os.O_WRONLY), 2)
            signal.alarm(seconds)
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
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


def expectation(folder, inputs, options):
    """What check.join() says, or why it refuses."""
    try:
        return check.join([check.read(os.path.join(folder, path)) for path in inputs], options)
    except Exception as error:  # also h5py's own, on damaged files
        return repr(error)


def verdict(folder, inputs, options, output):
    """The lines that a join tells, and the differences of its output; strings instead, if the
    inputs cannot be joined or the output cannot be read."""
    wanted = expectation(folder, inputs, options)
    if isinstance(wanted, str):
        return wanted, []
    if not os.path.exists(os.path.join(folder, output)):
        return wanted[1], None
    try:
        return wanted[1], check.differences(os.path.join(folder, output), wanted[0])
    except Exception as error:
        return wanted[1], repr(error)


def is_readable(path):
    try:
        with h5py.File(path, "r") as file:
            return list(file) is not None
    except Exception:
        return False


def snapshot(folder):
    entries = {}
    for path in pathlib.Path(folder).iterdir():
        info = path.lstat()
        content = None
        if stat.S_ISREG(info.st_mode) and info.st_size < 64 * MB:
            content = hashlib.sha1(path.read_bytes()).digest()
        entries[path.name] = info.st_mode, info.st_size, info.st_mtime_ns, info.st_ino, content
    return entries


def fault_environment(judge, call, at=0, error=0, always=False, count="", caller=""):
    """The HDF5 library does not survive failing allocations while it starts."""
    names = ":" + ":".join(CALLS[:-1]) + ":" if call == "any" else f":{call}:"
    return {"LD_PRELOAD": str(judge.shim), "FAULT_CALLS": names, "FAULT_AT": str(at),
            "FAULT_AFTER": ":open:" if call == "malloc" else "",
            "FAULT_ERROR": str(error), "FAULT_ALWAYS": str(int(always)), "FAULT_COUNT": count,
            "FAULT_CALLER": caller}


class Judge:
    def __init__(self, program, info, scratch, kept, is_sanitized):
        self.program, self.info, self.kept = program, info, pathlib.Path(kept)
        self.is_sanitized = is_sanitized
        self.launcher = Launcher()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="judge", dir=scratch))
        self.begin("")

    def begin(self, case):
        self.case, self.faults = case, []
        self.memory, self.reading_seconds = 100 * MB, 60
        self.library_may_crash = False
        self.statuses, self.notes = collections.Counter(), collections.Counter()
        self.clear()

    def clear(self, *names):
        """Removes what is in the folder, or these names from it."""
        for path in [self.folder / name for name in names] or self.folder.iterdir():
            if path.is_dir() and not path.is_symlink():
                shutil.rmtree(path)
            else:
                path.unlink(missing_ok=True)

    def fault(self, what, outcome=None):
        """Keeps the folder as it is, under the name of the case."""
        self.faults.append(f"{self.case}: {what}")
        if len(self.faults) > 3:
            return
        place = self.kept / re.sub(r"[^\w.-]+", "_", f"{self.case} {len(self.faults)}")[:120]
        shutil.rmtree(place, ignore_errors=True)
        place.mkdir(parents=True)
        for path in self.folder.iterdir():
            if path.is_file() and path.stat().st_size < 64 * MB:
                shutil.copy2(path, place)
        told = f"{what}\n{self.command}\n"
        if outcome:
            told += f"status {outcome.status}, {outcome.rss} bytes, {outcome.seconds} s\n"
            told += outcome.out + outcome.err
        (place / "run.txt").write_text(told, errors="surrogateescape")

    def command_of(self, inputs, options=check.Options(), more=(), output="out.h5"):
        return [self.program, *options.arguments(), *more, "-o", output, *inputs]

    @contextlib.contextmanager
    def server(self, inputs):
        server = Server(self.server_shim, self.command_of(inputs), self.folder)
        try:
            yield server
        finally:
            server.close()

    def join(self, inputs, options=check.Options(), more=(), output="out.h5", about=(),
             allowed=(0, 255), is_broken_off=False, reports_to_file=True,
             reference=None, launchers=(), names="", **how):
        """Runs one join and judges it, with its input files unless `reference` is the output that
        there must be. Returns its outcome; with launchers, an outcome for each of as many that run
        at the same time."""
        launchers = launchers or (self.launcher,)
        before = snapshot(self.folder)
        self.command = self.command_of(inputs, options, more, output)
        for launcher in launchers:
            launcher.start(self.command, self.folder, **how)
        outcomes = [launcher.finish() for launcher in launchers]
        self.judge_files(before, output)
        is_new = output not in before
        for outcome in outcomes:
            self.judge_status(outcome, allowed, output if is_new else "", how.get("environment"))
            if outcome.status == 0:
                self.judge_output(outcome, inputs, options, output, reference)
            elif (outcome.status, outcome.err, reports_to_file,
                  self.library_may_crash) == (255, "", False, True):
                self.notes["ended by HDF5 itself"] += 1
            elif outcome.status == 255:
                self.judge_report(outcome, about, reports_to_file)
                if not re.search(names, outcome.err):
                    self.fault("the report names no file", outcome)
            if outcome.status != 0 and is_broken_off and is_new and 0 not in [
                    other.status for other in outcomes]:
                self.judge_remains(outcome, inputs, options, output, reference)
        return outcomes if len(launchers) > 1 else outcomes[0]

    def inspect(self, *arguments, allowed, **how):
        """A run of KelmorInfo, which may write nothing but reports."""
        self.clear("Errors000.txt")
        before = snapshot(self.folder)
        self.command = [self.info, *arguments]
        outcome = self.launcher.run(self.command, self.folder, **how)
        self.judge_files(before, output="")
        self.judge_status(outcome, allowed)
        return outcome

    def join_and_inspect(self, inputs, ways, other, **how):
        """KelmorInfo, run in these of three ways, must agree with the join; `other` is not what the
        inputs make."""
        self.clear("out.h5", "Errors000.txt")
        late = {"seconds": 20, "cpu_seconds": 20}
        status = self.join(inputs, **late | how).status
        joined = other if status else "out.h5"
        for way in ways:
            arguments, failed = [(["-plan"], (0, 1)), ([], (0, 255)),
                                 (["-check", joined], (1, 255))][way % 3]
            if way % 3 < 2 or (self.folder / joined).exists():  # or there was nothing to join
                self.inspect(*arguments, *inputs, allowed=failed if status else (0,), **late)

    def require_told(self, outcome, texts):
        missing = [text for text in texts if text not in outcome.out]
        if missing:
            self.fault(f"the output does not tell {missing}", outcome)

    def judge_status(self, outcome, allowed, output="", environment=None):
        self.statuses[outcome.status] += 1
        if outcome.status not in allowed:
            stack = self.stack_of(outcome, output, environment or {})
            is_in_library = self.library_may_crash and (
                stack and "libhdf5" in stack[0] or
                BROKEN_HEAP.search(outcome.err) and environment and
                "libhdf5" in pathlib.Path(environment["FAULT_CALLER"]).read_text())
            is_excused = is_in_library or any("H5HG_" in frame for frame in stack)
            if is_excused and outcome.status != "hang":
                self.notes[LIBRARY_CRASH] += 1
                self.notes["in " + re.findall(r"\bH5\w+|$", " ".join(stack))[0]] += 1
            else:
                where = f" in {stack[0]}" if stack else ""
                self.fault(f"status {outcome.status}{where}, not one of {allowed}", outcome)
        if outcome.rss > self.memory and not self.is_sanitized:
            self.fault(f"{outcome.rss // MB} MB of memory, more than {self.memory // MB}", outcome)

    def stack_of(self, outcome, output, environment):
        """Frames of a run that crashed or was too late, without those of the C library at its top:
        what it told itself, or else the same run tells a debugger. Of a broken heap, frames of what
        broke it, if that can be found out; the others are of who noticed."""
        told = re.findall(r"^(?:\S+ +\S.* \+ 0?x?[0-9a-f]+|/\S+\(.*\) ?\[0x[0-9a-f]+\])$",
                          outcome.err.partition("Received signal")[2], re.MULTILINE)
        valgrind = shutil.which("valgrind")
        if BROKEN_HEAP.search(outcome.err) and valgrind and not environment:
            told = self.first_bad_access(valgrind, output) or told
        elif not told and outcome.status != "hang" and outcome.status < 0:
            told = self.debug(output, environment)
        return list(itertools.dropwhile(C_LIBRARY.search, told))

    def first_bad_access(self, valgrind, output):
        told = self.rerun([valgrind, "-q", "--num-callers=50", *self.command], output).err
        error = re.search(r"^==\d+== Invalid (read|write|free).*\n((==\d+==    .*\n)+)", told,
                          re.MULTILINE)
        return re.findall(r"(?:at|by) 0x\w+: (.*)", error.group(2)) if error else []

    def debug(self, output, environment):
        command = ["/usr/bin/gdb", "-q", "-batch", "-ex", "handle SIGTRAP nostop noprint"]
        for text in [f"set environment {name} {value}" for name, value in environment.items()
                     ] + ["set startup-with-shell off", "run", "bt 200"]:
            command += ["-ex", text]
        told = self.rerun([*command, "--args", *self.command], output).out
        return re.findall(r"^#\d+ .*", told, re.MULTILINE)

    def rerun(self, command, output):
        with tempfile.TemporaryDirectory() as copy:
            for path in self.folder.iterdir():
                if path.is_file() and path.name != output:
                    shutil.copy(path, copy)
            return self.launcher.run(command, copy, seconds=60)

    def judge_files(self, before, output):
        after = snapshot(self.folder)
        changed = {name for name in before if after.get(name) != before[name]}
        found = changed | (after.keys() - before.keys() - {output})
        if found - {"Errors000.txt"}:
            self.fault(f"files changed or new: {sorted(found - {'Errors000.txt'})}")

    def judge_report(self, outcome, about, reports_to_file):
        message = DIAGNOSTICS.sub("", outcome.err)
        frame = FRAME.search(message)
        if not frame:
            self.fault("status 255 without a framed report", outcome)
            return
        report = message[frame.start():]
        missing = [name for name in about if name not in report]
        if missing:
            self.fault(f"the report does not name {missing}", outcome)
        errors = self.folder / "Errors000.txt"
        kept = errors.read_text(errors="replace") if reports_to_file and errors.exists() else ""
        # A report that memory has run out needs no memory, and so no file.
        if reports_to_file and "std::bad_alloc" not in report and not all(
                line in kept for line in report.splitlines()):
            self.fault("the report is not in Errors000.txt", outcome)

    def judge_output(self, outcome, inputs, options, output, reference):
        path = self.folder / output
        if reference is not None and path.exists() and path.read_bytes() == reference:
            return
        try:
            lines, found = in_child(verdict, self.folder, inputs, options, output,
                                    seconds=self.reading_seconds)
        except Died:
            try:
                in_child(expectation, self.folder, inputs, options, seconds=self.reading_seconds)
                self.fault("status 0, but the output crashes h5py", outcome)
            except Died:
                self.notes[UNREADABLE] += 1
            return
        if isinstance(lines, str):
            self.fault(f"status 0, but the inputs cannot be joined: {lines}", outcome)
            return
        if "-v" in self.command:
            told = [line for line in outcome.out.splitlines()
                    if re.search(" (keeping|writing) [0-9v]", line)]
            if told != [line for text in lines for line in text.splitlines()]:
                self.fault(f"told {told}, not {lines}", outcome)
        if found is None and lines:
            self.fault("status 0 without an output", outcome)
        elif found is not None and not lines:
            self.fault("an output without a dataset", outcome)
        elif found:
            self.fault(f"the output is wrong: {[found] if isinstance(found, str) else found[:3]}",
                       outcome)

    def require_unreadable(self, output):
        """A part of a join must not pass for a whole one."""
        path = self.folder / output
        if path.exists() and in_child(is_readable, path):
            self.fault("the output of a join that was refused can be read")

    def judge_remains(self, outcome, inputs, options, output, reference):
        """Of a run that was broken off."""
        path = self.folder / output
        if not path.exists():
            self.notes["left none"] += 1
        elif reference is not None and path.read_bytes() == reference:
            self.notes["left all"] += 1
        else:
            try:
                _, found = in_child(verdict, self.folder, inputs, options, output)
            except Died:
                found = "crashes h5py"
            if isinstance(found, str):
                self.notes["left what cannot be read"] += 1
                return
            # A file that was not closed says so, and may be whole all the same.
            found = [line for line in found if not line.startswith("superblock")]
            if found:
                self.fault(f"an incomplete output can be read: {found[:3]}", outcome)
            else:
                self.notes["left all"] += 1

    def reference(self, inputs, options=check.Options(), **how):
        """The output of a join without trouble, which is judged too."""
        self.join(inputs, options, allowed=(0,), output="reference.h5", **how)
        content = (self.folder / "reference.h5").read_bytes()
        self.clear("reference.h5")
        return content
