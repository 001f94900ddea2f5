#!/usr/bin/env python3
"""Ends with status 1 unless two files hold the same: names, layouts, filters, attributes, and
values bit for bit.

    compare.py FILE FILE
"""

import sys

import h5py
import numpy as np

ROWS_AT_A_TIME = 1 << 20


def nodes(file):
    found = {"/": file}
    file.visititems(lambda name, node: found.setdefault(name, node) and None)
    return found


def filters_of(dataset):
    plist = dataset.id.get_create_plist()
    return [plist.get_filter(i)[0::2] for i in range(plist.get_nfilters())]


def layout_of(node):
    attributes = {name: [part.decode() if isinstance(part, bytes) else part for part in value]
                  for name, value in node.attrs.items()}
    if isinstance(node, h5py.Group):
        return (attributes,)
    return node.shape, node.maxshape, node.dtype, node.chunks, filters_of(node), attributes


def same_values(a, b):
    if a.dtype.kind == "O":
        return np.array_equal(a[()], b[()])
    return all(a[i:i + ROWS_AT_A_TIME].tobytes() == b[i:i + ROWS_AT_A_TIME].tobytes()
               for i in range(0, a.shape[0], ROWS_AT_A_TIME))


def differences(a, b):
    first, second = nodes(a), nodes(b)
    for name in sorted(first.keys() ^ second.keys()):
        yield f"{name} is in one file only"
    for name in sorted(first.keys() & second.keys()):
        x, y = first[name], second[name]
        if type(x) is not type(y) or layout_of(x) != layout_of(y):
            yield f"{name}: {layout_of(x)} and {layout_of(y)}"
        elif isinstance(x, h5py.Dataset) and not same_values(x, y):
            yield f"{name}: values differ"


def main():
    with h5py.File(sys.argv[1], "r") as a, h5py.File(sys.argv[2], "r") as b:
        found = list(differences(a, b))
        count = len(nodes(a))
    for line in found[:20]:
        print(line)
    if found:
        sys.exit(1)
    print(f"{count} groups and datasets are the same")


if __name__ == "__main__":
    main()
