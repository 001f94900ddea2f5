# Inputs that are not what they should be, and outputs and reports that have no place. Each input is a
# plain segment with one thing about it changed, and stands with what the report must say; some are
# joined all the same, and what the join then holds is for check.py to say.

import os
import pathlib
import re
import zlib

import h5py
import numpy as np
from faults import PAIR, write_pair
from judge import Died, in_child
from segments import FILTERS, UTF8, write_plain

TABLE, COEF, TDM, TEXT, RECORD = "A.dir/a.dat", "c.coef", "m.tdm", "l.txt", "v.ver"
INDEX, COEFS, TDM_INDEX, DATA = (COEF + "/index.dat", COEF + "/coefs.dat", TDM + "/index.dat",
                                 TDM + "/data.dat")
MANY, UNLIMITED, JOINS = 1 << 40, h5py.h5f.UNLIMITED, None
NOT_WRITTEN = "that this HDF5 does not write"
CHECK = re.compile(r"^#### (.*  violated\n#### \w+) |^=+ (OptionParser: .*?) =+$", re.MULTILINE)


# Of damage that HDF5 finds itself, since that release, when it opens a dataset.
def since(release, text, before):
    return text if h5py.version.hdf5_version_tuple >= release else before


# Distinct conditions that the reports of all these inputs name together.
def least_checks(notes):
    return since((1, 14), 80, 81) - notes[NOT_WRITTEN]


def with_data(path, data=None, dtype=None, **keywords):
    def how(file):
        del file[path]
        file.create_dataset(path, data=data, dtype=dtype, **keywords)
    how.about = path.removesuffix("/" + os.path.basename(path)) if path in (
        INDEX, COEFS, TDM_INDEX, DATA) else path
    return how


def index(rows, path=INDEX):
    return with_data(path, np.array(rows, "f8"))


def extents(*row):
    return index([[0, *row]], TDM_INDEX)


def group(path):
    return lambda file: (file.__delitem__(path), file.create_group(path))


def attribute(path, key, value, dtype=None):
    def how(file):
        file[path].attrs.pop(key, None)
        if value is not None:
            file[path].attrs.create(key, value, dtype=dtype)
    how.about = path
    return how


def spec(dimension, symmetry="11", mesh="2", more=""):
    return attribute(TDM, "TensorSpec", [
        f"TensorDim={dimension}; TensorSymm={symmetry}; DataMeshDim={mesh};{more}"], UTF8)


def raw_spec(*texts):
    return attribute(TDM, "TensorSpec", texts, UTF8)


def record(data, version, dtype=UTF8):
    def how(file):
        del file[RECORD]
        file.create_dataset(RECORD, data=data, dtype=dtype).attrs.create("Version", version)
    how.about = RECORD
    return how


def link(at, target):
    return lambda file: file.__setitem__(at, target(file) if callable(target) else target)


# A table whose chunks, one per column, are stored as these bytes, past the filters in the mask.
def chunks(chunk, mask=0, **keywords):
    def how(file):
        del file[TABLE]
        table = file.create_dataset(TABLE, (40, 2), "f8", maxshape=(None, 2), chunks=(40, 1),
                                    **keywords)
        for column in 0, 1:
            table.id.write_direct_chunk((0, column), chunk, mask)
    how.about = TABLE
    return how


# The file with these bytes where place(object, bytes of the file) says.
def overwritten(path, place, content):
    def write(name):
        write_plain(name, libver="earliest", kinds=("dat", "txt", "ver"))  # without checksums
        with h5py.File(name, "r+") as file:
            file.create_dataset("fill.dat", (4, 2), "f8", chunks=(4, 1), fillvalue=3.5)
        whole = bytearray(pathlib.Path(name).read_bytes())
        with h5py.File(name) as file:
            at = place(file[path], whole)
        whole[at:at + len(content)] = content
        pathlib.Path(name).write_bytes(whole)
    write.about = path
    return write


def behind(mark, further=0):
    return lambda node, whole: whole.index(mark, h5py.h5o.get_info(node.id).addr) + len(
        mark) + further


def first_chunk(dataset, _):
    return dataset.id.get_chunk_info(0).byte_offset


# A damaged chunk behind the times; a long one is decoded when its file is closed again.
def damaged_column(path):
    write_plain(path)
    with h5py.File(path, "r+") as file:
        del file[TABLE]
        # Of equal times before all others, one is kept.
        values = np.column_stack([np.full(100_000, -1), np.arange(100_000)])
        table = file.create_dataset(TABLE, data=values, dtype="f8", chunks=(100_000, 1), **FILTERS)
        file.flush()
        chunk = table.id.get_chunk_info(1)
    with open(path, "r+b") as raw:
        raw.seek(chunk.byte_offset + chunk.size // 2)
        raw.write(b"\x5a\xa5")


def half(path):
    write_plain(path)
    os.truncate(path, os.path.getsize(path) // 2)


def flat_meshes(file):
    index([[0, 72, 12]], TDM_INDEX)(file)
    spec(3, 11, 1)(file)


def endless_record(file):
    del file[RECORD]
    file.create_dataset(RECORD, (MANY, 2), chunks=(1000, 2), dtype=UTF8).attrs["Version"] = [MANY]


def nested_pairs(file):
    groups = [file.create_group(f"d{i}.dir") for i in range(27)]
    for outer, inner in zip(groups, groups[1:]):
        outer["l.dir"] = outer["r.dir"] = inner


def nested(depth):
    def how(file):
        node = file.id
        for _ in range(depth):
            node = h5py.h5g.create(node, b"d.dir")
        h5py.Group(node).create_dataset("a.dat", data=np.ones((1, 1)))
    return how


def objects(*values):
    return np.array(values, object)


ELSEWHERE, NUMBERS, DAMAGED = "has its values in other files", "its elements are no numbers", (
    "damaged chunk at row 0 of column ")
ENTRY, ONE, CYCLE = objects(["h", "first"]), np.array([1], "u8"), "contains itself through a link"
FLOAT = b"\x11\x20\x3f\x00\x08\0\0\0\0\0\x40\0\x34\x0b\0\x34\xff\3\0\0"
STRING = b"\x19\x01\x00\x00\x10\x00\x00\x00"
LENGTH = 0x7f000004.to_bytes(4, "little")
GZIP = {"compression": "gzip"}
FILES = [  # that are no segments
    ("H5Fopen(", lambda path: pathlib.Path(path).write_bytes(b"hello world\n" * 100)),
    ("H5Fopen(", half),
    ("not a regular file", os.mkdir), ("not a regular file", os.mkfifo),
    ("not a regular file", lambda path: os.symlink("/dev/zero", path)), ("not found", lambda path: None),
    ("**multiple** instances", lambda path: os.symlink("first.h5", path)),
    (JOINS, lambda path: os.link("first.h5", path)),
    (DAMAGED + "1", damaged_column),
    ("fill value has 7 bytes", overwritten("fill.dat", behind(b"\x08\0\0\0" + np.float64(
        3.5).tobytes(), -12), b"\7")),
    ("has 5 characters instead of 2130706436", overwritten(TEXT, first_chunk, LENGTH)),
    ("has 1 characters instead of 2130706436", overwritten(RECORD, first_chunk, LENGTH)),
    (since((1, 14), "H5Dopen2 failed", "neither strings nor"),
     overwritten(TEXT, behind(STRING, 4), (1 << 20).to_bytes(4, "little"))),
    ("neither strings nor characters", overwritten(RECORD, behind(STRING, 1), b"\x08")),
    ("that it does not take: deflate 10", overwritten(TABLE, behind(b"deflate\0"), b"\x0a")),
    (JOINS, overwritten(TABLE, behind(FLOAT, 1 - len(FLOAT)), b"\x21")),
    (since((1, 14), "Opening of dataset a.dat failed", NUMBERS),
     overwritten(TABLE, behind(FLOAT, 2 - len(FLOAT)), b"\x40")),
    (since((2,), "Opening of dataset a.dat failed", DAMAGED),
     overwritten(TABLE, behind(FLOAT, 4 - len(FLOAT)), b"\x10")),
    ("Damaged header: an attribute of", overwritten(RECORD, behind(b"Version\0", -13), b"\x7f")),
    ("Damaged header: the values", overwritten(RECORD, behind(b"Version\0", 26), b"\x01")),
]
CHANGES = [  # of segments: of tables and legends
    ("Dimension mismatch.", with_data(TABLE, np.arange(5.0))),
    (NUMBERS, with_data(TABLE, objects(["a", "b"]), UTF8)),
    ("' (TableSeries.cpp:", with_data(TABLE, np.zeros((2, 3)))),
    ("a.dat claims 1.7", with_data(TABLE, shape=(MANY, 2), chunks=(1000, 1), **GZIP)),
    ("a.dat claims 109951162", with_data(TABLE, shape=(2, MANY), chunks=(1, 1000))),
    ("with other filters than shuffle, deflate and fletcher32", with_data(
        TABLE, np.zeros((50, 2)), chunks=(50, 1), compression="lzf")),
    (ELSEWHERE, with_data(TABLE, shape=(3, 2), dtype="f8", external=[("no.bin", 0, UNLIMITED)])),
    (JOINS, with_data(TABLE, shape=(3, 2), maxshape=(None, 2), chunks=(1 << 28, 1))),
    (JOINS, with_data(TABLE, np.ones((2, 2), np.longdouble))),
    ("Damaged chunks in a.dat: 80 bytes", chunks(bytes(40))),
    (DAMAGED + "0: too few values", chunks(zlib.compress(bytes(40)), **GZIP)),
    (DAMAGED + "0: too many values", chunks(zlib.compress(bytes(20_000_000)), **GZIP)),
    ("194409 bytes are stored", chunks(zlib.compress(bytes(200_000_000)), **GZIP)),
    (DAMAGED + "0: wrong checksum", chunks(bytes(323) + b"x", fletcher32=True)),
    (JOINS, chunks(np.arange(40.0).tobytes(), 1, **GZIP)),
    ("expected strings", attribute(TABLE, "Legend", np.arange(2))),
    ("Dimensionality of Attribute", attribute(TABLE, "Legend", np.array([[b"a", b"b"]]))),
    ("internal consistency error", attribute(TABLE, "Legend", [b"a"])),
    (JOINS, attribute(TABLE, "Legend", np.array([b"\xff\xfe", b"a"], "S2"))),
    # Coefficient sets and tensor series.
    ("holds the offset nan", index([[0, np.nan], [1, 9]])),
    ("decreases from 5 to 3", index([[0, 5], [1, 3], [2, 9]])),
    ("ends at 3, but there are 9 values", index([[0, 2], [1, 3]])),
    ("has 3 columns instead of 2", index([[0, 2, 3], [1, 9, 3]])),
    ("have 2 columns instead of 1", with_data(COEFS, np.zeros((9, 2)))),
    ("have 2 columns instead of 1", with_data(DATA, np.zeros((72, 2)))),
    ("holds the mesh extent 4.2", extents(72, 2.0**32, 2.0**32)),
    ("has too many points", extents(72, 2.0**31 - 1, 2.0**31 - 1)),
    ("of 4 points, offset[0]=72", extents(72, 2, 2)),
    ("holds the offset -72", extents(-72, 4, 3)),
    ("has 3 columns instead of 4", extents(72, 12)),
    ("ends at 0, but there are 72", with_data(TDM_INDEX, shape=(0, 4), dtype="f8")),
    ("mName=data.dat, h5_exists=0", lambda file: file.__delitem__(DATA)),
    ('"TensorSymm" requested', raw_spec("TensorDim=3; DataMeshDim=2;")),
    ("NO EQUALS SIGN", raw_spec("3")), ("2 strings", raw_spec("a", "b")),
    ("Unbalanced parentheses", raw_spec("((((;;;===")),
    ("=== X\n", spec(3, more=" X=1")), ("DUPLICATE KEY", spec(3, more=" TensorDim=3")),
    ("While parsing the key 'TensorDim'", spec("x")),
    ("While parsing the key 'TensorDim'", spec(99999999999999)),
    ("must be positive, got 0", spec(0)), ("has too many components", spec(2000000000, "12")),
    ("20 indices, got 200", spec(3, "1" * 200)), ("got -2", spec(3, mesh=-2)),
    ("Tdm::Append TensorStructure inconsistent", spec(6, "1")),
    ("Tdm::Append dimension of DataMesh incons", flat_meshes),
    ("H5Aopen failed", attribute(TDM, "TensorSpec", None)),
    # Texts and records.
    ("H5Dread failed: expected", with_data(TEXT, np.arange(4.0))),
    ("of 0 or 1, got 2", with_data(TEXT, objects(["a", "b"]), UTF8)),
    ("l.txt claims 3.", with_data(TEXT, shape=(MANY,), chunks=(16,), dtype=UTF8)),
    ("holds a null character", with_data(TEXT, np.frombuffer(b"ab\0cd", "i1"))),
    (ELSEWHERE, with_data(TEXT, shape=(4,), dtype="i1", external=[("/dev/zero", 0, UNLIMITED)])),
    ("l.txt is of another type", with_data(TEXT, shape=(0,), dtype="u8")),
    ("of fixed length", with_data(TEXT, np.array([b"abc"]))),
    ("inconsistent with expected size", with_data(TEXT, h5py.Empty(UTF8))),
    (JOINS, with_data(TEXT, shape=(4,), dtype=UTF8)), (JOINS, with_data(TEXT, np.int8(65))),
    ("CurrentVersion = 3, expected 1", record(ENTRY, ONE + 2)),
    ("Bad size 2", record(ENTRY, [1, 1])), ("H5Aread failed", record(ENTRY, [b"1"])),
    ("Expected dim of 2, got 1", record(ENTRY[0], ONE + 1)),
    ("Expected 2 columns, got 3", record(objects(["h", "t", "u"]), ONE)),
    ("Version mismatch '/v.ver' in history", record(objects(["h", "second"]), ONE)),
    ("Version mismatch '/v.ver': ", record(np.vstack([ENTRY, ENTRY]), ONE + 1)),
    ("H5Dread failed: expected", record(np.zeros((1, 2)), ONE, "f8")),
    ("of fixed length", record(np.array([[b"h", b"first"]]), ONE, "S5")),
    ("v.ver claims", endless_record), (JOINS, lambda file: file.__delitem__(RECORD)),
    ("'/*.ver' not found in all h5 files", lambda file: file.copy(RECORD, "*.ver")),
    # Names, kinds and links.
    ("Opening of dataset coefs.dat failed", group(COEFS)), ("H5Dopen2 failed", group(TEXT)),
    ("H5Dopen2 failed", group(RECORD)), ("H5Gopen2 failed", with_data("A.dir", np.zeros((2, 2)))),
    ("unidentified objects:\nz.foo", link("z.foo", 1)), ("with name 'zoo'", link("zoo", 1)),
    (JOINS, link("a\n\x1b[31m.dat", np.zeros((2, 2)))),
    (JOINS, link(b"\xff\xfe.dat", np.zeros((2, 2)))),
    (JOINS, link("s.dat", h5py.ExternalLink("first.h5", TABLE))),
    (CYCLE, link("s.dir", h5py.SoftLink("/"))),
    ("leads to more objects than it has room for", nested_pairs),
    ("are nested more than", nested(20000)), (JOINS, nested(1000)),
]
INPUTS = FILES + CHANGES


def write_input(number):
    how = INPUTS[number][1]
    if number < len(FILES):
        how("bad.h5")
    else:
        write_plain("bad.h5")
        with h5py.File("bad.h5", "r+") as file:
            how(file)


def run_input(judge, number, place):
    says, how = INPUTS[number]
    inputs = [*PAIR[:place], "bad.h5", *PAIR[place:]]
    os.chdir(judge.folder)
    try:
        in_child(write_input, number)  # since the library may crash
    except Died:
        judge.notes[NOT_WRITTEN] += 1
        return
    # Groups may be nested deeply, and a sanitizer makes that slow.
    late = {"cpu_seconds": 60, "seconds": 90, "environment": {"VEXA_NO_BACKTRACE": "1"}}
    # Two inputs disagree, or are the same one: any of them may be named.
    about, names = (getattr(how, "about", ""), says or ""), r"(bad|first|second)\.h5|/dev/"
    outcome = judge.join(inputs, more=["-cachesize", "1e6"], about=about, names=names,
                         allowed=(255 if says else 0,), **late)
    judge.notes["check " + "".join(CHECK.search(outcome.err).groups("")) if says else "joined"] += 1
    if how is not damaged_column:  # whose damage a plan does not see
        status = (2 if says == "not found" else 1) if says else 0
        judge.inspect("-plan", *inputs, allowed=(status,), **late)
    judge.inspect("bad.h5", "second.h5", allowed=(0, 255), **late)  # a listing reads no values


SURROUNDINGS = [  # something in the place of the output or of the file of reports, and what is said
    ("out.h5", lambda path: path.write_text("mine"), "out.h5 already exists.\nCowardly refusing"),
    ("out.h5", os.mkfifo, "Cowardly refusing"),
    ("out.h5", lambda path: path.symlink_to("first.h5"), "Cowardly refusing"),
    ("out.h5", lambda path: path.symlink_to("nowhere.h5"), "H5Fcreate("),
    ("none/out.h5", None, "in nonexistent directory"), ("n" * 300, None, ""), ("", None, ""),
    ("first.h5/out.h5", None, ""), ("first.h5", None, ""),
    ("Errors000.txt", os.mkfifo, "bad.h5"), ("Errors000.txt", os.mkdir, "bad.h5"),
    ("Errors000.txt", lambda path: path.symlink_to("/dev/full"), "bad.h5"),
]


def run_surroundings(judge, number):
    name, make, says = SURROUNDINGS[number]
    if make:
        make(judge.folder / name)
    is_output = name != "Errors000.txt"
    inputs, output = (PAIR, name) if is_output else (["bad.h5"], "out.h5")
    judge.join(inputs, output=output, allowed=(255,), about=(says,), reports_to_file=is_output)


def bad_cases(share):
    return [("input", number, number % 3) for number in range(len(INPUTS))] + [
        ("surroundings", number) for number in range(len(SURROUNDINGS))]


def run_bad(judge, what, *case):
    write_pair(judge)
    globals()["run_" + what](judge, *case)
