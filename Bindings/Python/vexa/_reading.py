"""Datasets as arrays and frames: of one file, or of the parts of several that a join keeps."""

from __future__ import annotations

import contextlib
import functools
import math
import os
import pathlib
from typing import (TYPE_CHECKING, Any, Callable, Iterable, Iterator, List, NamedTuple, Optional, Sequence,
                    Tuple, Union)

import h5py
import numpy as np

from . import _given
from ._errors import Error, Missing, Refused
from ._tensors import components_of

if TYPE_CHECKING:
    import pandas
    import xarray

_MOST_DEFLATED = 1100  # bytes that one stored byte can stand for
Path = Union[str, "os.PathLike[str]"]
Ranges = List[Tuple[int, int]]  # of steps: the first, and one past the last


class Part(NamedTuple):
    """What a file gives to a dataset: these steps of it, or all."""

    path: Path
    ranges: Optional[Ranges] = None


class CoefSteps(NamedTuple):
    """The steps of a series of coefficients: their times, and an array of values for each."""

    times: np.ndarray
    values: list[np.ndarray]


class TensorSteps(NamedTuple):
    """The steps of a series of tensors.

    `components` lists the indices of the independent components; each of `values` is a step, an
    array whose first axis is the component and whose others are those of the mesh.
    """

    name: str
    times: np.ndarray
    components: list[tuple[int, ...]]
    values: list[np.ndarray]

    def to_xarray(self) -> xarray.DataArray | list[xarray.DataArray]:
        """One array of all steps; a list with one for each step where their meshes differ."""
        import xarray

        labels = [",".join(map(str, indices)) for indices in self.components]
        axes = [f"x{axis}" for axis in range(self.values[0].ndim - 1 if self.values else 0)]
        name = os.path.splitext(os.path.basename(self.name))[0]
        if len({step.shape for step in self.values}) > 1:
            return [xarray.DataArray(step, dims=("component", *axes), name=name,
                                     coords={"component": labels, "time": time})
                    for time, step in zip(self.times, self.values)]
        stack = np.stack(self.values) if self.values else np.empty((0, len(labels)))
        return xarray.DataArray(stack, dims=("time", "component", *axes), name=name,
                                coords={"time": self.times, "component": labels})


class _Node:
    """A dataset or group of one file, of which some steps count."""

    def __init__(self, file: h5py.File, name: str, part: Part) -> None:
        self._where = f"'{name}' of '{os.fspath(part.path)}'"
        self._file = file
        self._ranges = part.ranges
        self.item = file[name]

    def error(self, reason: str) -> Error:
        return Error(f"{self._where}: {reason}")

    def member(self, name: str = "") -> h5py.Dataset:
        """The dataset, or the one of that name in the group, whose values are all there."""
        dataset = self.item[name] if name and isinstance(self.item, h5py.Group) else self.item
        if not isinstance(dataset, h5py.Dataset) or (dataset is self.item) == bool(name):
            raise self.error(f"{name or 'it'} is no dataset in the file")
        sources = dataset.virtual_sources() if dataset.is_virtual else ()
        folder = pathlib.Path(self._file.filename).parent
        size = math.prod(dataset.shape or (0,)) * dataset.dtype.itemsize
        if not dataset.is_virtual and size > _MOST_DEFLATED * dataset.id.get_storage_size() + 2**20:
            raise self.error("it is larger than what is stored of it can be")
        for source in sources:
            _require_source(os.fspath(folder / source.file_name.replace("%%", "%")), source.dset_name)
        return dataset

    def numbers(self, name: str = "") -> h5py.Dataset:
        """The dataset, or the one in the group, if it has rows of numbers."""
        dataset = self.member(name)
        if len(dataset.shape or ()) != 2 or not np.can_cast(dataset.dtype, np.float64, "same_kind"):
            raise self.error(f"it has no rows of numbers, but {dataset.dtype} of the shape {dataset.shape}")
        return dataset

    def ranges(self, steps: int) -> Ranges:
        """The steps that count, of as many as there are."""
        ranges = [(0, steps)] if self._ranges is None else self._ranges
        if any(end > steps for _, end in ranges):
            raise self.error(f"there are only {steps} steps, fewer than when the join was planned")
        return ranges

    def steps(self, data: h5py.Dataset) -> Iterator[tuple[np.ndarray, np.ndarray]]:
        """The row of the index and the values of each step that counts."""
        index = self.numbers("index.dat")[:]
        ends = index[:, 1]
        begins = np.concatenate([[0.0], ends[:-1]])
        if not (np.all(begins <= ends) and np.all(ends == np.floor(ends)) and np.all(ends <= len(data))):
            raise self.error("index.dat does not say where steps end")
        bounds = np.concatenate([[0], ends]).astype(np.int64)
        for first, end in self.ranges(len(index)):
            values = data[bounds[first]:bounds[end], 0]
            for step in range(first, end):
                yield index[step], values[bounds[step] - bounds[first]:bounds[step + 1] - bounds[first]]


@functools.lru_cache(maxsize=1024)
def _opens(path: str, name: str, _stamp: tuple[int, int]) -> bool:
    try:
        with h5py.File(path, "r") as file:
            return name in file
    except OSError:
        return False


def _require_source(path: str, name: str) -> None:
    # What a view refers to and cannot read is NaN without a word.
    try:
        status = os.stat(path)
    except OSError as error:
        raise Error(f"'{path}', to which a view refers, cannot be read: {error.strerror}") from None
    if not _opens(path, name, (status.st_ino, status.st_mtime_ns)):
        raise Error(f"'{path}', to which a view refers, cannot be opened, or has no '{name}'")


def _texts(values: Any) -> list[str]:
    return [value.decode("utf-8", "surrogateescape").rstrip(" \0") if isinstance(value, bytes) else str(value)
            for value in np.atleast_1d(values)]


def _legend(table: h5py.Dataset) -> list[str]:
    return _texts(table.attrs["Legend"]) if "Legend" in table.attrs else []


def _read_table(nodes: Iterable[_Node], _: str) -> pandas.DataFrame:
    import pandas

    legend: list[str] = []
    rows = []
    for node in nodes:
        table = node.numbers()
        # A join takes the first legend that somebody gave.
        if not legend or legend[0] == "undefined":
            legend = _legend(table)
        rows += [table[first:end] for first, end in node.ranges(len(table))]
        if rows and rows[0].shape[1:] != table.shape[1:]:
            raise node.error("the number of columns differs")
    values = np.concatenate(rows) if rows else np.empty((0, len(legend)))
    legend = legend or [f"undef {column}" for column in range(values.shape[1])]
    return pandas.DataFrame(values.astype(np.float64, copy=False), columns=legend)


def _read_coefs(nodes: Iterable[_Node], _: str) -> CoefSteps:
    times, values = [], []
    for node in nodes:
        for row, step in node.steps(node.numbers("coefs.dat")):
            times.append(row[0])
            values.append(step)
    return CoefSteps(np.array(times), values)


def _structure(node: _Node) -> tuple[int, str, int]:
    try:
        entries = _texts(node.item.attrs["TensorSpec"])[0].replace(" ", "").split(";")
        spec = dict(entry.split("=") for entry in entries if entry)
        return int(spec["TensorDim"]), spec["TensorSymm"], int(spec["DataMeshDim"])
    except (KeyError, ValueError, IndexError):
        raise node.error("the attribute TensorSpec is missing or damaged") from None


def read_tensors(nodes: Iterable[_Node], name: str) -> TensorSteps:
    times, values = [], []
    components: list[tuple[int, ...]] = []
    for node in nodes:
        dim, symmetry, mesh_dim = _structure(node)
        components = components_of(dim, symmetry)
        for row, step in node.steps(node.numbers("data.dat")):
            extents = tuple(map(int, row[2:2 + mesh_dim]))
            is_whole = all(extent >= 0 for extent in extents) and np.array_equal(extents, row[2:2 + mesh_dim])
            if not is_whole or len(extents) != mesh_dim or step.size != len(components) * np.prod(extents, dtype=float):
                raise node.error(f"a step has {step.size} values, not those of a mesh of {extents}")
            mesh = step.reshape(len(components), *extents[::-1])
            values.append(mesh.transpose(0, *range(mesh_dim, 0, -1)))
            times.append(row[0])
    return TensorSteps(name, np.array(times), components, values)


def _read_tensors(nodes: Iterable[_Node], name: str) -> Any:
    return read_tensors(nodes, name).to_xarray()


def _read_text(nodes: Iterable[_Node], _: str) -> str:
    texts = []
    for node in nodes:
        dataset = node.member()
        if h5py.check_string_dtype(dataset.dtype) is None:  # as old files have it
            if dataset.dtype.kind != "i":
                raise node.error(f"it has no characters, but {dataset.dtype}")
            texts.append(dataset[()].astype(np.int8).tobytes().decode("utf-8", "surrogateescape"))
        else:
            texts += np.atleast_1d(dataset.asstr("utf-8", "surrogateescape")[()]).tolist()
    return "".join(texts)


def _read_versions(nodes: Iterable[_Node], _: str) -> pandas.DataFrame:
    import pandas

    # The files that are joined have the same.
    for node in nodes:
        entries = node.member().asstr("utf-8", "surrogateescape")[:]
        return pandas.DataFrame(entries, columns=["hash", "text"])
    return pandas.DataFrame(columns=["hash", "text"])


_READERS = {".dat": _read_table, ".coef": _read_coefs, ".tdm": _read_tensors, ".txt": _read_text,
            ".ver": _read_versions}


@contextlib.contextmanager
def _opened(path: Path) -> Iterator[h5py.File]:
    """A file; what fails as it is opened names it."""
    if os.path.exists(path) and not os.path.isfile(path):  # a pipe would be waited for
        raise Error(f"'{os.fspath(path)}' is not a regular file")
    try:
        file = h5py.File(path, "r")
    except OSError as error:
        if error.errno is None:  # of HDF5 itself
            raise Error(f"'{os.fspath(path)}' cannot be opened: {error}") from None
        raise OSError(error.errno, os.strerror(error.errno), os.fspath(path)) from error
    with file:
        yield file


def _nodes(parts: Sequence[Part], name: str, current: list[_Node]) -> Iterator[_Node]:
    for part in parts:
        current.clear()
        with _opened(part.path) as file:
            try:
                current.append(_Node(file, name, part))
            except (KeyError, RuntimeError):
                reason = f"has no '{name}', or a link to what is missing"
                raise Missing(f"'{os.fspath(part.path)}' {reason}") from None
            yield current[0]


def read_parts(parts: Sequence[Part], name: str, reader: Optional[Callable[..., Any]] = None) -> Any:
    """Reads a dataset by the reader that its name asks for, or another one."""
    ending = os.path.splitext(name)[1]
    if ending not in _READERS:
        raise Error(f"The end of the name '{name}' is none of {', '.join(_READERS)}")
    current: list[_Node] = []
    with contextlib.closing(_nodes(parts, name, current)) as nodes:
        try:
            return (reader or _READERS[ending])(nodes, name)
        except Error as error:
            raise (current[0].error(str(error)) if isinstance(error, Refused) else error) from None
        except (AttributeError, IndexError, KeyError, MemoryError, OSError, RuntimeError, TypeError,
                ValueError) as error:
            if not current:  # it is about a file that cannot be opened
                raise
            raise current[0].error(f"cannot be read: {error}") from error


def read(path: Path, name: str) -> Any:
    """Reads a dataset of a file, as far as the file has been written.

    A table is a pandas.DataFrame whose columns are those of its legend, a series of coefficients
    CoefSteps, one of tensors an xarray.DataArray (or a list of them, one for each step, where the
    meshes differ), a text a str, and a version record a pandas.DataFrame.

    >>> with File("one.h5") as file:
    ...     file.append("x.dat", [[0.0, 2.0], [0.5, 3.0]], legend=["time", "x"])
    ...     file.append("shape.coef", 0.0, [1.0, 0.5])
    ...     file.append("shape.coef", [1.0, 2.0], [[1.0], [2.0, 3.0]])
    >>> read("one.h5", "x.dat")
       time    x
    0   0.0  2.0
    1   0.5  3.0
    >>> times, values = read("one.h5", "shape.coef")
    >>> times.tolist(), [step.tolist() for step in values]
    ([0.0, 1.0, 2.0], [[1.0, 0.5], [1.0], [2.0, 3.0]])
    """
    return read_parts([Part(_given.path(path))], _given.name(name))
