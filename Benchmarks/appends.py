#!/usr/bin/env python3
"""What AppendsC tells of C, for Python. Prints the medians of ten rounds: nanoseconds per row of ten
columns, appended one by one as an array and as a list, then GB/s of a copy and of 10^6 rows in one call.

    appends.py FOLDER
"""

import statistics
import sys
import time

import numpy as np
import vexa

COLUMNS, ROWS, MANY_ROWS, ROUNDS = 10, 100_000, 1_000_000, 10


def seconds(work):
    begin = time.perf_counter()
    work()
    return time.perf_counter() - begin


def main():
    vexa.set_cache_limit(10_000_000_000)
    file = vexa.File(f"{sys.argv[1]}/python.h5")
    table = file.table("x.dat", list("tabcdefghi"), compress=False, chunk_rows=100_000)
    row = np.arange(float(COLUMNS))
    numbers = row.tolist()
    rows = np.full((MANY_ROWS, COLUMNS), 1.5)
    copy = np.ones_like(rows)

    def one_by_one(values):
        append = table.append
        for _ in range(ROWS):
            append(values)

    figures = []
    for _ in range(ROUNDS):
        arrays = seconds(lambda: one_by_one(row))
        lists = seconds(lambda: one_by_one(numbers))
        file.flush()
        memory = seconds(lambda: np.copyto(copy, rows))
        many = seconds(lambda: table.append(rows))
        file.flush()
        figures.append((1e9 * arrays / ROWS, 1e9 * lists / ROWS, rows.nbytes / memory / 1e9,
                        rows.nbytes / many / 1e9))
    print(*(f"{statistics.median(column):.6g}" for column in zip(*figures)))


if __name__ == "__main__":
    main()
