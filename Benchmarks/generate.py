#!/usr/bin/env python3
"""Writes the input segments of one workload.

    generate.py WORKLOAD SCALE FOLDER

Data are smooth, and differ a little between segments, so that it shows which of two overlapping
segments a step was taken from. Segments overlap by a twentieth of their steps.
"""

import os
import sys

import numpy as np

import layout

HISTORY = [("3f2a91c", "First format."), ("b0c47de", "Second format.")]


def times_of(segment, steps):
    first = segment * (steps - max(steps // 20, 1))
    return 0.01 * np.arange(first, first + steps, dtype=float)


def curves(times, count, seed, segment):
    """`count` columns of smooth data."""
    random = np.random.default_rng(seed)
    frequency = random.uniform(0.1, 2.0, count)
    phase = random.uniform(0, 6.28, count)
    size = 10 ** random.uniform(-6, 3, count)
    return size * np.sin(np.outer(times, frequency) + phase) * (1 + 1e-9 * segment)


def many(scale, file, segment):
    for group in range(10):
        directory = file.create_group(f"Group{group}.dir")
        for table in range(max(round(50 * scale), 1)):
            times = times_of(segment, 400)
            rows = np.column_stack([times, curves(times, 2, 50 * group + table, segment)])
            layout.write_table(directory, f"table{table:03}.dat", rows, ("time", "x", "y"), True)


def big(scale, file, segment):
    times = times_of(segment, max(round(60000 * scale), 20))
    legend = ["time"] + [f"quantity {c}" for c in range(24)]
    for table in range(6):
        rows = np.column_stack([times, curves(times, 24, table, segment)])
        layout.write_table(file, f"table{table}.dat", rows, legend, True)


def run(scale, file, segment):
    """As a simulation leaves it: all tables are flushed in turn, some rows at a time, so that the
    chunks of each lie scattered over the whole file."""
    rows, a_flush, tables, columns = max(round(16000 * scale), 1000), 1000, 200, 5
    times = times_of(segment, rows)
    legend = ["time"] + [f"quantity {c}" for c in range(1, columns)]
    values = [np.column_stack([times, curves(times, columns - 1, table, segment)])
              for table in range(tables)]
    datasets = [layout.write_table(file, f"table{table:03}.dat", values[table][:0], legend, True, 500)
                for table in range(tables)]
    for begin in range(0, rows, a_flush):
        for dataset, table in zip(datasets, values):
            end = min(begin + a_flush, rows)
            dataset.resize(end, axis=0)
            dataset[begin:end] = table[begin:end]
        file.flush()


def coef_sets(file, segment, sets, steps, values):
    times = times_of(segment, steps)
    legends = (("time", layout.COEF_END), ("coefficients",))
    ends = values * np.arange(1, steps + 1)
    for number in range(sets):
        data = curves(times, values, number, segment) / (1 + np.arange(values))
        layout.write_coef(file, f"set{number:04}.coef", times, ends, data.ravel(), legends, True)


def values(scale, file, segment):
    coef_sets(file, segment, sets=4, steps=max(round(2000 * scale), 20), values=1000)


def coef(scale, file, segment):
    coef_sets(file, segment, sets=max(round(1000 * scale), 1), steps=50, values=9)


def tdm(scale, file, segment):
    extent, components = 24, 6
    steps = max(round(377 * scale), 3)  # of 0.66 MB
    times = times_of(segment, steps)
    axis = np.linspace(-1, 1, extent)
    z, y, x = np.meshgrid(axis, axis, axis, indexing="ij")  # x varies fastest
    radius = np.sqrt(x * x + y * y + z * z + 0.1)
    data = np.empty((steps, components, extent**3))
    for i, time in enumerate(times):
        for c in range(components):
            wave = np.sin(3 * radius - time + c) / radius * (1 + 1e-9 * segment)
            data[i, c] = (wave + 0.1 * c * x * y * np.cos(time)).ravel()
    ends = components * extent**3 * np.arange(1.0, steps + 1)
    index = np.column_stack([times, ends] + [np.full(steps, float(extent))] * 3)
    legends = (["time", layout.TDM_END] + [f"Extents[{i}]" for i in range(3)], ("metric",))
    layout.write_tdm(file, "metric.tdm", index, data.ravel(), legends,
                     "TensorDim=3; TensorSymm=11; DataMeshDim=3;", True)


WORKLOADS = {"MANY": (many, 20), "BIG": (big, 8), "RUN": (run, 10), "VALUES": (values, 10), "COEF": (coef, 20),
             "TDM": (tdm, 8)}


def main():
    workload, scale, folder = sys.argv[1], float(sys.argv[2]), sys.argv[3]
    write, segments = WORKLOADS[workload]
    os.makedirs(folder, exist_ok=True)
    for segment in range(segments):
        with layout.open_new(f"{folder}/segment{segment:02}.h5") as file:
            layout.write_version(file, "VersionHist.ver", HISTORY)
            write(scale, file, segment)


if __name__ == "__main__":
    main()
