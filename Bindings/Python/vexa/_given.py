"""What callers give: what is wrong is refused before a library sees it."""

from __future__ import annotations

import operator
import os
from typing import Any

from ._errors import Refused


def text(value: str | bytes) -> bytes:
    if not isinstance(value, (str, bytes)):
        raise Refused(f"A text is expected, not {value!r}")
    try:
        encoded = value if isinstance(value, bytes) else value.encode("utf-8", "surrogateescape")
    except UnicodeEncodeError as error:
        raise Refused(f"{value!r} is no text: {error}") from None
    if b"\0" in encoded:
        raise Refused(f"{value!r} holds a null character")
    return encoded


def name(value: str) -> str:
    """The name of a dataset."""
    if not isinstance(value, str):
        raise Refused(f"The name of a dataset is expected, not {value!r}")
    text(value)
    return str(value)


def path(value: Any) -> str:
    """The path of a file; a file that is open is none."""
    try:
        given = os.fsdecode(value)
    except TypeError:
        raise Refused(f"The path of a file is expected, not {value!r}") from None
    text(given)
    if not given:
        raise Refused("The path of a file is empty")
    return given


def whole(value: int, bits: int = 63) -> int:
    """The value, if it is a whole number that is not negative and has no more bits."""
    try:
        number = operator.index(value)
    except TypeError:
        raise Refused(f"A whole number is expected, not {value!r}") from None
    if not 0 <= number < 2**bits:
        raise Refused(f"{value} is out of range: 0 to {2**bits - 1} is possible")
    return number
