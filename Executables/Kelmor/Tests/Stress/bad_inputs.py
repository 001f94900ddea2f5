"""A table of inputs that are not what they should be: {name: Case}.

Each is a plain segment with one thing about it changed. Some are joined all the same; what the join
then holds is for check.py to say.
"""

import dataclasses
import itertools
import os
import pathlib
import shutil
import socket
import typing
import zlib

import h5py
import numpy as np
from segments import FILTERS, UTF8, write_plain

TABLE, COEF, TDM, TEXT, RECORD = "A.dir/a.dat", "c.coef", "m.tdm", "l.txt", "v.ver"
INDEX, COEFS, TDM_INDEX, DATA = (COEF + "/index.dat", COEF + "/coefs.dat", TDM + "/index.dat",
                                 TDM + "/data.dat")
MANY = 1 << 40


@dataclasses.dataclass
class Case:
    write: typing.Callable[[str], None]
    about: str = ""  # what the report must name besides the file
    says: str = ""  # of what is wrong
    joins: bool = False
    in_values: bool = False  # which a plan does not read


CASES = {}


def add(name, write, *about_and_says, **expected):
    assert name not in CASES, name
    CASES[name] = Case(write, *about_and_says, **expected)


def change(name, how, *about_and_says, **expected):
    def write(path):
        write_plain(path)
        with h5py.File(path, "r+") as file:
            how(file)
    add(name, write, *about_and_says, **expected)


def object_of(path):
    """A member's set stands for it in reports."""
    folder, _, name = path.rpartition("/")
    return folder if name in ("index.dat", "coefs.dat", "data.dat") else path


def replace(name, path, says="", keywords=None, **expected):
    """By a dataset, or a group if there are no keywords."""
    def how(file):
        del file[path]
        if keywords:
            file.create_dataset(path, **keywords)
        else:
            file.create_group(path)
    change(name, how, object_of(path), says, **expected)


def attribute(name, path, key, value, says="", dtype=None, **expected):
    def how(file):
        if key in file[path].attrs:
            del file[path].attrs[key]
        if value is not None:
            file[path].attrs.create(key, value, dtype=dtype)
    change(name, how, path, says, **expected)


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


for name, write, says in (
        ("empty file", file_of(b""), "H5Fopen("),
        ("text", file_of(b"hello world\n" * 100), "H5Fopen("),
        ("signature only", file_of(b"\x89HDF\r\n\x1a\n"), "H5Fopen("),
        ("zeros", file_of(bytes(4096)), "H5Fopen("),
        ("half of a file", edited(lambda path: os.truncate(path, os.path.getsize(path) // 2)),
         "H5Fopen("),
        ("left open by its writer", left_open, "H5Fopen("),
        ("directory", os.mkdir, "not a regular file"),
        ("device", link_to("/dev/null"), "not a regular file"),
        ("endless device", link_to("/dev/zero"), "not a regular file"),
        ("FIFO", os.mkfifo, "not a regular file"),
        ("socket", bound_socket, "not a regular file"),
        ("dangling link", link_to("nowhere.h5"), "not found"),
        ("link loop", lambda path: os.symlink(path, path), "not found"),
        ("missing", lambda path: None, "not found"),
        ("a link to the first input", link_to("first.h5"), "**multiple** instances")):
    add(name, write, "", says)
add("the first input by another name", lambda path: os.link("first.h5", path), joins=True)
add("bytes behind the end", edited(lambda path: open(path, "ab").write(b"junk" * 100)), joins=True)

# Tables.
ELSEWHERE = "has its values in other files"
for name, says, keywords in (
        ("rank 1", "Dimension mismatch.", {"data": np.arange(5.0)}),
        ("rank 3", "Dimension mismatch.", {"data": np.zeros((2, 2, 2))}),
        ("rank 0", "Dimension mismatch.", {"data": 1.0}),
        ("no dataspace", "", {"data": h5py.Empty("f8")}),
        ("strings", "H5Dread failed", {"data": objects(["a", "b"]).reshape(1, 2), "dtype": UTF8}),
        ("fixed strings", "", {"data": np.zeros((2, 2), "S4")}),
        ("compounds", "", {"data": np.zeros((2, 2), [("x", "f8"), ("y", "i4")])}),
        ("complex numbers", "", {"data": np.zeros((2, 2), "c16")}),
        ("opaque bytes", "", {"data": np.zeros((2, 2), "V8")}),
        ("references", "", {"shape": (2, 2), "dtype": h5py.ref_dtype}),
        ("vectors", "", {"shape": (2, 2), "dtype": h5py.vlen_dtype("f8")}),
        ("arrays", "", {"shape": (2, 2), "dtype": np.dtype(("f8", (3,)))}),
        ("no columns", "Dataset /A.dir/a.dat has", {"shape": (5, 0), "dtype": "f8"}),
        ("neither rows nor columns", "", {"shape": (0, 0), "dtype": "f8"}),
        ("one column more", "different number of columns", {"data": np.zeros((2, 3))}),
        ("2^40 rows", "a.dat claims 1.7", {"shape": (MANY, 2), "maxshape": (None, 2),
                                           "chunks": (1000, 1)}),
        ("2^40 compressed rows", "a.dat claims 1.7", {"shape": (MANY, 2), "chunks": (1000, 1),
                                                      "compression": "gzip"}),
        ("2^40 columns", "a.dat claims 109951162", {"shape": (2, MANY), "chunks": (1, 1000)}),
        ("2^62 values", "a.dat claims", {"shape": (1 << 61, 2), "maxshape": (None, 2),
                                         "chunks": (1000, 1)}),
        ("2^34 contiguous values", "a.dat claims", {"shape": (1 << 33, 2), "dtype": "f8"}),
        ("a foreign filter", "with other filters than shuffle, deflate and fletcher32",
         {"data": np.zeros((50, 2)), "chunks": (50, 1), "compression": "lzf"}),
        # Whose damage the library does not notice.
        ("the scale-offset filter", "with other filters than shuffle, deflate and fletcher32",
         {"data": np.zeros((4, 2), "i4"), "chunks": (4, 2), "scaleoffset": 0}),
        ("a missing external file", ELSEWHERE,
         {"shape": (3, 2), "dtype": "f8", "external": [("nofile.bin", 0, h5py.h5f.UNLIMITED)]})):
    replace("table of " + name, TABLE, says, keywords)
for name, keywords in (
        ("no rows", {"shape": (0, 2), "maxshape": (None, 2), "chunks": (5, 1)}),
        ("huge chunks", {"shape": (3, 2), "maxshape": (None, 2), "chunks": (1 << 28, 1)}),
        ("booleans", {"data": np.ones((2, 2), bool)}),
        ("long doubles", {"data": np.ones((2, 2), np.longdouble)}),
        ("chunks of several columns", {"data": np.zeros((50, 2)), "chunks": (7, 2)})):
    replace("table of " + name, TABLE, "", keywords, joins=True)
for name, times in (("NaN", [np.nan] * 3), ("infinity", [0, np.inf, 1]),
                    ("minus infinity", [-np.inf] * 3), ("equal times", [1] * 3),
                    ("decreasing times", [3, 2, 1])):
    change("table with " + name,
           lambda file, times=times: file[TABLE].__setitem__((slice(None), 0), times), joins=True)


def stored_chunks(name, chunk, says="", joins=False, mask=0, dtype="f8", columns=1, **keywords):
    """A table whose chunks, of so many columns, are stored as these bytes, past the filters in the
    mask."""
    def how(file):
        del file[TABLE]
        table = file.create_dataset(TABLE, (40, 2), dtype, maxshape=(None, 2),
                                    chunks=(40, columns), **keywords)
        for column in range(0, 2, columns):
            table.id.write_direct_chunk((0, column), chunk, mask)
    change("chunks " + name, how, TABLE, says, joins=joins)


DAMAGED = "damaged chunk at row 0 of column "
GZIP = {"compression": "gzip"}
stored_chunks("shorter than they are", bytes(40), "Damaged chunks in a.dat: 80 bytes")
stored_chunks("that inflate to less", zlib.compress(bytes(40)), DAMAGED, **GZIP)
stored_chunks("of two columns that inflate to less", zlib.compress(bytes(40)),
              DAMAGED + "0: too few values", columns=2, **GZIP)
stored_chunks("of floats that inflate to less", zlib.compress(bytes(40)), DAMAGED, dtype="f4",
              **GZIP)
stored_chunks("of floats that inflate to 20 MB", zlib.compress(bytes(20_000_000)), DAMAGED,
              dtype="f4", **GZIP)
stored_chunks("that inflate to 200 MB", zlib.compress(bytes(200_000_000)), DAMAGED, **GZIP)
stored_chunks("that are not deflated", np.arange(40.0).tobytes(), joins=True, mask=1, **GZIP)
stored_chunks("that are deflated and said not to be", zlib.compress(bytes(320)), DAMAGED, mask=1,
              **GZIP)
stored_chunks("that do not inflate", b"no deflate", DAMAGED, **GZIP)
stored_chunks("with a wrong checksum", bytes(323) + b"x", DAMAGED, fletcher32=True)


def damaged_column(rows):
    def write(path):
        write_plain(path)
        with h5py.File(path, "r+") as file:
            del file[TABLE]
            # Of equal times before all others, one is kept.
            values = np.column_stack([np.full(rows, -1), np.arange(rows)])
            table = file.create_dataset(TABLE, data=values, dtype="f8", chunks=(rows, 1), **FILTERS)
            file.flush()
            chunk = table.id.get_chunk_info(1)
        with open(path, "r+b") as raw:
            raw.seek(chunk.byte_offset + chunk.size // 2)
            raw.write(b"\x5a\xa5")
    return write


for rows in 1000, 100_000:  # the longer is decoded when its file is closed again
    add(f"damage in a chunk of {rows}", damaged_column(rows), TABLE, DAMAGED + "1", in_values=True)


def virtual(source, name):
    def how(file):
        layout = h5py.VirtualLayout((5, 2), "f8")
        layout[:] = h5py.VirtualSource(source, name, (5, 2))
        del file[TABLE]
        file.create_virtual_dataset(TABLE, layout)
    return how


change("table under its old name", lambda file: file.move(
    TABLE, "A.dir/DimensionfullInertialSpin.dat"), joins=True)
change("virtual table", virtual("first.h5", "a"), TABLE, ELSEWHERE)
change("virtual table of itself", virtual(".", TABLE), TABLE, ELSEWHERE)

INCONSISTENT = "internal consistency error"
for name, value, says in (
        ("numbers", np.arange(2), ""), ("rank 2", np.array([[b"a", b"b"]]), ""),
        ("one string", "t x", ""), ("too few", [b"a"], INCONSISTENT),
        ("too many", [b"a"] * 3, INCONSISTENT), ("compounds", np.zeros(2, [("x", "f8")]), ""),
        ("a number", 3.0, ""), ("no dataspace", h5py.Empty("S1"), "")):
    attribute("legend of " + name, TABLE, "Legend", value, says)
for name, value, dtype in (("missing", None, None),
                           ("bytes that are no text", np.array([b"\xff\xfe", b"a"], "S2"), None),
                           ("60000 characters", objects("x" * 60000, "y"), UTF8)):
    attribute("legend of " + name, TABLE, "Legend", value, dtype=dtype, joins=True)

# Sets of coefficients and tensor series.
NAN, INF = np.nan, np.inf
for name, says, rows in (
        ("negative", "holds the offset -1", [[0, -1], [1, 9]]),
        ("negative zero", "ends at 0, but there are 9 values", [[0, -0.0]]),
        ("NaN", "holds the offset nan", [[0, NAN], [1, 9]]),
        ("fraction", "holds the offset 2.5", [[0, 2.5], [1, 9]]),
        ("decreasing", "decreases from 9 to 2", [[0, 9], [1, 2]]),
        ("decreasing within", "decreases from 5 to 3", [[0, 5], [1, 3], [2, 9]]),
        ("past the end", "holds the offset 50, but there are 9", [[0, 2], [1, 50]]),
        ("short of the end", "ends at 3, but there are 9 values", [[0, 2], [1, 3]]),
        ("huge", "holds the offset 1e+300", [[0, 2], [1, 1e300]]),
        ("infinite", "holds the offset inf", [[0, 2], [1, INF]]),
        ("2^63", "holds the offset 9.2", [[0, 2], [1, 2.0**63]]),
        ("2^64", "holds the offset 1.8", [[0, 2.0**64], [1, 9]]),
        ("without a column", "has 1 columns instead of 2", [[0], [1]]),
        ("with another column", "has 3 columns instead of 2", [[0, 2, 3], [1, 9, 3]])):
    replace("coefficient index " + name, INDEX, says, {"data": np.array(rows, "f8")})
for name, says, *rows in (
        ("of negative extents", "holds the mesh extent -6", [72, -6, -2]),
        ("of NaN extents", "holds the mesh extent nan", [72, NAN, 3]),
        ("of huge extents", "holds the mesh extent 1e+18", [72, 1e18, 1e18]),
        ("of extents that are no int", "holds the mesh extent 4.2", [72, 2.0**32, 2.0**32]),
        ("of extents that overflow", "has too many points", [72, 2.0**31 - 1, 2.0**31 - 1]),
        ("of other extents", "of 4 points, offset[0]=72", [72, 2, 2]),
        ("of zero extents", "of 0 points, offset[0]=72", [72, 0, 3]),
        ("of fractions", "holds the mesh extent 1.5", [72, 1.5, 8]),
        ("of part of a tensor", "of 11 points, offset[0]=71", [71, 11, 1], [72, 0, 0]),
        ("past the end", "holds the offset 144", [144, 8, 3]),
        ("negative", "holds the offset -72", [-72, 4, 3]),
        ("NaN", "holds the offset nan", [NAN, 4, 3]),
        ("without a column", "has 3 columns instead of 4", [72, 12]),
        ("with another column", "has 5 columns instead of 4", [72, 4, 3, 1])):
    replace("tensor index " + name, TDM_INDEX, says,
            {"data": np.array([[i, *row] for i, row in enumerate(rows)], "f8")})
for path, columns, values in ((INDEX, 2, 9), (TDM_INDEX, 4, 72)):
    replace(path + " of rank 1", path, "Dimension mismatch.", {"data": np.zeros(4)})
    replace(path + " without steps", path, f"ends at 0, but there are {values} values",
            {"shape": (0, columns), "dtype": "f8"})
    replace(path + " of 2^40 steps", path, "index.dat claims",
            {"shape": (MANY, columns), "chunks": (100, 1), "dtype": "f8"})
for path, says in itertools.product((COEFS, DATA), ("of two columns", "too short", "too long")):
    rows = {"of two columns": (9, 2), "too short": (5, 1), "too long": (99, 1)}[says]
    replace(f"{path} {says}", path, "", {"data": np.zeros(rows)})
for path, rows in ((COEFS, 9), (DATA, 72)):
    replace(path + " of strings", path, "H5Dread failed",
            {"data": np.full((rows, 1), "a", object), "dtype": UTF8})
for path in INDEX, COEFS, TDM_INDEX, DATA:
    change("missing " + path, lambda file, path=path: file.__delitem__(path), object_of(path),
           f"mName={os.path.basename(path)}, h5_exists=0")
change("another member of a set", lambda file: file.create_dataset(COEF + "/x.dat", (1, 1)),
       joins=True)

SPEC = "TensorDim=%s; TensorSymm=%s; DataMeshDim=%s;"
for name, says, spec in (
        ("without a key", '"TensorSymm" requested', "TensorDim=3; DataMeshDim=2;"),
        ("with another key", "=== X\n", SPEC % (3, 11, "2; X=1")),
        ("with a key twice", "DUPLICATE KEY", "TensorDim=3; " + SPEC % (3, 11, 2)),
        ("of no number", "While parsing the key 'TensorDim'", SPEC % ("x", 11, 2)),
        ("of dimension -3", "must be positive, got -3", SPEC % (-3, 11, 2)),
        ("of dimension 0", "must be positive, got 0", SPEC % (0, 11, 2)),
        ("of dimension 2000000000", "has too many components", SPEC % (2000000000, 12, 2)),
        ("of dimension 99999999999999", "While parsing the key 'TensorDim'",
         SPEC % (99999999999999, "", 2)),
        ("of rank 200", "20 indices, got 200", SPEC % (3, "1" * 200, 2)),
        ("of rank 200 and dimension 1", "20 indices, got 200", SPEC % (1, "1" * 200, 2)),
        ("of another mesh", "has 4 columns instead of 5", SPEC % (3, 11, 3)),
        ("of mesh -2", "got -2", SPEC % (3, 11, -2)),
        ("of mesh 2000000000", "got 2000000000", SPEC % (3, 11, 2000000000)),
        ("of another structure", "Tdm::Append TensorStructure inconsistent", SPEC % (6, 1, 2)),
        ("of a structure of other size", "", SPEC % (3, 12, 2)),
        ("empty", "KEY NOT FOUND", ""), ("of a comment", "KEY NOT FOUND", " # none"),
        ("of no options", "NO EQUALS SIGN", "3"), ("of garbage", "", "((((;;;==="),
        ("of nested parentheses", "", SPEC % ("(" * 20000 + "3" + ")" * 20000, 11, 2))):
    attribute("TensorSpec " + name, TDM, "TensorSpec", [spec], says, UTF8)
attribute("TensorSpec missing", TDM, "TensorSpec", None, "H5Aopen failed")
attribute("TensorSpec that is a number", TDM, "TensorSpec", 3)
attribute("TensorSpec of two strings", TDM, "TensorSpec", [SPEC % (3, 11, 2)] * 2, "2 strings",
          UTF8)
attribute("TensorSpec with many blanks", TDM, "TensorSpec", [SPEC % (3, 11, 2) + " " * 60000],
          dtype=UTF8, joins=True)



def flat_meshes(file):
    del file[TDM_INDEX]
    file[TDM_INDEX] = np.array([[0, 72, 12]], "f8")
    file[TDM].attrs.create("TensorSpec", [SPEC % (3, 11, 1)], dtype=UTF8)


change("meshes of another dimension", flat_meshes, TDM, "Tdm::Append dimension of DataMesh incons")

# Texts and records.
for name, says, keywords in (
        ("numbers", "H5Dread failed: expected", {"data": np.arange(4.0)}),
        ("rank 2", "of 0 or 1, got 2", {"data": objects("a", "b").reshape(1, 2), "dtype": UTF8}),
        ("vectors", "", {"shape": (4,), "dtype": h5py.vlen_dtype("i4")}),
        ("2^40 strings", "l.txt claims 3.",
         {"shape": (MANY,), "maxshape": (None,), "chunks": (16,), "dtype": UTF8}),
        ("2^40 characters", "l.txt claims 1.0", {"shape": (MANY,), "chunks": (1000,),
                                                 "dtype": "i1"}),
        ("a null character", "holds a null character", {"data": np.frombuffer(b"ab\0cd", "i1")}),
        ("characters of rank 2", "of 0 or 1, got 2", {"data": np.zeros((2, 2), "i1")}),
        ("characters elsewhere", ELSEWHERE, {"shape": (4,), "dtype": "i1", "external": [
            ("/dev/zero", 0, h5py.h5f.UNLIMITED)]}),
        ("unsigned characters", "", {"data": np.frombuffer(b"abc", "u1")}),
        ("no numbers", "", {"shape": (0,), "dtype": "u8"}),
        ("fixed strings", "of fixed length", {"data": np.array([b"abc"])}),
        ("one fixed string", "of fixed length", {"data": np.bytes_(b"abc")}),
        ("no dataspace", "", {"data": h5py.Empty(UTF8)})):
    replace("text of " + name, TEXT, says, keywords)
replace("text of null strings", TEXT, "", {"shape": (4,), "dtype": UTF8}, joins=True)
replace("text of one character", TEXT, "", {"data": np.int8(65)}, joins=True)


def record(name, data, version, says="", dtype=UTF8, **expected):
    def how(file):
        del file[RECORD]
        made = file.create_dataset(RECORD, data=data, dtype=dtype)
        if version is not None:
            made.attrs.create("Version", version)
    change("record " + name, how, RECORD, says, **expected)


ENTRY = objects("h", "first").reshape(1, 2)
one = np.array([1], "u8")
for name, says, data, version in (
        ("without a version", "H5Aopen failed", ENTRY, None),
        ("of another version", "CurrentVersion = 3, expected 1", ENTRY, one + 2),
        ("of two versions", "Bad size 2", ENTRY, [1, 1]),
        ("with a scalar version", "", ENTRY, np.uint64(1)),
        ("of version '1'", "", ENTRY, [b"1"]), ("of version -1", "", ENTRY, [-1]),
        ("of rank 1", "Expected dim of 2, got 1", ENTRY[0], one + 1),
        ("of three columns", "dims[1]==2", objects("h", "t", "u").reshape(1, 3), one),
        ("that differs", "Version mismatch '/v.ver' in history",
         objects("h", "second").reshape(1, 2), one),
        ("that is longer", "Version mismatch '/v.ver'", np.vstack([ENTRY, ENTRY]), one + 1)):
    record(name, data, version, says)
record("of numbers", np.zeros((1, 2)), one, dtype="f8")
record("of fixed strings", np.array([[b"h", b"first"]]), one, dtype="S5")
record("of version 1.0", ENTRY, [1.0], joins=True)
change("record whose name is a glob", lambda file: file.copy(RECORD, "*.ver"), "/*.ver",
       "Version information '/*.ver' not found in all h5 files.")
change("record missing", lambda file: file.__delitem__(RECORD), joins=True)


def endless_record(file):
    del file[RECORD]
    made = file.create_dataset(RECORD, (MANY, 2), chunks=(1000, 2), dtype=UTF8)
    made.attrs.create("Version", [MANY], dtype="u8")


change("record of 2^40 entries", endless_record, RECORD)


def overwritten(name, path, place, content, says="", **expected):
    """With these bytes where place(object, bytes of the file) says."""
    def write(name):
        write_plain(name, libver="earliest", kinds=("dat", "txt", "ver"))  # without checksums
        with h5py.File(name, "r+") as file:
            file.create_dataset("scalar.txt", data="text")
            file.create_dataset("fill.dat", (4, 2), "f8", chunks=(4, 1), fillvalue=3.5)
        whole = bytearray(pathlib.Path(name).read_bytes())
        with h5py.File(name) as file:
            at = place(file[path], whole)
        whole[at:at + len(content)] = content
        pathlib.Path(name).write_bytes(whole)
    add(name, write, path, says, **expected)


def first_chunk(dataset, _):
    return dataset.id.get_chunk_info(0).byte_offset


def base_type(dataset, whole):
    """Of the strings' type: where its class, its bit field and its size lie."""
    header = b"\x19\x01\x00\x00\x10\x00\x00\x00"
    return whole.index(header, h5py.h5o.get_info(dataset.id).addr) + len(header)


LENGTH = 0x7f000004.to_bytes(4, "little")
INSTEAD = " characters instead of 2130706436"
overwritten("text of 2^31 characters", TEXT, first_chunk, LENGTH, "has 5" + INSTEAD)
overwritten("scalar text of 2^31 characters", "scalar.txt", lambda text, _: text.id.get_offset(),
            LENGTH, "has 4" + INSTEAD)
overwritten("record of 2^31 characters", RECORD, first_chunk, LENGTH, "has 1" + INSTEAD)
overwritten("text of elements of a megabyte", TEXT, lambda *place: base_type(*place) + 4,
            (1 << 20).to_bytes(4, "little"))
overwritten("record of signed characters", RECORD, lambda *place: base_type(*place) + 1, b"\x08")
overwritten("record of shifted characters", RECORD, lambda *place: base_type(*place) + 8, b"\x01")
overwritten("record of floating characters", RECORD, base_type, b"\x11")


def behind(mark):
    """The mark itself lies in the header of the object."""
    return lambda dataset, whole: whole.index(mark, h5py.h5o.get_info(dataset.id).addr) + len(mark)


PARAMETERS, NO_NUMBERS = "parameters that it does not take: ", "its elements are no numbers"
for mark, value, says in ((b"shuffle\0", 4, ""), (b"shuffle\0", 1 << 30, ""),  # legal
                          (b"shuffle\0", 0, PARAMETERS + "shuffle"),
                          (b"deflate\0", 9, ""), (b"deflate\0", 10, PARAMETERS + "deflate 10")):
    overwritten(f"table of {value} behind {mark}", TABLE, behind(mark), value.to_bytes(4, "little"),
                says, joins=not says)
FILL = b"\x08\0\0\0" + np.float64(3.5).tobytes()
overwritten("fill value of 7 bytes", "fill.dat", lambda *place: behind(FILL)(*place) - len(FILL),
            b"\7", "fill value has 7 bytes")
FLOAT = b"\x11\x20\x3f\x00\x08\0\0\0\0\0\x40\0\x34\x0b\0\x34\xff\3\0\0"
for at, content, says in ((1, b"\x21", ""), (2, b"\x40", NO_NUMBERS), (4, b"\x10", DAMAGED),
                          (8, b"\1", NO_NUMBERS), (10, b"\0", NO_NUMBERS),
                          (10, b"\x41", NO_NUMBERS), (12, b"\x33", NO_NUMBERS),
                          (12, b"\x36", NO_NUMBERS), (13, b"\0", NO_NUMBERS),
                          (15, b"\x35", NO_NUMBERS), (16, b"\0\4", "")):
    overwritten(f"table of floats with {content} at {at}", TABLE,
                lambda *place, at=at: behind(FLOAT)(*place) - len(FLOAT) + at, content, says,
                joins=not says)
for name, at, byte in (("a longer name", -5, b"\x7f"), ("a longer type", -3, b"\x7f"),
                       ("2^16 values", 34, b"\x01"), ("larger values", 13, b"\x7f")):
    overwritten("version that claims " + name, RECORD, lambda _, whole, at=at: whole.index(
        b"Version\0") + at, byte, "Damaged header: ")

# Names, kinds and links.
for path, says in ((TABLE, "Opening of dataset a.dat failed"), (TEXT, "H5Dopen2 failed"),
                   (RECORD, "H5Dopen2 failed"), (INDEX, "index.dat failed"),
                   (COEFS, "coefs.dat failed"), (TDM_INDEX, "index.dat failed"),
                   (DATA, "data.dat failed")):
    replace("group " + path, path, says)
for path in COEF, TDM, "A.dir":
    replace("dataset " + path, path, "H5Gopen2 failed", {"data": np.zeros((2, 2))})
change("named type", lambda file: file.__setitem__("t.dat", np.dtype("f8")), "t.dat")
UNIDENTIFIED, NO_EXTENSION = "these unidentified objects:\n", "create H5_Object node with name '"
for name, says in (
        ("z.foo", UNIDENTIFIED + "z.foo"), ("zoo", NO_EXTENSION + "zoo'"), ("zoo.", UNIDENTIFIED),
        ("q.DAT", UNIDENTIFIED + "q.DAT"), ("A.dir/zoo", NO_EXTENSION + "zoo'"),
        ("a\n\x1b[31m.foo", UNIDENTIFIED), ("n" * 30000, NO_EXTENSION)):
    change("name " + ascii(name[:9]), lambda file, name=name: file.create_dataset(name, data=1),
           "" if "\n" in name else os.path.basename(name), says)
change("name '..'", lambda file: h5py.h5g.create(file.id, b".."), "..")
for name in (".dat", b"\xff\xfe.dat", "a\n\x1b[31m.dat", "n" * 30000 + ".dat"):
    change("name " + ascii(name[:9]) + ".dat",
           lambda file, name=name: file.create_dataset(name, data=np.zeros((2, 2))), joins=True)

Soft, External = h5py.SoftLink, h5py.ExternalLink


def link(name, at, target, says="", **expected):
    def how(file):
        file[at] = target(file) if callable(target) else target
    change(name, how, at, says, **expected)


def external_to_itself(path):
    return lambda file: External(os.path.basename(file.filename), path)


def external_to_fifo(file):
    """Where an absolute path leads nowhere, its last part is looked for beside the file."""
    os.mkfifo(file.filename + ".fifo")
    return External("/nowhere/" + os.path.basename(file.filename) + ".fifo", "/x.dat")


CYCLE = "contains itself through a link"
link("dangling soft link", "s.dat", Soft("/none"), "Opening of")
link("dangling soft link for a group", "s.dir", Soft("/none"), "H5Gopen2 failed")
link("soft link to itself", "s.dat", Soft("/s.dat"), "Opening of")
link("soft link to the root", "s.dir", Soft("/"), CYCLE)
link("hard link to a parent", "A.dir/b.dir", lambda file: file["A.dir"], CYCLE)
link("hard link to a grandparent", "A.dir/b.dir/c.dir", lambda file: file["A.dir"], CYCLE)
link("soft link to a parent", "A.dir/b.dir", Soft("/A.dir"), CYCLE)
link("external link to nothing", "s.dat", External("none.h5", "/x"), "Opening of")
link("external link to a device", "s.dat", External("/dev/zero", "/x"), "Opening of")
link("external link to a FIFO", "s.dat", external_to_fifo, "Opening of")
link("external link to its own root", "s.dir", external_to_itself("/"), CYCLE)
link("external link to its own table", "s.dat", external_to_itself(TABLE), joins=True)
link("external link to a table of another input", "s.dat", External("first.h5", TABLE), joins=True)
link("soft link to a table", "s.dat", Soft(TABLE), joins=True)


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


change("2^26 paths", nested_pairs, "d0.dir", "leads to more objects than it has room for")
change("depth 1000", nested(1000, True), joins=True)
change("depth 20000", nested(20000, False), "d.dir", "are nested more than")
