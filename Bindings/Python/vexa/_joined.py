"""The segments of a run as if they were joined. KelmorInfo says what a join keeps of each."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
from typing import TYPE_CHECKING, Any, Iterable, Iterator, Mapping, Union

from . import _given
from ._errors import Error, Missing
from ._reading import Part, Path, read_parts

if TYPE_CHECKING:
    import pandas


Files = Union[Path, Iterable[Path]]


def _paths(files: Files) -> list[str]:
    # An open file could be iterated over too: its lines are no paths.
    is_one = not hasattr(files, "__iter__") or hasattr(files, "read")
    is_one = is_one or isinstance(files, (str, bytes, os.PathLike))
    paths = [_given.path(path) for path in ([files] if is_one else files)]
    if not paths:
        raise Error("There are no files to join")
    return paths


def _document(names: list[str], skip: str, delta_t: float | None, no_wipe: bool) -> Any:
    program = os.environ.get("VEXA_KELMORINFO") or shutil.which("KelmorInfo")
    if program is None:
        raise Error("KelmorInfo, which plans a join, is not on PATH; VEXA_KELMORINFO can name it")
    options = [*(["-skip", os.fsdecode(_given.text(skip))] if skip else []), *(["-NoWipe"] if no_wipe else []),
               *(["-DeltaT", repr(float(delta_t))] if delta_t is not None else [])]
    given = [os.path.join(os.curdir, name) if name.startswith("-") else name for name in names]
    result = subprocess.run([program, "-json", "-plan", *options, *given], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    try:
        document = json.loads(result.stdout)
    except ValueError:
        report = result.stderr.decode("utf-8", "replace").partition("\nUsage:")[0].strip()
        raise Error(f"KelmorInfo ended with status {result.returncode}: {report}") from None
    if document["format"] != 1:
        raise Error(f"KelmorInfo writes format {document['format']}, and 1 is known here")
    if not document["joins"]:
        raise Error(f"The files cannot be joined: {'; '.join(map(_reason, document['disagreements']))}")
    return document


def _reason(disagreement: Any) -> str:
    named = [item["name"] for item in disagreement["datasets"][:3] + disagreement["files"][:3]]
    return f"{', '.join(named)}: {disagreement['reason']}"


def plan(files: Files, *, skip: str = "", delta_t: float | None = None,
         no_wipe: bool = False) -> pandas.DataFrame:
    """Says what a join of the files keeps: a row for each piece of a dataset in a file.

    A piece is neighbouring steps that are all kept or all wiped: [first, end) of its file. A text or
    a version record has no steps, and a row for each file. Fails where a join would be refused.
    """
    import pandas

    rows = [[dataset["name"], dataset["kind"], file["name"], *piece]
            for dataset in _document(_paths(files), skip, delta_t, no_wipe)["datasets"]
            for file in dataset["files"] for piece in _pieces(file)]
    frame = pandas.DataFrame(rows, columns=["dataset", "kind", "file", "first", "end", "is_wiped",
                                            "from", "to"])
    return frame.astype({"first": "Int64", "end": "Int64", "from": float, "to": float})


def _pieces(file: Any) -> list[tuple[Any, ...]]:
    """The first step of each piece, the one past its last, whether it is wiped, and its times."""
    pieces: list[tuple[Any, ...]] = []
    first = 0
    for piece in file["pieces"]:
        end = first + piece["steps"]
        times = piece["times"]
        pieces.append((first, end, piece["is_wiped"], float(times["from"]), float(times["to"])))
        first = end
    return pieces or [(None, None, False, float("nan"), float("nan"))] * (file["steps"] is None)


class Joined(Mapping[str, Any]):
    """The datasets of segments as their join has them, by their names.

    Nothing is read but what is asked for, and in the form in which read() gives it.
    """

    def __init__(self, paths: list[str], parts: dict[str, list[Part]]) -> None:
        self._paths = paths
        self._parts = parts

    def _key(self, name: str) -> str:
        return name if name.startswith("/") else f"/{name}"

    def parts(self, name: str) -> list[Part]:
        key = self._key(_given.name(name))
        if key not in self._parts:
            others = f" and {len(self._paths) - 3} more" if len(self._paths) > 3 else ""
            raise Missing(f"There is no '{name}' in {', '.join(map(repr, self._paths[:3]))}{others}")
        return self._parts[key]

    def __getitem__(self, name: str) -> Any:
        return read_parts(self.parts(name), self._key(name))

    def __contains__(self, name: object) -> bool:
        return isinstance(name, str) and self._key(name) in self._parts

    def __iter__(self) -> Iterator[str]:
        return iter(self._parts)

    def __len__(self) -> int:
        return len(self._parts)


def open_joined(files: Files, *, skip: str = "", delta_t: float | None = None,
                no_wipe: bool = False) -> Joined:
    """Opens segments as if they were joined, with the options that a join has.

    Fails where a join of them would be refused.

    >>> for number in (0, 1):
    ...     with File(f"part{number}.h5") as file:
    ...         file.append("x.dat", [[t, number] for t in range(3 * number, 3 * number + 5)],
    ...                     legend=["t", "segment"])
    >>> run = open(["part0.h5", "part1.h5"])
    >>> run["x.dat"]["segment"].tolist()
    [0.0, 0.0, 0.0, 1.0, 1.0, 1.0, 1.0, 1.0]
    >>> plan(["part0.h5", "part1.h5"])[["file", "first", "end", "is_wiped"]]
           file  first  end  is_wiped
    0  part0.h5      0    3     False
    1  part0.h5      3    5      True
    2  part1.h5      0    5     False
    """
    paths = _paths(files)
    document = _document(paths, skip, delta_t, no_wipe)
    # Names are told with bytes replaced that are no UTF-8, in the order in which they were given.
    real: dict[str, str] = {}
    for path, file in zip(map(os.path.abspath, paths), document["files"]):
        if real.setdefault(file["name"], path) != path:
            raise Error(f"Two files are shown by the same name, '{file['name']}'")
    return Joined(paths, {dataset["name"]: [Part(real[file["name"]], _kept(file)) for file in dataset["files"]]
                          for dataset in document["datasets"]})


def _kept(file: Any) -> list[tuple[int, int]] | None:
    if file["steps"] is None:
        return None
    return [(first, end) for first, end, is_wiped, *_ in _pieces(file) if not is_wiped]
