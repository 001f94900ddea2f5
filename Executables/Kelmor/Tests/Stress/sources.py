"""The files of the test suites of HDF5, h5py and netCDF, as Debian's source packages hold them, and
some of their objects under names that are joined.
"""

import contextlib
import os
import pathlib
import platform
import shutil
import subprocess
import tarfile
import tempfile

import h5py
from check import in_text
from judge import MB, Died, in_child
from segments import write_plain

CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache",
                     "kelmor-stress")
SIGNATURE = b"\x89HDF\r\n\x1a\n"
FORMS = [(is_copy, kind) for is_copy in (False, True) for kind in ("dat", "txt", "ver")]
FORMS += [(False, "coef"), (False, "tdm")]
MEMBERS = {"coef": ("/index.dat", "/coefs.dat"), "tdm": ("/index.dat", "/data.dat")}


def fetch(folder):
    """Downloads the packages into a folder, past the lists and settings of the system."""
    release = platform.freedesktop_os_release()["VERSION_CODENAME"]
    (folder / "list").write_text(f"deb-src http://deb.debian.org/debian {release} main\n")
    (folder / "lists/partial").mkdir(parents=True)
    command = ["apt-get", "-qq", "-o", "APT::Sandbox::User=root"]
    for name, value in (("Etc::SourceList", folder / "list"), ("Etc::SourceParts", "/dev/null"),
                        ("State::Lists", folder / "lists"), ("Cache", folder)):
        command += ["-o", f"Dir::{name}={value}"]
    subprocess.run([*command, "update"])
    for package in "hdf5", "h5py", "netcdf":
        if subprocess.run([*command, "source", "--download-only", package], cwd=folder).returncode:
            print(f"sources: {package} cannot be fetched", flush=True)


def source_cases(share):
    """All files at once or none: a sample would download as much."""
    if share < 1:
        return []
    if not CACHE.exists():
        CACHE.parent.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory(dir=CACHE.parent) as name:
            folder = pathlib.Path(name)
            (folder / "files").mkdir()
            fetch(folder)
            for archive in folder.glob("*.orig.tar.*"):
                with tarfile.open(archive) as package:
                    for member in filter(tarfile.TarInfo.isfile, package):
                        content = package.extractfile(member).read()
                        if SIGNATURE in content or member.name.endswith((".h5", ".nc")):
                            keep_file(folder, member.name, content)
            for path in pathlib.Path(h5py.__file__).parent.rglob("*.h5"):
                keep_file(folder, f"h5py_{path.name}", path.read_bytes())
            (folder / "files").rename(CACHE)
    return [(path.name,) for path in sorted(CACHE.iterdir())]


def keep_file(folder, name, content):
    (folder / "files" / name.replace("/", "_")).write_bytes(content)


def objects_in(path):
    names = []
    with h5py.File(path, "r") as file, contextlib.suppress(Exception):
        file.id.links.visit(names.append)
    return [in_text(name) for name in names[:12]]


def write_form(folder, inside, is_copy, kind):
    with h5py.File(folder / "in.h5", "w") as file:
        for member in MEMBERS.get(kind, ("",)):
            file["x." + kind + member] = h5py.ExternalLink("source.h5", inside)
        if is_copy:
            node = file.pop("x." + kind)
            file.copy(node, "x." + kind)
        if is_copy and kind == "ver":
            file["x.ver"].attrs["Version"] = [len(node)]
        if kind == "tdm":
            file["x.tdm"].attrs["TensorSpec"] = ["TensorDim=3; TensorSymm=; DataMeshDim=0;"]


def run_source(judge, name):
    judge.memory, judge.library_may_crash = 512 * MB, True
    source = judge.folder / "source.h5"
    shutil.copyfile(CACHE / name, source)
    shutil.copyfile(source, judge.folder / "again.h5")
    write_plain(judge.folder / "first.h5")
    for inputs in ["source.h5"], ["source.h5", "again.h5"], ["first.h5", "source.h5"]:
        judge.clear("out.h5", "Errors000.txt")
        status = judge.join(inputs, seconds=20, cpu_seconds=20).status
        for way in range(3):
            judge.inspect_as_joined(status, way, inputs, "first.h5")
    judge.clear("again.h5")
    try:
        objects = in_child(objects_in, source)
    except Died:
        judge.notes["that h5py does not open"] += 1
        return
    write_plain(judge.folder / "in.h5")
    with judge.server(["in.h5"]) as server:
        for number, inside in enumerate(objects):
            for way, form in enumerate(FORMS):
                judge.clear("out.h5", "Errors000.txt")
                try:
                    in_child(write_form, judge.folder, inside, *form)
                except Died:
                    judge.notes["that cannot be copied"] += 1
                    continue
                judge.case = f"sources{(name,)} {inside} {form}"
                status = judge.join(["in.h5"], launchers=(server,), about=("in.h5",), seconds=20,
                                    cpu_seconds=20).status
                judge.inspect_as_joined(status, number + way, ["in.h5"], "first.h5")
