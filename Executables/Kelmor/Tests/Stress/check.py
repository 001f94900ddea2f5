"""Recomputes a join from its inputs, by brute force and apart from the program, and compares it
with an output: the objects and their layout on disk, values bit for bit, legends, texts and
records.
"""

import dataclasses
import itertools
import re
import sys
import typing

import h5py
import numpy as np
from h5py import h5a, h5s, h5t

sys.setrecursionlimit(100_000)  # groups may be nested deeply
LARGEST_TABLE = 4 << 30  # bytes; a file that promises more is taken for a damaged one
FILTERS = [h5py.h5z.FILTER_SHUFFLE, h5py.h5z.FILTER_DEFLATE, h5py.h5z.FILTER_FLETCHER32]


class Refused(Exception):
    """The inputs cannot be joined."""


@dataclasses.dataclass
class Options:
    DeltaT: float = 1e-10
    NoWipe: bool = False
    NoGzip: bool = False
    skip: str = ""

    def arguments(self):
        flags = ["-" + name for name in ("NoWipe", "NoGzip") if getattr(self, name)]
        return flags + ["-DeltaT", repr(self.DeltaT)] + (["-skip", self.skip] if self.skip else [])


# What the objects of an output must be.
class Group(typing.NamedTuple):
    spec: bytes | None = None


class Table(typing.NamedTuple):
    rows: np.ndarray
    legend: list
    chunk_rows: int
    is_compressed: bool


class Text(typing.NamedTuple):
    text: bytes


class Record(typing.NamedTuple):
    entries: list


# Reading.

def require(condition, reason):
    if not condition:
        raise Refused(reason)


def in_bytes(text):
    return text if isinstance(text, bytes) else (text or "").encode("utf-8", "surrogateescape")


def in_text(name):
    return name.decode("utf-8", "surrogateescape") if isinstance(name, bytes) else name


def strings_of(node, attribute):
    if attribute not in node.attrs:
        return []
    attribute_id = h5a.open(node.id, attribute.encode())
    require(len(attribute_id.shape) == 1, attribute + " is no list")
    if attribute_id.shape[0] == 0:
        return []
    kind = attribute_id.get_type()
    require(isinstance(kind, h5t.TypeStringID), attribute + " holds no strings")
    if kind.is_variable_str():
        return [in_bytes(value) for value in node.attrs[attribute]]
    values = np.empty(attribute_id.shape, f"S{kind.get_size()}")
    attribute_id.read(values)
    return [bytes(value) for value in values]


def values_of(dataset):
    require(isinstance(dataset, h5py.Dataset), "no table")
    shape = dataset.shape
    require(shape is not None and len(shape) == 2 and shape[1] > 0, "no table of rank 2")
    require(int(shape[0]) * int(shape[1]) * 8 <= LARGEST_TABLE, "promises too much")
    values = np.empty(shape, "f8")
    if values.size:
        dataset.id.read(h5s.ALL, h5s.ALL, values)
    return values


def read_table(dataset):
    values = values_of(dataset)
    legend = strings_of(dataset, "Legend") or [b"undef %d" % c for c in range(values.shape[1])]
    require(len(legend) == values.shape[1], "the legend has another number of columns")
    return values, legend


def read_text(dataset):
    require(isinstance(dataset, h5py.Dataset) and dataset.shape is not None, "no text")
    kind = dataset.id.get_type()
    if isinstance(kind, h5t.TypeIntegerID):
        require(kind.equal(h5t.NATIVE_INT8) and len(dataset.shape) <= 1, "no array of characters")
        text = np.array(dataset[()]).tobytes().rstrip(b"\0")
        require(b"\0" not in text, "a null character in the text")
        return text
    require(isinstance(kind, h5t.TypeStringID) and len(dataset.shape) <= 1, "no strings")
    return b"".join(in_bytes(piece) for piece in np.ravel(dataset[()]))


def read_record(dataset):
    require(isinstance(dataset, h5py.Dataset) and dataset.shape is not None, "no record")
    require(len(dataset.shape) == 2 and dataset.shape[1] == 2, "not {entries, 2}")
    require(isinstance(dataset.id.get_type(), h5t.TypeStringID), "no strings")
    entries = [[in_bytes(text) for text in row] for row in dataset[()]]
    version = dataset.attrs["Version"]
    require(np.shape(version) == (1,) and version[0] == len(entries), "version and entries")
    return entries


def component_count(dimension, symmetry):
    """Lists of indices, less those that differ only in the order of symmetric ones."""
    distinct = set()
    for indices in itertools.product(range(dimension), repeat=len(symmetry)):
        order = sorted(range(len(symmetry)), key=lambda i: (symmetry[i], indices[i]))
        distinct.add(tuple((symmetry[i], indices[i]) for i in order))
    return len(distinct)


def read_spec(group):
    specs = strings_of(group, "TensorSpec")
    require(len(specs) == 1, "not one TensorSpec")
    text = re.sub("#[^\n]*", "", specs[0].decode())
    pairs = [[part.strip() for part in pair.split("=")] for pair in text.split(";") if pair.strip()]
    values = dict(pairs)
    require(len(pairs) == 3 == len(values), "keys of TensorSpec")
    return int(values["TensorDim"]), values["TensorSymm"], int(values["DataMeshDim"])


def read_steps(group, values_name):
    """The steps of a coefficient set or a tensor series: times, a vector each, further columns."""
    require(isinstance(group, h5py.Group), "no group")
    index, legend = read_table(group["index.dat"])
    values, values_legend = read_table(group[values_name])
    require(values.shape[1] == 1, "values are one column")
    ends = index[:, 1]
    require(np.all(np.isfinite(ends)) and np.all(ends == np.floor(ends)), "ends are whole")
    bounds = [0] + [int(end) for end in ends]
    require(bounds == sorted(bounds) and bounds[-1] == len(values), "ends do not fit the values")
    vectors = [values[begin:end, 0] for begin, end in itertools.pairwise(bounds)]
    return {"times": index[:, 0], "vectors": vectors, "more": index[:, 2:],
            "description": legend[0], "values description": values_legend[0]}


def read_coef(group):
    steps = read_steps(group, "coefs.dat")
    require(steps["more"].shape[1] == 0, "columns of the index")
    return steps


def read_tdm(group):
    steps = read_steps(group, "data.dat")
    steps["spec"] = dimension, symmetry, mesh_dimension = read_spec(group)
    require(steps["more"].shape[1] == mesh_dimension, "columns of the index")
    components = component_count(dimension, symmetry)
    for vector, extents in zip(steps["vectors"], steps["more"]):
        require(np.all(extents >= 0) and np.all(extents == np.floor(extents)), "extents")
        require(len(vector) == components * np.prod(extents), "extents do not fit the step")
    return steps


READERS = {"dat": read_table, "coef": read_coef, "tdm": read_tdm, "txt": read_text,
           "ver": read_record}


def read(path):
    """{full path: (kind, content)}, in byte order of the paths."""
    found = {}

    def walk(group, prefix):
        require(isinstance(group, h5py.Group), "a directory that is none")
        for name in map(in_text, group):
            kind, node = name.rpartition(".")[2], group[in_bytes(name)]
            if kind == "dir":
                walk(node, prefix + name + "/")
            else:
                require(kind in READERS and "." in name, "no kind of object: " + name)
                content = READERS[kind](node)
                found[prefix + name] = kind, content

    with h5py.File(path, "r") as file:
        walk(file["/"], "/")
    return dict(sorted(found.items(), key=lambda item: in_bytes(item[0])))


# Joining.

def piece_matches(glob, text):
    """A '*' matches any run; one that is not last needs a character at its place."""
    for i, c in enumerate(glob):
        if c == "*":
            return i == len(glob) - 1 or i < len(text) and any(
                piece_matches(glob[i + 1:], text[k:]) for k in range(i, len(text)))
        if i >= len(text) or c not in ("?", text[i]):
            return False
    return len(text) == len(glob)


def glob_matches(glob, text):
    glob, text = in_bytes(glob).decode("latin-1"), in_bytes(text).decode("latin-1")
    return any(piece_matches(piece, text) for piece in glob.split("|"))


def select(times, options):
    """Which steps stay, a list per file, and the largest gap between two of them."""
    keep = [np.ones(len(part), bool) for part in times]
    last, gap, is_first = 0.0, 0.0, True
    if options.NoWipe:
        return keep, gap
    for part, flags in zip(reversed([part.tolist() for part in times]), reversed(keep)):
        for i in range(len(part) - 1, -1, -1):
            difference = last - part[i]
            if is_first or difference >= options.DeltaT:
                is_first, last, gap = False, part[i], max(gap, difference)
            else:
                flags[i] = False
    return keep, gap


def join(inputs, options):
    """{path: what must be there}, and the verbose lines that tell of single datasets."""
    objects, lines = {}, []

    def holders_of(kind):
        names = [name for content in inputs for name, entry in content.items() if entry[0] == kind]
        for name in dict.fromkeys(names):
            if kind == "ver" or not options.skip or not glob_matches(options.skip, name):
                yield name, [content[name][1] for content in inputs if name in content]

    def selected(name, times):
        keep, gap = select(times, options)
        lines.append(f"{name} keeping {sum(map(np.sum, keep))} steps out of "
                     f"{sum(map(len, keep))}, maximum time-gap is {gap:g}")
        return keep

    def table(name, rows, legend, chunk_rows):
        objects[name] = Table(rows, legend, max(chunk_rows, 1), not options.NoGzip)

    for name, records in holders_of("ver"):
        require(all(record == records[0] for record in records), "records differ: " + name)
        if any(text for entry in records[0] for text in entry):
            objects[name] = Record(records[0])
        lines.append(f"{name} writing version {len(records[0])}")

    for name, tables in holders_of("dat"):
        require(len({rows.shape[1] for rows, _ in tables}) == 1, "columns differ: " + name)
        legends = [legend for _, legend in tables]
        legend = next((one for one in legends if one[0] != b"undefined"), legends[-1])
        keep = selected(name, [rows[:, 0] for rows, _ in tables])
        rows = np.concatenate([rows[flags] for (rows, _), flags in zip(tables, keep)])
        table(name, rows, legend, len(rows))

    for kind in ("coef", "tdm"):
        for name, sets in holders_of(kind):
            require(len({one.get("spec") for one in sets}) == 1, "structures differ: " + name)
            keep = selected(name, [one["times"] for one in sets])
            steps = [(one["times"][i], one["vectors"][i], one["more"][i])
                     for one, flags in zip(sets, keep) for i in np.flatnonzero(flags)]
            more = sets[0]["more"].shape[1]
            ends = itertools.accumulate(len(vector) for _, vector, _ in steps)
            index = np.array([[time, end, *extents] for (time, _, extents), end
                              in zip(steps, ends)], "f8").reshape(len(steps), 2 + more)
            values = np.concatenate([vector for _, vector, _ in steps] + [np.empty(0)])
            legend = [sets[0]["description"]]
            if kind == "coef":
                objects[name] = Group()
                legend.append(b"index one past current coeff-data")
                values_name, chunk_rows = "/coefs.dat", len(values)
            else:
                objects[name] = Group(
                    in_bytes("TensorDim=%d; TensorSymm=%s; DataMeshDim=%d;" % sets[0]["spec"]))
                legend.append(b"index one past this filestep")
                legend += [b"Extents[%d]" % i for i in range(more)]
                values_name, chunk_rows = "/data.dat", min(len(values), 131072)
            table(name + "/index.dat", index, legend, len(index))
            table(name + values_name, values.reshape(-1, 1), [sets[0]["values description"]],
                  chunk_rows)

    for name, texts in holders_of("txt"):
        text = b"".join(texts)
        lines.append(f"{name} writing {len(text)} characters.")
        if text:
            objects[name] = Text(text)

    for name in list(objects):
        parents = name.split("/")[1:-1]
        for depth in range(1, len(parents) + 1):
            objects.setdefault("/" + "/".join(parents[:depth]), Group())
    return objects, lines


# Comparing.

def character_set_of(strings):
    is_utf8 = [string.decode(errors="ignore").encode() for string in strings] == strings
    return h5t.CSET_UTF8 if is_utf8 and not all(map(bytes.isascii, strings)) else h5t.CSET_ASCII


def has_string_type(kind, padding, strings):
    return (isinstance(kind, h5t.TypeStringID) and kind.is_variable_str() and
            kind.get_cset() == character_set_of(strings) and kind.get_strpad() == padding)


def attribute_differs(node, name, wanted):
    attribute = h5a.open(node.id, name.encode())
    if name == "Version":
        return (attribute.shape != (1,) or not attribute.get_type().equal(h5t.NATIVE_UINT64) or
                node.attrs[name][0] != wanted)
    return (not has_string_type(attribute.get_type(), h5t.STR_SPACEPAD, wanted) or
            strings_of(node, name) != wanted)


def layout_of(dataset):
    plist = dataset.id.get_create_plist()
    filters = [plist.get_filter(i) for i in range(plist.get_nfilters())]
    level = [one[2] for one in filters if one[0] == h5py.h5z.FILTER_DEFLATE]
    skipped = {dataset.id.get_chunk_info(i).filter_mask for i in range(dataset.id.get_num_chunks())}
    return {"dimensions": dataset.shape, "maximum": dataset.maxshape, "chunks": dataset.chunks,
            "filters": [one[0] for one in filters], "level": level, "skipped": skipped - {0},
            "tracks times": bool(plist.get_obj_track_times())}


def node_differences(node, wanted):
    attributes = {}
    if isinstance(wanted, Group):
        if not isinstance(node, h5py.Group):
            return ["is no group"]
        found = []
        if wanted.spec is not None:
            attributes["TensorSpec"] = [wanted.spec]
    elif not isinstance(node, h5py.Dataset):
        return ["is no dataset"]
    else:
        layout = {"filters": [], "level": [], "skipped": set(), "tracks times": False}
        kind = node.id.get_type()
        if isinstance(wanted, Table):
            attributes["Legend"] = wanted.legend
            rows, columns = wanted.rows.shape
            layout |= {"dimensions": (rows, columns), "maximum": (None, columns),
                       "chunks": (wanted.chunk_rows, 1)}
            if wanted.is_compressed:
                layout |= {"filters": FILTERS, "level": [(1,)]}
            is_right_type = kind.equal(h5t.NATIVE_DOUBLE)
        elif isinstance(wanted, Text):
            layout |= {"dimensions": (1,), "maximum": (None,), "chunks": (16,)}
            is_right_type = has_string_type(kind, h5t.STR_NULLTERM, [wanted.text])
        else:
            attributes["Version"] = len(wanted.entries)
            layout |= {"dimensions": (len(wanted.entries), 2), "maximum": (None, 2),
                       "chunks": (1, 2)}
            is_right_type = has_string_type(kind, h5t.STR_NULLTERM, sum(wanted.entries, []))
        found = [f"{item} {value}, not {layout[item]}" for item, value in layout_of(node).items()
                 if value != layout[item]]
        if not is_right_type:
            found.append(f"type {node.dtype}")
        if not found:
            found = list(content_differences(node, wanted))
    if set(node.attrs) != set(attributes):
        return found + [f"attributes {sorted(node.attrs)}, not {sorted(attributes)}"]
    return found + [f"{name} is not {value}" for name, value in attributes.items()
                    if attribute_differs(node, name, value)]


def content_differences(dataset, wanted):
    if isinstance(wanted, Table):
        rows = values_of(dataset).view("u8")
        at = np.argwhere(rows != np.ascontiguousarray(wanted.rows).view("u8"))
        if len(at):
            where = tuple(at[0])
            yield (f"{len(at)} values, the first at {where}: {rows.view('f8')[where]!r}, "
                   f"not {wanted.rows[where]!r}")
    elif isinstance(wanted, Text):
        if in_bytes(dataset[0]) != wanted.text:
            yield f"text {dataset[0][:80]!r}, not {wanted.text[:80]!r}"
    elif [[in_bytes(text) for text in row] for row in dataset[()]] != wanted.entries:
        yield "entries"


def differences(output, objects):
    """Of an output from what join() says."""
    found = []
    with open(output, "rb") as raw:
        head = raw.read(12)
    if head[:9] != b"\x89HDF\r\n\x1a\n\x02" or head[11] != 0:
        found.append(f"superblock {head}")
    seen = set()

    def walk(group, prefix):
        for name in map(in_bytes, group):
            path = prefix + in_text(name)
            seen.add(path)
            if group.id.links.get_info(name).type != h5py.h5l.TYPE_HARD:
                found.append(path + " is no hard link")
            elif isinstance(group[name], h5py.Group):
                walk(group[name], path + "/")

    with h5py.File(output, "r") as file:
        walk(file["/"], "/")
        found += [f"/: {what}" for what in node_differences(file["/"], Group())]
        found += [path + " is not in the output" for path in sorted(objects.keys() - seen)]
        found += [path + " is in the output" for path in sorted(seen - objects.keys())]
        for path in sorted(seen & objects.keys()):
            found += [f"{path}: {what}" for what in node_differences(file[in_bytes(path)],
                                                                objects[path])]
    return found
