#!/usr/bin/env python3
"""Lists where the chunks lie that a join reads, and the columns that it writes, for the Floor
program, which moves the same bytes without HDF5.

    chunks.py INPUT [INPUT ...] OUTPUT

OUTPUT is the joined file. A line "column BYTES CHUNKBYTES FILTERED" says how much one column of a
table has in the output and in what pieces it is written; the lines "chunk FILE OFFSET STORED BYTES
USED FILTERED" below it say where its values are read: STORED bytes in the file become BYTES when
they are inflated, of which the first USED are kept. The steps that a segment loses must be its last
ones, as in all generated segments.
"""

import sys

import h5py
import numpy as np

import peer

ITEM = 8


def kept_rows(copies):
    """How many rows of each copy of a table survive; of a values table, as its index says."""
    parents = [table.parent for table in copies]
    indexed = "index.dat" in parents[0]
    steps = [parent["index.dat"] for parent in parents] if indexed else copies
    keep = peer.select(np.concatenate([table[:, 0] for table in steps]))
    kept, first = [], 0
    for table in steps:
        kept.append(int(keep[first:first + len(table)].sum()))
        first += len(table)
    if indexed and not copies[0].name.endswith("/index.dat"):
        kept = [int(index[count - 1, 1]) if count else 0 for index, count in zip(steps, kept)]
    return kept


def print_chunks(number, table, column, kept):
    rows = table.chunks[0]
    for first in range(0, kept, rows):
        info = table.id.get_chunk_info_by_coord((first, column))
        print("chunk", number, info.byte_offset, info.size, rows * ITEM,
              min(rows, kept - first) * ITEM, int(table.compression is not None))


def tables(file):
    found = []
    file.visititems(lambda name, node: found.append(name) if name.endswith(".dat")
                    and isinstance(node, h5py.Dataset) else None)
    return found


def main():
    files = [h5py.File(path, "r") for path in sys.argv[1:]]
    output = files.pop()
    for name in tables(output):
        joined = output[name]
        holders = [number for number, file in enumerate(files) if name in file]
        copies = [files[number][name] for number in holders]
        kept = kept_rows(copies)
        for column in range(joined.shape[1]):
            print("column", joined.shape[0] * ITEM, joined.chunks[0] * ITEM,
                  int(joined.compression is not None))
            for number, table, count in zip(holders, copies, kept):
                print_chunks(number, table, column, count)


if __name__ == "__main__":
    main()
