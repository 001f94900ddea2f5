#!/usr/bin/env python3
"""Joins segments with h5py and numpy, as a user would who has no Kelmor.

    peer.py [-NoGzip] OUTPUT INPUT [INPUT ...]

Selects the same steps and writes the same layout as Kelmor does; texts are left out.
"""

import sys

import h5py
import numpy as np

import layout

DELTA_T = 1e-10


def select(times):
    """Flags of the steps to keep: backwards, each at least DELTA_T before the one kept after it."""
    later = np.minimum.accumulate(times[::-1])[::-1]
    gap = np.append(later[1:], np.inf) - times
    keep = gap >= DELTA_T
    if np.any((gap > 0) & ~keep):  # close steps: which ones stay depends on the one after
        last = np.inf
        for i in range(len(times) - 1, -1, -1):
            keep[i] = last - times[i] >= DELTA_T
            if keep[i]:
                last = times[i]
    return keep


def names_of(files):
    names = {}

    def visit(name, node):
        kind = name.rpartition(".")[2]
        parents_are_dirs = all(p.endswith(".dir") for p in name.split("/")[:-1])
        if kind in ("dat", "coef", "tdm", "ver") and parents_are_dirs:
            names.setdefault(name, kind)

    for file in files:
        file.visititems(visit)
    return names


def join_version(copies, output, name):
    history = copies[0][()]
    for record in copies[1:]:
        assert np.array_equal(record[()], history), name
    output.copy(copies[0], output, name)


def join_table(copies, output, name, compress):
    rows = np.concatenate([table[()] for table in copies])
    rows = rows[select(rows[:, 0])]
    layout.write_table(output, name, rows, copies[0].attrs["Legend"], compress)


def join_indexed(copies, output, name, values_name, compress):
    indices = [group["index.dat"][()] for group in copies]
    counts = np.concatenate([np.diff(index[:, 1], prepend=0).astype(int) for index in indices])
    index = np.concatenate(indices)
    keep = select(index[:, 0])
    values = np.concatenate([group[values_name][:, 0] for group in copies])
    values = values[np.repeat(keep, counts)]
    index = index[keep]
    index[:, 1] = np.cumsum(counts[keep])
    legends = [copies[0][table].attrs["Legend"] for table in ("index.dat", values_name)]
    if values_name == "coefs.dat":
        layout.write_coef(output, name, index[:, 0], index[:, 1], values, legends, compress)
    else:
        spec = copies[0].attrs["TensorSpec"][0]
        layout.write_tdm(output, name, index, values, legends, spec, compress)


def main():
    compress = sys.argv[1] != "-NoGzip"
    output_name, *input_names = sys.argv[1 if compress else 2:]
    files = [h5py.File(name, "r") for name in input_names]
    with layout.open_new(output_name) as output:
        for name, kind in names_of(files).items():
            copies = [file[name] for file in files if name in file]
            if kind == "ver":
                join_version(copies, output, name)
            elif kind == "dat":
                join_table(copies, output, name, compress)
            elif kind == "coef":
                join_indexed(copies, output, name, "coefs.dat", compress)
            else:
                join_indexed(copies, output, name, "data.dat", compress)


if __name__ == "__main__":
    main()
