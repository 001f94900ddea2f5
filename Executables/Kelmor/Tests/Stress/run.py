"""Runs programs, and says how they ended and what they cost.

A Launcher keeps a small process of its own for that, this file as a program: the system never
reports a child's peak memory below what its parent had when it started it. A Server runs one
command many times.
"""

import contextlib
import dataclasses
import fcntl
import json
import os
import pathlib
import resource
import select
import signal
import subprocess
import sys
import time


@dataclasses.dataclass
class Outcome:
    status: int | str  # exit status, -signal, or "hang"
    out: str
    err: str
    rss: int  # peak, in bytes
    seconds: float


class Launcher:
    def __init__(self):
        self.process = subprocess.Popen([sys.executable, "-S", "-E", __file__],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def start(self, command, folder, environment=None, limits=None, seconds=10, cpu_seconds=10,
              user=None, signals=None):
        """limits: {"AS": bytes} and so on. signals: {"number", "after" seconds or None for as soon
        as there is output, "every" seconds or None for once}. A process that takes too long gets
        SIGQUIT, for its backtrace, and is killed."""
        request = {key: value for key, value in locals().items() if key != "self"}
        request["command"] = [os.fspath(argument) for argument in command]
        request["folder"] = os.fspath(folder)
        self.process.stdin.write(json.dumps(request) + "\n")
        self.process.stdin.flush()

    def finish(self):
        return Outcome(**json.loads(self.process.stdout.readline()))

    def run(self, command, folder, **how):
        self.start(command, folder, **how)
        return self.finish()


class Server:
    """A Launcher of one command in one folder that loads the program only once; see server.c."""

    def __init__(self, shim, command, folder):
        self.command, self.folder = command, folder
        asked, self.ask = os.pipe()
        self.answers, answering = os.pipe()
        self.out, self.err = os.memfd_create("out"), os.memfd_create("err")
        pipes = asked, answering, self.out, self.err
        environment = {"LD_PRELOAD": str(shim), "SERVER_PIPES": " ".join(map(str, pipes))}
        self.process = subprocess.Popen(command, cwd=folder, env=os.environ | environment,
                                        stdin=subprocess.DEVNULL, pass_fds=pipes)
        os.close(asked)
        os.close(answering)

    def start(self, command, folder, seconds=10, cpu_seconds=10):
        assert command == self.command and folder == self.folder
        for stream in self.out, self.err:
            os.ftruncate(stream, 0)
            os.lseek(stream, 0, os.SEEK_SET)
        self.begin, self.limits = time.monotonic(), (seconds, cpu_seconds)
        os.write(self.ask, b".")

    def answer(self):
        return int.from_bytes(os.read(self.answers, 8), sys.byteorder, signed=True)

    def finish(self):
        child = self.answer()
        is_late = end_in_time(
            child, lambda seconds: bool(select.select([self.answers], [], [], seconds)[0]),
            self.begin, *self.limits)
        status, peak = self.answer(), self.answer()
        out, err = (os.pread(stream, 1 << 20, 0).decode(errors="replace")
                    for stream in (self.out, self.err))
        return Outcome("hang" if is_late else os.waitstatus_to_exitcode(status), out, err,
                       peak * 1024, time.monotonic() - self.begin)

    def close(self):
        for stream in self.ask, self.answers, self.out, self.err:
            os.close(stream)
        self.process.wait()


def end_in_time(child, wait, begin, seconds, cpu_seconds):
    """Whether a process had to be ended. wait(seconds) says whether it has ended."""
    is_late = False
    while not wait(0.25):
        with contextlib.suppress(FileNotFoundError):  # ended at this moment
            if time.monotonic() - begin > seconds or cpu_seconds_of(child) > cpu_seconds:
                is_late = True
                os.kill(child, signal.SIGQUIT)
                if not wait(1):
                    os.kill(child, signal.SIGKILL)
    return is_late


def cpu_seconds_of(child):
    fields = pathlib.Path(f"/proc/{child}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


# The launching process.

def pipe():
    """Of which a megabyte needs no reader. Files would count against a limit of their size."""
    readable, writable = os.pipe()
    fcntl.fcntl(writable, fcntl.F_SETPIPE_SZ, 1 << 20)
    os.set_blocking(readable, False)
    return readable, writable


def text_in(readable):
    with os.fdopen(readable, "rb") as stream:
        return (stream.read() or b"").decode(errors="replace")


def become(request, out, err):
    for number, stream in enumerate((os.open(os.devnull, os.O_RDONLY), out, err)):
        os.dup2(stream, number)
    os.chdir(request["folder"])
    if request["user"] is not None:
        os.setgroups([])
        os.setgid(request["user"])
        os.setuid(request["user"])
    environment = os.environ | (request["environment"] or {})
    for name, value in ({"CORE": 0} | (request["limits"] or {})).items():
        which = getattr(resource, "RLIMIT_" + name)
        hard = resource.getrlimit(which)[1]
        resource.setrlimit(which, (value, hard))
    os.execve(request["command"][0], request["command"], environment)


def run(request):
    begin = time.monotonic()
    (out, child_out), (err, child_err) = pipe(), pipe()
    child = os.fork()
    if child == 0:
        try:
            become(request, child_out, child_err)
        finally:
            os._exit(126)
    os.close(child_out)
    os.close(child_err)
    ended = os.pidfd_open(child)
    signals = request["signals"]

    def wait(seconds):
        return bool(select.select([ended], [], [], max(seconds, 0))[0])

    if signals and signals["after"] is None:
        select.select([out], [], [])
    elif signals:
        wait(signals["after"])
    while signals and not wait(0):
        os.kill(child, signals["number"])
        if not signals["every"] or wait(signals["every"]):
            break
    is_late = end_in_time(child, wait, begin, request["seconds"], request["cpu_seconds"])
    _, status, usage = os.wait4(child, 0)
    os.close(ended)
    return {"status": "hang" if is_late else os.waitstatus_to_exitcode(status),
            "rss": usage.ru_maxrss * 1024, "seconds": time.monotonic() - begin,
            "out": text_in(out), "err": text_in(err)}


def main():
    signal.signal(signal.SIGINT, signal.SIG_DFL)  # for a child that it reaches too early
    for line in sys.stdin:
        print(json.dumps(run(json.loads(line))), flush=True)


if __name__ == "__main__":
    main()
