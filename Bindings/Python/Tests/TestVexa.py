"""The package from outside, as programs in Python use it, and its page. What is in files is looked at by
h5py, what is read of several by their join.

    TestVexa.py KELMOR KELMORINFO WRITE_SEGMENTS
"""

import copy
import doctest
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import h5py
import numpy as np
import pandas as pd

import vexa
from vexa import _joined, _reading, _tensors, _writing

KELMOR, KELMORINFO, WRITE_SEGMENTS = sys.argv[1:4]
os.environ["VEXA_KELMORINFO"] = KELMORINFO
SEGMENTS = ["segment1.h5", "segment2.h5", "segment3.h5"]
try:
    import xarray
except ImportError:
    xarray = None


def load_tests(_loader, tests, _pattern):
    for module in (_joined, _reading, _tensors, _writing):
        names = {**vars(module), "open": vexa.open, "File": vexa.File, "read": vexa.read}
        tests.addTests(doctest.DocTestSuite(module, globs=names))
    page = pathlib.Path(__file__).parents[3] / "docs/python.md"
    tests.addTests(doctest.DocFileSuite(str(page), module_relative=False))
    return tests


def rows_of(path, name):
    with h5py.File(path, "r") as file:
        return file[name][:].tolist()


def tensors(parts, name):
    return _reading.read_parts(parts, name, _reading.read_tensors)


class TestWriting(unittest.TestCase):
    def test_takes_rows_of_any_layout_and_no_others(self):
        rows = np.arange(6.0).reshape(3, 2)
        frame = pd.DataFrame(rows, columns=["t", "x"])
        like = [rows.copy("F"), np.repeat(rows, 2, axis=0)[::2], rows.astype(">f8"), rows.astype("i2"), frame]
        bad = [frame[["x", "t"]], rows + 1j, [["0", "1"]], [[0], [1, 2]], rows[:, :1], [0.0], 0.0, rows[None],
               np.ma.masked_greater(rows, 2), [np.ma.masked_greater(row, 2) for row in rows], None,
               frame[["x", "t"]].iloc[0]]
        with vexa.File("layout.h5") as file:
            table = file.table("x.dat", ["t", "x"])
            for given in like:
                table.append(given)
            for given in bad:
                with self.assertRaisesRegex(vexa.Error, r"(?s)x\.dat.*layout\.h5", msg=repr(given)):
                    table.append(given)
            with self.assertRaisesRegex(vexa.Error, "columns"):
                file.table("x.dat").append(bad[0])
            with self.assertRaisesRegex(vexa.Error, "at most"):
                file.table("long.dat", ["t"], chunk_rows=2**62)
            self.assertRaises(TypeError, copy.copy, table)
            self.assertEqual(table.shape, (15, 2))
            for wrong in (("x.dat\0", rows), ("x.xyz", rows), ("/no/x.dat", rows), ("x.txt", None),
                          ("x.txt", "\ud800"), ("c.coef", [0, 1], 5.0), ("y.ver", [("a",)])):
                with self.assertRaises(vexa.Error, msg=repr(wrong)):
                    file.append(*wrong)
            with self.assertRaisesRegex(vexa.Error, "Masked"):
                masked = np.ma.masked_all((1, 2))
                file.append("m.tdm", 0.0, masked, dim=1, symmetry="", mesh_dim=1)
            with self.assertRaisesRegex(vexa.Error, r"(?s)3 columns.*x\.dat.*layout\.h5"):
                table.append([1, 2, 3])
        self.assertEqual(rows_of("layout.h5", "x.dat"), rows.tolist() * 5)
        with self.assertRaisesRegex(vexa.Error, "closed"):
            table.append([1, 2])

    def test_many_steps_are_as_one_after_the_other(self):
        metric = np.random.default_rng(1).random((2, 3, 4, 5))
        kept = np.empty((2, 3, 5, 4)).transpose(0, 1, 3, 2)    # as a file has it: not copied
        kept[:] = metric
        with vexa.File("one.h5") as one, vexa.File("two.h5") as two:
            for step in (0, 1):
                one.append("m.tdm", step, metric[step], dim=2, symmetry="11", mesh_dim=2)
                one.append("c.coef", step, [7.0] * step)
            two.append("m.tdm", [0, 1], kept, dim=2, symmetry="11", mesh_dim=2)
            two.append("c.coef", [0, 1], [[], [7.0]])
        self.assertEqual(pathlib.Path("one.h5").read_bytes(), pathlib.Path("two.h5").read_bytes())
        with h5py.File("one.h5") as file:    # component 1 of the first step, its first index fastest
            self.assertEqual(file["m.tdm/data.dat"][20:40, 0].tolist(), metric[0, 1].ravel("F").tolist())
        np.testing.assert_array_equal(tensors([_reading.Part("one.h5")], "m.tdm").values, metric)

    def test_rows_wait_while_h5py_has_the_file_open(self):
        for mode in ("r", "r+"):
            file = vexa.File("waits.h5")
            file.append("x.dat", [0.0], legend=["t"])
            file.flush()
            before = len(rows_of("waits.h5", "x.dat"))
            with h5py.File("waits.h5", mode) as own:
                file.append("x.dat", [1.0])
                file.flush()
                self.assertGreater(file.waiting, 0)
                self.assertEqual(len(own["x.dat"]), before)
            file.close()
            self.assertEqual(len(rows_of("waits.h5", "x.dat")), before + 1)

    def test_stays_within_the_limit_and_writes_at_the_end(self):
        script = """if True:
            import h5py, sys, vexa
            own = h5py.File("own.h5", "w")
            vexa.set_cache_limit(1000)
            file = vexa.File("ends.h5")
            for t in range(100):
                file.append("x.dat", [t, 0], legend=["t", "x"])
                assert vexa.waiting() <= 1000
            own["left"] = 1"""
        subprocess.run([sys.executable, "-c", script], check=True)
        self.assertEqual(len(rows_of("ends.h5", "x.dat")), 100)
        with h5py.File("own.h5", "r") as own:
            self.assertIn("left", own)


    def test_ends_while_a_thread_appends(self):
        script = """if True:
            import threading, vexa
            file = vexa.File("thread.h5")
            file.append("x.dat", [0.0], legend=["t"])
            started = threading.Event()
            def work():
                while True:
                    file.append("x.dat", [1.0])
                    started.set()
            threading.Thread(target=work, daemon=True).start()
            started.wait()"""
        subprocess.run([sys.executable, "-c", script], check=True, stderr=subprocess.DEVNULL, timeout=60)
        self.assertGreater(len(rows_of("thread.h5", "x.dat")), 1)


class TestReading(unittest.TestCase):
    def same(self, one, other):
        if isinstance(one, pd.DataFrame):
            pd.testing.assert_frame_equal(one, other)
        elif isinstance(one, str):
            self.assertEqual(one, other)
        else:
            np.testing.assert_array_equal(one.times, other.times)
            self.assertEqual(len(one.values), len(other.values))
            self.assertTrue(all(map(np.array_equal, one.values, other.values)))

    def test_segments_read_as_their_join(self):
        for number, options in enumerate(({}, {"no_wipe": True}, {"delta_t": 1.0})):
            arguments = {0: [], 1: ["-NoWipe"], 2: ["-DeltaT", "1"]}[number]
            joined = f"joined{number}.h5"
            subprocess.run([KELMOR, "-o", joined, *arguments, *SEGMENTS], check=True)
            run = vexa.open(SEGMENTS, **options)
            self.assertGreater(len(run), 7)
            for name in run:
                if name.endswith(".tdm"):
                    self.same(tensors(run.parts(name), name), tensors([_reading.Part(joined)], name))
                else:
                    self.same(run[name], vexa.read(joined, name))

    def test_refuses_what_does_not_belong_together(self):
        run = vexa.open(SEGMENTS[:2])
        with vexa.File("other.h5", history=[("a", "another format")]) as file:
            file.append("Run.dir/energy.dat", [0.0, 1.0], legend=["time", "x"])
        with self.assertRaisesRegex(vexa.Error, "(?s)joined: .*energy.*columns|Version"):
            vexa.open([*SEGMENTS, "other.h5"])
        with self.assertRaisesRegex(KeyError, "none.dat' in 'segment1.h5', 'segment2.h5'"):
            run["Run.dir/none.dat"]
        with open("junk.h5", "w+", encoding="ascii") as junk:
            for refuses in (lambda: vexa.open(junk), lambda: vexa.plan(["junk.h5"]),
                            lambda: vexa.read("junk.h5", "x.dat")):
                self.assertRaisesRegex(vexa.Error, "junk.h5", refuses)
        subprocess.run([KELMORINFO, "-view", "view.h5", *SEGMENTS[:2]], check=True)
        self.same(vexa.read("view.h5", "Run.dir/energy.dat"), run["Run.dir/energy.dat"])
        os.rename(SEGMENTS[1], "away.h5")
        try:
            with self.assertRaisesRegex(vexa.Error, "segment2.h5"):
                vexa.read("view.h5", "Run.dir/energy.dat")
        finally:
            os.rename("away.h5", SEGMENTS[1])

    def test_tells_what_is_damaged(self):
        def damage(change, name, expected):
            with vexa.File("damaged.h5") as file:
                file.append("c.coef", [0, 1], [[1.0], [2.0]])
                file.append("m.tdm", 0.0, np.ones((1, 2)), dim=1, symmetry="", mesh_dim=1)
            with h5py.File("damaged.h5", "r+") as file:
                change(file)
            with self.assertRaisesRegex(vexa.Error, f"'{name}' of 'damaged.h5': .*{expected}"):
                (tensors if name == "m.tdm" else _reading.read_parts)([_reading.Part("damaged.h5")], name)
            os.remove("damaged.h5")

        def put(path, row, column, value):
            def change(file):
                file[path][row, column] = value
            return change

        for value in (3.0, -1.0, 0.5, np.nan):
            damage(put("c.coef/index.dat", 0, 1, value), "c.coef", "where steps end")
        damage(put("m.tdm/index.dat", 0, 2, 7), "m.tdm", "not those of a mesh")
        damage(lambda file: file["c.coef/coefs.dat"].resize(10**13, 0), "c.coef", "larger than")
        damage(put("m.tdm/index.dat", 0, 2, 2.5), "m.tdm", "not those of a mesh")
        symmetry = "1" * 3000
        for spec, reason in (("x", "TensorSpec"), (f"2;TensorSymm={symmetry};DataMeshDim=1", "at most")):
            damage(lambda file, spec=spec: file["m.tdm"].attrs.create("TensorSpec", [f"TensorDim={spec}"]),
                   "m.tdm", reason)

        def make_complex(file):
            del file["c.coef/coefs.dat"]
            file["c.coef/coefs.dat"] = np.ones((2, 1)) * 1j
        damage(make_complex, "c.coef", "no rows of numbers")

    @unittest.skipIf(xarray is None, "xarray is not installed")
    def test_gives_arrays_of_xarray(self):
        metric = vexa.open(SEGMENTS)["Run.dir/metric.tdm"]
        self.assertEqual(metric.dims, ("time", "component", "x0", "x1", "x2"))
        self.same(tensors([_reading.Part(SEGMENTS[0])], "Run.dir/metric.tdm"),
                  _reading.CoefSteps(metric.time[:8], metric[:8].values))
        for number in (0, 1):
            with vexa.File("ragged.h5") as file:
                file.append("m.tdm", float(number), np.ones((1, 2 + number)), dim=1, symmetry="", mesh_dim=1)
        self.assertEqual([step.sizes["x0"] for step in vexa.read("ragged.h5", "m.tdm")], [2, 3])
        energy = xarray.open_dataset(SEGMENTS[0], engine="vexa", name="Run.dir/energy.dat")
        self.assertEqual(set(energy), {"kinetic", "potential", "total"})
        for given in (SEGMENTS, SEGMENTS[0]):
            with self.assertRaisesRegex(vexa.Error, "segment1.h5.*none.dat|none.dat.*segment1.h5"):
                xarray.open_dataset(given, engine="vexa", name="none.dat")
        plain = xarray.open_dataset(SEGMENTS[0], engine="vexa", name="Run.dir/energy.dat", decode_times=False,
                                    mask_and_scale=False, decode_coords="all", drop_variables="total")
        self.assertEqual(set(plain), {"kinetic", "potential"})
        self.assertEqual(energy.sel(time=0.125).total, vexa.read(SEGMENTS[0], "Run.dir/energy.dat").total[1])


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        subprocess.run([WRITE_SEGMENTS, "."], check=True, stdout=subprocess.DEVNULL)
        unittest.main(argv=sys.argv[:1])
