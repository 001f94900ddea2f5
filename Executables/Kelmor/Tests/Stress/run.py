"""Runs programs, and says how they ended and what they cost.

A Launcher keeps a small process of its own for that, this file as a program: the system never reports
a child's peak memory below what its parent had when it started it.
"""

import dataclasses
import json
import os
import pathlib
import resource
import select
import signal
import subprocess
import sys
import tempfile
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
        self.folder = tempfile.TemporaryDirectory(prefix="launcher")
        os.chmod(self.folder.name, 0o755)
        self.process = subprocess.Popen([sys.executable, "-S", "-E", __file__, self.folder.name],
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
        answer = json.loads(self.process.stdout.readline())
        texts = {name: pathlib.Path(self.folder.name, name).read_text(errors="replace")
                 for name in ("out", "err")}
        return Outcome(**answer, **texts)

    def run(self, command, folder, **how):
        self.start(command, folder, **how)
        return self.finish()


# The launching process.

def become(request, own_folder):
    def stream(name, flags, number):
        os.dup2(os.open(name, flags, 0o666), number)

    stream(os.devnull, os.O_RDONLY, 0)
    for number, name in (1, "out"), (2, "err"):
        stream(os.path.join(own_folder, name), os.O_CREAT | os.O_TRUNC | os.O_WRONLY, number)
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


def cpu_seconds_of(child):
    fields = pathlib.Path(f"/proc/{child}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def run(request, own_folder):
    begin = time.monotonic()
    child = os.fork()
    if child == 0:
        try:
            become(request, own_folder)
        finally:
            os._exit(126)
    ended = os.pidfd_open(child)
    signals, is_late, output = request["signals"], False, os.path.join(own_folder, "out")

    def wait(seconds):
        return bool(select.select([ended], [], [], max(seconds, 0))[0])

    if signals and signals["after"] is None:
        while not wait(0.0005) and not os.path.getsize(output):
            pass
    elif signals:
        wait(signals["after"])
    while signals and not wait(0):
        os.kill(child, signals["number"])
        if not signals["every"] or wait(signals["every"]):
            break
    while not wait(0.25):
        if (time.monotonic() - begin > request["seconds"] or
                cpu_seconds_of(child) > request["cpu_seconds"]):
            is_late = True
            os.kill(child, signal.SIGQUIT)
            if not wait(1):
                os.kill(child, signal.SIGKILL)
    _, status, usage = os.wait4(child, 0)
    os.close(ended)
    return {"status": "hang" if is_late else os.waitstatus_to_exitcode(status),
            "rss": usage.ru_maxrss * 1024, "seconds": time.monotonic() - begin}


def main():
    for line in sys.stdin:
        print(json.dumps(run(json.loads(line), sys.argv[1])), flush=True)


if __name__ == "__main__":
    main()
