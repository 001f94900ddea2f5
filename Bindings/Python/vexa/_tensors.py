"""The order of a tensor's independent components."""

from __future__ import annotations

from ._errors import Refused

_MOST = 100_000  # far more than anybody has
_MOST_INDICES = 20


def components_of(dim: int, symmetry: str) -> list[tuple[int, ...]]:
    """Lists the indices of the independent components, the first index varying fastest.

    >>> components_of(2, "11")
    [(0, 0), (1, 0), (1, 1)]
    >>> components_of(3, "")
    [()]
    """
    if len(symmetry) > _MOST_INDICES:
        raise Refused(f"A tensor has at most {_MOST_INDICES} indices, got {len(symmetry)}")
    lists: list[tuple[int, ...]] = [()]
    for place in reversed(range(len(symmetry))):
        # Indices that may be exchanged do not increase.
        partner = symmetry.find(symmetry[place], place + 1) - place - 1
        ranges = [range(others[partner] if partner >= 0 else 0, dim) for others in lists]
        if sum(map(len, ranges)) > _MOST:
            raise Refused(f"Tensors of dimension {dim} and symmetry '{symmetry}' have too many components")
        lists = [(index, *others) for others, indices in zip(lists, ranges) for index in indices]
    return lists
