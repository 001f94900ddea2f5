# Writes segments with h5py: plain ones, and random ones in all the forms that are read.

import functools
import io
import pathlib
import types

import h5py
import numpy as np
from check import component_count, in_bytes

ASCII, UTF8 = h5py.string_dtype("ascii"), h5py.string_dtype("utf-8")
KINDS = ("dat", "coef", "tdm", "txt", "ver")
FILTERS = {"shuffle": True, "compression": "gzip", "compression_opts": 1, "fletcher32": True}


# Plain segments.

def write_table(group, name, rows, legend, dtype=ASCII, **keywords):
    rows = np.asarray(rows, "f8")
    keywords = {"maxshape": (None, rows.shape[1]), "chunks": (max(len(rows), 1), 1)} | keywords
    group.create_dataset(name, data=rows, **keywords).attrs.create("Legend", legend, dtype=dtype)


def write_plain(path, *arguments, **keywords):
    pathlib.Path(path).write_bytes(plain(*arguments, **keywords))


# Makes a file with an object of each kind, and `tables` tables. Further keywords say how tables are
# stored. No values are random.
@functools.lru_cache(64)
def plain(start=0.0, kinds=KINDS, steps=3, tables=1, legends=ASCII, libver="v108", filters=True,
          **keywords):
    content = io.BytesIO()
    keywords = {"dtype": legends} | (FILTERS if filters else {}) | keywords
    times, lengths = start + np.arange(steps), 2 + np.arange(steps) % 3
    with h5py.File(content, "w", libver=(libver, "latest")) as file:
        def steps_of(name, values, index, legend):
            group = file.create_group(name)
            write_table(group, "index.dat", np.column_stack([times, *index]), legend, **keywords)
            write_table(group, values[0], values[1].reshape(-1, 1), ["v"], **keywords)
            return group

        for i in range(tables if "dat" in kinds else 0):
            write_table(file.require_group("A.dir"), f"a{i or ''}.dat",
                        np.column_stack([times, np.sin(times + i)]), ["t", "x"], **keywords)
        if "coef" in kinds:
            steps_of("c.coef", ("coefs.dat", np.cos(np.arange(sum(lengths)))),
                     [np.cumsum(lengths)], ["t", "index"])
        if "tdm" in kinds:
            series = steps_of("m.tdm", ("data.dat", np.sqrt(np.arange(24 * steps))), [
                24 * np.arange(1, steps + 1), np.full((steps, 2), 2)], ["t", "index", "n", "m"])
            series.attrs.create("TensorSpec", [b"TensorDim=3; TensorSymm=11; DataMeshDim=2;"],
                                dtype=ASCII if legends == ASCII else "S60")
        if "txt" in kinds:
            file.create_dataset("l.txt", data=["step\n", "done\n"], dtype=ASCII, maxshape=(None,),
                                chunks=(16,))
        if "ver" in kinds:
            record = file.create_dataset("v.ver", data=np.array([["h", "first"]], object),
                                         dtype=ASCII, maxshape=(None, 2), chunks=(1, 2))
            record.attrs.create("Version", [1], dtype="u8")
    return content.getvalue()


# Random segments. `rng` is a random.Random. The segments of one set are drawn from one plan, so that
# what must agree between them does.

FOLDERS = ("", "", "A.dir/", "A.dir/B b.dir/", "Zé*.dir/", "x|y.dir/", "de.dir/ep.dir/er.dir/")
STEMS = ("a", "b", "q.r", " c", "Z", "ü", "[x]", "f?", "*")


def random_plans(rng):
    return {f"{rng.choice(FOLDERS)}{rng.choice(STEMS)}{i}.{kind}": types.SimpleNamespace(
        columns=rng.choice((1, 2, 3, 7, 25)),
        legend=rng.choice(("missing", "undefined", "accents", "empty")),
        spec=(rng.choice((1, 2, 3)), rng.choice(("", "1", "11", "12", "112", "aa")),
              rng.choice((0, 1, 2, 3))),
        entries=[("h" * rng.randrange(3), rng.choice(("", "text", "ä" * 5, "x" * 300)))
                 for _ in range(rng.choice((0, 1, 3)))])
            for kind in KINDS for i in range(rng.choice((0, 1, 1, 2, 3)))}


def random_times(rng, start):
    count = rng.choice((0, 1, 2, 5, 20, rng.randrange(60)))
    times = start + rng.choice((0.25, 0.5, 1.0)) * np.arange(count)
    odd = rng.choice((np.nan, np.inf, -np.inf, -3.0))
    oddities = [lambda: np.where(np.arange(count) == rng.randrange(count), odd, times),
                lambda: np.append(times[:-1], odd), lambda: np.repeat(times, 2)[:count],
                lambda: np.array(rng.sample(list(times), count)),
                lambda: times + [rng.choice((0, 1e-11, -1e-11, 1e-10)) for _ in times]]
    return rng.choice(oddities)() if count > 2 and rng.random() < 0.5 else times


def random_values(rng, count):
    values = np.random.default_rng(rng.randrange(1 << 30)).standard_normal(count)
    if count and rng.random() < 0.3:
        values[rng.randrange(count)] = rng.choice((np.nan, np.inf, -0.0, 5e-324))
    if rng.random() < 0.3:
        values = np.floor(values * 20)
    return values if rng.random() < 0.9 else np.zeros(count)


def random_strings(rng, node, name, values):
    form = rng.choice(("fixed", UTF8, ASCII if all(map(bytes.isascii, values)) else UTF8))
    if form == "fixed":
        node.attrs.create(name, np.array(values, f"S{max(map(len, values)) or 1}"))
    else:
        node.attrs.create(name, np.array([value.decode() for value in values], object), dtype=form)


def random_table(rng, group, name, rows, legend, must_be_exact=False):
    types = ["f8", "f8", "f8", ">f8"] + ([] if must_be_exact else ["f4", ">f4", "f2"])
    if rows.size and np.all(np.isfinite(rows)) and np.all(rows == np.floor(rows)):
        if np.max(np.abs(rows)) < 100:
            types += ["i4", ">i8", "i1", ">i2"] + (["u2"] if np.min(rows) >= 0 else [])
    dtype, written, columns = np.dtype(rng.choice(types)), len(rows), rows.shape[1]
    with np.errstate(all="ignore"):
        rows = rows.astype(dtype)
    keywords = {}
    if rng.random() < 0.6:  # or contiguous
        chunk = (rng.choice((1, 2, 3, 7, 64, max(1, len(rows)))), rng.choice((1, 1, columns)))
        largest = [(None, columns), (None, None)]
        if chunk[0] <= len(rows):
            largest.append((len(rows) + 5, columns))
        keywords = {"chunks": chunk, "maxshape": rng.choice(largest)} | rng.choice((
            {}, FILTERS, FILTERS, {"compression": rng.randrange(10)}, {"fletcher32": True},
            {"shuffle": True, "fletcher32": True}))
        if not must_be_exact and rng.random() < 0.2:  # rows that were never written
            keywords["fillvalue"] = 7
            written //= 2
    table = group.create_dataset(name, shape=rows.shape, dtype=dtype, **keywords)
    if written:
        table[:written] = rows[:written]
    if legend is not None:
        random_strings(rng, table, "Legend", legend)


def random_legend(rng, plan):
    if plan.legend in ("missing", "undefined") and rng.random() < 0.5:
        return None if plan.legend == "missing" else [b"undefined"] * plan.columns
    return [in_bytes("côl %d" % c if plan.legend == "accents" else "") for c in range(plan.columns)]


# Writes the steps of a coefficient set or a tensor series, of `lengths` values each.
def random_steps(rng, group, values_name, times, extents, lengths):
    index = np.column_stack([times, np.cumsum(lengths, dtype="f8"), extents])
    legend = [b"time", b"index"] + [b"Extents"] * extents.shape[1]
    random_table(rng, group, "index.dat", index, rng.choice((legend, legend, None)), True)
    random_table(rng, group, values_name, random_values(rng, int(sum(lengths))).reshape(-1, 1),
                 rng.choice(([b"values"], [b""], None)))


def write_random_object(rng, group, name, plan, start):
    kind, times = name.rpartition(".")[2], random_times(rng, start)
    if kind == "dat":
        rows = random_values(rng, len(times) * plan.columns).reshape(-1, plan.columns)
        rows[:, 0] = times
        random_table(rng, group, name, rows, random_legend(rng, plan))
    elif kind == "coef":
        usual = rng.choice((0, 4))
        random_steps(rng, group.create_group(name), "coefs.dat", times, np.empty((len(times), 0)),
                     [rng.choice((usual, usual, 1, 200)) for _ in times])
    elif kind == "tdm":
        extents = np.array([[rng.choice((0, 1, 2, 3, 5)) for _ in range(plan.spec[2])]
                            for _ in times], "f8").reshape(len(times), plan.spec[2])
        series = group.create_group(name)
        random_steps(rng, series, "data.dat", times, extents,
                     component_count(*plan.spec[:2]) * np.prod(extents, axis=1))
        random_strings(rng, series, "TensorSpec", [in_bytes(rng.choice((
            "TensorDim=%d; TensorSymm=%s; DataMeshDim=%d;",
            " TensorDim = %d ;\n TensorSymm=%s; # indices\n DataMeshDim=%d")) % plan.spec)])
    elif kind == "txt":
        text = rng.choice(("", "abc", "line\n", "x" * 5000, "naïve "))
        form = rng.choice(("scalar", "characters", "strings", "strings"))
        if form == "scalar":
            group.create_dataset(name, data=text, dtype=UTF8)
        elif form == "characters":
            group.create_dataset(name, data=np.frombuffer(in_bytes(text), "i1"))
        else:
            pieces = group.create_dataset(name, (rng.choice((0, 1, 4)),), maxshape=(None,),
                                          chunks=(16,), dtype=ASCII if text.isascii() else UTF8)
            for i in range(len(pieces)):
                if rng.random() < 0.9:  # or never written
                    pieces[i] = text
    else:
        is_ascii = all(text.isascii() for entry in plan.entries for text in entry)
        record = group.create_dataset(
            name, data=np.array(plan.entries, object).reshape(-1, 2), maxshape=(None, 2),
            chunks=(1, 2), dtype=ASCII if is_ascii else UTF8)
        record.attrs.create("Version", [len(plan.entries)], dtype=rng.choice(("u8", "i4", ">u8")))


def write_random(rng, path, plans, start):
    libver = rng.choice(("earliest", ("earliest", "v108"), ("v108", "v108"), "latest"))
    keywords = rng.choice(({}, {}, {}, {"userblock_size": 512}, {"track_order": True}))
    with h5py.File(path, "w", libver=libver, **keywords) as file:
        for name, plan in plans.items():
            if rng.random() < 0.8:
                folder, _, base = name.rpartition("/")
                write_random_object(rng, file.require_group(folder) if folder else file, base,
                                    plan, start)
