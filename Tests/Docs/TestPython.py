"""Runs the snippets of docs/python.md on a joined file, and the join of what they write; and those of
docs/file-format.md, which write segment.h5, and the join of that.

    TestPython.py SOURCES KELMOR KELMORINFO WRITE_SEGMENTS [TEST ...]
"""

import fcntl
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import h5py
import numpy as np

SOURCES, KELMOR, KELMORINFO, WRITE_SEGMENTS = sys.argv[1:5]
SUPERBLOCK_VERSION = 8  # offset of the byte
TIMES = np.arange(176) * 0.125


def join(output, *inputs):
    subprocess.run([KELMOR, "-o", output, *inputs], check=True)


class WithSnippets(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        os.chdir(holder.name)
        cls.prepare()
        cls.text = (pathlib.Path(SOURCES) / "docs" / cls.page).read_text(encoding="utf-8")
        cls.found = {}
        exec("\n".join(re.findall(r"^```python\n(.*?)^```$", cls.text, re.MULTILINE | re.DOTALL)), cls.found)


class TestFileFormat(WithSnippets):
    page = "file-format.md"
    prepare = staticmethod(lambda: None)

    def test_writes_what_a_join_writes(self):
        """The same objects, layouts, filters, attributes and values, in the same version of the format."""
        join("joined.h5", "segment.h5")
        subprocess.run([sys.executable, f"{SOURCES}/Benchmarks/compare.py", "segment.h5", "joined.h5"], check=True)
        self.assertEqual(pathlib.Path("joined.h5").read_bytes()[SUPERBLOCK_VERSION], 2)
        with h5py.File("joined.h5", "r") as joined:
            for name in ("Run.dir/position.dat", "metric.tdm/data.dat"):
                self.assertEqual(joined[name].id.get_create_plist().get_obj_track_times(), 0, name)


class TestPython(WithSnippets):
    """What the snippets should find follows from the formulas in Examples/WriteSegments.cpp."""
    page = "python.md"

    @staticmethod
    def prepare():
        subprocess.run([WRITE_SEGMENTS, "."], check=True, stdout=subprocess.DEVNULL)
        segments = ["segment1.h5", "segment2.h5", "segment3.h5"]
        for name in segments:
            with h5py.File(name, "a", libver=("v108", "latest")) as segment:
                segment["VersionHist.ver"][1, 1] = "Geschwindigkeiten für sich".encode()
                if name == segments[-1]:
                    segment["Run.dir/log.txt"][0] = "bis t ≈ 22\n".encode()
        join("joined.h5", *segments)
        subprocess.run([KELMORINFO, "-view", "view.h5", *segments], check=True, stdout=subprocess.DEVNULL)

    def test_reads_tables(self):
        radius = 10 - 0.05 * TIMES
        total = (0.1 * radius) ** 2 - 1 / radius
        energy = self.found["energy"]
        self.assertEqual(list(energy), ["kinetic", "potential", "total"])
        np.testing.assert_allclose(energy.index, TIMES)
        np.testing.assert_allclose(energy["total"], total)
        self.assertAlmostEqual(self.found["late"], total[TIMES >= 10].mean())
        self.assertEqual(len(self.found["tables"]), 5)
        self.assertTrue(self.found["viewed"].equals(energy))
        os.rename("segment2.h5", "gone.h5")
        with h5py.File("view.h5", "r") as view, self.assertRaisesRegex(OSError, "rows of Run.dir/energy.dat"):
            self.found["read_whole"](view, "Run.dir/energy.dat")
        os.rename("gone.h5", "segment2.h5")
        expected = energy.reset_index().tail(5).to_numpy()
        np.testing.assert_allclose(self.found["recent"].to_numpy(), expected)
        with open("segment3.h5", "rb") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            self.assertIsNone(self.found["last_rows"](held.name, "Run.dir/energy.dat"))
            copied = self.found["last_rows_of_copy"](held.name, "Run.dir/energy.dat", 5)
            np.testing.assert_allclose(copied.to_numpy(), expected)

    def test_reads_sets_texts_and_versions(self):
        shape = self.found["shape"]
        np.testing.assert_allclose(shape.index, TIMES)
        for time, vector in shape.items():
            l = np.arange(4 + int(time / 4))
            np.testing.assert_allclose(vector, np.exp(-l) * np.cos(0.1 * l * time))

        point = np.arange(216).reshape(6, 6, 6, order="F")
        for component, values in enumerate(self.found["metric"].values()):
            np.testing.assert_allclose(values, 1 + 0.1 * component * np.sin(0.02 * point - 0.3))

        for text in (self.found["log"], self.found["last_lines"]):
            self.assertEqual(text.splitlines()[-1], "bis t ≈ 22")
        self.assertEqual(self.found["history"].iloc[1].tolist(), ["b0c47de", "Geschwindigkeiten für sich"])

    def test_writes_what_is_joined(self):
        join(*re.search(r"^    Kelmor -o (.*)$", self.text, re.MULTILINE)[1].split())
        with h5py.File("own.h5", "r") as file:
            np.testing.assert_allclose(file["Run.dir/matter.dat"][:],
                                       [[t, 2 - 0.1 * t, 0.5 * t] for t in range(6)])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:], verbosity=2)
