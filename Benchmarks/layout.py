"""Writes the datasets that Kelmor joins, as docs/file-format.md describes them."""

import h5py
import numpy as np

STRINGS = h5py.string_dtype("ascii")
COEF_END = "index one past current coeff-data"
TDM_END = "index one past this filestep"
TDM_CHUNK = 131072


def open_new(path):
    return h5py.File(path, "w", libver=("v108", "latest"))


def write_table(group, name, rows, legend, compress, chunk_rows=None):
    """A table with the column names `legend`; chunks are runs of rows of a single column."""
    filters = {}
    if compress:
        filters = {"shuffle": True, "compression": "gzip", "compression_opts": 1,
                   "fletcher32": True}
    table = group.create_dataset(name, data=rows, dtype="<f8", maxshape=(None, rows.shape[1]),
                                 chunks=(max(chunk_rows or rows.shape[0], 1), 1), **filters)
    table.attrs.create("Legend", list(legend), dtype=STRINGS)
    return table


def write_coef(parent, name, times, ends, values, legends, compress):
    """Step i has the values [ends[i-1], ends[i]); legends are those of both tables."""
    group = parent.create_group(name)
    write_table(group, "index.dat", np.column_stack([times, ends]), legends[0], compress)
    write_table(group, "coefs.dat", values.reshape(-1, 1), legends[1], compress)


def write_tdm(parent, name, index, values, legends, spec, compress):
    group = parent.create_group(name)
    group.attrs.create("TensorSpec", [spec], dtype=STRINGS)
    write_table(group, "index.dat", index, legends[0], compress)
    write_table(group, "data.dat", values.reshape(-1, 1), legends[1], compress,
                chunk_rows=min(len(values), TDM_CHUNK))


def write_version(parent, name, history):
    rows = np.array(history, dtype=object).reshape(-1, 2)
    record = parent.create_dataset(name, data=rows, dtype=STRINGS, maxshape=(None, 2),
                                   chunks=(1, 2))
    record.attrs.create("Version", [len(history)], dtype="<u8")
