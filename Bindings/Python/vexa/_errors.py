"""What goes wrong."""

from __future__ import annotations


class Error(RuntimeError):
    """Says what is wrong, with which dataset of which file."""


class Missing(Error, KeyError):
    """Says which dataset none of the files has."""

    __str__ = Error.__str__


class Refused(Error):
    """Says what is wrong with something that was given, but not for what it was given."""
