"""Runs the snippets of docs/file-format.md, which write segment.h5, and joins that file.

    TestFileFormat.py SOURCES KELMOR

The page and the program agree if the joined file has the same objects, layouts, filters, attributes
and values, and is of the same version of the format.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

import h5py

SUPERBLOCK_VERSION = 8  # offset of the byte

sources, kelmor = pathlib.Path(sys.argv[1]), sys.argv[2]
page = (sources / "docs/file-format.md").read_text(encoding="utf-8")
with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    exec("\n".join(re.findall(r"^```python\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)), {})
    subprocess.run([kelmor, "-o", "joined.h5", "segment.h5"], check=True)
    subprocess.run([sys.executable, sources / "Benchmarks/compare.py", "segment.h5", "joined.h5"],
                   check=True)
    assert pathlib.Path("joined.h5").read_bytes()[SUPERBLOCK_VERSION] == 2
    with h5py.File("joined.h5", "r") as joined:
        for name in ("Run.dir/position.dat", "metric.tdm/data.dat"):
            assert joined[name].id.get_create_plist().get_obj_track_times() == 0, name
