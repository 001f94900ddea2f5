# Recomputes a join from its inputs, by brute force and apart from the program, and compares it with an
# output: the objects and their layout on disk, values bit for bit, legends, texts, records.

import itertools
import re
import sys
import typing

import h5py
import numpy as np
from h5py import h5a, h5s, h5t

sys.setrecursionlimit(100_000)  # groups may be nested deeply
LARGEST_TABLE = 4 << 30  # bytes; a file that promises more is taken for a damaged one
FILTERS = [(h5py.h5z.FILTER_SHUFFLE, ()), (h5py.h5z.FILTER_DEFLATE, (1,)),
           (h5py.h5z.FILTER_FLETCHER32, ())]


class Refused(Exception):
    """The inputs cannot be joined."""


class Options(typing.NamedTuple):
    DeltaT: float = 1e-10
    NoWipe: bool = False
    NoGzip: bool = False
    skip: str = ""

    def arguments(self):
        flags = ["-" + name for name in ("NoWipe", "NoGzip") if getattr(self, name)]
        return flags + ["-DeltaT", repr(self.DeltaT)] + (["-skip", self.skip] if self.skip else [])


# Reading.

def require(condition, reason):
    if not condition:
        raise Refused(reason)


def in_bytes(text):
    return text if isinstance(text, bytes) else (text or "").encode("utf-8", "surrogateescape")


def in_text(name):
    return name.decode("utf-8", "surrogateescape") if isinstance(name, bytes) else name


def strings_of(node, name):
    if name not in node.attrs:
        return []
    attribute = h5a.open(node.id, name.encode())
    require(len(attribute.shape) == 1, name + " is no list")
    if attribute.shape[0] == 0:
        return []
    kind = attribute.get_type()
    require(isinstance(kind, h5t.TypeStringID), name + " holds no strings")
    if kind.is_variable_str():
        return [in_bytes(value) for value in node.attrs[name]]
    values = np.empty(attribute.shape, f"S{kind.get_size()}")
    attribute.read(values)
    return [bytes(value) for value in values]


def dataset_of(node, ranks):
    require(isinstance(node, h5py.Dataset) and node.shape is not None, "no dataset")
    require(len(node.shape) in ranks, "another rank")
    return node.id.get_type()


def read_table(dataset):
    dataset_of(dataset, (2,))
    rows, columns = map(int, dataset.shape)
    require(columns > 0 and rows * columns * 8 <= LARGEST_TABLE, "promises too much")
    values = np.empty((rows, columns), "f8")
    if values.size:
        dataset.id.read(h5s.ALL, h5s.ALL, values)
    legend = strings_of(dataset, "Legend") or [b"undef %d" % c for c in range(columns)]
    require(len(legend) == columns, "the legend has another number of columns")
    return values, legend


def read_text(dataset):
    kind = dataset_of(dataset, (0, 1))
    if isinstance(kind, h5t.TypeIntegerID):
        require(kind.equal(h5t.NATIVE_INT8), "no array of characters")
        text = np.array(dataset[()]).tobytes().rstrip(b"\0")
        require(b"\0" not in text, "a null character in the text")
        return text
    require(isinstance(kind, h5t.TypeStringID), "no strings")
    return b"".join(in_bytes(piece) for piece in np.ravel(dataset[()]))


def read_record(dataset):
    require(isinstance(dataset_of(dataset, (2,)), h5t.TypeStringID), "no strings")
    require(dataset.shape[1] == 2, "not {entries, 2}")
    entries, version = dataset[()], dataset.attrs["Version"]
    require(np.shape(version) == (1,) and version[0] == len(entries), "version and entries")
    return [[in_bytes(text) for text in row] for row in entries]


# How many lists of indices there are, less those that differ only in the order of symmetric ones.
def component_count(dimension, symmetry):
    return len({tuple(sorted(zip(symmetry, indices))) for indices in
                itertools.product(range(dimension), repeat=len(symmetry))})


def read_spec(group):
    specs = strings_of(group, "TensorSpec")
    require(len(specs) == 1, "not one TensorSpec")
    text = re.sub("#[^\n]*", "", specs[0].decode())
    pairs = [[part.strip() for part in pair.split("=")] for pair in text.split(";") if pair.strip()]
    values = dict(pairs)
    require(len(pairs) == 3 == len(values), "keys of TensorSpec")
    return int(values["TensorDim"]), values["TensorSymm"], int(values["DataMeshDim"])


# The steps of a coefficient set or a tensor series: times, a vector each, further columns.
def read_steps(group):
    require(isinstance(group, h5py.Group), "no group")
    spec = read_spec(group) if group.name.endswith(".tdm") else None
    index, legend = read_table(group["index.dat"])
    values, values_legend = read_table(group["data.dat" if spec else "coefs.dat"])
    ends, extents = index[:, 1], index[:, 2:]
    require(values.shape[1] == 1 and extents.shape[1] == (spec[2] if spec else 0), "columns")
    require(np.all(np.isfinite(index[:, 1:])) and np.all(index[:, 1:] == np.floor(index[:, 1:])) and
            np.all(extents >= 0), "the index is whole")
    bounds = [0] + [int(end) for end in ends]
    require(bounds == sorted(bounds) and bounds[-1] == len(values), "ends do not fit the values")
    vectors = [values[begin:end, 0] for begin, end in itertools.pairwise(bounds)]
    require(not spec or all(len(vector) == component_count(*spec[:2]) * np.prod(sizes)
                            for vector, sizes in zip(vectors, extents)), "extents do not fit")
    return {"times": index[:, 0], "vectors": vectors, "extents": extents, "spec": spec,
            "legends": (legend[0], values_legend[0])}


READERS = {"dat": read_table, "coef": read_steps, "tdm": read_steps, "txt": read_text,
           "ver": read_record}


# Gives {full path: (kind, content)}, in byte order of the paths.
def read(path):
    found = {}

    def walk(group, prefix):
        require(isinstance(group, h5py.Group), "a directory that is none")
        for name in map(in_text, group):
            kind, node = name.rpartition(".")[2], group[in_bytes(name)]
            if kind == "dir":
                walk(node, prefix + name + "/")
            else:
                require(kind in READERS and "." in name, "no kind of object: " + name)
                found[prefix + name] = kind, READERS[kind](node)

    with h5py.File(path, "r") as file:
        walk(file["/"], "/")
    return dict(sorted(found.items(), key=lambda item: in_bytes(item[0])))


# What an output holds: every node as a dictionary, as join() wants it and as describe() finds it.

# A type of strings that vary in length, which says whether they are ASCII or UTF-8.
def strings_type(padding, strings):
    is_utf8 = [string.decode(errors="ignore").encode() for string in strings] == strings
    is_ascii = not is_utf8 or all(map(bytes.isascii, strings))
    return "strings", h5t.CSET_ASCII if is_ascii else h5t.CSET_UTF8, padding


def dataset(type_, content, maximum, chunks, attributes, filters=()):
    return {"type": type_, "content": content, "shape": np.shape(content), "maximum": maximum,
            "chunks": chunks, "filters": list(filters), "skipped": set(), "times": False,
            "attributes": attributes}


def attribute_of_strings(strings):
    return strings_type(h5t.STR_SPACEPAD, strings), (len(strings),), strings


def table(rows, legend, chunk_rows, filters):
    return dataset("<f8", rows, (None, rows.shape[1]), (max(chunk_rows, 1), 1),
                   {"Legend": attribute_of_strings(legend)}, filters)


def group(attributes):
    return {"type": "group", "attributes": attributes}


def type_of(node):
    kind = node.get_type()
    if isinstance(kind, h5t.TypeStringID) and kind.is_variable_str():
        return "strings", kind.get_cset(), kind.get_strpad()
    return kind.dtype.str


def describe(node):
    attributes = {}
    for name in node.attrs:
        attribute = h5a.open(node.id, in_bytes(name))
        values = strings_of(node, name) if name != "Version" else list(node.attrs[name])
        attributes[name] = type_of(attribute), attribute.shape, values
    if isinstance(node, h5py.Group):
        return group(attributes)
    plist, content = node.id.get_create_plist(), node[()]
    if node.dtype.kind == "O":
        content = np.array([in_bytes(text) for text in content.flat], object).reshape(content.shape)
    filters = [plist.get_filter(i) for i in range(plist.get_nfilters())]
    return dataset(type_of(node.id), content, node.maxshape, node.chunks, attributes, [
        (code, values if code == h5py.h5z.FILTER_DEFLATE else ()) for code, _, values, _ in filters]
                   ) | {"times": bool(plist.get_obj_track_times()), "skipped": {
                       node.id.get_chunk_info(i).filter_mask
                       for i in range(node.id.get_num_chunks())} - {0}}


# Joining.

# A '*' matches any run; one that is not last needs a character at its place.
def glob_matches(glob, text):
    def in_regex(piece):
        return "".join({"*": "(?=.).*", "?": "."}.get(c, re.escape(c)) for c in piece[:-1]) + (
            {"*": ".*", "?": "."}.get(piece[-1:], re.escape(piece[-1:])))

    glob, text = in_bytes(glob).decode("latin-1"), in_bytes(text).decode("latin-1")
    return any(re.fullmatch(in_regex(piece), text, re.DOTALL) for piece in glob.split("|"))


# Tells which steps stay, a list per file.
def select(times, options):
    keep, last = [np.ones(len(part), bool) for part in times], None
    for part, flags in zip(reversed([part.tolist() for part in times]), reversed(keep)):
        for i in reversed(range(0 if options.NoWipe else len(part))):
            flags[i] = last is None or last - part[i] >= options.DeltaT
            last = part[i] if flags[i] else last
    return keep


# Gives {path: what must be there} of coefficient sets, or of tensor series, of one name.
def join_steps(name, sets, options, filters):
    spec, legends = sets[0]["spec"], sets[0]["legends"]
    steps = [(one["times"][i], one["vectors"][i], one["extents"][i]) for one, flags in
             zip(sets, select([one["times"] for one in sets], options))
             for i in np.flatnonzero(flags)]
    ends = itertools.accumulate(len(vector) for _, vector, _ in steps)
    columns = sets[0]["extents"].shape[1]
    index = np.array([[time, end, *extents] for (time, _, extents), end in zip(steps, ends)],
                     "f8").reshape(len(steps), 2 + columns)
    values = np.concatenate([vector for _, vector, _ in steps] + [np.empty(0)]).reshape(-1, 1)
    what = b"index one past this filestep" if spec else b"index one past current coeff-data"
    return {name: group(spec and {"TensorSpec": attribute_of_strings(
                [in_bytes("TensorDim=%d; TensorSymm=%s; DataMeshDim=%d;" % spec)])} or {}),
            name + "/index.dat": table(index, [legends[0], what] + [
                b"Extents[%d]" % i for i in range(columns)], len(index), filters),
            name + ("/data.dat" if spec else "/coefs.dat"): table(
                values, [legends[1]], min(len(values), 131072) if spec else len(values), filters)}


# Gives {path: what must be there} of an output.
def join(inputs, options):
    objects = {"/": group({})}
    filters = [] if options.NoGzip else FILTERS

    def holders_of(kind):
        names = [name for content in inputs for name, entry in content.items() if entry[0] == kind]
        for name in dict.fromkeys(names):
            if kind == "ver" or not options.skip or not glob_matches(options.skip, name):
                yield name, [content[name][1] for content in inputs if name in content]

    for name, records in holders_of("ver"):
        require(all(record == records[0] for record in records), "records differ: " + name)
        count, texts = len(records[0]), sum(records[0], [])
        if any(texts):
            objects[name] = dataset(strings_type(h5t.STR_NULLTERM, texts), np.array(
                records[0], object), (None, 2), (1, 2), {"Version": ("<u8", (1,), [count])})

    for name, tables in holders_of("dat"):
        require(len({rows.shape[1] for rows, _ in tables}) == 1, "columns differ: " + name)
        legends = [legend for _, legend in tables]
        legend = next((one for one in legends if one[0] != b"undefined"), legends[-1])
        keep = select([rows[:, 0] for rows, _ in tables], options)
        rows = np.concatenate([rows[flags] for (rows, _), flags in zip(tables, keep)])
        objects[name] = table(rows, legend, len(rows), filters)

    for name, sets in itertools.chain(holders_of("coef"), holders_of("tdm")):
        require(all(one["spec"] == sets[0]["spec"] for one in sets), "structures differ: " + name)
        objects |= join_steps(name, sets, options, filters)

    for name, texts in holders_of("txt"):
        text = b"".join(texts)
        if text:
            objects[name] = dataset(strings_type(h5t.STR_NULLTERM, [text]),
                                    np.array([text], object), (None,), (16,), {})

    for name in list(objects):
        parents = name.split("/")[1:-1]
        for depth in range(1, len(parents) + 1):
            objects.setdefault("/" + "/".join(parents[:depth]), group({}))
    return objects


# Comparing.

def same(found, wanted):
    if isinstance(wanted, np.ndarray) and wanted.dtype == "f8":
        return found.dtype == "f8" and found.tobytes() == wanted.tobytes()
    return np.array_equal(found, wanted) if isinstance(wanted, np.ndarray) else found == wanted


# Lists what an output has otherwise than join() says.
def differences(output, objects):
    found, seen = [], {"/"}

    def walk(group, prefix):
        for name in map(in_bytes, group):
            path = prefix + in_text(name)
            seen.add(path)
            if group.id.links.get_info(name).type != h5py.h5l.TYPE_HARD:
                found.append(path + " is no hard link")
            elif isinstance(group[name], h5py.Group):
                walk(group[name], path + "/")

    with open(output, "rb") as raw:
        head = raw.read(12)
    if head[:9] != b"\x89HDF\r\n\x1a\n\x02" or head[11] != 0:
        found.append(f"superblock {head}")
    with h5py.File(output, "r") as file:
        walk(file["/"], "/")
        for path in sorted(seen ^ objects.keys()):
            found.append(f"{path} is {'not ' * (path not in seen)}in the output")
        for path in sorted(seen & objects.keys()):
            node = describe(file[in_bytes(path)])
            found += [f"{path}: {what} {str(node.get(what))[:200]}, not {str(wanted)[:200]}"
                      for what, wanted in objects[path].items()
                      if what not in node or not same(node[what], wanted)]
    return found
