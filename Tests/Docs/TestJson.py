"""Holds what the programs print as JSON against docs/kelmor.schema.json.

    TestJson.py SOURCES KELMOR_RUN KELMOR KELMORINFO WRITE_SEGMENTS
"""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import h5py
import jsonschema
import numpy as np

SOURCES, KELMOR_RUN, KELMOR, KELMORINFO, WRITE_SEGMENTS = sys.argv[1:]
SCHEMA = json.loads((pathlib.Path(SOURCES) / "docs/kelmor.schema.json").read_text(encoding="utf-8"))
SEGMENTS = ["segment1.h5", "segment2.h5", "segment3.h5"]
KINDS = [each["$ref"].rpartition("/")[2] for each in SCHEMA["oneOf"]]


def validator(kind):
    return jsonschema.Draft202012Validator({"$ref": f"#/$defs/{kind}", "$defs": SCHEMA["$defs"]})


def parse(text):
    def refuse(constant):
        raise ValueError(f"{constant} is no JSON")
    return json.loads(text, parse_constant=refuse)


def objects_in(value):
    """The value and all that it holds, as far as they are objects."""
    if isinstance(value, dict):
        yield value
    for each in value.values() if isinstance(value, dict) else value if isinstance(value, list) else []:
        yield from objects_in(each)


def write_files():
    """Joins, right and wrong, a view, and files that nobody should write."""
    subprocess.run([WRITE_SEGMENTS, "."], check=True, stdout=subprocess.DEVNULL)
    for name in ("join.h5", "wrong.h5"):
        subprocess.run([KELMOR, "-o", name, *SEGMENTS], check=True)
    subprocess.run([KELMORINFO, "-view", "view.h5", *SEGMENTS], check=True, stdout=subprocess.DEVNULL)
    with h5py.File("wrong.h5", "r+") as file:
        file["Run.dir/energy.dat"][3, 1] += 1
        file["Run.dir"].attrs["note"] = "new"
    with h5py.File("odd.h5", "w") as file:
        rows = np.zeros((4, 2))
        rows[:, 0] = np.nan, -np.inf, np.inf, np.nan
        file.create_dataset("times.dat", data=rows, chunks=(4, 1), maxshape=(None, 2))
        file.create_dataset("Run.dir/energy.dat", data=rows[:0, :1], chunks=(4, 1), maxshape=(None, 1))
        file.create_dataset("flat.dat", data=np.zeros(3))
        file.create_dataset("gap.dat", data=[[0.0], [1], [2], [20], [21]], chunks=(5, 1), maxshape=(None, 1))
        file["far.dir"] = h5py.ExternalLink("segment1.h5", "Run.dir")
    with h5py.File("torn.h5", "w") as file:
        table = file.create_dataset("x.dat", (20, 2), "f8", chunks=(5, 1), fletcher32=True)
        table[:] = np.arange(40).reshape(20, 2)
        text = file.create_dataset("s.txt", (2,), h5py.string_dtype("ascii"), chunks=(1,))
        text[:] = ["a", "b"]
        places = table.id.get_chunk_info_by_coord((10, 1)).byte_offset, text.id.get_chunk_info(1).byte_offset
    with open("torn.h5", "r+b") as file:
        for place in places:
            file.seek(place)
            file.write(b"\xff" * 16)
    pathlib.Path("short.h5").write_bytes(pathlib.Path("segment1.h5").read_bytes()[:2000])


class TestJson(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        os.chdir(holder.name)
        os.environ.update(VEXA_NO_BACKTRACE="1", KELMOR=KELMOR, KELMORINFO=KELMORINFO)
        write_files()
        swapped = ["segment1.h5", "segment3.h5", "segment2.h5"]
        runs = [("listing", 0, SEGMENTS), ("listing", 255, ["odd.h5", "short.h5", "view.h5", "segment1.h5"]),
                ("plan", 0, ["-plan", *swapped, "odd.h5", "-skip", "*.dir/*|*flat*"]),
                ("plan", 1, ["-plan", "-NoWipe", *SEGMENTS, "odd.h5", "short.h5"]),
                ("plan", 1, ["-plan", "-o", "join.h5", *SEGMENTS]),
                ("check", 0, ["-check", "join.h5", *SEGMENTS]), ("check", 0, ["-check", "view.h5", *SEGMENTS]),
                ("check", 1, ["-check", "wrong.h5", *SEGMENTS]), ("check", 1, ["-check", "odd.h5", *SEGMENTS]),
                ("shownRows", 0, ["-show", "times.dat", "odd.h5"]),
                ("shownStep", 0, ["-show", "Run.dir/metric.tdm", "-at", "5", *SEGMENTS]),
                ("shownText", 0, ["-show", "Run.dir/log.txt", *SEGMENTS]),
                ("shownHistory", 0, ["-show", "VersionHist.ver", *SEGMENTS]),
                ("salvage", 0, ["-salvage", "whole.h5", "segment1.h5"]),
                ("salvage", 1, ["-salvage", "saved.h5", "torn.h5"])]
        cls.documents = []
        for kind, status, arguments in runs:
            result = subprocess.run([KELMORINFO, "-json", *arguments], text=True, stdout=subprocess.PIPE,
                                    stderr=subprocess.PIPE, check=False)
            if result.returncode != status:
                raise AssertionError(f"{arguments} ends with {result.returncode}: {result.stderr}")
            cls.documents.append((kind, arguments, parse(result.stdout)))
        with h5py.File("link.h5", "w") as file:
            file["far.dir"] = h5py.ExternalLink("segment1.h5", "Run.dir")
        subprocess.run([KELMOR_RUN, "--accept", "time,order", "-NoGzip", "run.h5", *swapped, "link.h5"], check=True)
        cls.documents.append(("record", ["run.h5.json"], parse(pathlib.Path("run.h5.json").read_text())))

    def test_every_document_is_of_its_kind_alone(self):
        jsonschema.Draft202012Validator.check_schema(SCHEMA)
        for kind, arguments, document in self.documents:
            errors = [f"{error.json_path}: {error.message}" for error in validator(kind).iter_errors(document)]
            self.assertEqual(errors, [], arguments)
            self.assertEqual([each for each in KINDS if validator(each).is_valid(document)], [kind], arguments)

    def test_no_key_is_free_or_only_described(self):
        """What a program adds, leaves out or never says is noticed."""
        described = {key for each in objects_in(SCHEMA) for key in each.get("properties", {})}
        told, seen = set(), set()
        for kind, _, document in self.documents:
            for each in objects_in(document):
                told.update(key for key, value in each.items() if value not in (None, []))
                if (kind, *each) in seen:
                    continue
                seen.add((kind, *each))
                for change in (lambda: each.update(new=None), each.popitem):
                    before = dict(each)
                    change()
                    self.assertFalse(validator(kind).is_valid(document), f"{kind}: {before} became {each}")
                    each.clear()
                    each.update(before)
        self.assertEqual(told, described)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
