"""Damage to metadata that no checksum gives away: blocks of a file are changed, and their checksums
made right again.
"""

import ctypes
import functools
import io
import random
import re

import h5py
from segments import plain

lookup3 = ctypes.CDLL(h5py.defs.__file__).H5_checksum_lookup3
lookup3.restype = ctypes.c_uint32
SIGNATURES = re.compile(rb"\x89HDF\r\n\x1a\n|(OH|OC|FA|EA|BT|FR|FH|FS)[A-Z]{2}")
FILES = {  # what the store writes, and with the newest structures
    "as the store writes": {},
    "fixed arrays": {"maxshape": None, "steps": 9, "chunks": (1, 1)},
    "pages of fixed arrays": {"maxshape": None, "steps": 1100, "chunks": (1, 1), "kinds": ("dat",),
                              "filters": False},
    "extensible arrays": {"steps": 60, "chunks": (1, 1)},
    "trees": {"maxshape": (None, None), "steps": 40, "chunks": (1, 1)},
    "dense groups": {"kinds": ("dat",), "tables": 30},
}


def checksum(content, start, end, at):
    """Of a block whose own checksum is not counted where it is within it."""
    protected = content[start:at] + bytes(4) + content[at + 4:end]
    return lookup3(bytes(protected[:end - start]), end - start, 0).to_bytes(4, "little")


def block_at(content, start):
    """Where it begins and ends and its checksum is, or None."""
    if content.startswith(b"FHDB", start):
        candidates = [(start, start + (256 << i), start + 13 + j) for i in range(9) for j in (4, 5)]
    else:
        candidates = [(start, end, end) for end in range(start + 8, start + 9000)]
    return next((block for block in candidates if len(content) >= block[2] + 4 and
                 checksum(content, *block) == content[block[2]:block[2] + 4]), None)


@functools.cache
def intact(name):
    """A file, and lists of its blocks of one kind each."""
    how = FILES[name]
    stream = io.BytesIO(plain(**how, libver="latest", legends="S1") if how else plain())
    if how:
        with h5py.File(stream, "r+", libver="latest") as file:
            for i in range(12):  # more than an object's header takes
                file["A.dir/a.dat"].attrs[f"x{i}"] = i
    content, kinds = stream.getvalue(), {}
    starts = [(match.start(), match.group()) for match in SIGNATURES.finditer(content)]
    for start, signature in starts:
        if block := block_at(content, start):
            kinds.setdefault(signature, []).append(block)
            if signature in (b"FADB", b"page"):  # pages follow, and have no signature
                starts.append((block[2] + 4, b"page"))
    return content, list(kinds.values())


def damaged(name, seed):
    rng = random.Random(f"{name} {seed}")
    content, kinds = intact(name)
    content = bytearray(content)
    for kind in rng.choices(kinds, k=rng.choice((1, 1, 1, 2))):
        start, end, at = rng.choice(kind)
        for _ in range(rng.choice((1, 1, 2, 3))):
            size = rng.choice((1, 1, 2, 4, 8, 8))
            place = rng.randrange(start, end - size + 1)
            word = int.from_bytes(content[place:place + size], "little")
            word = rng.choice((0, 1, 1 << 31, (1 << 32) - 1, 1 << 63, -1, start, len(content),
                               rng.choice(rng.choice(kinds))[0], word - 1, word + 1,
                               word ^ 1 << rng.randrange(8 * size), rng.randrange(256)))
            content[place:place + size] = (word % (1 << 8 * size)).to_bytes(size, "little")
        content[at:at + 4] = checksum(content, start, end, at)
    return content
