"""A table of inputs that are not what they should be: {name: Case}.

Each is a plain segment with one thing about it changed. Some are joined all the same; what the join
then holds is for check.py to say.
"""

import dataclasses
import os
import pathlib
import shutil
import socket
import typing
import zlib

import h5py
import numpy as np
from segments import UTF8, write_plain

TABLE, COEF, TDM, TEXT, RECORD = "A.dir/a.dat", "c.coef", "m.tdm", "l.txt", "v.ver"
INDEX, COEFS, TDM_INDEX, DATA = (COEF + "/index.dat", COEF + "/coefs.dat", TDM + "/index.dat",
                                 TDM + "/data.dat")
MANY = 1 << 40


@dataclasses.dataclass
class Case:
    write: typing.Callable[[str], None]
    about: str = ""  # what the report must name besides the file
    joins: bool = False


CASES = {}


def add(name, write, about="", joins=False):
    assert name not in CASES, name
    CASES[name] = Case(write, about, joins)


def change(name, how, about="", joins=False):
    def write(path):
        write_plain(path)
        with h5py.File(path, "r+") as file:
            how(file)
    add(name, write, about, joins)


def object_of(path):
    """A member's set stands for it in reports."""
    return path[:-len("/index.dat")] if path in (INDEX, TDM_INDEX) else path.removesuffix(
        "/coefs.dat").removesuffix("/data.dat")


def replace(name, path, joins=False, **keywords):
    def how(file):
        del file[path]
        if keywords:
            file.create_dataset(path, **keywords)
        else:
            file.create_group(path)
    change(name, how, object_of(path), joins)


def group_instead(name, path):
    replace(name, path)


def attribute(name, path, key, value, joins=False, dtype=None):
    def how(file):
        if key in file[path].attrs:
            del file[path].attrs[key]
        if value is not None:
            file[path].attrs.create(key, value, dtype=dtype)
    change(name, how, path, joins)


def objects(*values):
    return np.array(values, object)


# No HDF5 files.

def file_of(content):
    return lambda path: pathlib.Path(path).write_bytes(content)


def link_to(target):
    return lambda path: os.symlink(target, path)


def edited(edit):
    def write(path):
        write_plain(path)
        edit(path)
    return write


def left_open(path):
    with h5py.File(path + "~", "w", libver="latest") as file:
        file["a.dat"] = np.zeros((2, 2))
        file.swmr_mode = True
        shutil.copy(path + "~", path)
    os.remove(path + "~")


def bound_socket(path):
    with socket.socket(socket.AF_UNIX) as one:
        one.bind(path)


add("empty file", file_of(b""))
add("text", file_of(b"hello world\n" * 100))
add("signature only", file_of(b"\x89HDF\r\n\x1a\n"))
add("zeros", file_of(bytes(4096)))
add("directory", os.mkdir)
add("device", link_to("/dev/null"))
add("endless device", link_to("/dev/zero"))
add("FIFO", os.mkfifo)
add("socket", bound_socket)
add("dangling link", link_to("nowhere.h5"))
add("link loop", lambda path: os.symlink(path, path))
add("missing", lambda path: None)
add("the first input by another name", lambda path: os.link("first.h5", path), joins=True)
add("a link to the first input", link_to("first.h5"))
add("half of a file", edited(lambda path: os.truncate(path, os.path.getsize(path) // 2)))
add("bytes behind the end", edited(lambda path: open(path, "ab").write(b"junk" * 100)), joins=True)
add("left open by its writer", left_open)

# Tables.
for name, keywords in {
        "rank 1": {"data": np.arange(5.0)},
        "rank 3": {"data": np.zeros((2, 2, 2))},
        "rank 0": {"data": 1.0},
        "no dataspace": {"data": h5py.Empty("f8")},
        "strings": {"data": objects(["a", "b"]).reshape(1, 2), "dtype": UTF8},
        "fixed strings": {"data": np.zeros((2, 2), "S4")},
        "compounds": {"data": np.zeros((2, 2), [("x", "f8"), ("y", "i4")])},
        "complex numbers": {"data": np.zeros((2, 2), "c16")},
        "opaque bytes": {"data": np.zeros((2, 2), "V8")},
        "references": {"shape": (2, 2), "dtype": h5py.ref_dtype},
        "vectors": {"shape": (2, 2), "dtype": h5py.vlen_dtype("f8")},
        "arrays": {"shape": (2, 2), "dtype": np.dtype(("f8", (3,)))},
        "no columns": {"shape": (5, 0), "dtype": "f8"},
        "neither rows nor columns": {"shape": (0, 0), "dtype": "f8"},
        "one column more": {"data": np.zeros((2, 3))},
        "2^40 rows": {"shape": (MANY, 2), "maxshape": (None, 2), "chunks": (1000, 1)},
        "2^40 compressed rows": {"shape": (MANY, 2), "chunks": (1000, 1), "compression": "gzip"},
        "2^40 columns": {"shape": (2, MANY), "chunks": (1, 1000)},
        "2^62 values": {"shape": (1 << 61, 2), "maxshape": (None, 2), "chunks": (1000, 1)},
        "2^34 contiguous values": {"shape": (1 << 33, 2), "dtype": "f8"},
        "an unknown filter": {"data": np.zeros((50, 2)), "chunks": (50, 1), "compression": "lzf"},
        "a missing external file": {"shape": (3, 2), "dtype": "f8",
                                    "external": [("nofile.bin", 0, h5py.h5f.UNLIMITED)]},
}.items():
    replace("table of " + name, TABLE, **keywords)
for name, keywords in {
        "no rows": {"shape": (0, 2), "maxshape": (None, 2), "chunks": (5, 1)},
        "huge chunks": {"shape": (3, 2), "maxshape": (None, 2), "chunks": (1 << 28, 1)},
        "booleans": {"data": np.ones((2, 2), bool)},
        "long doubles": {"data": np.ones((2, 2), np.longdouble)},
        "chunks of several columns": {"data": np.zeros((50, 2)), "chunks": (7, 2)},
}.items():
    replace("table of " + name, TABLE, joins=True, **keywords)
for name, times in {"NaN": [np.nan] * 3, "infinity": [0, np.inf, 1],
                    "minus infinity": [-np.inf] * 3, "equal times": [1] * 3,
                    "decreasing times": [3, 2, 1]}.items():
    change("table with " + name,
           lambda file, times=times: file[TABLE].__setitem__((slice(None), 0), times), joins=True)


def stored_chunks(name, chunk, joins=False, mask=0, dtype="f8", **keywords):
    """A table each of whose columns is stored as these bytes, past the filters in the mask."""
    def how(file):
        del file[TABLE]
        table = file.create_dataset(TABLE, (40, 2), dtype, maxshape=(None, 2), chunks=(40, 1),
                                    **keywords)
        for column in 0, 1:
            table.id.write_direct_chunk((0, column), chunk, mask)
    change("chunks " + name, how, TABLE, joins)


stored_chunks("shorter than they are", bytes(40))
stored_chunks("that inflate to less", zlib.compress(bytes(40)), compression="gzip")
stored_chunks("of floats that inflate to less", zlib.compress(bytes(40)), dtype="f4",
              compression="gzip")
stored_chunks("of floats that inflate to 20 MB", zlib.compress(bytes(20_000_000)), dtype="f4",
              compression="gzip")
stored_chunks("that inflate to 200 MB", zlib.compress(bytes(200_000_000)), compression="gzip")
stored_chunks("that are not deflated", np.arange(40.0).tobytes(), True, 1, compression="gzip")
stored_chunks("that are deflated and said not to be", zlib.compress(bytes(320)), mask=1,
              compression="gzip")
stored_chunks("that do not inflate", b"no deflate", compression="gzip")
stored_chunks("with a wrong checksum", bytes(323) + b"x", fletcher32=True)


def virtual(file):
    layout = h5py.VirtualLayout((5, 2), "f8")
    layout[:] = h5py.VirtualSource("first.h5", "a", (5, 2))
    del file[TABLE]
    file.create_virtual_dataset(TABLE, layout)


change("table under its old name", lambda file: file.move(
    TABLE, "A.dir/DimensionfullInertialSpin.dat"), joins=True)
change("virtual table", virtual)

for name, value in {
        "numbers": np.arange(2), "rank 2": np.array([[b"a", b"b"]]), "one string": "t x",
        "too few": [b"a"], "too many": [b"a"] * 3, "compounds": np.zeros(2, [("x", "f8")]),
        "a number": 3.0, "no dataspace": h5py.Empty("S1")}.items():
    attribute("legend of " + name, TABLE, "Legend", value)
for name, value, dtype in (("missing", None, None),
                           ("bytes that are no text", np.array([b"\xff\xfe", b"a"], "S2"), None),
                           ("60000 characters", objects("x" * 60000, "y"), UTF8)):
    attribute("legend of " + name, TABLE, "Legend", value, True, dtype)

# Sets of coefficients and tensor series.
NAN, INF = np.nan, np.inf
for name, rows in {
        "negative": [[0, -1], [1, 9]], "NaN": [[0, NAN], [1, 9]], "fraction": [[0, 2.5], [1, 9]],
        "decreasing": [[0, 9], [1, 2]], "past the end": [[0, 2], [1, 50]],
        "short of the end": [[0, 2], [1, 3]], "huge": [[0, 2], [1, 1e300]],
        "infinite": [[0, 2], [1, INF]], "2^63": [[0, 2], [1, 2.0**63]],
        "2^64": [[0, 2.0**64], [1, 9]], "without a column": [[0], [1]],
        "with another column": [[0, 2, 3], [1, 9, 3]]}.items():
    replace("coefficient index " + name, INDEX, data=np.array(rows, "f8"))
for name, row in {
        "of negative extents": [72, -6, -2], "of NaN extents": [72, NAN, 3],
        "of huge extents": [72, 1e18, 1e18], "of extents that overflow": [72, 2.0**32, 2.0**32],
        "of other extents": [72, 2, 2], "of zero extents": [72, 0, 3], "of fractions": [72, 1.5, 8],
        "past the end": [144, 8, 3], "negative": [-72, 4, 3], "NaN": [NAN, 4, 3],
        "without a column": [72, 12], "with another column": [72, 4, 3, 1]}.items():
    replace("tensor index " + name, TDM_INDEX, data=np.array([[0, *row]], "f8"))
for path in INDEX, TDM_INDEX:
    columns = 2 if path is INDEX else 4
    replace(path + " of rank 1", path, data=np.zeros(4))
    replace(path + " without steps", path, shape=(0, columns), dtype="f8")
    replace(path + " of 2^40 steps", path, shape=(MANY, columns), chunks=(100, 1), dtype="f8")
for path in COEFS, DATA:
    replace(path + " of two columns", path, data=np.zeros((9, 2)))
    replace(path + " too short", path, data=np.zeros((5, 1)))
    replace(path + " too long", path, data=np.zeros((99, 1)))
for path in INDEX, COEFS, TDM_INDEX, DATA:
    change("missing " + path, lambda file, path=path: file.__delitem__(path), object_of(path))
    group_instead("group " + path, path)
change("another member of a set", lambda file: file.create_dataset(COEF + "/x.dat", (1, 1)),
       joins=True)

SPEC = "TensorDim=%s; TensorSymm=%s; DataMeshDim=%s;"
for name, spec in {
        "without a key": "TensorDim=3; DataMeshDim=2;",
        "with another key": SPEC % (3, 11, "2; X=1"),
        "with a key twice": "TensorDim=3; " + SPEC % (3, 11, 2),
        "of no number": SPEC % ("x", 11, 2),
        "of dimension -3": SPEC % (-3, 11, 2), "of dimension 0": SPEC % (0, 11, 2),
        "of dimension 2000000000": SPEC % (2000000000, 12, 2),
        "of dimension 99999999999999": SPEC % (99999999999999, "", 2),
        "of rank 200": SPEC % (3, "1" * 200, 2),
        "of rank 200 and dimension 1": SPEC % (1, "1" * 200, 2),
        "of another mesh": SPEC % (3, 11, 3), "of mesh -2": SPEC % (3, 11, -2),
        "of mesh 2000000000": SPEC % (3, 11, 2000000000), "of another structure": SPEC % (3, 12, 2),
        "empty": "", "of garbage": "((((;;;===",
        "of nested parentheses": SPEC % ("(" * 20000 + "3" + ")" * 20000, 11, 2)}.items():
    attribute("TensorSpec " + name, TDM, "TensorSpec", [spec], dtype=UTF8)
attribute("TensorSpec missing", TDM, "TensorSpec", None)
attribute("TensorSpec that is a number", TDM, "TensorSpec", 3)
attribute("TensorSpec of two strings", TDM, "TensorSpec", [SPEC % (3, 11, 2)] * 2, dtype=UTF8)
attribute("TensorSpec with many blanks", TDM, "TensorSpec", [SPEC % (3, 11, 2) + " " * 60000], True,
          UTF8)

# Texts and records.
for name, keywords in {
        "numbers": {"data": np.arange(4.0)}, "rank 2": {"data": objects("a", "b").reshape(1, 2),
                                                        "dtype": UTF8},
        "vectors": {"shape": (4,), "dtype": h5py.vlen_dtype("i4")},
        "2^40 strings": {"shape": (MANY,), "maxshape": (None,), "chunks": (16,), "dtype": UTF8},
        "2^40 characters": {"shape": (MANY,), "chunks": (1000,), "dtype": "i1"},
        "a null character": {"data": np.frombuffer(b"ab\0cd", "i1")},
        "characters of rank 2": {"data": np.zeros((2, 2), "i1")},
        "unsigned characters": {"data": np.frombuffer(b"abc", "u1")},
        "no numbers": {"shape": (0,), "dtype": "u8"},
        "fixed strings": {"data": np.array([b"abc"])},
        "one fixed string": {"data": np.bytes_(b"abc")},
        "no dataspace": {"data": h5py.Empty(UTF8)}}.items():
    replace("text of " + name, TEXT, **keywords)
for name, keywords in {"null strings": {"shape": (4,), "dtype": UTF8},
                       "one character": {"data": np.int8(65)}}.items():
    replace("text of " + name, TEXT, joins=True, **keywords)


def record(name, data, version, joins=False, dtype=UTF8):
    def how(file):
        del file[RECORD]
        made = file.create_dataset(RECORD, data=data, dtype=dtype)
        if version is not None:
            made.attrs.create("Version", version)
    change("record " + name, how, RECORD, joins)


ENTRY = objects("h", "first").reshape(1, 2)
one = np.array([1], "u8")
for name, data, version in (
        ("without a version", ENTRY, None), ("of another version", ENTRY, one + 2),
        ("of two versions", ENTRY, [1, 1]), ("with a scalar version", ENTRY, np.uint64(1)),
        ("of version '1'", ENTRY, [b"1"]),
        ("of version -1", ENTRY, [-1]), ("of rank 1", ENTRY[0], one + 1),
        ("of three columns", objects("h", "t", "u").reshape(1, 3), one),
        ("that differs", objects("h", "second").reshape(1, 2), one),
        ("that is longer", np.vstack([ENTRY, ENTRY]), one + 1)):
    record(name, data, version)
record("of numbers", np.zeros((1, 2)), one, dtype="f8")
record("of fixed strings", np.array([[b"h", b"first"]]), one, dtype="S5")
record("of version 1.0", ENTRY, [1.0], True)
change("record missing", lambda file: file.__delitem__(RECORD), joins=True)


def endless_record(file):
    del file[RECORD]
    made = file.create_dataset(RECORD, (MANY, 2), chunks=(1000, 2), dtype=UTF8)
    made.attrs.create("Version", [MANY], dtype="u8")


change("record of 2^40 entries", endless_record, RECORD)


def overwritten(name, path, place, content):
    """With these bytes where place(object, bytes of the file) says."""
    def write(name):
        write_plain(name, libver="earliest", kinds=("txt", "ver"))  # without checksums
        with h5py.File(name, "r+") as file:
            file.create_dataset("scalar.txt", data="text")
        whole = bytearray(pathlib.Path(name).read_bytes())
        with h5py.File(name) as file:
            at = place(file[path], whole)
        whole[at:at + len(content)] = content
        pathlib.Path(name).write_bytes(whole)
    add(name, write, path)


def first_chunk(dataset, _):
    return dataset.id.get_chunk_info(0).byte_offset


def base_type(dataset, whole):
    """Of the strings' type: where its class, its bit field and its size lie."""
    header = b"\x19\x01\x00\x00\x10\x00\x00\x00"
    return whole.index(header, h5py.h5o.get_info(dataset.id).addr) + len(header)


GIGABYTE = (1 << 30).to_bytes(4, "little")
overwritten("text of a gigabyte", TEXT, first_chunk, GIGABYTE)
overwritten("scalar text of a gigabyte", "scalar.txt", lambda text, _: text.id.get_offset(),
            GIGABYTE)
overwritten("record of a gigabyte", RECORD, first_chunk, GIGABYTE)
overwritten("text of elements of a megabyte", TEXT, lambda *place: base_type(*place) + 4,
            (1 << 20).to_bytes(4, "little"))
overwritten("record of signed characters", RECORD, lambda *place: base_type(*place) + 1, b"\x08")
overwritten("record of shifted characters", RECORD, lambda *place: base_type(*place) + 8, b"\x01")
overwritten("record of floating characters", RECORD, base_type, b"\x11")

# Names, kinds and links.
for path in TABLE, TEXT, RECORD:
    group_instead("group " + path, path)
for path in COEF, TDM, "A.dir":
    replace("dataset " + path, path, data=np.zeros((2, 2)))
change("named type", lambda file: file.__setitem__("t.dat", np.dtype("f8")), "t.dat")
for name in "z.foo", "zoo", "zoo.", "q.DAT", "A.dir/zoo", "a\n\x1b[31m.foo", "n" * 30000:
    change("name " + ascii(name[:9]), lambda file, name=name: file.create_dataset(name, data=1),
           "" if "\n" in name else os.path.basename(name))
change("name '..'", lambda file: h5py.h5g.create(file.id, b".."), "..")
for name in (".dat", b"\xff\xfe.dat", "a\n\x1b[31m.dat", "n" * 30000 + ".dat"):
    change("name " + ascii(name[:9]) + ".dat",
           lambda file, name=name: file.create_dataset(name, data=np.zeros((2, 2))), joins=True)

Soft, External = h5py.SoftLink, h5py.ExternalLink


def link(name, at, target, joins=False):
    def how(file):
        file[at] = target(file) if callable(target) else target
    change(name, how, at, joins)


link("dangling soft link", "s.dat", Soft("/none"))
link("soft link to itself", "s.dat", Soft("/s.dat"))
link("soft link to the root", "s.dir", Soft("/"))
link("hard link to a parent", "A.dir/b.dir", lambda file: file["A.dir"])
link("soft link to a parent", "A.dir/b.dir", Soft("/A.dir"))
link("external link to nothing", "s.dat", External("none.h5", "/x"))
link("external link to a device", "s.dat", External("/dev/zero", "/x"))
link("external link to its own root", "s.dir",
     lambda file: External(os.path.basename(file.filename), "/"))
link("external link to its own table", "s.dat",
     lambda file: External(os.path.basename(file.filename), TABLE), True)
link("external link to a table of another input", "s.dat", External("first.h5", TABLE), True)
link("soft link to a table", "s.dat", Soft(TABLE), True)


def nested_pairs(file):
    groups = [file.create_group(f"d{i}.dir") for i in range(27)]
    for outer, inner in zip(groups, groups[1:]):
        outer["l.dir"] = outer["r.dir"] = inner


def nested(depth, leaf):
    def how(file):
        group = file.id
        for _ in range(depth):
            group = h5py.h5g.create(group, b"d.dir")
        if leaf:
            h5py.Group(group).create_dataset("a.dat", data=np.ones((1, 1)))
    return how


change("2^26 paths", nested_pairs, "d0.dir")
change("depth 1000", nested(1000, True), joins=True)
change("depth 20000", nested(20000, False), "d.dir")
