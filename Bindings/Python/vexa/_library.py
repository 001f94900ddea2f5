"""The library for C, by which files are written: its functions, and what calls of them share."""

from __future__ import annotations

import atexit
import ctypes
import functools
import os
import pathlib
import threading
from ctypes import POINTER, c_char_p, c_double, c_int, c_size_t, c_uint64, c_void_p
from typing import Any, Iterable, Tuple

# Whoever calls HDF5 in this process takes this lock of h5py's, which a thread can take again.
from h5py._objects import phil as lock

from ._errors import Error, Refused
from ._given import text

History = Iterable[Tuple[str, str]]
_LIBRARY = pathlib.Path(__file__).with_name("libvexa_c.so")


class Version(ctypes.Structure):
    _fields_ = [("hash", c_char_p), ("help", c_char_p)]


_OPEN = (c_void_p, c_char_p)
_FORM = (c_int, c_size_t, c_size_t, POINTER(c_void_p))  # compress, two lengths of chunks
_SIGNATURES = {
    "install_handlers": (),
    "open": (c_char_p, POINTER(Version), c_size_t, POINTER(c_void_p)),
    "flush": (c_void_p,),
    "flush_all": (),
    "close": (c_void_p,),
    "waiting": (c_void_p, POINTER(c_uint64)),
    "set_cache_limit": (c_uint64,),
    "get_cache_limit": (POINTER(c_uint64),),
    "set_lock_patience": (c_double,),
    "table_open": (*_OPEN, POINTER(c_char_p), c_size_t, c_int, c_size_t, POINTER(c_void_p)),
    "table_append": (c_void_p, c_void_p, c_size_t),
    "table_append_rows": (c_void_p, c_void_p, c_size_t, c_size_t),
    "table_size": (c_void_p, POINTER(c_uint64), POINTER(c_uint64)),
    "coefs_open": (*_OPEN, c_char_p, c_char_p, *_FORM),
    "coefs_append": (c_void_p, c_double, c_void_p, c_size_t),
    "coefs_append_steps": (c_void_p, c_size_t, c_void_p, c_void_p, c_void_p),
    "coefs_size": (c_void_p, POINTER(c_uint64)),
    "tensors_open": (*_OPEN, c_char_p, c_char_p, c_int, c_char_p, c_int, *_FORM),
    "tensors_append_steps": (c_void_p, c_size_t, c_void_p, c_void_p, c_void_p),
    "tensors_size": (c_void_p, POINTER(c_uint64)),
    "text_open": (*_OPEN, POINTER(c_void_p)),
    "text_append": (c_void_p, c_char_p, c_size_t),
    "text_size": (c_void_p, POINTER(c_uint64)),
    "version_create": (c_void_p, c_char_p, POINTER(Version), c_size_t),
    "version_size": (c_void_p, c_char_p, POINTER(c_uint64)),
}


@atexit.register
def _keep_lock() -> None:
    # Python stops daemon threads for good where they wait to go on: one that has taken the lock by
    # then would never give it back, and h5py needs it as its objects go.
    if any(thread.daemon for thread in threading.enumerate()):
        lock.acquire()


@functools.lru_cache(maxsize=None)
def library() -> ctypes.CDLL:
    """The library, which only those need who write."""
    try:
        loaded = ctypes.CDLL(os.fspath(_LIBRARY))
    except OSError as error:
        raise Error(f"The library by which files are written cannot be loaded: {error}") from None
    for name, arguments in _SIGNATURES.items():
        getattr(loaded, f"vexa_{name}").argtypes = arguments
    for name in ("last_error", "library_version"):
        getattr(loaded, f"vexa_{name}").restype = c_char_p
    return loaded


def function(name: str) -> Any:
    return getattr(library(), f"vexa_{name}")


def last_report() -> Error:
    return Error(function("last_error")().decode("utf-8", "replace"))


def call(name: str, *arguments: Any) -> None:
    with lock:
        if function(name)(*arguments) != 0:
            raise last_report()


def number(name: str, *arguments: Any) -> int:
    """What a function gives through its last argument."""
    result = c_uint64()
    call(name, *arguments, ctypes.byref(result))
    return result.value


def versions(history: History) -> tuple[Any, int]:
    try:
        pairs = [(commit, change) for commit, change in history]
    except (TypeError, ValueError):
        raise Refused(f"A history is a list of pairs, commit and change, not {history!r}") from None
    entries = [Version(text(commit), text(change)) for commit, change in pairs]
    return (Version * len(entries))(*entries), len(entries)
