"""Files that a simulation writes."""

from __future__ import annotations

import ctypes
import functools
import os
import struct
import weakref
from typing import TYPE_CHECKING, Any, Callable, ClassVar, Iterable, Sequence, TypeVar

import numpy as np

from . import _library
from . import _given
from ._errors import Error, Refused
from ._given import text, whole
from ._library import History, call, lock, number
from ._tensors import components_of

if TYPE_CHECKING:
    from numpy.typing import ArrayLike

_FLOAT64 = np.dtype(np.float64)
_Kind = TypeVar("_Kind", bound="_Object")
_Work = TypeVar("_Work", bound=Callable[..., Any])


def _in_turn(work: _Work) -> _Work:
    """Keeps other threads from closing what is worked with, and says for what was given what is refused."""

    @functools.wraps(work)
    def told(self: Any, *arguments: Any, **form: Any) -> Any:
        with lock:
            try:
                return work(self, *arguments, **form)
            except (MemoryError, Refused) as error:
                raise Error(f"{self._where(*arguments, **form)}: {error}") from None

    return told  # type: ignore[return-value]


def _array(values: ArrayLike) -> np.ndarray:
    parts = values if isinstance(values, (list, tuple)) else [values]
    if any(isinstance(part, np.ma.MaskedArray) and np.ma.is_masked(part) for part in parts):
        raise Refused("Masked values cannot be written; NaN can")
    try:
        return np.asarray(values)
    except ValueError as error:
        raise Refused(f"What is appended is no array: {error}") from None


def _doubles(values: ArrayLike) -> np.ndarray:
    """An array of doubles in C order: the one that is given, if it is such a one."""
    array = _array(values)
    if array.size == 0 and array.dtype == object:
        array = array.astype(np.float64)
    if not np.can_cast(array.dtype, _FLOAT64, "same_kind"):
        raise Refused(f"Numbers are expected, not values of the type {array.dtype}")
    return np.require(array, _FLOAT64, "CA")


def _pointers(texts: Sequence[str]) -> Any:
    return (ctypes.c_char_p * len(texts))(*map(text, texts))


class _Handled:
    """What is in the hands of the library."""

    def __reduce__(self) -> Any:
        # A copy would use what closing the other has freed.
        raise TypeError(f"A {type(self).__name__} that is written cannot be copied or pickled")


class _Object(_Handled):
    """An object in a file that is written. Its length is what the file has and what waits."""

    _KIND: ClassVar[str]

    def __init__(self, file: File, name: str, *arguments: Any) -> None:
        self.name = name
        self._file = file
        self._handle: int | None = self._open(*arguments)

    def _open(self, *arguments: Any) -> int | None:
        handle = ctypes.c_void_p()
        call(f"{self._KIND}_open", self._file._opened(), text(self.name), *arguments,
             ctypes.byref(handle))
        return handle.value

    def _where(self, *_: object) -> str:
        return f"'{self.name}' of '{self._file.path}'"

    def _call(self, name: str, *arguments: Any) -> None:
        call(name, self._opened(), *arguments)

    def _opened(self) -> int:
        if self._handle is None:
            raise self._closed()
        return self._handle

    def _closed(self) -> Error:
        return Error(f"'{self.name}' belongs to '{self._file.path}', which is closed")

    @_in_turn
    def __len__(self) -> int:
        return number(f"{self._KIND}_size", self._opened())


class Table(_Object):
    """A table: a named column per quantity, the first of them the time."""

    _KIND = "table"

    def __init__(self, file: File, name: str, legend: Sequence[str], compress: bool,
                 chunk_rows: int) -> None:
        self._legend = list(legend)
        super().__init__(file, name, _pointers(self._legend), len(self._legend), compress, chunk_rows)
        columns = self.shape[1]
        row = (ctypes.c_double * columns)()
        self._row = memoryview(row).cast("B").cast("d")
        self._pack = struct.Struct(f"{columns}d").pack_into
        # Arguments that have their types already are passed faster than those that get them per call.
        self._append_row = functools.partial(
            _library.library()["vexa_table_append"], ctypes.c_void_p(self._handle),
            ctypes.c_void_p(ctypes.addressof(row)), ctypes.c_size_t(columns))

    def append(self, rows: ArrayLike) -> None:
        """Appends a row, or many: an array of rows and columns, or a frame with the same columns.

        Many rows in a C-contiguous array of float64 are taken as they lie in memory.
        """
        with lock:
            if not self._fills_row(rows):
                self._append_rows(rows)
            elif self._handle is None:
                raise self._closed()
            elif self._append_row() != 0:
                raise _library.last_report()

    def _fills_row(self, rows: Any) -> bool:
        """Copies a row of one of the usual types, which to look at closely would take longer."""
        try:
            if type(rows) is np.ndarray and rows.ndim == 1:
                self._row[:] = rows
                return True
            if type(rows) is list or type(rows) is tuple:
                self._pack(self._row, 0, *rows)
                return True
        except (TypeError, ValueError, struct.error):
            pass
        return False

    @_in_turn
    def _append_rows(self, rows: Any) -> None:
        self._require_columns(rows)
        array = _doubles(rows)
        if array.ndim not in (1, 2):
            raise Refused(f"Rows have one dimension or two, not {array.ndim}")
        shape = array.shape if array.ndim == 2 else (1, len(array))
        self._call("table_append_rows", array.ctypes.data, *shape)

    def _require_columns(self, rows: Any) -> None:
        """Fails if a frame, or a row of one, names other columns, or these in another order."""
        labels = getattr(rows, "columns", getattr(rows, "index", None))
        if labels is None or callable(labels):
            return
        names = list(labels)
        if not hasattr(rows, "columns") and not all(isinstance(name, str) for name in names):
            return  # a row that is numbered
        if not self._legend:
            self._open(_pointers(names), len(names), True, 1)  # compares them
            self._legend = names
        if names != self._legend:
            raise Refused(f"The table has the columns {self._legend}, not {names}")

    @property
    @_in_turn
    def shape(self) -> tuple[int, int]:
        columns = ctypes.c_uint64()
        rows = ctypes.c_uint64()
        self._call("table_size", ctypes.byref(rows), ctypes.byref(columns))
        return rows.value, columns.value

    def __len__(self) -> int:
        return self.shape[0]


class Coefs(_Object):
    """A series of coefficients: a time and any number of values in each step."""

    _KIND = "coefs"

    @_in_turn
    def append(self, time: ArrayLike, values: Any) -> None:
        """Appends a step, or many: an array of times, and values for each of them."""
        times = _doubles(time)
        if times.ndim == 0:
            one = _doubles(values)
            if one.ndim != 1:
                raise Refused(f"The values of a step have one dimension, not {one.ndim}")
            self._call("coefs_append", float(times), one.ctypes.data, one.size)
            return
        steps = [_doubles(step) for step in values] if np.iterable(values) else []
        if times.ndim != 1 or len(times) != len(steps) or any(step.ndim != 1 for step in steps):
            raise Refused("Many steps are an array of times and as many arrays of values")
        counts = np.array([len(step) for step in steps], dtype=np.uintp)
        flat = np.concatenate(steps) if steps else np.empty(0)
        self._call("coefs_append_steps", len(times), times.ctypes.data, counts.ctypes.data,
                   flat.ctypes.data)


class Tensors(_Object):
    """A series of tensors, whose components are values on a mesh."""

    _KIND = "tensors"

    def __init__(self, file: File, name: str, time_name: str, values_name: str, dim: int,
                 symmetry: str, mesh_dim: int, *form: int) -> None:
        self._mesh_dim = mesh_dim
        super().__init__(file, name, text(time_name), text(values_name), dim, text(symmetry), mesh_dim,
                         *form)
        #: The lists of indices that the independent components have, in their order.
        self.components = components_of(dim, symmetry)

    @_in_turn
    def append(self, time: ArrayLike, values: ArrayLike) -> None:
        """Appends the step values[component, i, j, ...], or values[i, j, ...] of a scalar.

        Many steps are an array of times, and values with one more axis in front. Values whose mesh
        lies in memory with the first index varying fastest are not copied.
        """
        times = _doubles(time)
        array = _array(values)
        axes = times.ndim + self._mesh_dim
        if array.ndim == axes and len(self.components) == 1:
            array = np.expand_dims(array, times.ndim)
        if times.ndim > 1 or array.ndim != axes + 1:
            raise Refused(f"Values of {axes + 1} dimensions are expected, not {array.ndim}")
        expected = times.shape + (len(self.components),)
        if array.shape[:times.ndim + 1] != expected:
            raise Refused(f"Values begin with the axes {expected}, not {array.shape}")
        first = times.ndim + 1
        in_file = _doubles(array.transpose(*range(first), *range(array.ndim - 1, first - 1, -1)))
        extents = (ctypes.c_int * self._mesh_dim)(*(whole(size, 31) for size in array.shape[first:]))
        self._call("tensors_append_steps", times.size, times.ctypes.data, extents, in_file.ctypes.data)


class Text(_Object):
    """A text."""

    _KIND = "text"

    @_in_turn
    def append(self, characters: str | bytes) -> None:
        encoded = text(characters)
        self._call("text_append", encoded, len(encoded))


def _close(handle: int, objects: Iterable[_Object]) -> None:
    # At the end of the process, other threads may go on appending.
    with lock:
        for made in objects:
            made._handle = None
        call("close", handle)


class File(_Handled):
    """A file that is written, or written on. What is appended to it waits in memory.

    It is written by flush(), close() and the end of the process, and by the append that exceeds the
    cache limit. A new file gets the history, if there is one, as its version record. Between calls
    the file is not open; while others have it open, with h5py in this process or in another one,
    its rows wait.

    >>> with File("first.h5", history=[("3f2a91c", "First format.")]) as file:
    ...     energy = file.table("Run.dir/energy.dat", ["time", "kinetic", "total"])
    ...     energy.append([0.0, 0.5, 1.0])
    ...     energy.append(np.array([[0.1, 0.4, 1.0], [0.2, 0.3, 1.0]]))
    ...     file.append("Run.dir/log.txt", "did 3 steps\\n")
    ...     len(energy), file.waiting > 0
    (3, True)
    """

    def __init__(self, path: str | os.PathLike[str], history: History = ()) -> None:
        self._objects: weakref.WeakSet[_Object] = weakref.WeakSet()
        self._named: dict[str, Any] = {}  # to which append() goes
        self.path = _given.path(path)
        handle = ctypes.c_void_p()
        call("open", os.fsencode(self.path), *_library.versions(history), ctypes.byref(handle))
        self._handle = handle.value
        self._closing = weakref.finalize(self, _close, handle.value, self._objects)

    def _opened(self) -> int | None:
        if not self._closing.alive:
            raise Error(f"'{self.path}' is closed")
        return self._handle

    def _where(self, name: str = "", *_: object, **__: object) -> str:
        return f"'{name}' of '{self.path}'"

    def _keep(self, made: _Kind) -> _Kind:
        self._objects.add(made)
        return made

    @_in_turn
    def table(self, name: str, legend: Iterable[str] = (), *, compress: bool = True,
              chunk_rows: int = 1024) -> Table:
        """Opens a table. One that does not exist yet needs a legend, the names of its columns."""
        return self._keep(Table(self, name, list(legend), bool(compress), whole(chunk_rows)))

    @_in_turn
    def coefs(self, name: str, *, time_name: str = "time", values_name: str = "coefficients",
              compress: bool = True, index_chunk_rows: int = 1024,
              values_chunk_rows: int = 4096) -> Coefs:
        """Opens a series of coefficients."""
        return self._keep(Coefs(self, name, text(time_name), text(values_name), bool(compress),
                                whole(index_chunk_rows), whole(values_chunk_rows)))

    @_in_turn
    def tensors(self, name: str, dim: int, symmetry: str, mesh_dim: int, *, time_name: str = "time",
                values_name: str = "values", compress: bool = True, index_chunk_rows: int = 64,
                values_chunk_rows: int = 16384) -> Tensors:
        """Opens a series of tensors, whose indices are less than `dim`.

        The symmetry has a character per index, and indices with the same one may be exchanged: "11"
        is a symmetric matrix, "12" any matrix, "" a scalar.
        """
        return self._keep(Tensors(self, name, time_name, values_name, whole(dim, 31), symmetry,
                                  whole(mesh_dim, 31), bool(compress), whole(index_chunk_rows),
                                  whole(values_chunk_rows)))

    @_in_turn
    def text(self, name: str) -> Text:
        """Opens a text."""
        return self._keep(Text(self, name))

    @_in_turn
    def version(self, name: str, history: History) -> None:
        """Writes a version record besides that of the file; fails if it exists."""
        call("version_create", self._opened(), text(name), *_library.versions(history))

    @_in_turn
    def version_size(self, name: str) -> int:
        """The number of entries of a version record."""
        return number("version_size", self._opened(), text(name))

    @_in_turn
    def append(self, name: str, *data: Any, **form: Any) -> None:
        """Appends to the object of that name, whose end says what it is, as its append() does.

        What it takes to open the object is given along the first time: the legend of a new table
        (unless a frame has it), dim, symmetry and mesh_dim of tensors.
        """
        name = _given.name(name)
        openers = {".dat": self.table, ".coef": self.coefs, ".tdm": self.tensors, ".txt": self.text}
        ending = os.path.splitext(name)[1]
        if ending == ".ver":
            self.version(name, *data)
            return
        if ending not in openers:
            raise Refused(f"The end of the name is none of {', '.join(openers)} and .ver")
        if form or name not in self._named:
            if ending == ".dat" and data and hasattr(data[0], "columns"):
                form.setdefault("legend", data[0].columns)
            self._named[name] = openers[ending](name, **form)
        self._named[name].append(*data)

    @_in_turn
    def flush(self) -> None:
        """Writes what waits, unless others have the file open: then `waiting` stays above 0."""
        call("flush", self._opened())

    @property
    @_in_turn
    def waiting(self) -> int:
        """The bytes that wait to be written."""
        return number("waiting", self._opened())

    @_in_turn
    def close(self) -> None:
        """Flushes and frees the file; its objects can be used no more."""
        self._closing()

    def __enter__(self) -> File:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


def flush_all() -> None:
    """Writes what waits in all files."""
    call("flush_all")


def waiting() -> int:
    """The bytes that wait in all files."""
    return number("waiting", None)


def cache_limit() -> int:
    """How many bytes may wait in all files together.

    >>> set_cache_limit(50_000_000)
    >>> cache_limit()
    50000000
    """
    return number("get_cache_limit")


def set_cache_limit(limit: int) -> None:
    call("set_cache_limit", whole(limit))


def set_lock_patience(seconds: float) -> None:
    """Sets how long a file is waited for that others have open and that must be written."""
    call("set_lock_patience", float(seconds))


def install_handlers() -> None:
    """Installs the handlers of signals that programs of C++ have."""
    call("install_handlers")


def library_version() -> str:
    """The version of the library that writes."""
    return _library.function("library_version")().decode()
