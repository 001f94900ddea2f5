"""What goes wrong."""

from __future__ import annotations


class Error(RuntimeError):
    """Says what is wrong, with which dataset of which file."""
