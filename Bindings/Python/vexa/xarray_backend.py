"""xarray.open_dataset(path, engine="vexa", name="Run.dir/energy.dat")"""

from __future__ import annotations

import os
from typing import Any, Iterable

import numpy as np
import xarray
from xarray.backends import BackendEntrypoint

from . import _given
from ._errors import Error
from ._joined import open_joined
from ._reading import CoefSteps, Part, read_parts, read_tensors


class VexaBackendEntrypoint(BackendEntrypoint):
    """Opens one dataset of a file, or of a list of segments as if they were joined.

    A table has a variable per column. A series of coefficients has `values` one after the other and
    the `count` of each step, a series of tensors an array. All have the times as coordinate.
    """

    description = "Datasets of files that the store writes"
    open_dataset_parameters = ("filename_or_obj", "drop_variables", "name")

    def open_dataset(self, filename_or_obj: Any, *, drop_variables: str | Iterable[str] | None = None,
                     name: str = "", mask_and_scale: Any = None, decode_times: Any = None,
                     concat_characters: Any = None, decode_coords: Any = None, use_cftime: Any = None,
                     decode_timedelta: Any = None) -> xarray.Dataset:
        # What xarray asks every engine to decode is not encoded here.
        made = _FORMS.get(os.path.splitext(_given.name(name))[1])
        if made is None:
            raise Error(f"A dataset is asked for by name=, with one of {', '.join(_FORMS)} at its end; "
                        f"'{name}' has none")
        if isinstance(filename_or_obj, (str, bytes, os.PathLike)):
            parts = [Part(_given.path(filename_or_obj))]
        else:
            parts = open_joined(filename_or_obj).parts(name)
        dropped = [drop_variables] if isinstance(drop_variables, str) else list(drop_variables or [])
        return made(parts, name).drop_vars(dropped, errors="ignore")  # as other engines do

    def guess_can_open(self, filename_or_obj: Any) -> bool:
        return False  # it takes a name


def _of_table(parts: list[Part], name: str) -> xarray.Dataset:
    frame = read_parts(parts, name)
    columns = list(frame.columns[1:])
    if len(set(columns) | {"time"}) <= len(columns):
        raise Error(f"'{name}' has two columns of one name: {', '.join(columns)}")
    variables = {column: ("time", frame.iloc[:, place].to_numpy()) for place, column in enumerate(columns, 1)}
    return xarray.Dataset(variables, coords={"time": frame.iloc[:, 0].to_numpy()})


def _of_coefs(parts: list[Part], name: str) -> xarray.Dataset:
    steps: CoefSteps = read_parts(parts, name)
    values = np.concatenate(steps.values) if steps.values else np.empty(0)
    counts = np.array([len(step) for step in steps.values], dtype=np.int64)
    return xarray.Dataset({"values": ("value", values), "count": ("time", counts)},
                          coords={"time": steps.times})


def _of_tensors(parts: list[Part], name: str) -> xarray.Dataset:
    array = read_parts(parts, name, read_tensors).to_xarray()
    if isinstance(array, list):
        raise Error(f"The meshes of '{name}' differ from step to step: read() gives a list of arrays")
    return array.to_dataset(name="values")


_FORMS = {".dat": _of_table, ".coef": _of_coefs, ".tdm": _of_tensors}
