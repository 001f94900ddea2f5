# Damaged files: cut ones, ones with a bit flipped, ones whose metadata was changed and given right
# checksums again; and the files in the source packages of HDF5, h5py and netCDF.

import contextlib
import ctypes
import functools
import io
import itertools
import pathlib
import random
import re
import shutil

import h5py
from check import in_text
from judge import MB, Died, in_child
from segments import KINDS, plain, write_plain

lookup3 = ctypes.CDLL(h5py.defs.__file__).H5_checksum_lookup3
lookup3.restype = ctypes.c_uint32
SIGNATURES = re.compile(rb"\x89HDF\r\n\x1a\n|(OH|OC|FA|EA|BT|FR|FH|FS)[A-Z]{2}")
SMALL = {"legends": "S1"}
NEWEST = SMALL | {"libver": "latest"}
FILES = {  # what the store writes, old structures, and the newest ones
    "as the store writes": {},
    "small": SMALL | {"kinds": ("dat",)},
    "old": {"kinds": ("txt", "ver"), "libver": "earliest"},
    "contiguous": SMALL | {"kinds": ("tdm",), "filters": False, "maxshape": None, "chunks": None},
    "fixed arrays": NEWEST | {"maxshape": None, "steps": 9, "chunks": (1, 1)},
    "pages of fixed arrays": NEWEST | {"maxshape": None, "steps": 1100, "chunks": (1, 1),
                                       "kinds": ("dat",), "filters": False},
    "extensible arrays": NEWEST | {"steps": 60, "chunks": (1, 1)},
    "trees": NEWEST | {"maxshape": (None, None), "steps": 40, "chunks": (1, 1)},
    "dense groups": NEWEST | {"kinds": ("dat",), "tables": 30},
}


# Of a block whose own checksum is not counted where it is within it.
def checksum(content, start, end, at):
    protected = content[start:at] + bytes(4) + content[at + 4:end]
    return lookup3(bytes(protected[:end - start]), end - start, 0).to_bytes(4, "little")


# Tells where a block begins and ends and its checksum is, or gives None.
def block_at(content, start):
    if content.startswith(b"FHDB", start):
        candidates = [(start, start + (256 << i), start + 13 + j) for i in range(9) for j in (4, 5)]
    else:
        candidates = [(start, end, end) for end in range(start + 8, start + 9000)]
    return next((block for block in candidates if len(content) >= block[2] + 4 and
                 checksum(content, *block) == content[block[2]:block[2] + 4]), None)


# Gives a file, and lists of its blocks of one kind each.
@functools.cache
def intact(name):
    stream = io.BytesIO(plain(**FILES[name]))
    if FILES[name].get("libver") == "latest":
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


def damaged(how, name, seed):
    rng = random.Random(f"{name} {seed}")
    content, kinds = intact(name)
    content = bytearray(content)
    if how == "cut":
        return content[:rng.randrange(len(content))]
    if how == "flip":
        content[rng.randrange(len(content))] ^= 1 << rng.randrange(8)
        return content
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


def damage_cases(share):
    return [(how, name, range(round(count * share))[first:first + 25])
            for how, count in (("cut", 200), ("flip", 1000), ("checksums", 1200))
            for name in FILES if how != "checksums" or intact(name)[1]
            for first in range(0, round(count * share), 25)]


def run_damage(judge, how, name, seeds):
    judge.memory, judge.library_may_crash = 512 * MB, how != "cut"
    path, whole = judge.folder / "in.h5", judge.folder / "whole.h5"
    path.write_bytes(intact(name)[0])
    reference = judge.reference(["in.h5"])
    whole.write_bytes(reference)
    for seed in seeds:
        judge.case = f"damage{(how, name, [seed])}"
        path.write_bytes(damaged(how, name, seed))
        judge.join_and_inspect(["in.h5"], [seed] * (how == "checksums"), "whole.h5",
                               about=("in.h5",), reference=reference)


# Files of others.

CACHE = pathlib.Path.home() / ".cache/kelmor-stress"


# All files or none: a sample would download as much. Two have a gigabyte of values, as they say.
def source_cases(share):
    return [(str(path),) for folder in (CACHE, pathlib.Path(h5py.__file__).parent) if share == 1
            for path in sorted(folder.rglob("*")) if path.is_file() and not path.is_symlink()
            and "h5diff_hyper" not in path.name and b"\x89HDF\r\n" in path.read_bytes()]


# Writes files in which an object of that file stands under a name that is joined.
def write_forms(folder, path):
    names, forms = [], []
    with h5py.File(path, "r") as source, contextlib.suppress(Exception):
        source.id.links.visit(names.append)
    members = {"coef": ("/index.dat", "/coefs.dat"), "tdm": ("/index.dat", "/data.dat")}
    for name, kind in itertools.product(map(in_text, names[:12]), KINDS):
        forms.append(f"{len(forms)}.h5")
        with h5py.File(folder / forms[-1], "w") as file:
            for member in members.get(kind, ("",)):
                file["x." + kind + member] = h5py.ExternalLink("source.h5", name)
            if kind == "tdm":
                file["x.tdm"].attrs["TensorSpec"] = ["TensorDim=3; TensorSymm=; DataMeshDim=0;"]
    return forms


def run_source(judge, path):
    judge.memory, judge.library_may_crash, forms = 512 * MB, True, []
    for name in "source.h5", "again.h5":
        shutil.copyfile(path, judge.folder / name)
    write_plain(judge.folder / "first.h5")
    with contextlib.suppress(Died):
        forms = in_child(write_forms, judge.folder, path)
    for inputs in [["source.h5"], ["source.h5", "again.h5"], ["first.h5", "source.h5"]] + [
            [form] for form in forms]:
        judge.case = f"sources{(path,)} {inputs}"
        judge.join_and_inspect(inputs, range(3), "first.h5", names=r"\.h5")
