#!/usr/bin/env python3
"""Joins segments that overlap, as a restarted run leaves them, with Kelmor and with what else joins along
time; checks what comes out, and prints a table of it with the time that each takes.

    peers.py KELMOR RUNS FOLDER INPUT [INPUT ...]        by scripts/bench PEERS
    peers.py concatenate OUTPUT INPUT [INPUT ...]        what a first script with h5py does

What is made for netCDF gets the same numbers as netCDF files besides: every table as a variable of time and
column, and times in whole seconds, by which cdo can tell that two are equal.
"""

import pathlib
import resource
import shutil
import statistics
import subprocess
import sys
import time

import h5py
import numpy as np

import layout

TIME_STEP = 0.01  # of generate.py; a second as netCDF
HERE = pathlib.Path(__file__).resolve().parent


def tables_of(file):
    return [name for name in file if name.endswith(".dat")]


def concatenate(output_name, *input_names):
    files = [h5py.File(name) for name in input_names]
    with layout.open_new(output_name) as output:
        for name in tables_of(files[0]):
            rows = np.concatenate([file[name][()] for file in files])
            layout.write_table(output, name, rows, files[0][name].attrs["Legend"], True)


def write_as_netcdf(source, target):
    with h5py.File(source) as tables, h5py.File(target, "w", track_order=True) as output:
        names = tables_of(tables)
        rows, columns = tables[names[0]].shape
        times = output.create_dataset("time", data=np.round(tables[names[0]][:, 0] / TIME_STEP),
                                      maxshape=(None,))
        times.attrs["units"] = np.bytes_("seconds since 2000-01-01")
        quantity = output.create_dataset("quantity", data=np.arange(1.0, columns))
        for scale in (times, quantity):
            scale.make_scale(scale.name[1:])
        for name in names:
            values = output.create_dataset(name.removesuffix(".dat"), data=tables[name][:, 1:],
                                           maxshape=(None, columns - 1), chunks=(rows, 1), shuffle=True,
                                           compression=1)
            values.dims[0].attach_scale(times)
            values.dims[1].attach_scale(quantity)


def read_tables(path):
    with h5py.File(path) as file:
        names = tables_of(file)
        if names:
            return {name: file[name][()] for name in names}
        times = TIME_STEP * file["time"][()]
        return {name + ".dat": np.column_stack([times, file[name]])
                for name in file if name.startswith("table")}


def true_tables(inputs):
    """What the run computed last: of every segment the steps before the next one begins."""
    segments = [read_tables(path) for path in inputs]
    rows = {name: [] for name in segments[0]}
    for segment, following in zip(segments, segments[1:] + [None]):
        for name, table in segment.items():
            end = following[name][0, 0] if following else np.inf
            rows[name].append(table[table[:, 0] < end])
    return {name: np.concatenate(parts) for name, parts in rows.items()}


def verdict(path, expected):
    found = read_tables(path)
    if found.keys() != expected.keys():
        return "wrong: datasets missing"
    if all(np.array_equal(found[name], expected[name]) for name in expected):
        return "right"
    steps, right = (len(next(iter(tables.values()))) for tables in (found, expected))
    if steps > right:
        return f"wrong: {steps - right} of {right} steps twice"
    if steps < right:
        return f"wrong: {right - steps} of {right} steps missing"
    differ = sum(np.any([found[name][step] != expected[name][step] for name in expected])
                 for step in range(right))
    return f"wrong: {differ} of {right} steps differ"


def attempt(command, output, runs, expected):
    """The verdict, medians of wall-clock time and CPU time."""
    costs = []
    for _ in range(runs):
        output.unlink(missing_ok=True)
        before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.perf_counter()
        result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                stderr=subprocess.PIPE, text=True, check=False)
        wall, after = time.perf_counter() - start, resource.getrusage(resource.RUSAGE_CHILDREN)
        costs.append((wall, after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime))
        if result.returncode != 0:
            reason = (result.stderr.strip().splitlines() or ["no reason"])[-1].strip()
            return f"fails: {reason}", None, None
    return verdict(output, expected), *map(statistics.median, zip(*costs))


def main():
    kelmor, runs, folder = sys.argv[1], int(sys.argv[2]), pathlib.Path(sys.argv[3])
    tables = sys.argv[4:]
    netcdf = [folder / f"segment{number:02}.nc" for number in range(len(tables))]
    for source, target in zip(tables, netcdf):
        write_as_netcdf(source, target)
    expected = true_tables(tables)
    first = next(iter(expected.values()))
    print(f"PEERS: {len(tables)} segments of {len(expected)} tables, {first.shape[1]} columns; "
          f"{len(first)} steps joined", flush=True)

    scripts = [sys.executable, HERE / "peers.py", "concatenate"], [sys.executable, HERE / "peer.py"]
    contenders = (("ncrcat", ["ncrcat", *tables], []), ("ncrcat, netCDF", ["ncrcat", *netcdf], []),
                  ("cdo", ["cdo", "-s", "mergetime", *tables], []),
                  ("cdo, netCDF", ["cdo", "-s", "mergetime", *netcdf], []),
                  ("cdo, SKIP_SAME_TIME", ["env", "SKIP_SAME_TIME=1", "cdo", "-s", "mergetime", *netcdf], []),
                  ("h5py, concatenated", scripts[0], tables), ("h5py, peer.py", scripts[1], tables),
                  ("Kelmor", [kelmor, "-o"], tables))
    output = folder / "joined"
    for name, command, behind in contenders:
        if name.startswith(("ncrcat", "cdo")) and not shutil.which(name.partition(",")[0]):
            print(f"  {name:20} is not installed")
            continue
        result, wall, cpu = attempt([*command, output, *behind], output, runs, expected)
        costs = f"{wall:8.2f} s {cpu:8.2f} s CPU" if wall is not None else 25 * " "
        print(f"  {name:20} {costs}  {result}", flush=True)


if __name__ == "__main__":
    if sys.argv[1] == "concatenate":
        concatenate(*sys.argv[2:])
    else:
        main()
