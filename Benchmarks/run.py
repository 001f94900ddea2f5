#!/usr/bin/env python3
"""Runs Kelmor and its peers over the workloads and prints what each of them cost.

This process stays small (neither numpy nor h5py), because a child's peak memory is never reported
below what its parent had when it started it.
"""

import argparse
import contextlib
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
WORKLOADS = {
    "MANY": "20 segments of 500 tables, 400 rows of 3 columns",
    "BIG": "8 segments of 6 tables, 60000 rows of 25 columns",
    "RUN": "10 segments of 200 tables, 16000 rows of 5 columns, flushed 1000 rows at a time",
    "VALUES": "10 segments of 4 coefficient sets, 2000000 values",
    "COEF": "20 segments of 1000 coefficient sets, 50 steps of 9 values",
    "TDM": "8 segments of 250 MB, symmetric tensors on 24 x 24 x 24 points",
}
PLAIN = "-NoGzip"
REJOIN = "REJOIN"  # BIG, joined without compression, joined again
STORE = "STORE"  # joins nothing: appends to a table
PEERS = "PEERS"  # a part of BIG, joined by other programs too


def parse_arguments():
    names = [name + suffix for name in WORKLOADS for suffix in ("", PLAIN)] + [REJOIN, STORE, PEERS]
    parser = argparse.ArgumentParser(
        prog="scripts/bench",
        description="Joins generated segments with Kelmor, with an h5py script, and without HDF5.",
        epilog="workloads: all, " + ", ".join(names))
    parser.add_argument("workloads", nargs="*", default=["MANY", "BIG"])
    parser.add_argument("--scale", type=float, default=1, help="size of the inputs (default 1)")
    parser.add_argument("--runs", type=int, default=5, help="runs of each (default 5)")
    parser.add_argument("--threads", default="1", help="VEXA_THREADS for Kelmor (default 1)")
    parser.add_argument("--wire", metavar="500us,500MB/s",
                        help="read the inputs cold, through a wire on which every request takes so long "
                             "and besides the time of its bytes")
    parser.add_argument("--build", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if "all" in arguments.workloads:
        arguments.workloads = names
    for name in arguments.workloads:
        if name not in names:
            parser.error(f"no workload '{name}'")
    if arguments.wire:
        number = r"(\d+(?:\.\d+)?)"
        settings = re.fullmatch(number + "(us|ms)," + number + "MB/s", arguments.wire)
        if not settings:
            parser.error("--wire is to look like 500us,500MB/s or 5ms,200MB/s")
        microseconds = float(settings[1]) * {"us": 1, "ms": 1000}[settings[2]]
        arguments.wire = str(microseconds), str(float(settings[3]) * 1e6)
        if not (arguments.build / "Benchmarks/WireFs").exists():
            parser.error("--wire needs WireFs, which is built where libfuse3 and pkg-config are")
        if not os.access("/dev/fuse", os.W_OK) or not shutil.which("fusermount3"):
            parser.error("--wire needs /dev/fuse, which is not there or not for you, and fusermount3")
    return arguments


class Cost:
    """Of one process: seconds of CPU and of wall clock, peak resident bytes."""

    def __init__(self, command, environment):
        start = time.perf_counter()
        with open(os.devnull, "r+b") as null:
            child = subprocess.Popen(command, env=environment, stdin=null, stdout=null)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            sys.exit(f"'{' '.join(map(str, command))}' ended with {child.returncode}")
        self.wall = time.perf_counter() - start
        self.cpu = usage.ru_utime + usage.ru_stime
        self.rss = usage.ru_maxrss * 1024


def python(script, *arguments):
    return [sys.executable, HERE / script, *arguments]


def make_inputs(workload, scale, folder):
    """Generates the segments of a workload once; they are complete when their folder has its name."""
    inputs = folder / f"{workload}-{scale:g}"
    if not inputs.exists():
        print(f"generating {workload} ...", flush=True)
        partial = inputs.with_suffix(".partial")
        shutil.rmtree(partial, ignore_errors=True)
        partial.mkdir(parents=True)
        if workload == REJOIN:
            segments = make_inputs("BIG", scale, folder)
            subprocess.run(python("peer.py", PLAIN, partial / "joined.h5", *segments), check=True)
        else:
            subprocess.run(python("generate.py", workload, str(scale), partial), check=True)
        partial.rename(inputs)
    return sorted(inputs.glob("*.h5"))


def output_folder(build, inputs):
    """Memory, if the outputs fit."""
    memory = pathlib.Path("/dev/shm")
    needed = 4 * sum(path.stat().st_size for path in inputs) + 10**8
    if memory.is_dir() and os.access(memory, os.W_OK) and shutil.disk_usage(memory).free > needed:
        return memory / f"vexa-bench-{os.getpid()}"
    return build.parent / "bench-data" / f"out-{os.getpid()}"


def read_all(paths):
    for path in paths:
        with open(path, "rb", buffering=0) as file:
            while file.read(1 << 20):
                pass


@contextlib.contextmanager
def at_the_end_of_a_wire(arguments, folder):
    """A folder with the same files, none of which is in memory; what crosses the wire is printed to the
    list that comes with it, as two numbers, when it is unmounted."""
    with tempfile.TemporaryDirectory() as mountpoint:
        server = subprocess.Popen([arguments.build / "Benchmarks/WireFs", folder, mountpoint,
                                   *arguments.wire], stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL, text=True)
        crossed = []
        try:
            while not os.path.ismount(mountpoint):
                if server.poll() is not None:
                    sys.exit("WireFs cannot mount anything here")
                time.sleep(0.01)
            device = os.stat(mountpoint).st_dev
            with contextlib.suppress(OSError):  # Else it is 128 KiB.
                pathlib.Path(f"/sys/class/bdi/{os.major(device)}:{os.minor(device)}/read_ahead_kb"
                             ).write_text("1024")
            yield pathlib.Path(mountpoint), crossed
        finally:
            subprocess.run(["fusermount3", "-u", mountpoint], check=True)
            crossed += map(int, re.findall(r"\d+", server.communicate()[0]))


def run_cold(arguments, inputs, commands, outputs, environment):
    """Medians of some runs after one that does not count."""
    print(f"  {'':14} {'wall s':>8} {'CPU s':>8} {'requests':>9} {'bytes/inputs':>13}")
    size = sum(path.stat().st_size for path in inputs)
    walls = {}
    for who in ("cat", "Kelmor warm", "Kelmor cold", "h5py cold"):
        name = who.partition(" ")[0]
        costs, counts = [], []
        for _ in range(arguments.runs + 1):
            outputs[name].unlink(missing_ok=True)
            if who == "Kelmor warm":
                read_all(inputs)
                costs.append(Cost(commands[name] + inputs, environment))
                counts.append((0, 0))
                continue
            with at_the_end_of_a_wire(arguments, inputs[0].parent) as (folder, crossed):
                costs.append(Cost(commands[name] + [folder / path.name for path in inputs], environment))
            counts.append(crossed)
        walls[who] = statistics.median(cost.wall for cost in costs[1:])
        requests, crossed = map(statistics.median, zip(*counts[1:]))
        print(f"  {who:14} {walls[who]:8.2f} {statistics.median(cost.cpu for cost in costs[1:]):8.2f} "
              f"{requests:9.0f} {crossed / size:13.2f}", flush=True)
    bound = max(walls["cat"], walls["Kelmor warm"])
    print(f"  cold is {walls['Kelmor cold'] / bound:.2f} x the larger of cat and warm")


def report(costs, outputs):
    def median(contender, quantity):
        return statistics.median(getattr(cost, quantity) for cost in costs[contender])

    print(f"  {'':8} {'CPU s':>8} {'wall s':>8} {'peak MB':>8} {'out MB':>8} {'CPU':>12}")
    own = median("Kelmor", "cpu")
    for contender in costs:
        cpu = median(contender, "cpu")
        ratio = {"Kelmor": "", "h5py": f"{cpu / own:.2f} x Kelmor",
                 "floor": f"Kelmor {own / cpu:.2f} x"}[contender]
        size = outputs[contender].stat().st_size
        print(f"  {contender:8} {cpu:8.3f} {median(contender, 'wall'):8.3f} "
              f"{median(contender, 'rss') / 1e6:8.0f} {size / 1e6:8.1f}  {ratio}")


def run_workload(name, arguments):
    data = arguments.build.parent / "bench-data"
    base, plain = name.removesuffix(PLAIN), name.endswith(PLAIN) or name == REJOIN
    inputs = make_inputs(base, arguments.scale, data)
    options = [PLAIN] if plain else []
    description = WORKLOADS.get(base, "the uncompressed join of BIG, joined again")
    size = sum(path.stat().st_size for path in inputs)
    print(f"{name}: {description}; inputs {size / 1e6:.1f} MB"
          + (f", scale {arguments.scale:g}" if arguments.scale != 1 else ""), flush=True)

    folder = output_folder(arguments.build, inputs)
    folder.mkdir(parents=True)
    try:
        outputs = {who: folder / f"{who}.h5" for who in ("Kelmor", "h5py", "floor", "cat")}
        chunk_list = folder / "chunks.txt"
        commands = {
            "Kelmor": [arguments.build / "Executables/Kelmor/Kelmor", *options, "-o",
                       outputs["Kelmor"]],
            "h5py": python("peer.py", *options, outputs["h5py"]),
            "floor": [arguments.build / "Benchmarks/Floor", chunk_list, outputs["floor"]],
            "cat": ["cat"],
        }
        environment = {**os.environ, "VEXA_THREADS": arguments.threads,
                       "OMP_NUM_THREADS": "1", "OPENBLAS_NUM_THREADS": "1"}

        if arguments.wire:
            run_cold(arguments, inputs, commands, outputs, environment)
            return
        del commands["cat"]
        commands = {who: command + inputs for who, command in commands.items()}
        read_all(inputs)
        for who in ("Kelmor", "h5py"):
            Cost(commands[who], environment)
        subprocess.run(python("compare.py", outputs["Kelmor"], outputs["h5py"]), check=True)
        with open(chunk_list, "w", encoding="utf-8") as stream:
            subprocess.run(python("chunks.py", *inputs, outputs["h5py"]), stdout=stream, check=True)

        costs = {who: [] for who in commands}
        for _ in range(arguments.runs):
            for who, command in commands.items():
                outputs[who].unlink(missing_ok=True)
                costs[who].append(Cost(command, environment))
        report(costs, outputs)
    finally:
        shutil.rmtree(folder)


def run_store(arguments):
    """Appends through the store and by plain HDF5 calls, in turns."""
    rows = round(160000 * arguments.scale)
    print(f"{STORE}: {rows} rows of 10 columns in chunks of 10, written 25 at a time; "
          "microseconds of CPU per row")
    print(f"  {'':24} {'first':>8} {'late':>8} {'all':>8} {'late/first':>11} {'store/plain':>12}")
    folder = output_folder(arguments.build, [])
    folder.mkdir(parents=True)
    try:
        for how, *gzip in ("handles",), ("handles", "gzip"), ("live",), ("live", "gzip"):
            costs = {"plain": [], "store": []}
            for _ in range(arguments.runs):
                for who, found in costs.items():
                    command = [arguments.build / "Benchmarks/Appends", who, how, str(rows),
                               folder / "out.h5", *gzip]
                    found.append([float(word) for word in subprocess.check_output(command).split()])
                    (folder / "out.h5").unlink()
            for who, found in costs.items():
                first, late, whole, _ = map(statistics.median, zip(*found))
                ratio = whole / statistics.median(cost[2] for cost in costs["plain"])
                print(f"  {' '.join((how, *gzip, who)):24} {first:8.2f} {late:8.2f} {whole:8.2f} "
                      f"{late / first:11.2f} {ratio:12.2f}", flush=True)
    finally:
        shutil.rmtree(folder)


def run_peers(arguments):
    inputs = make_inputs("BIG", 0.02 * arguments.scale, arguments.build.parent / "bench-data")
    folder = output_folder(arguments.build, inputs)
    folder.mkdir(parents=True)
    try:
        subprocess.run(python("peers.py", arguments.build / "Executables/Kelmor/Kelmor",
                              str(arguments.runs), folder, *inputs), check=True)
    finally:
        shutil.rmtree(folder)


def main():
    arguments = parse_arguments()
    for name in arguments.workloads:
        if name == STORE:
            run_store(arguments)
        elif name == PEERS:
            run_peers(arguments)
        else:
            run_workload(name, arguments)


if __name__ == "__main__":
    main()
